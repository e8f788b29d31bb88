#include "DesktopApplications.h"

#include "platform/linux/GLibPtr.h"

#include <gio/gdesktopappinfo.h>

#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

GObjectPtr<GDesktopAppInfo> entryFor(const QString& bundleIdentifier)
{
    const QByteArray id = (bundleIdentifier + u".desktop"_s).toUtf8();
    return GObjectPtr<GDesktopAppInfo>(g_desktop_app_info_new(id.constData()));
}

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

} // namespace

std::optional<QString> DesktopApplications::absoluteProgram(GDesktopAppInfo* info)
{
    // GIO's own executable keeps the Exec quoting; the first argument is the program.
    const char* commandLine = g_app_info_get_commandline(G_APP_INFO(info));
    gchar** argv = nullptr;
    if (!commandLine || !g_shell_parse_argv(commandLine, nullptr, &argv, nullptr))
        return std::nullopt;
    const std::unique_ptr<gchar*, decltype(&g_strfreev)> args(argv, &g_strfreev);
    if (!argv[0] || !*argv[0])
        return std::nullopt;
    const GCharPtr found(g_find_program_in_path(argv[0]));
    if (!found)
        return std::nullopt;
    return QString::fromLocal8Bit(found.get());
}

std::optional<QString> DesktopApplications::resolvedExecutable(GDesktopAppInfo* info)
{
    const auto program = absoluteProgram(info);
    if (!program)
        return std::nullopt;
    const QString canonical = QFileInfo(*program).canonicalFilePath();
    if (canonical.isEmpty() || !QFileInfo(canonical).isFile())
        return std::nullopt;
    return canonical;
}

std::optional<QString> DesktopApplications::installedEntryPath(const QString& bundleIdentifier)
{
    const auto info = entryFor(bundleIdentifier);
    if (!info || !resolvedExecutable(info.get()))
        return std::nullopt;
    return QString::fromLocal8Bit(g_desktop_app_info_get_filename(info.get()));
}

QHash<QString, QString> DesktopApplications::identifiersByExecutable()
{
    GList* all = g_app_info_get_all();
    QList<std::pair<QString, QString>> entries; // identifier, executable
    for (GList* item = all; item; item = item->next) {
        auto* info = static_cast<GAppInfo*>(item->data);
        if (G_IS_DESKTOP_APP_INFO(info)) {
            QString id = QString::fromUtf8(g_app_info_get_id(info));
            if (id.endsWith(u".desktop"_s))
                id.chop(8);
            if (auto exe = resolvedExecutable(G_DESKTOP_APP_INFO(info)))
                entries.append({id, *exe});
        }
    }
    g_list_free_full(all, g_object_unref);
    std::sort(entries.begin(), entries.end());
    QHash<QString, QString> index;
    for (const auto& [id, exe] : std::as_const(entries))
        index.insert(exe, index.value(exe, id)); // the first identifier stays
    return index;
}

std::variant<qint64, ZLError> DesktopApplications::launch(GDesktopAppInfo* info)
{
    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (devNull < 0)
        return ZLError::fromErrno(errno, u"/dev/null"_s);
    qint64 pid = 0;
    GError* rawError = nullptr;
    const gboolean started = g_desktop_app_info_launch_uris_as_manager_with_fds(
        info, nullptr, nullptr, G_SPAWN_SEARCH_PATH, detachChild, nullptr, rememberPid, &pid, devNull,
        devNull, devNull, &rawError);
    ::close(devNull);
    if (!started) {
        const GErrorPtr error(rawError);
        return error ? errorFrom(error.get())
                     : ZLError(u"NSPOSIXErrorDomain"_s, ECHILD, u"The application could not be started"_s);
    }
    return pid;
}

std::variant<qint64, ZLError> DesktopApplications::launchEntryFile(const QString& entryPath)
{
    const QByteArray path = QFile::encodeName(entryPath);
    const GObjectPtr<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.constData()));
    if (!info)
        return ZLError(u"NSCocoaErrorDomain"_s, 260,
                       u"The application \u201C"_s + entryPath + u"\u201D could not be opened"_s);
    return launch(info.get());
}

std::variant<qint64, ZLError> DesktopApplications::launchIdentifier(const QString& bundleIdentifier)
{
    const auto info = entryFor(bundleIdentifier);
    if (!info)
        return ZLError(u"NSCocoaErrorDomain"_s, 260, u"No application is installed as "_s + bundleIdentifier);
    return launch(info.get());
}
