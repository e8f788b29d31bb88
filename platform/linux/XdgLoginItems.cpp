#include "XdgLoginItems.h"

#include "SystemLog.h"
#include "DesktopApplications.h"
#include "DesktopEntry.h"
#include "GLibPtr.h"
#include "RegularFile.h"
#include "WholeFile.h"
#include "XdgDirs.h"
#include "ZLError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr const char* group = DesktopEntry::group;

std::optional<DesktopEntry> loadEntry(const QString& path)
{
    auto entry = DesktopEntry::read(path);
    if (auto* failure = std::get_if<ZLError>(&entry)) {
        SystemLog::logText(u"Cannot read desktop entry "_s + path + u": "_s + failure->description());
        return std::nullopt;
    }
    return std::move(std::get<DesktopEntry>(entry));
}

bool writeEntry(GKeyFile* keyFile, const QString& target)
{
    g_key_file_set_string(keyFile, group, "Version", "1.4");
    gsize length = 0;
    const GCharPtr data(g_key_file_to_data(keyFile, &length, nullptr));
    const QByteArray bytes(data.get(), qsizetype(length));
    // Already so: spare the disk a rewrite at every launch. Anything else in its place is replaced.
    const auto existing = RegularFile::read(target, bytes.size());
    if (std::holds_alternative<QByteArray>(existing) && std::get<QByteArray>(existing) == bytes)
        return true;
    if (!QDir().mkpath(QFileInfo(target).absolutePath())) {
        SystemLog::logText(u"Cannot create the autostart directory for "_s + target + u": "_s
                           + ZLError::reason(errno));
        return false;
    }
    if (const auto error = WholeFile::write(target, bytes, WholeFile::Mode::Replace)) {
        SystemLog::logText(u"Cannot write autostart entry "_s + target + u": "_s
                           + error->localizedDescription());
        return false;
    }
    return true;
}

std::optional<QString> systemAutostartEntry(const QString& fileName)
{
    for (const QString& dir : XdgDirs::configDirs()) {
        const QString candidate = dir + u"/autostart/"_s + fileName;
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}

} // namespace

bool XdgLoginItems::enable(const QString& bundleIdentifier, const QString& target)
{
    const auto installed = DesktopApplications::installedEntry(bundleIdentifier);
    if (!installed) {
        SystemLog::logText(u"No installed application "_s + bundleIdentifier + u" to start at login"_s);
        return false;
    }
    const DesktopEntry& entry = installed->first;
    // The command as the application's entry runs it now, its program by the path found: the session starts
    // the same process, and the entry's own field codes (%k names that file) have nothing left to expand.
    auto arguments = entry.arguments();
    const auto program = arguments ? DesktopEntry::findProgram(arguments->value(0)) : std::nullopt;
    if (!arguments || !program)
        return false;
    (*arguments)[0] = *program;
    GKeyFile* keyFile = entry.keyFile();
    g_key_file_set_string(keyFile, group, "Exec", DesktopEntry::execLine(*arguments).toUtf8().constData());
    g_key_file_set_boolean(keyFile, group, "X-GNOME-Autostart-enabled", TRUE);
    g_key_file_remove_key(keyFile, group, "Hidden", nullptr);
    return writeEntry(keyFile, target);
}

bool XdgLoginItems::disable(const QString& bundleIdentifier, const QString& target)
{
    // A system-wide entry of the same name would still start the program:
    // only a user entry with Hidden=true switches it off.
    if (const auto systemEntry = systemAutostartEntry(bundleIdentifier + u".desktop"_s)) {
        const auto entry = loadEntry(*systemEntry);
        if (!entry)
            return false;
        g_key_file_set_boolean(entry->keyFile(), group, "Hidden", TRUE);
        return writeEntry(entry->keyFile(), target);
    }
    // Removed without looking first: a look that fails must not pass for an entry that is not there.
    if (::unlink(QFile::encodeName(target).constData()) != 0 && errno != ENOENT) {
        SystemLog::logText(u"Cannot remove autostart entry "_s + target + u": "_s + ZLError::reason(errno));
        return false;
    }
    return true;
}

bool XdgLoginItems::setEnabled(const QString& bundleIdentifier, bool enabled)
{
    const auto configHome = XdgDirs::configHome();
    if (!configHome || bundleIdentifier.isEmpty() || bundleIdentifier.contains(u'/'))
        return false;
    const QString target = *configHome + u"/autostart/"_s + bundleIdentifier + u".desktop"_s;
    return enabled ? enable(bundleIdentifier, target) : disable(bundleIdentifier, target);
}
