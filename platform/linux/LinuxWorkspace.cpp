#include "LinuxWorkspace.h"

#include "DesktopApplications.h"
#include "ProcFs.h"

#include <QDesktopServices>
#include <QThreadPool>

LinuxWorkspace::LinuxWorkspace(std::shared_ptr<const ProcFs> procFs, uid_t uid)
    : m_procFs(procFs ? std::move(procFs) : std::make_shared<const ProcFs>())
    , m_uid(uid)
{ }

QList<RunningApplication> LinuxWorkspace::runningApplications()
{
    const QHash<QString, QString> identifiers = DesktopApplications::identifiersByExecutable();
    QList<RunningApplication> result;
    for (const ProcFs::Process& process : m_procFs->processes()) {
        if (process.uid != m_uid)
            continue; // other users' processes are never ours to list or end
        RunningApplication application;
        application.pid = process.pid;
        application.executable = process.executable;
        const auto found = identifiers.constFind(process.executable);
        if (!process.executable.isEmpty() && found != identifiers.cend())
            application.bundleIdentifier = *found;
        result.append(std::move(application));
    }
    return result;
}

QList<RunningApplication> LinuxWorkspace::runningApplications(const QString& bundleIdentifier)
{
    // Only the installed entry's own program runs as that application: no other
    // entry is read, and no other entry naming the same program can hide it.
    const auto program = DesktopApplications::installedProgram(bundleIdentifier);
    if (!program)
        return {};
    QList<RunningApplication> matching;
    for (const ProcFs::Process& process : m_procFs->processes()) {
        if (process.uid == m_uid && process.executable == *program)
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
    return QDesktopServices::openUrl(url);
}
