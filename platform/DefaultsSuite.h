#pragma once

#include <QString>
#include <QVariant>

#include <optional>

// One user-defaults suite shared with the product's other programs.
// Values keep their types: QString for text, qint64 / double / bool for
// numbers and Booleans, QByteArray, QDateTime, QVariantList, QVariantMap.
class DefaultsSuite {
public:
    virtual ~DefaultsSuite() = default;
    // The stored value, an invalid QVariant when the key is absent; nothing when the
    // suite's file exists but cannot be read (nothing is to be decided from it then).
    virtual std::optional<QVariant> readValue(const QString& key) = 0;
    // The same, with an unreadable suite read as empty.
    QVariant value(const QString& key) { return readValue(key).value_or(QVariant()); }
    // Stores one key, leaving every other key as it was. False when the write failed.
    virtual bool setValue(const QString& key, const QVariant& value) = 0;
};
