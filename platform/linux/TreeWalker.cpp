#include "TreeWalker.h"

#include "FileURL.h"

#include <QFile>

#include <cerrno>
#include <climits>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// One folder's listing: its entries in directory order, folders marked with
// the index of their own listing once that is read.
struct Listing {
    QByteArray path; // the folder, without a trailing slash
    qsizetype parent = -1;
    QByteArray name; // within the parent
    struct Entry {
        QByteArray name;
        QUrl url;             // for a non-folder, made while reading, in parallel
        qsizetype child = -1; // index of the folder's own listing; -1 for a non-folder
        bool isFolder = false;
    };
    std::vector<Entry> entries;
    std::vector<ZLError> errors; // entries whose type could not be read
};

// Reads one open folder; the descriptor is closed afterwards.
void readListing(Listing& listing, int fd)
{
    DIR* dir = fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return;
    }
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
            continue;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat info { };
            if (fstatat(dirfd(dir), name, &info, AT_SYMLINK_NOFOLLOW) == 0)
                isFolder = S_ISDIR(info.st_mode);
            else
                listing.errors.push_back(
                    ZLError::fromErrno(errno, QFile::decodeName(listing.path + '/' + name)));
        }
        const QByteArray entryName(name);
        listing.entries.push_back(
            {entryName, isFolder ? QUrl() : FileURL::fromPath(listing.path + '/' + entryName), -1, isFolder});
    }
    closedir(dir);
}

using Listings = std::vector<std::unique_ptr<Listing>>;

// Runs work(i) for every index on one thread more than there are cores (a
// reader waiting on the file system leaves its core to another); returns when
// all are done.
template <typename Work> void forEachInParallel(const std::vector<qsizetype>& indexes, const Work& work)
{
    const size_t threads
        = std::min<size_t>(indexes.size(), std::max(2u, std::thread::hardware_concurrency() + 1));
    std::atomic<size_t> next{0};
    const auto worker = [&] {
        for (size_t i = next++; i < indexes.size(); i = next++)
            work(indexes[i]);
    };
    std::vector<std::jthread> pool;
    for (size_t t = 1; t < threads; ++t)
        pool.emplace_back(worker);
    worker(); // the calling thread takes its share too
}

// Opens a listed folder by its path, or, when the path is longer than the
// system takes, step by step from the nearest ancestor whose path it takes.
int openFolder(const Listings& listings, qsizetype index)
{
    const Listing& listing = *listings[size_t(index)];
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (listing.parent >= 0 ? O_NOFOLLOW : 0);
    if (listing.path.size() < PATH_MAX - 1 || listing.parent < 0)
        return ::open(listing.path.constData(), flags);
    const int parentFd = openFolder(listings, listing.parent);
    if (parentFd < 0)
        return -1;
    const int fd = ::openat(parentFd, listing.name.constData(), flags);
    ::close(parentFd);
    return fd;
}

} // namespace

std::optional<QList<QUrl>> TreeWalker::filesBeneath(const QByteArray& root,
                                                    const std::function<void(const ZLError&)>& onEntryError)
{
    Listings listings;
    listings.push_back(std::make_unique<Listing>());
    listings[0]->path = root.endsWith('/') && root.size() > 1 ? root.chopped(1) : root;
    const int rootFd = openFolder(listings, 0);
    if (rootFd < 0)
        return std::nullopt;
    readListing(*listings[0], rootFd);

    std::vector<qsizetype> level{0};
    while (!level.empty()) {
        // Number the next depth's folders in order, then read them in parallel.
        std::vector<qsizetype> next;
        for (const qsizetype index : level) {
            Listing& listing = *listings[size_t(index)];
            for (Listing::Entry& entry : listing.entries) {
                if (!entry.isFolder)
                    continue;
                auto child = std::make_unique<Listing>();
                child->path = listing.path + '/' + entry.name;
                child->parent = index;
                child->name = entry.name;
                entry.child = qsizetype(listings.size());
                next.push_back(entry.child);
                listings.push_back(std::move(child));
            }
        }
        forEachInParallel(next, [&listings](const qsizetype index) {
            // An unreadable folder below the top is passed over silently.
            const int fd = openFolder(listings, index);
            if (fd >= 0)
                readListing(*listings[size_t(index)], fd);
        });
        level = std::move(next);
    }

    // Put the listings together depth first, each folder's contents where the folder stands.
    QList<QUrl> files;
    std::vector<std::pair<qsizetype, size_t>> stack{{0, 0}}; // listing, next entry
    while (!stack.empty()) {
        auto& [index, position] = stack.back();
        Listing& listing = *listings[size_t(index)];
        if (position == 0) {
            for (const ZLError& error : listing.errors)
                onEntryError(error);
        }
        if (position >= listing.entries.size()) {
            listings[size_t(index)].reset(); // done with it: free as we go
            stack.pop_back();
            continue;
        }
        const Listing::Entry& entry = listing.entries[position++];
        if (!entry.isFolder)
            files.append(entry.url);
        else if (entry.child >= 0)
            stack.emplace_back(entry.child, 0);
    }
    return files;
}
