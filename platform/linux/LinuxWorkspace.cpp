#include "LinuxWorkspace.h"

#include "DesktopApplications.h"
#include "ProcFs.h"
#include "SystemLog.h"

#include <QThreadPool>

using namespace Qt::Literals::StringLiterals;

LinuxWorkspace::LinuxWorkspace(std::shared_ptr<const ProcFs> procFs, uid_t uid)
    : m_procFs(procFs ? std::move(procFs) : std::make_shared<const ProcFs>())
    , m_uid(uid)
{ }

QList<RunningApplication> LinuxWorkspace::runningApplications(const QString& bundleIdentifier)
{
    // A process runs the application when its command line begins with the entry's
    // command: the same program file (still by its path when the file was replaced
    // since it started), then the entry's arguments in order. An interpreter runs
    // many programs; its arguments say which. Only this entry is read, so no other
    // entry naming the same program can hide it.
    const auto command = DesktopApplications::installedCommand(bundleIdentifier);
    if (!command)
        return {};
    const QString replaced = command->program + u" (deleted)"_s;
    QList<RunningApplication> matching;
    for (const ProcFs::Process& process : m_procFs->processes()) {
        if (process.uid != m_uid
            || (process.executable != command->program && process.executable != replaced))
            continue;
        const auto arguments = m_procFs->arguments(process.pid);
        if (arguments && arguments->mid(1, command->arguments.size()) == command->arguments)
            matching.append({process.pid, bundleIdentifier, process.executable});
    }
    return matching;
}

bool LinuxWorkspace::activate(const RunningApplication&)
{
    return false; // another program's windows are its own and the desktop's to raise
}

bool LinuxWorkspace::forceTerminate(const RunningApplication& application)
{
    return m_procFs->kill(application.pid, application.executable, m_uid);
}

std::optional<QUrl> LinuxWorkspace::urlForApplication(const QString& bundleIdentifier)
{
    const auto path = DesktopApplications::installedEntryPath(bundleIdentifier);
    if (!path)
        return std::nullopt;
    return QUrl::fromLocalFile(*path);
}

void LinuxWorkspace::openApplication(const QUrl& location, OpenHandler handler)
{
    // The result is always delivered on a pool thread, never on the caller's.
    QThreadPool::globalInstance()->start([location, handler = std::move(handler)] {
        auto result = DesktopApplications::launchEntryFile(location.toLocalFile());
        if (auto* pid = std::get_if<qint64>(&result))
            handler(*pid, std::nullopt);
        else
            handler(std::nullopt, std::get<ZLError>(std::move(result)));
    });
}

bool LinuxWorkspace::launchApplication(const QString& name)
{
    return std::holds_alternative<qint64>(DesktopApplications::launchIdentifier(name));
}

bool LinuxWorkspace::openURL(const QUrl& url)
{
    const std::optional<ZLError> error = DesktopApplications::openURL(url);
    if (error)
        SystemLog::logText(u"Cannot open "_s + url.toString() + u": "_s + error->localizedDescription());
    return !error;
}
