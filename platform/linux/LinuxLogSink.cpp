#include "LinuxLogSink.h"

#include "StandardStreams.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <sys/stat.h>

#include <syslog.h>
#include <unistd.h>

namespace {

// Whether standard error is the journal: $JOURNAL_STREAM names its device and inode.
bool standardErrorIsJournal()
{
    struct stat error { };
    unsigned long long device = 0, inode = 0;
    const char* stream = std::getenv("JOURNAL_STREAM");
    return stream && std::sscanf(stream, "%llu:%llu", &device, &inode) == 2
           && ::fstat(STDERR_FILENO, &error) == 0 && error.st_dev == device && error.st_ino == inode;
}

} // namespace

LinuxLogSink::LinuxLogSink()
{
    static const bool journal = [] {
        openlog("zelna-quorin", LOG_PID, LOG_USER); // the journal's SYSLOG_IDENTIFIER, however it was started
        return standardErrorIsJournal();
    }();
    m_journalOnly = journal;
}

QByteArray LinuxLogSink::prefix()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    const size_t length = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    char text[256];
    const int n = std::snprintf(text, sizeof text, "%.*s.%03ld %s[%ld:%ld] ", static_cast<int>(length), stamp,
                                now.tv_nsec / 1000000L, program_invocation_short_name,
                                static_cast<long>(getpid()), static_cast<long>(gettid()));
    return QByteArray(text, n > 0 ? std::min<int>(n, sizeof text - 1) : 0);
}

void LinuxLogSink::write(const QByteArray& line)
{
    const int saved = errno; // a log line between a failed call and the report of its reason changes nothing
    QByteArray whole = prefix();
    whole.append(line).append('\n');
    // One write call per line keeps lines of concurrent threads apart. Where standard error is the journal,
    // the line goes there once, through syslog, with this program's identifier.
    if (!m_journalOnly)
        StandardStreams::writeError(whole);
    syslog(LOG_NOTICE, "%s", line.constData());
    errno = saved;
}
