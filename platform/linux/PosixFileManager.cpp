#include "PosixFileManager.h"

#include "RegularFile.h"
#include "TreeWalker.h"
#include "XdgDirs.h"

#include <QFile>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

struct Descriptor {
    int fd;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

} // namespace

std::variant<QString, ZLError> PosixFileManager::applicationSupportDirectory()
{
    if (auto dataHome = XdgDirs::dataHome())
        return *dataHome;
    return ZLError(u"NSCocoaErrorDomain"_s, 4,
                   u"The Application Support folder cannot be located: neither XDG_DATA_HOME nor HOME "
                   "is an absolute path"_s);
}

bool PosixFileManager::fileExists(const QString& path)
{
    struct stat info { };
    return ::stat(encoded(path).constData(), &info) == 0;
}

std::optional<bool> PosixFileManager::fileExistsIsDirectory(const QString& path)
{
    struct stat info { };
    if (::stat(encoded(path).constData(), &info) != 0)
        return std::nullopt;
    return S_ISDIR(info.st_mode);
}

std::variant<bool, ZLError> PosixFileManager::isDirectoryResource(const QByteArray& path)
{
    struct stat info { };
    if (::lstat(path.constData(), &info) != 0)
        return ZLError::fromErrno(errno, QFile::decodeName(path));
    return S_ISDIR(info.st_mode);
}

bool PosixFileManager::isReadableFile(const QString& path)
{
    return ::access(encoded(path).constData(), R_OK) == 0;
}

std::optional<QList<QUrl>>
PosixFileManager::filesBeneath(const QByteArray& folder,
                               const std::function<void(const ZLError&)>& onEntryError)
{
    return TreeWalker::filesBeneath(folder, onEntryError);
}

std::optional<ZLError> PosixFileManager::createDirectory(const QString& path)
{
    if (::mkdir(encoded(path).constData(), 0777) != 0)
        return ZLError::fromErrno(errno, path);
    return std::nullopt;
}

std::optional<ZLError> PosixFileManager::removeItem(const QString& path)
{
    const QByteArray name = encoded(path);
    if (::unlink(name.constData()) == 0)
        return std::nullopt;
    if (errno == EISDIR || errno == EPERM) {
        if (::rmdir(name.constData()) == 0)
            return std::nullopt;
    }
    return ZLError::fromErrno(errno, path);
}

std::variant<QByteArray, ZLError> PosixFileManager::contents(const QString& path)
{
    return RegularFile::read(path, maxContentsSize);
}

std::optional<ZLError> PosixFileManager::write(const QString& path, const QByteArray& bytes)
{
    const QByteArray name = encoded(path);
    const qsizetype slash = name.lastIndexOf('/');
    const QByteArray folderName = slash < 0 ? "." : slash == 0 ? "/" : name.left(slash);
    const Descriptor folder{::open(folderName.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (folder.fd < 0)
        return ZLError::fromErrno(errno, path);
    const QByteArray leaf = name.mid(slash + 1);
    // Written unnamed and linked in whole: a reader, or a kill, never meets a part-written file,
    // and the link fails on anything already at the name (a planted link is never followed).
    Descriptor file{::openat(folder.fd, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666)};
    const bool unnamed = file.fd >= 0;
    if (!unnamed) // a file system without unnamed files: created, then written
        file.fd = ::openat(folder.fd, leaf.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW,
                           0666);
    if (file.fd < 0)
        return ZLError::fromErrno(errno, path);
    // A write that fails part-way (a full disk) leaves no file rather than a cut one.
    auto failed = [&](int error) {
        if (!unnamed)
            ::unlinkat(folder.fd, leaf.constData(), 0);
        return ZLError::fromErrno(error, path);
    };
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t n = ::write(file.fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return failed(errno);
        done += n;
    }
    if (unnamed) {
        // On disk before it has a name: a power cut never leaves the name on an empty file.
        const QByteArray self = "/proc/self/fd/" + QByteArray::number(file.fd);
        if (::fdatasync(file.fd) != 0
            || ::linkat(AT_FDCWD, self.constData(), folder.fd, leaf.constData(), AT_SYMLINK_FOLLOW) != 0)
            return failed(errno);
        return std::nullopt; // whole at its name, whatever closing it says
    }
    const int fd = std::exchange(file.fd, -1);
    if (::close(fd) != 0 && errno != EINTR)
        return failed(errno);
    return std::nullopt;
}

QByteArray PosixFileManager::attributeName(const QString& name)
{
    const QByteArray utf8 = name.toUtf8();
    return utf8.contains('.')
                   && (utf8.startsWith("user.") || utf8.startsWith("trusted.") || utf8.startsWith("security.")
                       || utf8.startsWith("system."))
               ? utf8
               : "user." + utf8;
}

qint64 PosixFileManager::extendedAttribute(const QString& path, const QString& name, QByteArray& buffer)
{
    const QByteArray file = encoded(path);
    if (file.isEmpty())
        return -1;
    // getxattr follows symbolic links, as the platform call with no options does.
    return ::getxattr(file.constData(), attributeName(name).constData(), buffer.data(),
                      size_t(buffer.size()));
}
