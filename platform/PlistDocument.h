#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

// A property list whose root is a dictionary, read and written with libplist.
// Keys this program does not touch are kept exactly as they were read.
class PlistDocument {
public:
    PlistDocument(); // an empty dictionary
    ~PlistDocument();
    PlistDocument(PlistDocument&&) noexcept;
    PlistDocument& operator=(PlistDocument&&) noexcept;

    // XML or binary property list with a dictionary at its root; nothing otherwise.
    static std::optional<PlistDocument> parse(const QByteArray& bytes);

    QByteArray toXml() const;
    QVariantMap toMap() const;

    // The value under key with its type kept, or an invalid QVariant when absent.
    QVariant value(const QString& key) const;
    // False when the value's type has no property-list form.
    bool setValue(const QString& key, const QVariant& value);

private:
    struct Node;
    explicit PlistDocument(std::unique_ptr<Node> root);
    std::unique_ptr<Node> m_root;
};
