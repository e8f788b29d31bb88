#include "DesktopApplications.h"

#include "DesktopEntryDirectories.h"
#include "FileDescriptor.h"
#include "GLibPtr.h"
#include "GioLibrary.h"

#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

ZLError errorFrom(GError* error)
{
    return ZLError(QString::fromUtf8(g_quark_to_string(error->domain)), error->code,
                   QString::fromUtf8(error->message));
}

// Runs in the started child just before exec: detach it from the launcher's session.
void detachChild(gpointer)
{
    setsid();
}

void rememberPid(GDesktopAppInfo*, GPid pid, gpointer data)
{
    *static_cast<qint64*>(data) = pid;
}

std::variant<qint64, ZLError> launch(const GioLibrary& gio, GDesktopAppInfo* info)
{
    const FileDescriptor devNull(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!devNull)
        return ZLError::fromErrno(errno, u"/dev/null"_s);
    qint64 pid = 0;
    GError* rawError = nullptr;
    const gboolean started = gio.launchUrisAsManagerWithFds(
        info, nullptr, nullptr, G_SPAWN_SEARCH_PATH, detachChild, nullptr, rememberPid, &pid, devNull.get(),
        devNull.get(), devNull.get(), &rawError);
    if (!started) {
        const GErrorPtr error(rawError);
        return error ? errorFrom(error.get())
                     : ZLError(u"NSPOSIXErrorDomain"_s, ECHILD, u"The application could not be started"_s);
    }
    return pid;
}

} // namespace

std::optional<DesktopApplications::Command> DesktopApplications::command(const DesktopEntry& entry)
{
    const auto arguments = entry.runnable() ? entry.arguments() : std::nullopt;
    if (!arguments || arguments->isEmpty())
        return std::nullopt;
    const auto program = DesktopEntry::findProgram(arguments->first());
    const QFileInfo canonical(program ? QFileInfo(*program).canonicalFilePath() : QString());
    if (!canonical.isFile())
        return std::nullopt;
    return Command{canonical.filePath(), arguments->mid(1)};
}

std::optional<QString> DesktopApplications::installedEntryPath(const QString& bundleIdentifier)
{
    const auto found = installedEntry(bundleIdentifier);
    return found ? std::optional(found->first.path()) : std::nullopt;
}

std::optional<DesktopApplications::Command>
DesktopApplications::installedCommand(const QString& bundleIdentifier)
{
    const auto found = installedEntry(bundleIdentifier);
    return found ? std::optional(found->second) : std::nullopt;
}

std::optional<std::pair<DesktopEntry, DesktopApplications::Command>>
DesktopApplications::installedEntry(const QString& bundleIdentifier)
{
    // A hidden or broken entry masks the same ID in later folders.
    const auto path = DesktopEntryDirectories::find(bundleIdentifier + u".desktop"_s);
    if (!path)
        return std::nullopt;
    auto entry = DesktopEntry::read(*path);
    auto* read = std::get_if<DesktopEntry>(&entry);
    auto found = read ? command(*read) : std::nullopt;
    if (!found)
        return std::nullopt;
    return std::pair(std::move(*read), std::move(*found));
}

std::variant<qint64, ZLError> DesktopApplications::launchEntryFile(const QString& entryPath)
{
    const GioLibrary* gio = GioLibrary::instance();
    if (!gio)
        return ZLError(u"NSCocoaErrorDomain"_s, 3587,
                       u"The library that starts applications cannot be loaded"_s);
    GDesktopAppInfo* info = gio->desktopAppInfoNewFromFilename(QFile::encodeName(entryPath).constData());
    if (!info)
        return ZLError(u"NSCocoaErrorDomain"_s, 260,
                       u"The application \u201C"_s + entryPath + u"\u201D could not be opened"_s);
    auto result = launch(*gio, info);
    gio->objectUnref(info);
    return result;
}

std::variant<qint64, ZLError> DesktopApplications::launchIdentifier(const QString& bundleIdentifier)
{
    const auto path = DesktopEntryDirectories::find(bundleIdentifier + u".desktop"_s);
    if (!path)
        return ZLError(u"NSCocoaErrorDomain"_s, 260, u"No application is installed as "_s + bundleIdentifier);
    return launchEntryFile(*path);
}

std::optional<ZLError> DesktopApplications::openURL(const QUrl& url)
{
    const GioLibrary* gio = GioLibrary::instance();
    if (!gio)
        return ZLError(u"NSCocoaErrorDomain"_s, 3587,
                       u"The library that starts applications cannot be loaded"_s);
    GError* rawError = nullptr;
    if (gio->appInfoLaunchDefaultForUri(url.toEncoded().constData(), nullptr, &rawError))
        return std::nullopt;
    const GErrorPtr error(rawError);
    return error ? errorFrom(error.get()) : ZLError(u"NSPOSIXErrorDomain"_s, ECHILD, u"No handler started"_s);
}
