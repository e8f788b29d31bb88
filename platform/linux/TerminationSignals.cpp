#include "TerminationSignals.h"

#include "SystemLog.h"
#include "ZLError.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <iterator>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int handled[] = {SIGTERM, SIGINT, SIGHUP};
int g_writeEnd = -1;
volatile std::sig_atomic_t g_installed[std::size(handled)] = {}; // read by the handler
int g_received = 0;                                              // on the main thread only

// Only what is safe in a signal handler: the number goes through a socket to the event loop.
void onSignal(int number)
{
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_writeEnd, &byte, 1);
    // Once: any second signal, while the launcher still finishes (or waits for a program
    // that hangs), ends it at once.
    for (std::size_t i = 0; i < std::size(handled); ++i) {
        if (g_installed[i])
            ::signal(handled[i], SIG_DFL);
    }
    errno = saved;
}

} // namespace

void TerminationSignals::install()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
        SystemLog::logText(u"Termination signals end this launcher at once: "_s + ZLError::reason(errno));
        return;
    }
    g_writeEnd = ends[0];
    auto* notifier = new QSocketNotifier(ends[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [reader = ends[1]] {
        unsigned char number = 0;
        if (::read(reader, &number, 1) == 1 && !g_received) {
            g_received = number;
            QCoreApplication::quit();
        }
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    // The others wait while the handler runs: one arriving then meets the default it restores.
    sigemptyset(&action.sa_mask);
    for (const int number : handled)
        sigaddset(&action.sa_mask, number);
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < std::size(handled); ++i) {
        struct sigaction current = {};
        if (::sigaction(handled[i], nullptr, &current) != 0 || current.sa_handler == SIG_IGN)
            continue;
        g_installed[i] = 1; // before the handler can run
        if (::sigaction(handled[i], &action, nullptr) != 0)
            g_installed[i] = 0;
    }
}

int TerminationSignals::received()
{
    return g_received;
}

void TerminationSignals::endBy(int number)
{
    ::signal(number, SIG_DFL);
    ::raise(number);
}
