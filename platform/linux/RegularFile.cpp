#include "RegularFile.h"

#include "FileDescriptor.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

std::variant<QByteArray, ZLError> RegularFile::read(const QString& path, qint64 maxBytes)
{
    const FileDescriptor file(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const int fd = file.get();
    if (fd < 0)
        return ZLError::fromErrno(errno, path);
    struct stat info { };
    if (::fstat(fd, &info) != 0)
        return ZLError::fromErrno(errno, path);
    if (S_ISDIR(info.st_mode))
        return ZLError::fromErrno(EISDIR, path);
    // Devices and pipes never end; a huge file would fill memory.
    const auto unsuitable = [&] {
        return ZLError(u"NSCocoaErrorDomain"_s, 263,
                       u"The file couldn\u2019t be opened because it isn\u2019t a regular file of at most "_s
                           + QString::number(maxBytes) + u" bytes."_s,
                       u"NSFilePath="_s + path);
    };
    if (!S_ISREG(info.st_mode) || info.st_size > maxBytes)
        return unsuitable();
    QByteArray bytes;
    char chunk[16384];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return ZLError::fromErrno(errno, path);
        if (n == 0)
            return bytes;
        if (bytes.size() + n > maxBytes)
            return unsuitable(); // grew while read
        bytes.append(chunk, n);
    }
}
