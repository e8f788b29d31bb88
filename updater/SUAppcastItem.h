#pragma once

#include <QString>
#include <QUrl>

// One release offered by an update feed.
struct SUAppcastItem {
    QString title;
    QString versionString;        // compared against the bundle version
    QString displayVersionString; // shown to the user
    QString itemDescription;      // release notes, HTML
    QUrl infoURL;                 // the release's web page
    QUrl fileURL;                 // the enclosure
    QString os;                   // empty when the item names no system

    // Where Download takes the user: the web page, else the enclosure.
    QUrl downloadPage() const { return infoURL.isValid() && !infoURL.isEmpty() ? infoURL : fileURL; }
};
