#pragma once

#include "ZLError.h"

#include <QHash>
#include <QString>

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

    // An application entry that can run: Type=Application, not Hidden, with Exec
    // and any TryExec present.
    static std::optional<Entry> readEntry(const QString& path);

    // The entry's file for identifier X (X.desktop), when its program resolves to an executable.
    static std::optional<QString> installedEntryPath(const QString& bundleIdentifier);
    // That program, with every symbolic link resolved, as /proc shows it.
    static std::optional<QString> installedProgram(const QString& bundleIdentifier);

    // Canonical executable path -> identifier, over every visible entry.
    // When several entries name the same program the first identifier in sort order wins.
    static QHash<QString, QString> identifiersByExecutable();

    // The absolute program an Exec line names, found on PATH now.
    static std::optional<QString> absoluteProgram(const QString& exec);
    // The same program with every symbolic link resolved, as /proc shows it.
    static std::optional<QString> resolvedExecutable(const QString& exec);

    // Starts an entry detached: own session, standard streams on /dev/null.
    static std::variant<qint64, ZLError> launchEntryFile(const QString& entryPath);
    static std::variant<qint64, ZLError> launchIdentifier(const QString& bundleIdentifier);

private:
    // The entry's file and its resolved program.
    static std::optional<std::pair<QString, QString>> installedEntry(const QString& bundleIdentifier);
};
