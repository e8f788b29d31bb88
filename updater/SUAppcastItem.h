#pragma once

#include <QList>
#include <QString>
#include <QUrl>

#include <utility>

// One release offered by an update feed.
struct SUAppcastItem {
    QString title;
    QString versionString;        // compared against the bundle version
    QString displayVersionString; // shown to the user
    QString itemDescription;      // release notes, HTML, unless there is a link to them
    QUrl releaseNotesURL;         // release notes to fetch, in place of the description
    QUrl infoURL;                 // the release's web page
    QUrl fileURL;                 // the enclosure
    QString os;                   // empty when the item names no system

    // Each description and link with its xml:lang, empty for none; the first without one is the default.
    QList<std::pair<QString, QString>> descriptions;
    QList<std::pair<QString, QUrl>> releaseNotesLinks;

    // Where Download takes the user: the web page, else the enclosure.
    QUrl downloadPage() const { return infoURL.isValid() && !infoURL.isEmpty() ? infoURL : fileURL; }
    // The item with the notes in this language ("de", "de_DE") when it has them, a link before a
    // description; else with its default notes.
    SUAppcastItem localized(const QString& language) const;
};
