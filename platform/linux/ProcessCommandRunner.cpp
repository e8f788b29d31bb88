#include "ProcessCommandRunner.h"

#include "GLibPtr.h"
#include "SystemLog.h"

#include <QFile>

#include <cerrno>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

int ProcessCommandRunner::run(const QString& program, const QStringList& arguments)
{
    std::optional<Started> early;
    {
        const std::lock_guard lock(m_mutex);
        early.swap(m_early);
    }
    if (early) {
        const int status = wait(early->pid);
        if (early->program == program && early->arguments == arguments)
            return status;
    }
    const auto pid = start(program, arguments);
    return pid ? wait(*pid) : -1;
}

void ProcessCommandRunner::startEarly(const QString& program, const QStringList& arguments)
{
    const std::lock_guard lock(m_mutex);
    if (m_early)
        return;
    // With every descriptor above standard error close-on-exec (this program opens its own
    // so; those inherited from whoever started it are marked here), GLib may leave them to
    // the exec and use posix_spawn: no copy of the page tables, and no copy-on-write faults
    // in the start-up that runs beside the child. Without close_range, GLib closes them.
    const bool marked = ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
    if (const auto pid = start(program, arguments, marked ? Descriptors::LeaveOpen : Descriptors::Close))
        m_early = Started{program, arguments, *pid};
}

std::optional<pid_t> ProcessCommandRunner::start(const QString& program, const QStringList& arguments,
                                                 Descriptors descriptors)
{
    QList<QByteArray> words{QFile::encodeName(program)};
    for (const QString& argument : arguments)
        words << QFile::encodeName(argument);
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    GPid pid = 0;
    GError* rawError = nullptr;
    const auto flags
        = GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_CHILD_INHERITS_STDIN
                      | (descriptors == Descriptors::LeaveOpen ? G_SPAWN_LEAVE_DESCRIPTORS_OPEN : 0));
    if (!g_spawn_async(nullptr, argv.data(), nullptr, flags, nullptr, nullptr, &pid, &rawError)) {
        const GErrorPtr error(rawError);
        SystemLog::logText(u"Could not run "_s + program + u": "_s
                           + QString::fromUtf8(error ? error->message : "unknown error"));
        return std::nullopt;
    }
    return pid;
}

int ProcessCommandRunner::wait(pid_t pid)
{
    int status = 0;
    pid_t done = 0;
    while ((done = ::waitpid(pid, &status, 0)) < 0 && errno == EINTR) { }
    if (done != pid)
        return -1;
    // Killed by a signal: its number stands for the status, as QProcess reports it.
    return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}
