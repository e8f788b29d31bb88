#include "LocalSocketInstanceChannel.h"

#include "FileDescriptor.h"
#include "SystemLog.h"
#include "XdgDirs.h"
#include "ZLError.h"

#include <QDir>
#include <QDeadlineTimer>
#include <QLockFile>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <cerrno>

#include <poll.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int timeoutMs = 2000;
constexpr int holderAnswerMs = 20000; // a launcher starting on a loaded machine
constexpr int retryMs = 50;
// "reopen", then a blank and the activation token when the start was given one.
const QByteArray request = "reopen";
const QByteArray answer = "ok\n";
constexpr qint64 maxRequestBytes = 1024;

// The token the desktop gave this start, for the running launcher to come forward with.
QByteArray activationToken()
{
    const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN");
    return token.isEmpty() ? qgetenv("DESKTOP_STARTUP_ID") : token;
}

std::pair<QByteArray, QByteArray> splitRequest(const QByteArray& line)
{
    const qsizetype blank = line.indexOf(' ');
    return blank < 0 ? std::pair(line, QByteArray()) : std::pair(line.left(blank), line.mid(blank + 1));
}

// A token is printable ASCII without blanks; anything else is dropped.
QByteArray checkedToken(const QByteArray& token)
{
    const bool printable = std::ranges::all_of(token, [](char c) { return c > ' ' && c < '\x7f'; });
    return printable ? token : QByteArray();
}

// Read before start-up goes on: Qt's X11 plug-in takes the startup id out of the
// environment when the application object is made.
const QByteArray startToken = checkedToken(activationToken());

bool fromSameUser(qintptr socket)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    return getsockopt(int(socket), SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0
           && credentials.uid == getuid();
}

// Why a folder will not do for the socket, if it will not: it must be this user's and closed to others.
std::optional<QString> unsuitable(const QString& path)
{
    struct stat info { };
    if (lstat(QFile::encodeName(path).constData(), &info) != 0)
        return ZLError::reason(errno);
    if (!S_ISDIR(info.st_mode) || info.st_uid != getuid() || (info.st_mode & 0022) != 0)
        return u"not a folder of this user's alone"_s;
    return std::nullopt;
}

// A folder only this user can enter, or nothing.
std::optional<QString> privateFolder(const QString& path)
{
    QDir().mkpath(path);
    struct stat info { };
    const QByteArray encoded = QFile::encodeName(path);
    if (lstat(encoded.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid())
        return std::nullopt;
    if ((info.st_mode & 0077) != 0 && chmod(encoded.constData(), 0700) != 0)
        return std::nullopt;
    return path;
}

// The address of a socket file, when its path fits.
std::optional<sockaddr_un> socketAddress(const QString& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray encoded = QFile::encodeName(path);
    if (size_t(encoded.size()) >= sizeof address.sun_path)
        return std::nullopt;
    std::memcpy(address.sun_path, encoded.constData(), size_t(encoded.size()));
    return address;
}

// One later start's connection: its request line is read as it arrives, answered, and closed.
class ReopenRequest : public QObject {
public:
    ReopenRequest(FileDescriptor fd, std::function<void(const QByteArray&)> onReopen)
        : m_fd(std::move(fd))
        , m_notifier(m_fd.get(), QSocketNotifier::Read)
        , m_onReopen(std::move(onReopen))
    {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, this, &ReopenRequest::read);
        QTimer::singleShot(timeoutMs, this, &QObject::deleteLater); // one that sends nothing is not kept
    }

private:
    void read()
    {
        char buffer[256];
        const ssize_t n = ::recv(m_fd.get(), buffer, sizeof buffer, 0);
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        m_line.append(buffer, std::max<ssize_t>(n, 0));
        const qsizetype end = m_line.indexOf('\n');
        if (n > 0 && end < 0 && m_line.size() < maxRequestBytes)
            return;
        m_notifier.setEnabled(false);
        const auto [word, token]
            = splitRequest(m_line.left(std::min(end < 0 ? m_line.size() : end, maxRequestBytes)));
        if (end >= 0 && word == request) {
            ::send(m_fd.get(), answer.constData(), size_t(answer.size()), MSG_NOSIGNAL);
            m_onReopen(checkedToken(token));
        }
        deleteLater();
    }

    FileDescriptor m_fd; // closed after the notifier below is gone
    QSocketNotifier m_notifier;
    std::function<void(const QByteArray&)> m_onReopen;
    QByteArray m_line;
};

} // namespace

LocalSocketInstanceChannel::LocalSocketInstanceChannel(QString name) : m_name(std::move(name)) { }

LocalSocketInstanceChannel::~LocalSocketInstanceChannel()
{
    close();
}

void LocalSocketInstanceChannel::close()
{
    // The socket file goes while the lock is still held: no later launcher can listen there yet.
    if (m_server && m_path && ::unlink(QFile::encodeName(*m_path).constData()) != 0 && errno != ENOENT)
        SystemLog::logText(u"Cannot remove the launcher socket "_s + *m_path + u": "_s
                           + ZLError::reason(errno));
    m_server.reset();
    m_lock.reset(); // unlocks: the lock file goes
}

