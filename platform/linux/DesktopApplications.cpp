#include "DesktopApplications.h"

#include "DesktopEntryDirectories.h"
#include "GLibPtr.h"
#include "GioLibrary.h"
#include "RegularFile.h"

#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr const char* group = "Desktop Entry";

QString stringValue(GKeyFile* keyFile, const char* key)
{
    const GCharPtr value(g_key_file_get_string(keyFile, group, key, nullptr));
    return value ? QString::fromUtf8(value.get()) : QString();
}

std::optional<QString> findProgram(const QString& program)
{
    if (program.isEmpty())
        return std::nullopt;
    const GCharPtr found(g_find_program_in_path(QFile::encodeName(program).constData()));
    return found ? std::optional(QString::fromLocal8Bit(found.get())) : std::nullopt;
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

std::variant<qint64, ZLError> launch(const GioLibrary& gio, GDesktopAppInfo* info)
{
    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (devNull < 0)
        return ZLError::fromErrno(errno, u"/dev/null"_s);
    qint64 pid = 0;
    GError* rawError = nullptr;
    const gboolean started
        = gio.launchUrisAsManagerWithFds(info, nullptr, nullptr, G_SPAWN_SEARCH_PATH, detachChild, nullptr,
                                         rememberPid, &pid, devNull, devNull, devNull, &rawError);
    ::close(devNull);
    if (!started) {
        const GErrorPtr error(rawError);
        return error ? errorFrom(error.get())
                     : ZLError(u"NSPOSIXErrorDomain"_s, ECHILD, u"The application could not be started"_s);
    }
    return pid;
}

} // namespace

std::optional<DesktopApplications::Entry> DesktopApplications::readEntry(const QString& path)
{
    const auto bytes = RegularFile::read(path, maxEntrySize);
    const GKeyFilePtr keyFile(g_key_file_new());
    if (!std::holds_alternative<QByteArray>(bytes)
        || !g_key_file_load_from_data(keyFile.get(), std::get<QByteArray>(bytes).constData(),
                                      gsize(std::get<QByteArray>(bytes).size()), G_KEY_FILE_NONE, nullptr))
        return std::nullopt;
    if (stringValue(keyFile.get(), "Type") != u"Application"_s
        || g_key_file_get_boolean(keyFile.get(), group, "Hidden", nullptr))
        return std::nullopt;
    const QString tryExec = stringValue(keyFile.get(), "TryExec");
    if (!tryExec.isEmpty() && !findProgram(tryExec))
        return std::nullopt;
    Entry entry{path, stringValue(keyFile.get(), "Exec")};
    if (entry.exec.trimmed().isEmpty())
        return std::nullopt;
    return entry;
}

std::optional<QString> DesktopApplications::absoluteProgram(const QString& exec)
{
    // Exec quoting follows the shell's; the first argument is the program.
    gchar** argv = nullptr;
    if (!g_shell_parse_argv(exec.toUtf8().constData(), nullptr, &argv, nullptr))
        return std::nullopt;
    const std::unique_ptr<gchar*, decltype(&g_strfreev)> args(argv, &g_strfreev);
    return argv[0] ? findProgram(QString::fromUtf8(argv[0])) : std::nullopt;
}

std::optional<DesktopApplications::Command> DesktopApplications::command(const QString& exec)
{
    gchar** argv = nullptr;
    if (!g_shell_parse_argv(exec.toUtf8().constData(), nullptr, &argv, nullptr))
        return std::nullopt;
    const std::unique_ptr<gchar*, decltype(&g_strfreev)> args(argv, &g_strfreev);
    const auto program = argv[0] ? findProgram(QString::fromUtf8(argv[0])) : std::nullopt;
    const QFileInfo canonical(program ? QFileInfo(*program).canonicalFilePath() : QString());
    if (!canonical.isFile())
        return std::nullopt;
    Command command{canonical.filePath(), {}};
    for (gchar** arg = argv + 1; *arg; ++arg) {
        QString argument = QString::fromUtf8(*arg);
        if (argument.size() != 2 || argument[0] != u'%' || !argument[1].isLetter())
            command.arguments << argument.replace(u"%%"_s, u"%"_s);
    }
    return command;
}

std::optional<QString> DesktopApplications::installedEntryPath(const QString& bundleIdentifier)
{
    const auto found = installedEntry(bundleIdentifier);
    return found ? std::optional(found->first) : std::nullopt;
}

std::optional<DesktopApplications::Command>
DesktopApplications::installedCommand(const QString& bundleIdentifier)
{
    const auto found = installedEntry(bundleIdentifier);
    return found ? std::optional(found->second) : std::nullopt;
}

std::optional<std::pair<QString, DesktopApplications::Command>>
DesktopApplications::installedEntry(const QString& bundleIdentifier)
{
    // A hidden or broken entry masks the same ID in later folders.
    const auto path = DesktopEntryDirectories::find(bundleIdentifier + u".desktop"_s);
    const auto entry = path ? readEntry(*path) : std::nullopt;
    const auto found = entry ? command(entry->exec) : std::nullopt;
    if (!found)
        return std::nullopt;
    return std::pair(entry->path, *found);
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
