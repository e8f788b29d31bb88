#include "LocalSocketInstanceChannel.h"

#include "SystemLog.h"
#include "XdgDirs.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int timeoutMs = 2000;
const QByteArray request = "reopen\n";
const QByteArray answer = "ok\n";

bool fromSameUser(const QLocalSocket& socket)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    return getsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0
           && credentials.uid == getuid();
}

bool ownedAndPrivate(const QString& path)
{
    struct stat info { };
    return lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode)
           && info.st_uid == getuid() && (info.st_mode & 0022) == 0;
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

} // namespace

LocalSocketInstanceChannel::LocalSocketInstanceChannel(QString name) : m_name(std::move(name)) { }

LocalSocketInstanceChannel::~LocalSocketInstanceChannel() = default;

std::optional<QString> LocalSocketInstanceChannel::socketPath() const
{
    auto folder = XdgDirs::runtimeDir();
    if (folder && !ownedAndPrivate(*folder))
        folder.reset(); // a shared folder would let others answer in the launcher's name
    if (!folder)
        folder = privateFolder(QDir::tempPath() + u"/zelna-quorin-"_s + QString::number(getuid()));
    if (!folder)
        return std::nullopt;
    return *folder + u'/' + m_name + u".socket"_s;
}

bool LocalSocketInstanceChannel::forwardReopen()
{
    const auto path = socketPath();
    if (!path)
        return false;
    QLocalSocket socket;
    socket.connectToServer(*path);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    if (!fromSameUser(socket)) {
        SystemLog::logText(u"The launcher socket "_s + *path
                           + u" belongs to another user; not handing over"_s);
        return false;
    }
    socket.write(request);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    while (socket.bytesAvailable() < answer.size() && socket.waitForReadyRead(timeoutMs)) { }
    return socket.readAll() == answer;
}

bool LocalSocketInstanceChannel::listen(std::function<void()> onReopen)
{
    const auto path = socketPath();
    if (!path) {
        SystemLog::logText(u"No private runtime folder: this launcher cannot be reopened by a later start"_s);
        return false;
    }
    // Two launchers starting at once must not clear each other's socket.
    QLockFile lock(*path + u".lock"_s);
    if (!lock.tryLock(timeoutMs))
        return false;
    QLocalSocket probe;
    probe.connectToServer(*path);
    if (probe.waitForConnected(timeoutMs))
        return false;                  // another launcher answers there
    QLocalServer::removeServer(*path); // left behind by a launcher that was killed

    auto server = std::make_unique<QLocalServer>();
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(*path)) {
        SystemLog::logText(u"Cannot listen on "_s + *path + u": "_s + server->errorString());
        return false;
    }
    QLocalServer* raw = server.get();
    QObject::connect(raw, &QLocalServer::newConnection, raw, [raw, onReopen = std::move(onReopen)] {
        while (QLocalSocket* socket = raw->nextPendingConnection()) {
            QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            if (!fromSameUser(*socket)) {
                socket->abort();
                continue;
            }
            QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket, onReopen] {
                if (socket->bytesAvailable() < request.size())
                    return;
                if (socket->read(request.size()) == request) {
                    socket->write(answer);
                    socket->flush();
                    onReopen();
                }
                socket->disconnectFromServer();
            });
        }
    });
    m_server = std::move(server);
    return true;
}
