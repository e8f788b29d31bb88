#include "ProcFs.h"

#include "FileDescriptor.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QString readExecutable(int procFd, const char* pidName)
{
    char link[64];
    std::snprintf(link, sizeof link, "%s/exe", pidName);
    char target[PATH_MAX];
    const ssize_t length = readlinkat(procFd, link, target, sizeof target - 1);
    if (length <= 0)
        return {};
    return QString::fromLocal8Bit(target, length);
}

std::optional<ProcFs::Process> readProcess(int procFd, const char* pidName)
{
    struct stat info { };
    if (fstatat(procFd, pidName, &info, 0) != 0)
        return std::nullopt;
    ProcFs::Process process;
    process.pid = std::strtoll(pidName, nullptr, 10);
    process.uid = info.st_uid;
    process.executable = readExecutable(procFd, pidName);
    return process;
}

bool isPidName(const char* name)
{
    if (!*name)
        return false;
    for (const char* c = name; *c; ++c) {
        if (*c < '0' || *c > '9')
            return false;
    }
    return true;
}

} // namespace

QList<ProcFs::Process> ProcFs::processes() const
{
    QList<Process> result;
    DIR* dir = opendir("/proc");
    if (!dir)
        return result;
    const int procFd = dirfd(dir);
    while (const dirent* entry = readdir(dir)) {
        if (!isPidName(entry->d_name))
            continue;
        if (auto process = readProcess(procFd, entry->d_name))
            result.append(std::move(*process));
    }
    closedir(dir);
    std::sort(result.begin(), result.end(), [](const Process& a, const Process& b) { return a.pid < b.pid; });
    return result;
}

std::optional<ProcFs::Process> ProcFs::process(qint64 pid) const
{
    const FileDescriptor proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!proc)
        return std::nullopt;
    const std::string name = std::to_string(pid);
    return readProcess(proc.get(), name.c_str());
}

std::optional<QStringList> ProcFs::arguments(qint64 pid) const
{
    constexpr qint64 maxBytes = 256 * 1024;
    QFile file(u"/proc/%1/cmdline"_s.arg(pid));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    const QByteArray bytes = file.read(maxBytes);
    if (bytes.isEmpty())
        return std::nullopt;
    QStringList arguments;
    for (const QByteArray& argument : bytes.chopped(bytes.endsWith('\0') ? 1 : 0).split('\0'))
        arguments << QString::fromLocal8Bit(argument);
    return arguments;
}

bool ProcFs::kill(qint64 pid, const QString& expectedExecutable, uid_t expectedUid) const
{
    if (pid <= 0 || pid > INT_MAX)
        return false;
    // Holding a pidfd pins the process: checked and signalled are the same one.
    const int rawFd = static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0));
    const int openError = rawFd < 0 ? errno : 0;
    const FileDescriptor pidFd(rawFd);
    const auto current = process(pid);
    if (!current || current->uid != expectedUid || current->executable != expectedExecutable)
        return false;
    if (pidFd)
        return syscall(SYS_pidfd_send_signal, pidFd.get(), SIGKILL, nullptr, 0) == 0;
    if (openError != ENOSYS)
        return false;
    return ::kill(static_cast<pid_t>(pid), SIGKILL) == 0; // kernels before 5.3
}
