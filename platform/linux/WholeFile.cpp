#include "WholeFile.h"

#include "FileDescriptor.h"

#include <QFile>
#include <QFileInfo>

#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A link at the target is followed, as the system follows it: a relative one from the real folder the
// link is in. The file it names is replaced and the link stays (a dotfiles folder often links the
// settings in).
QString followLinks(QString path)
{
    for (int depth = 0; depth < 40; ++depth) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(QFile::encodeName(path).constData(), target, sizeof target);
        if (length <= 0 || size_t(length) == sizeof target)
            return path;
        QString next = QFile::decodeName(QByteArray(target, length));
        if (!next.startsWith(u'/')) {
            char* folder = ::realpath(QFile::encodeName(QFileInfo(path).path()).constData(), nullptr);
            if (!folder)
                return path;
            next = QFile::decodeName(folder) + u'/' + next;
            std::free(folder);
        }
        path = next;
    }
    return path;
}

// An unnamed file is named through /proc; without it (a bare chroot), files are written under their
// pending name instead.
bool canNameUnnamedFiles()
{
    static const bool can = ::access("/proc/self/fd", X_OK) == 0;
    return can;
}

bool writeAll(int fd, const QByteArray& bytes)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t n = ::pwrite(fd, bytes.constData() + done, size_t(bytes.size() - done), off_t(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            errno = n == 0 ? EIO : errno; // nothing written, yet no reason: it will not get better
            return false;
        }
        done += n;
    }
    return true;
}

} // namespace

std::optional<ZLError> WholeFile::write(const QString& path, const QByteArray& bytes, Mode mode)
{
    const QByteArray name = QFile::encodeName(mode == Mode::Replace ? followLinks(path) : path);
    const qsizetype slash = name.lastIndexOf('/');
    const QByteArray folderName = slash < 0 ? "." : slash == 0 ? "/" : name.left(slash);
    const QByteArray leaf = name.mid(slash + 1);
    const QByteArray pending = pendingName(leaf);
    const auto failed = [&path](int error) { return ZLError::fromErrno(error, path); };
    // Every name is taken relative to the folder: one swapped for a link half-way changes nothing.
    const FileDescriptor folder(::open(folderName.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return failed(errno);
    const auto removePending = [&] { ::unlinkat(folder.get(), pending.constData(), 0); };
    const bool nameable = canNameUnnamedFiles();
    FileDescriptor file(nameable ? ::openat(folder.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666) : -1);
    const bool unnamed = bool(file);
    // A file system without unnamed files refuses them with EOPNOTSUPP (EISDIR before Linux 3.11).
    if (!unnamed && (!nameable || errno == EOPNOTSUPP || errno == EISDIR)) {
        removePending();
        file.reset(::openat(folder.get(), pending.constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    }
    if (!file)
        return failed(errno);
    // A replacement keeps the permissions the user gave the old file.
    struct stat old { };
    if (mode == Mode::Replace && ::fstatat(folder.get(), leaf.constData(), &old, AT_SYMLINK_NOFOLLOW) == 0
        && S_ISREG(old.st_mode))
        ::fchmod(file.get(), old.st_mode & 07777);
    // On disk before it has its name: a power cut never leaves the name on an empty file.
    if (!writeAll(file.get(), bytes) || ::fdatasync(file.get()) != 0) {
        const int error = errno;
        if (!unnamed)
            removePending();
        return failed(error);
    }
    if (unnamed) {
        const QByteArray self = "/proc/self/fd/" + QByteArray::number(file.get());
        // A link fails on anything at its name, a planted link included.
        if (mode == Mode::CreateNew)
            return ::linkat(AT_FDCWD, self.constData(), folder.get(), leaf.constData(), AT_SYMLINK_FOLLOW)
                           == 0
                       ? std::nullopt
                       : std::optional(failed(errno));
        removePending();
        if (::linkat(AT_FDCWD, self.constData(), folder.get(), pending.constData(), AT_SYMLINK_FOLLOW) != 0)
            return failed(errno);
    }
    // Whole under the pending name: now it takes the target's.
    const bool done
        = mode == Mode::Replace
              ? ::renameat(folder.get(), pending.constData(), folder.get(), leaf.constData()) == 0
              : ::linkat(folder.get(), pending.constData(), folder.get(), leaf.constData(), 0) == 0;
    const int error = errno;
    if (!done || mode == Mode::CreateNew)
        removePending();
    return done ? std::nullopt : std::optional(failed(error));
}
