#pragma once

#include "SUAppcastItem.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// An update feed: RSS with the update framework's namespace.
class SUAppcast {
public:
    static inline const QString sparkleNamespace
        = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

    // Longer versions are no one's; their items are ignored.
    static constexpr qsizetype maxVersionLength = 256;

    // Parses a feed. Nothing, with a reason in error, when the bytes are not one.
    static std::optional<SUAppcast> parse(const QByteArray& xml, QString* error = nullptr);

    // Items in feed order, without those lacking a version or with one too long.
    const QList<SUAppcastItem>& items() const { return m_items; }

    // How many items were ignored for a version longer than maxVersionLength.
    qsizetype overlongVersions() const { return m_overlongVersions; }

    // The newest item meant for this system and the default channel.
    std::optional<SUAppcastItem> bestItem(const QString& os) const;

private:
    QList<SUAppcastItem> m_items;
    QList<bool> m_onChannel; // parallel to m_items: false for items of a named channel
    qsizetype m_overlongVersions = 0;
};
