#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// The XDG base directories of the current user, read from the environment.
// Relative values are ignored, as the base-directory rules require.
class XdgDirs {
public:
    static std::optional<QString> home();
    static std::optional<QString> configHome();
    static std::optional<QString> dataHome();
    static QStringList configDirs();
    static std::optional<QString> runtimeDir();
};
