#pragma once

#include "DesktopEntry.h"
#include "ZLError.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <variant>

// Applications as desktop entries on the XDG data directories; only starting one goes through GIO.
class DesktopApplications {
public:
    // What an entry runs when started with no files: the program with every symbolic link resolved, as /proc
    // shows it, and its arguments.
    struct Command {
        QString program;
        QStringList arguments;
    };

    // The entry's file for identifier X (X.desktop), when its program resolves to an executable.
    static std::optional<QString> installedEntryPath(const QString& bundleIdentifier);
    // What that entry runs.
    static std::optional<Command> installedCommand(const QString& bundleIdentifier);

    // The entry for identifier X, read once, and its command.
    static std::optional<std::pair<DesktopEntry, Command>> installedEntry(const QString& bundleIdentifier);

    // Opens an address with the desktop's default handler for its scheme (the browser for web pages).
    static std::optional<ZLError> openURL(const QUrl& url);

    // Starts an entry detached: own session, standard streams on /dev/null.
    static std::variant<qint64, ZLError> launchEntryFile(const QString& entryPath);
    static std::variant<qint64, ZLError> launchIdentifier(const QString& bundleIdentifier);

private:
    // The command of a runnable entry, its program found on PATH now.
    static std::optional<Command> command(const DesktopEntry& entry);
};
