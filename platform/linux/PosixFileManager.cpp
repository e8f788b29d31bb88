#include "PosixFileManager.h"

#include "RegularFile.h"
#include "TreeWalker.h"
#include "WholeFile.h"
#include "XdgDirs.h"

#include <QFile>

#include <cerrno>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

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
    // Anything at the name counts, a link to nothing too, and so does a look that fails (an I/O error, no
    // permission): only what the system reports missing is missing.
    struct stat info { };
    return ::lstat(encoded(path).constData(), &info) == 0 || (errno != ENOENT && errno != ENOTDIR);
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
    return WholeFile::write(path, bytes, WholeFile::Mode::CreateNew);
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
