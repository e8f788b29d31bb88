#pragma once

#include "ZLError.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

// Applications as desktop entries on the XDG data directories. Entries are read
// with GKeyFile; only starting one goes through GIO, which expands the Exec
// field codes and quoting.
class DesktopApplications {
public:
    struct Entry {
        QString path;
        QString exec;
    };
    // What an Exec line runs: the program with every symbolic link resolved, as /proc
    // shows it, and the arguments without field codes (which name files to open).
    struct Command {
        QString program;
        QStringList arguments;
    };

    // An application entry that can run: Type=Application, not Hidden, with Exec
    // and any TryExec present, in a regular file of at most maxEntrySize bytes.
    static std::optional<Entry> readEntry(const QString& path);
    static constexpr qint64 maxEntrySize = 1024 * 1024;

    // The entry's file for identifier X (X.desktop), when its program resolves to an executable.
    static std::optional<QString> installedEntryPath(const QString& bundleIdentifier);
    // What that entry runs.
    static std::optional<Command> installedCommand(const QString& bundleIdentifier);

    // The absolute program an Exec line names, found on PATH now.
    static std::optional<QString> absoluteProgram(const QString& exec);
    // The command of an Exec line, its program found on PATH now.
    static std::optional<Command> command(const QString& exec);

    // Starts an entry detached: own session, standard streams on /dev/null.
    static std::variant<qint64, ZLError> launchEntryFile(const QString& entryPath);
    static std::variant<qint64, ZLError> launchIdentifier(const QString& bundleIdentifier);

private:
    // The entry's file and its command.
    static std::optional<std::pair<QString, Command>> installedEntry(const QString& bundleIdentifier);
};
