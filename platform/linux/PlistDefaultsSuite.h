#pragma once

#include "DefaultsSuite.h"

#include <optional>

class PlistDocument;

// One suite kept in an XML property list. Every read goes to the file; every
// write takes a cross-process lock, changes its own key only and replaces the
// file atomically, so concurrent writers never lose each other's keys.
class PlistDefaultsSuite : public DefaultsSuite {
public:
    explicit PlistDefaultsSuite(QString filePath);

    std::optional<QVariant> readValue(const QString& key) override;
    bool setValue(const QString& key, const QVariant& value) override;

    const QString& filePath() const { return m_filePath; }

    static constexpr qint64 maxFileSize = 16 * 1024 * 1024;

private:
    enum class State { Missing, Parsed, Corrupt, Unreadable };
    State load(std::optional<PlistDocument>& document) const;
    void moveAside() const;

    QString m_filePath;
};
