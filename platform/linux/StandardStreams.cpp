#include "StandardStreams.h"

#include <QString>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Standard error as written without waiting: a socket (the journal's stream) is sent to without
// waiting; a pipe through a non-blocking open of its own, so that the flags of a description shared
// with other programs stay as they are; a file, terminal or device as it is.
struct ErrorStream {
    int fd = STDERR_FILENO;
    bool socket = false;
};

ErrorStream errorStream()
{
    struct stat info { };
    if (::fstat(STDERR_FILENO, &info) != 0)
        return {-1};
    if (S_ISSOCK(info.st_mode))
        return {STDERR_FILENO, true};
    if (S_ISFIFO(info.st_mode)) {
        const int fd = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        // No reader left (ENXIO): nothing will ever go out.
        return {fd >= 0 || errno == ENXIO ? fd : STDERR_FILENO};
    }
    return {};
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
    const char* data = text.constData();
    for (qsizetype left = text.size(); left > 0 && stream.fd >= 0;) {
        const ssize_t written = stream.socket
                                    ? ::send(stream.fd, data, size_t(left), MSG_DONTWAIT | MSG_NOSIGNAL)
                                    : ::write(stream.fd, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        left -= written;
    }
}
