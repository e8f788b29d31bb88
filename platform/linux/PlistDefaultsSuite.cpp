#include "PlistDefaultsSuite.h"

#include "PlistDocument.h"
#include "SystemLog.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QThread>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// A holder that keeps the lock this long without handing it on is hung.
constexpr int stuckLockMs = 10000;

// A writer killed between creating the lock file and writing its owner into it
// leaves a lock that names nobody; Qt then waits for it to age. A write holds the
// lock for milliseconds, so one older than this is stale. (A live holder's lock
// is never taken over: Qt keeps it flock()ed.)
constexpr int staleLockMs = 2000;

// Which lock file is there: each holder makes a new one.
struct LockIdentity {
    ino_t inode = 0;
    long seconds = 0;
    long nanoseconds = 0;
    bool operator==(const LockIdentity&) const = default;
};

LockIdentity identify(const QString& path)
{
    struct stat status { };
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return {};
    return {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// Waits for the lock as long as its holders keep changing: a busy suite delays
// a write but never drops it. QLockFile's own timed wait backs off to one try
// every few seconds, loses to writers that try sooner, and gives up.
bool lockSuite(QLockFile& lock)
{
    lock.setStaleLockTime(staleLockMs);
    QDeadlineTimer stuck(stuckLockMs);
    LockIdentity holder = identify(lock.fileName());
    for (;;) {
        if (lock.tryLock(0))
            return true;
        if (lock.error() != QLockFile::LockFailedError)
            return false;
        if (const LockIdentity now = identify(lock.fileName()); now != holder) {
            holder = now;
            stuck.setRemainingTime(stuckLockMs);
        } else if (stuck.hasExpired()) {
            return false;
        }
        QThread::msleep(QRandomGenerator::global()->bounded(2, 20));
    }
}

// Why a lock could not be taken, in words for the log.
QString lockFailure(const QLockFile& lock, const QString& directory)
{
    switch (lock.error()) {
    case QLockFile::LockFailedError:
        return u"another program kept it locked"_s;
    case QLockFile::PermissionError:
        // The folder's own state says more than the lock's error code.
        if (::access(QFile::encodeName(directory).constData(), W_OK) != 0)
            return QString::fromLocal8Bit(std::strerror(errno));
        return u"permission denied"_s;
    case QLockFile::UnknownError:
    case QLockFile::NoError:
        break;
    }
    return u"its lock file cannot be written (is the disk full?)"_s;
}

} // namespace

PlistDefaultsSuite::PlistDefaultsSuite(QString filePath) : m_filePath(std::move(filePath)) { }

PlistDefaultsSuite::State PlistDefaultsSuite::load(std::optional<PlistDocument>& document) const
{
    // Non-blocking: a pipe in the file's place must not hang the launcher.
    const int fd = ::open(QFile::encodeName(m_filePath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT)
        return State::Missing;
    struct stat info { };
    QFile file;
    if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)
        || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        const QString reason
            = fd < 0 ? QString::fromLocal8Bit(std::strerror(errno)) : u"not a regular file"_s;
        if (fd >= 0 && !file.isOpen())
            ::close(fd);
        SystemLog::logText(u"Cannot read defaults file "_s + m_filePath + u": "_s + reason);
        return State::Unreadable;
    }
    if (file.size() > maxFileSize) {
        SystemLog::logText(u"Defaults file "_s + m_filePath + u" is too large to read"_s);
        return State::Unreadable;
    }
    document = PlistDocument::parse(file.read(maxFileSize + 1));
    return document ? State::Parsed : State::Corrupt;
}

void PlistDefaultsSuite::moveAside() const
{
    const QString stamp = QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString aside
            = m_filePath + u".corrupt-"_s + stamp + (attempt ? u'-' + QString::number(attempt) : QString());
        if (QFile::exists(aside))
            continue;
        if (QFile::rename(m_filePath, aside)) {
            SystemLog::logText(u"Defaults file "_s + m_filePath
                               + u" is not a readable property list; moved it aside to "_s + aside);
            return;
        }
        break;
    }
    SystemLog::logText(u"Defaults file "_s + m_filePath
                       + u" is not a readable property list and could not be moved aside"_s);
}

std::optional<QVariant> PlistDefaultsSuite::readValue(const QString& key)
{
    std::optional<PlistDocument> document;
    switch (load(document)) {
    case State::Parsed:
        return document->value(key);
    case State::Corrupt: {
        // Another writer may have replaced the file since it was read: look
        // again under the lock before moving anything aside.
        QLockFile lock(m_filePath + u".lock"_s);
        if (lockSuite(lock) && load(document) == State::Corrupt)
            moveAside();
        return document ? document->value(key) : QVariant();
    }
    case State::Missing:
        return QVariant();
    case State::Unreadable:
        break;
    }
    return std::nullopt;
}

bool PlistDefaultsSuite::setValue(const QString& key, const QVariant& value)
{
    const QString directory = QFileInfo(m_filePath).absolutePath();
    if (!QDir().mkpath(directory)) {
        SystemLog::logText(u"Cannot create the defaults directory "_s + directory);
        return false;
    }
    QLockFile lock(m_filePath + u".lock"_s);
    if (!lockSuite(lock)) {
        SystemLog::logText(u"Cannot lock defaults file "_s + m_filePath + u": "_s
                           + lockFailure(lock, directory) + u"; "_s + key + u" not stored"_s);
        return false;
    }
    std::optional<PlistDocument> document;
    switch (load(document)) {
    case State::Parsed:
        break;
    case State::Missing:
        document.emplace();
        break;
    case State::Corrupt:
        moveAside();
        if (QFile::exists(m_filePath))
            return false; // never write over bytes that could not be kept
        document.emplace();
        break;
    case State::Unreadable:
        return false;
    }
    if (!document->setValue(key, value)) {
        SystemLog::logText(u"Cannot store a value of type "_s + QString::fromLatin1(value.typeName())
                           + u" under "_s + key);
        return false;
    }
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(document->toXml()) < 0 || !file.commit()) {
        SystemLog::logText(u"Cannot write defaults file "_s + m_filePath + u": "_s + file.errorString()
                           + u"; "_s + key + u" not stored"_s);
        return false;
    }
    return true;
}
