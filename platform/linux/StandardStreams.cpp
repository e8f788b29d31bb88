#include "StandardStreams.h"

#include <QString>

#include <cerrno>
#include <climits>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Standard error as written without waiting. A socket (the journal's stream) is sent to with
// MSG_DONTWAIT; a pipe through a non-blocking open of its own, so that the flags of a description
// shared with other programs stay as they are. Where that open is refused (a pipe of another user's,
// no /proc), and for a terminal, a line goes out only when there is room for it now; a terminal also
// takes it from a background job (SIGTTOU held back). Files and devices are written as they are.
struct ErrorStream {
    enum Kind { None, Socket, Own, Checked, Plain } kind = Plain;
    int fd = STDERR_FILENO;
    bool terminal = false;
};

ErrorStream errorStream()
{
    struct stat info { };
    if (::fstat(STDERR_FILENO, &info) != 0)
        return {ErrorStream::None};
    if (S_ISSOCK(info.st_mode))
        return {ErrorStream::Socket};
    if (S_ISFIFO(info.st_mode)) {
        const int fd = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0 || errno == ENXIO) // ENXIO: no reader left, nothing will ever go out
            return {fd >= 0 ? ErrorStream::Own : ErrorStream::None, fd};
        return {ErrorStream::Checked};
    }
    const bool terminal = ::isatty(STDERR_FILENO);
    return {terminal ? ErrorStream::Checked : ErrorStream::Plain, STDERR_FILENO, terminal};
}

ssize_t writeSome(const ErrorStream& stream, const char* data, size_t size)
{
    if (stream.kind == ErrorStream::Socket)
        return ::send(stream.fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    pollfd room{stream.fd, POLLOUT, 0};
    if (stream.kind == ErrorStream::Checked && (::poll(&room, 1, 0) != 1 || !(room.revents & POLLOUT)))
        return 0;
    sigset_t ttou, saved;
    sigemptyset(&ttou);
    sigaddset(&ttou, SIGTTOU);
    if (stream.terminal)
        ::pthread_sigmask(SIG_BLOCK, &ttou, &saved);
    const ssize_t written = ::write(stream.fd, data, size);
    if (stream.terminal)
        ::pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    return written;
}

void onBrokenPipe(int) { }

} // namespace

void StandardStreams::secure()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF)
            continue;
        // The lowest free number is this one. Without /dev/null (a bare chroot), a descriptor on
        // which every read and write fails holds the place.
        if (::open("/dev/null", O_RDWR) < 0)
            ::open("/", O_PATH);
    }
    // Caught rather than ignored: a write to a reader that went away fails with EPIPE instead of
    // ending the launcher, and the programs it starts get the default back when they begin.
    struct sigaction current = {};
    if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler != SIG_IGN) {
        struct sigaction action = {};
        action.sa_handler = onBrokenPipe;
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGPIPE, &action, nullptr);
    }
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& message) {
        const int saved
            = errno; // a warning between a failed call and the report of its reason changes nothing
        writeError(qFormatLogMessage(type, context, message).toLocal8Bit() + '\n');
        errno = saved;
    });
}

void StandardStreams::writeError(const QByteArray& text)
{
    static const ErrorStream stream = errorStream();
    if (stream.kind == ErrorStream::None)
        return;
    // Into a pipe or a socket a line goes whole or not at all: one that does not fit into a single
    // write is cut there, and still ends its line.
    QByteArray line = text;
    if (stream.kind != ErrorStream::Plain && !stream.terminal && line.size() > PIPE_BUF)
        line = line.left(PIPE_BUF - 1) + '\n';
    const char* data = line.constData();
    for (qsizetype left = line.size(); left > 0;) {
        const ssize_t written = writeSome(stream, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        left -= written;
    }
}
