#include "TreeWalker.h"

#include "FileURL.h"

#include <QFile>

#include <cerrno>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;

// One folder on the way down: its entries, read at once, and where the walk stands in them.
struct Frame {
    struct Entry {
        QByteArray name;
        bool isFolder = false;
    };
    std::vector<Entry> entries;
    size_t next = 0;
    dev_t device = 0;
    ino_t inode = 0;
    qsizetype pathLength = 0; // of the folder's path, to cut the path back on the way up
};

// Reads the open folder's entries; the descriptor stays open. Entries whose type
// cannot be read are kept as non-folders and reported.
bool readFrame(int fd, const QByteArray& path, Frame& frame,
               const std::function<void(const ZLError&)>& onEntryError)
{
    struct stat self { };
    const int listFd = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    DIR* dir = listFd >= 0 && ::fstat(fd, &self) == 0 ? ::fdopendir(listFd) : nullptr;
    if (!dir) {
        if (listFd >= 0)
            ::close(listFd);
        return false;
    }
    frame.device = self.st_dev;
    frame.inode = self.st_ino;
    frame.pathLength = path.size();
    while (const dirent* entry = ::readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
            continue;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat info { };
            if (::fstatat(fd, name, &info, AT_SYMLINK_NOFOLLOW) == 0)
                isFolder = S_ISDIR(info.st_mode);
            else
                onEntryError(ZLError::fromErrno(errno, QFile::decodeName(path + '/' + name)));
        }
        frame.entries.push_back({QByteArray(name), isFolder});
    }
    ::closedir(dir);
    return true;
}

} // namespace

std::optional<QList<QUrl>> TreeWalker::filesBeneath(const QByteArray& root,
                                                    const std::function<void(const ZLError&)>& onEntryError)
{
    QByteArray path = root.endsWith('/') && root.size() > 1 ? root.chopped(1) : root;
    // The chosen folder itself may be reached through links; nothing beneath it is.
    int fd = ::open(path.constData(), folderFlags & ~O_NOFOLLOW);
    if (path == "/")
        path.clear(); // "/bin", not "//bin", which a URL would read as a host
    std::vector<Frame> stack(1);
    if (fd < 0 || !readFrame(fd, path, stack.back(), onEntryError)) {
        if (fd >= 0)
            ::close(fd);
        return std::nullopt;
    }
    QList<QUrl> files;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.entries.size()) {
            const Frame::Entry& entry = frame.entries[frame.next++];
            const qsizetype length = path.size();
            path += '/' + entry.name;
            if (!entry.isFolder) {
                files.append(FileURL::fromPath(path));
                path.truncate(length);
                continue;
            }
            // An unreadable folder, or one swapped for a link or a file since it was listed, is passed over.
            const int child = ::openat(fd, entry.name.constData(), folderFlags);
            Frame below;
            if (child >= 0 && readFrame(child, path, below, onEntryError)) {
                ::close(fd);
                fd = child;
                stack.push_back(std::move(below));
            } else {
                if (child >= 0)
                    ::close(child);
                path.truncate(length);
            }
            continue;
        }
        stack.pop_back();
        if (stack.empty())
            break;
        // Back up through "..", which must be the folder listed before: one moved
        // elsewhere meanwhile would lead the rest of the walk out of the tree.
        const int parent = ::openat(fd, "..", folderFlags);
        struct stat info { };
        const Frame& above = stack.back();
        if (parent < 0 || ::fstat(parent, &info) != 0 || info.st_dev != above.device
            || info.st_ino != above.inode) {
            onEntryError(ZLError::fromErrno(ESTALE, QFile::decodeName(path)));
            if (parent >= 0)
                ::close(parent);
            break;
        }
        ::close(fd);
        fd = parent;
        path.truncate(above.pathLength);
    }
    ::close(fd);
    return files;
}
