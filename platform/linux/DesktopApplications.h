#pragma once

#include "platform/ZLError.h"

#include <QHash>
#include <QString>

#include <optional>
#include <variant>

typedef struct _GDesktopAppInfo GDesktopAppInfo;

// Applications as desktop entries on the XDG data directories, found and
// started through GIO (search order, Exec field codes and quoting are GIO's).
class DesktopApplications {
public:
    // The entry's file for identifier X (X.desktop), when its program resolves to an executable.
    static std::optional<QString> installedEntryPath(const QString& bundleIdentifier);

    // Canonical executable path -> identifier, over every visible entry.
    // When several entries name the same program the first identifier in sort order wins.
    static QHash<QString, QString> identifiersByExecutable();

    // The absolute program an entry's Exec names, found on PATH now.
    static std::optional<QString> absoluteProgram(GDesktopAppInfo* info);
    // The same program with every symbolic link resolved, as /proc shows it.
    static std::optional<QString> resolvedExecutable(GDesktopAppInfo* info);

    // Starts an entry detached: own session, standard streams on /dev/null.
    static std::variant<qint64, ZLError> launchEntryFile(const QString& entryPath);
    static std::variant<qint64, ZLError> launchIdentifier(const QString& bundleIdentifier);

private:
    static std::variant<qint64, ZLError> launch(GDesktopAppInfo* info);
};
