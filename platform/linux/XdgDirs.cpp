#include "XdgDirs.h"

#include <QDir>

using namespace Qt::Literals::StringLiterals;

namespace {

std::optional<QString> absoluteFromEnv(const char* name)
{
    const QString value = qEnvironmentVariable(name);
    if (value.isEmpty() || !QDir::isAbsolutePath(value))
        return std::nullopt;
    return QDir::cleanPath(value);
}

std::optional<QString> underHome(const char* name, const QString& fallback)
{
    if (auto fromEnv = absoluteFromEnv(name))
        return fromEnv;
    if (auto home = XdgDirs::home())
        return *home + u'/' + fallback;
    return std::nullopt;
}

} // namespace

std::optional<QString> XdgDirs::home()
{
    return absoluteFromEnv("HOME");
}

std::optional<QString> XdgDirs::configHome()
{
    return underHome("XDG_CONFIG_HOME", u".config"_s);
}

std::optional<QString> XdgDirs::dataHome()
{
    return underHome("XDG_DATA_HOME", u".local/share"_s);
}

QStringList XdgDirs::configDirs()
{
    QStringList dirs;
    const QStringList raw = qEnvironmentVariable("XDG_CONFIG_DIRS").split(u':', Qt::SkipEmptyParts);
    for (const QString& dir : raw) {
        if (QDir::isAbsolutePath(dir))
            dirs << QDir::cleanPath(dir);
    }
    if (dirs.isEmpty())
        dirs << u"/etc/xdg"_s;
    return dirs;
}

std::optional<QString> XdgDirs::runtimeDir()
{
    return absoluteFromEnv("XDG_RUNTIME_DIR");
}
