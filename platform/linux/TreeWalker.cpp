#include "TreeWalker.h"

#include "FileDescriptor.h"
#include "FileURL.h"

#include <QFile>
#include <QThread>

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>
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
    FileDescriptor held;      // the folder itself, kept open while the walk is below it
};

// Folders kept open on the way down, to come back to without opening "..": deeper
// ones are closed, so that depth costs no descriptors beyond these.
constexpr size_t heldLevels = 64;

// Reads the open folder's entries, straight from its descriptor, which stays
// open for what is opened relative to it. Entries whose type cannot be read
// are kept as non-folders and reported.
bool readFrame(int fd, const QByteArray& path, Frame& frame,
               const std::function<void(const ZLError&)>& onEntryError)
{
    struct stat self { };
    if (::fstat(fd, &self) != 0)
        return false;
    frame.device = self.st_dev;
    frame.inode = self.st_ino;
    frame.pathLength = path.size();
    alignas(dirent64) char buffer[32768];
    for (ssize_t size; (size = ::getdents64(fd, buffer, sizeof buffer)) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            at += entry->d_reclen;
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
    }
    return true;
}

// Walks the tree below the open folder FD at PATH (its frame read), appending its
// non-folders to FILES. False when the walk had to stop: a folder moved out from under it.
bool walkFrom(FileDescriptor fd, QByteArray path, Frame top, QList<QUrl>& files,
              const std::function<void(const ZLError&)>& onEntryError)
{
    std::vector<Frame> stack;
    stack.push_back(std::move(top));
    bool whole = true;
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
            FileDescriptor child(::openat(fd.get(), entry.name.constData(), folderFlags));
            Frame below;
            if (child && readFrame(child.get(), path, below, onEntryError)) {
                if (stack.size() < heldLevels)
                    frame.held = std::move(fd);
                fd = std::move(child);
                stack.push_back(std::move(below));
            } else {
                path.truncate(length);
            }
            continue;
        }
        stack.pop_back();
        if (stack.empty())
            break;
        if (Frame& above = stack.back(); above.held) {
            fd = std::move(above.held);
            path.truncate(above.pathLength);
            continue;
        }
        // Back up through "..", which must be the folder listed before: one moved
        // elsewhere meanwhile would lead the rest of the walk out of the tree.
        FileDescriptor parent(::openat(fd.get(), "..", folderFlags));
        struct stat info { };
        const Frame& above = stack.back();
        if (!parent || ::fstat(parent.get(), &info) != 0 || info.st_dev != above.device
            || info.st_ino != above.inode) {
            onEntryError(ZLError::fromErrno(ESTALE, QFile::decodeName(path)));
            whole = false;
            break;
        }
        fd = std::move(parent);
        path.truncate(above.pathLength);
    }
    return whole;
}

// The walk below one folder of the chosen one, done on any thread: its files and,
// to be reported in order afterwards, its errors.
struct Branch {
    QByteArray name;
    QList<QUrl> files;
    QList<ZLError> errors;
    bool whole = true;
};

void walkBranch(int rootFd, const QByteArray& rootPath, Branch& branch)
{
    const auto note = [&branch](const ZLError& error) { branch.errors.append(error); };
    const QByteArray path = rootPath + '/' + branch.name;
    FileDescriptor fd(::openat(rootFd, branch.name.constData(), folderFlags));
    Frame top;
    if (fd && readFrame(fd.get(), path, top, note))
        branch.whole = walkFrom(std::move(fd), path, std::move(top), branch.files, note);
}

} // namespace

std::optional<QList<QUrl>> TreeWalker::filesBeneath(const QByteArray& root,
                                                    const std::function<void(const ZLError&)>& onEntryError)
{
    QByteArray path = root.endsWith('/') && root.size() > 1 ? root.chopped(1) : root;
    // The chosen folder itself may be reached through links; nothing beneath it is.
    FileDescriptor fd(::open(path.constData(), folderFlags & ~O_NOFOLLOW));
    if (path == "/")
        path.clear(); // "/bin", not "//bin", which a URL would read as a host
    Frame top;
    if (!fd || !readFrame(fd.get(), path, top, onEntryError))
        return std::nullopt;
    QList<QUrl> files;
    std::vector<Branch> branches;
    for (const Frame::Entry& entry : top.entries)
        if (entry.isFolder)
            branches.push_back({entry.name, {}, {}, true});
    const int threads = std::min(QThread::idealThreadCount(), int(branches.size()));
    if (threads < 2) {
        walkFrom(std::move(fd), path, std::move(top), files, onEntryError);
        return files;
    }
    // The folders below the chosen one are walked side by side, each on its own
    // descriptor; their results are joined in directory order, as one walk's.
    std::atomic<size_t> next = 0;
    const auto work = [&] {
        for (size_t i = next++; i < branches.size(); i = next++)
            walkBranch(fd.get(), path, branches[i]);
    };
    {
        std::vector<std::jthread> helpers;
        for (int i = 1; i < threads; ++i)
            helpers.emplace_back(work);
        work();
    }
    fd.reset();
    auto branch = branches.begin();
    for (const Frame::Entry& entry : top.entries) {
        if (!entry.isFolder) {
            files.append(FileURL::fromPath(path + '/' + entry.name));
            continue;
        }
        files.append(std::move(branch->files));
        QList<QUrl>().swap(branch->files); // freed as it goes: at most the result twice over
        for (const ZLError& error : std::as_const(branch->errors))
            onEntryError(error);
        if (!(branch++)->whole)
            break;
    }
    return files;
}
