#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <utility>

// Where desktop entries are found, by desktop-file ID, in the order and with
// the sub-folder naming ("kde/app.desktop" is "kde-app.desktop") that GIO uses.
// Looking here instead of through GIO's own index keeps GIO from watching
// every folder with inotify, whose teardown delays each exit by many ms.
class DesktopEntryDirectories {
public:
    // $XDG_DATA_HOME/applications, then each of $XDG_DATA_DIRS.
    static QStringList applicationDirectories();

    // The file of the first folder that holds this desktop-file ID.
    static std::optional<QString> find(const QString& desktopId);

    // Every desktop-file ID with the file that wins for it, sorted by ID.
    static QList<std::pair<QString, QString>> all();
};
