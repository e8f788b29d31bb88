#include "SUAppcast.h"

#include "SUStandardVersionComparator.h"

#include <QXmlStreamReader>

using namespace Qt::Literals::StringLiterals;

namespace {

struct ParsedItem {
    SUAppcastItem item;
    QString elementVersion;
    QString elementShortVersion;
    QString elementOs;
    bool namedChannel = false;
};

void readEnclosure(QXmlStreamReader& xml, ParsedItem& parsed)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    parsed.item.fileURL = QUrl(attributes.value(u"url"_s).toString().trimmed());
    const QString& ns = SUAppcast::sparkleNamespace;
    if (parsed.item.versionString.isEmpty())
        parsed.item.versionString = attributes.value(ns, u"version"_s).toString().trimmed();
    if (parsed.item.displayVersionString.isEmpty())
        parsed.item.displayVersionString = attributes.value(ns, u"shortVersionString"_s).toString().trimmed();
    if (parsed.item.os.isEmpty())
        parsed.item.os = attributes.value(ns, u"os"_s).toString().trimmed();
    xml.skipCurrentElement();
}

QString language(const QXmlStreamReader& xml)
{
    return xml.attributes().value(u"http://www.w3.org/XML/1998/namespace"_s, u"lang"_s).toString().trimmed();
}

// The first without a language, else the first.
template <typename T> std::optional<T> defaultOf(const QList<std::pair<QString, T>>& variants)
{
    for (const auto& [lang, value] : variants) {
        if (lang.isEmpty())
            return value;
    }
    return variants.isEmpty() ? std::nullopt : std::optional(variants.first().second);
}

// "de" of "de-DE" or "de_DE".
QString primaryLanguage(const QString& tag)
{
    return tag.section(u'-', 0, 0).section(u'_', 0, 0).toLower();
}

ParsedItem readItem(QXmlStreamReader& xml)
{
    ParsedItem parsed;
    const QString& ns = SUAppcast::sparkleNamespace;
    while (xml.readNextStartElement()) {
        const auto name = xml.name();
        const bool sparkle = xml.namespaceUri() == ns;
        if (sparkle && name == u"version"_s)
            parsed.elementVersion = xml.readElementText().trimmed();
        else if (sparkle && name == u"shortVersionString"_s)
            parsed.elementShortVersion = xml.readElementText().trimmed();
        else if (sparkle && name == u"os"_s)
            parsed.elementOs = xml.readElementText().trimmed();
        else if (sparkle && name == u"channel"_s)
            parsed.namedChannel = !xml.readElementText().trimmed().isEmpty();
        else if (xml.namespaceUri().isEmpty() && name == u"title"_s)
            parsed.item.title = xml.readElementText().trimmed();
        else if (xml.namespaceUri().isEmpty() && name == u"description"_s)
            parsed.item.descriptions.append({language(xml), xml.readElementText()});
        else if (sparkle && name == u"releaseNotesLink"_s)
            parsed.item.releaseNotesLinks.append({language(xml), QUrl(xml.readElementText().trimmed())});
        else if (xml.namespaceUri().isEmpty() && name == u"link"_s)
            parsed.item.infoURL = QUrl(xml.readElementText().trimmed());
        else if (xml.namespaceUri().isEmpty() && name == u"enclosure"_s)
            readEnclosure(xml, parsed);
        else
            xml.skipCurrentElement();
    }
    // Elements take precedence over the enclosure's attributes.
    if (!parsed.elementVersion.isEmpty())
        parsed.item.versionString = parsed.elementVersion;
    if (!parsed.elementShortVersion.isEmpty())
        parsed.item.displayVersionString = parsed.elementShortVersion;
    if (!parsed.elementOs.isEmpty())
        parsed.item.os = parsed.elementOs;
    if (parsed.item.displayVersionString.isEmpty())
        parsed.item.displayVersionString = parsed.item.versionString;
    parsed.item.itemDescription = defaultOf(parsed.item.descriptions).value_or(QString());
    parsed.item.releaseNotesURL = defaultOf(parsed.item.releaseNotesLinks).value_or(QUrl());
    return parsed;
}

} // namespace

SUAppcastItem SUAppcastItem::localized(const QString& language) const
{
    SUAppcastItem item = *this;
    const auto matches = [&language](const QString& lang) {
        return !lang.isEmpty() && primaryLanguage(lang) == primaryLanguage(language);
    };
    for (const auto& [lang, link] : releaseNotesLinks) {
        if (matches(lang)) {
            item.releaseNotesURL = link;
            return item;
        }
    }
    for (const auto& [lang, text] : descriptions) {
        if (matches(lang)) {
            item.itemDescription = text;
            item.releaseNotesURL.clear();
            return item;
        }
    }
    return item;
}

std::optional<SUAppcast> SUAppcast::parse(const QByteArray& bytes, QString* error)
{
    auto fail = [error](const QString& reason) -> std::optional<SUAppcast> {
        if (error)
            *error = reason;
        return std::nullopt;
    };
    QXmlStreamReader xml(bytes);
    if (!xml.readNextStartElement())
        return fail(xml.errorString());
    if (xml.name() != u"rss"_s)
        return fail(u"the document is not an RSS feed (its root is <"_s + xml.name().toString() + u">)"_s);
    SUAppcast appcast;
    bool sawChannel = false;
    while (xml.readNextStartElement()) {
        if (xml.name() != u"channel"_s) {
            xml.skipCurrentElement();
            continue;
        }
        sawChannel = true;
        while (xml.readNextStartElement()) {
            if (xml.name() != u"item"_s) {
                xml.skipCurrentElement();
                continue;
            }
            const ParsedItem parsed = readItem(xml);
            if (parsed.item.versionString.size() > maxVersionLength) {
                ++appcast.m_overlongVersions;
            } else if (!parsed.item.versionString.isEmpty()) {
                appcast.m_items.append(parsed.item);
                appcast.m_onChannel.append(!parsed.namedChannel);
            }
        }
    }
    if (xml.hasError())
        return fail(u"%1 at line %2, column %3"_s.arg(xml.errorString())
                        .arg(xml.lineNumber())
                        .arg(xml.columnNumber()));
    if (!sawChannel)
        return fail(u"the feed has no channel"_s);
    return appcast;
}

std::optional<SUAppcastItem> SUAppcast::bestItem(const QString& os) const
{
    std::optional<SUAppcastItem> best;
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        const SUAppcastItem& item = m_items[i];
        if (!m_onChannel[i] || (!item.os.isEmpty() && item.os != os))
            continue;
        if (!best
            || SUStandardVersionComparator::compareVersions(item.versionString, best->versionString) > 0)
            best = item;
    }
    return best;
}
