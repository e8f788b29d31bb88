#include "TerminationSignals.h"

#include "SystemLog.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

int g_writeEnd = -1;

// Only what is safe in a signal handler: the number goes through a socket to the event loop.
void onSignal(int number)
{
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_writeEnd, &byte, 1);
    errno = saved;
}

} // namespace

void TerminationSignals::install()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
        SystemLog::logText(u"Termination signals end this launcher at once: "_s
                           + QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    g_writeEnd = ends[0];
    auto* notifier = new QSocketNotifier(ends[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [reader = ends[1]] {
        unsigned char number = 0;
        if (::read(reader, &number, 1) == 1)
            QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction current = {};
        if (::sigaction(number, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
            ::sigaction(number, &action, nullptr);
    }
}