std::optional<QString> LocalSocketInstanceChannel::socketPath() const
{
    auto folder = XdgDirs::runtimeDir();
    // A shared folder would let others answer in the launcher's name.
    if (const auto why = folder ? unsuitable(*folder) : std::nullopt; folder && why) {
        SystemLog::logText(u"Not using the runtime folder "_s + *folder + u" for the launcher socket: "_s
                           + *why);
        folder.reset();
    }
    if (!folder)
        folder = privateFolder(QDir::tempPath() + u"/zelna-quorin-"_s + QString::number(getuid()));
    if (!folder)
        return std::nullopt;
    return *folder + u'/' + m_name + u".socket"_s;
}

InstanceChannel::Role LocalSocketInstanceChannel::claim(bool handOver)
{
    const auto path = socketPath();
    if (!path || !socketAddress(*path)) {
        SystemLog::logText(u"No private runtime folder (or its path is too long for a socket): this "
                           "launcher cannot be reopened by a later start"_s);
        return Role::Alone;
    }
    // Whoever holds the lock is the launcher; it goes with the process, and the
    // lock of one that was killed is taken over (its process is gone).
    m_lock = std::make_unique<QLockFile>(*path + u".lock"_s);
    m_lock->setStaleLockTime(0);
    // The holder may still be starting: it is asked again until it answers or ends.
    for (const QDeadlineTimer deadline(holderAnswerMs); !m_lock->tryLock(0); QThread::msleep(retryMs)) {
        if (m_lock->error() != QLockFile::LockFailedError) { // errno is still what making it met
            SystemLog::logText(u"Cannot take the launcher lock "_s + m_lock->fileName() + u": "_s
                               + ZLError::reason(errno));
            return Role::Alone;
        }
        if (!handOver)
            return Role::Alone;
        if (forwardReopen(*path, deadline))
            return Role::HandedOver;
        if (deadline.hasExpired()) {
            SystemLog::logText(u"The running launcher does not answer at "_s + *path
                               + u"; starting anyway"_s);
            return Role::Alone;
        }
    }
    m_path = path;
    return Role::Listening;
}

// Plain POSIX calls: a start that hands over ends before it has an application object.
bool LocalSocketInstanceChannel::forwardReopen(const QString& path, const QDeadlineTimer& deadline) const
{
    const std::optional<sockaddr_un> address = socketAddress(path);
    // Not blocking: a holder too busy to accept fills its backlog, and a connect would then wait
    // past the deadline; refused, it is tried again until then.
    const FileDescriptor socket(address ? ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)
                                        : -1);
    const int fd = socket.get();
    if (!address || fd < 0
        || ::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0)
        return false;
    if (!fromSameUser(fd)) {
        SystemLog::logText(u"The launcher socket "_s + path
                           + u" belongs to another user; not handing over"_s);
        return false;
    }
    const QByteArray line = request + (startToken.isEmpty() ? QByteArray() : ' ' + startToken) + '\n';
    if (::send(fd, line.constData(), size_t(line.size()), MSG_NOSIGNAL) != line.size())
        return false;
    // A holder still starting answers once its event loop runs: wait on this one request
    // rather than send another, which it would also answer with a reopen.
    QByteArray reply;
    char buffer[16];
    for (pollfd ready{fd, POLLIN, 0}; reply.size() < answer.size();) {
        const int waited = ::poll(&ready, 1, int(std::max<qint64>(deadline.remainingTime(), timeoutMs)));
        const ssize_t n = waited > 0 ? ::recv(fd, buffer, sizeof buffer, 0) : 0;
        if (n > 0)
            reply.append(buffer, n);
        else if (!(waited < 0 && errno == EINTR))
            break;
    }
    return reply == answer;
}

InstanceChannel::Role LocalSocketInstanceChannel::listen(std::function<void(const QByteArray&)> onReopen)
{
    std::optional<sockaddr_un> address = m_path ? socketAddress(*m_path) : std::nullopt;
    // A socket file left behind by a launcher that was killed is replaced; the folder is this
    // user's alone, and so is the socket.
    if (address)
        ::unlink(address->sun_path);
    FileDescriptor socket(address ? ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) : -1);
    const int fd = socket.get();
    bool bound = false;
    if (!address || fd < 0
        || !(bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0)
        || ::chmod(address->sun_path, 0600) != 0 || ::listen(fd, 16) != 0) {
        const int error = errno;
        if (bound) // no socket file that nobody answers at
            ::unlink(address->sun_path);
        if (m_path)
            SystemLog::logText(u"Cannot listen on "_s + *m_path + u": "_s + ZLError::reason(error));
        socket.reset();
        close(); // the lock, held without listening, would make every later start wait for nothing
        m_path.reset();
        return Role::Alone;
    }
    socket.release(); // open while the launcher runs
    m_server = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
    QObject::connect(
        m_server.get(), &QSocketNotifier::activated, m_server.get(), [fd, onReopen = std::move(onReopen)] {
            while (FileDescriptor client{::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)})
                if (fromSameUser(client.get()))
                    new ReopenRequest(std::move(client), onReopen);
        });
    return Role::Listening;
}
