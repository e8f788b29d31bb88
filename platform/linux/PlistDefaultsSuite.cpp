#include "PlistDefaultsSuite.h"

#include "PlistDocument.h"
#include "RegularFile.h"
#include "SystemLog.h"
#include "WholeFile.h"
#include "ZLError.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QRandomGenerator>
#include <QThread>

#include <cerrno>

#include <sys/stat.h>

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
// Nothing when it is taken; else why not, in words for the log.
std::optional<QString> lockSuite(QLockFile& lock)
{
    lock.setStaleLockTime(staleLockMs);
    QDeadlineTimer stuck(stuckLockMs);
    LockIdentity holder = identify(lock.fileName());
    for (;;) {
        if (lock.tryLock(0))
            return std::nullopt;
        const int error = errno; // still what making the lock file met
        if (lock.error() != QLockFile::LockFailedError)
            return u"its lock file cannot be made: "_s + ZLError::reason(error);
        if (const LockIdentity now = identify(lock.fileName()); now != holder) {
            holder = now;
            stuck.setRemainingTime(stuckLockMs);
        } else if (stuck.hasExpired()) {
            return u"another program kept it locked"_s;
        }
        QThread::msleep(QRandomGenerator::global()->bounded(2, 20));
    }
}

} // namespace

PlistDefaultsSuite::PlistDefaultsSuite(QString filePath) : m_filePath(std::move(filePath)) { }

PlistDefaultsSuite::State PlistDefaultsSuite::load(std::optional<PlistDocument>& document) const
{
    // Opened without blocking and read to its end: a pipe in the file's place must not hang the
    // launcher, and a read that fails is not a list that does not parse.
    const auto bytes = RegularFile::read(m_filePath, maxFileSize);
    if (const auto* failure = std::get_if<ZLError>(&bytes)) {
        if (failure->domain() == u"NSPOSIXErrorDomain"_s && failure->code() == ENOENT)
            return State::Missing;
        SystemLog::logText(u"Cannot read defaults file "_s + m_filePath + u": "_s
                           + failure->localizedDescription());
        return State::Unreadable;
    }
    document = PlistDocument::parse(std::get<QByteArray>(bytes));
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
        break;
    case State::Corrupt: {
        // Another writer may have replaced the file since it was read: look
        // again under the lock before moving anything aside.
        QLockFile lock(m_filePath + u".lock"_s);
        if (!lockSuite(lock) && load(document) == State::Corrupt)
            moveAside();
        break;
    }
    case State::Missing:
        return QVariant();
    case State::Unreadable:
        return std::nullopt;
    }
    return document ? document->value(key) : QVariant();
}

bool PlistDefaultsSuite::setValue(const QString& key, const QVariant& value)
{
    const QString directory = QFileInfo(m_filePath).absolutePath();
    if (!QDir().mkpath(directory)) {
        SystemLog::logText(u"Cannot create the defaults directory "_s + directory + u": "_s
                           + ZLError::reason(errno));
        return false;
    }
    QLockFile lock(m_filePath + u".lock"_s);
    if (const auto failure = lockSuite(lock)) {
        SystemLog::logText(u"Cannot lock defaults file "_s + m_filePath + u": "_s + *failure + u"; "_s + key
                           + u" not stored"_s);
        return false;
    }
    std::optional<PlistDocument> document;
    switch (load(document)) {
    case State::Parsed:
    case State::Missing:
        break;
    case State::Corrupt:
        moveAside();
        if (QFile::exists(m_filePath))
            return false; // never write over bytes that could not be kept
        document.reset();
        break;
    case State::Unreadable:
        return false;
    }
    PlistDocument& list = document ? *document : document.emplace(); // none read: a new, empty list
    if (!list.setValue(key, value)) {
        SystemLog::logText(u"Cannot store a value of type "_s + QString::fromLatin1(value.typeName())
                           + u" under "_s + key);
        return false;
    }
    if (const auto error = WholeFile::write(m_filePath, list.toXml(), WholeFile::Mode::Replace)) {
        SystemLog::logText(u"Cannot write defaults file "_s + m_filePath + u": "_s
                           + error->localizedDescription() + u"; "_s + key + u" not stored"_s);
        return false;
    }
    return true;
}
