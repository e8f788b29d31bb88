#pragma once

#include <QString>
#include <QVariant>

// One user-defaults suite shared with the product's other programs.
// Values keep their types: QString for text, qint64 / double / bool for
// numbers and Booleans, QByteArray, QDateTime, QVariantList, QVariantMap.
class DefaultsSuite {
public:
    virtual ~DefaultsSuite() = default;
    // The stored value, or an invalid QVariant when the key is absent.
    virtual QVariant value(const QString& key) = 0;
    // Stores one key, leaving every other key as it was. False when the write failed.
    virtual bool setValue(const QString& key, const QVariant& value) = 0;
};
