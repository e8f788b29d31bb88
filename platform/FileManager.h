#pragma once

#include "ZLError.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <functional>

#include <optional>
#include <variant>

// The file operations the shared file code needs, each failure reported as an
// error object with the system's reason.
class FileManager {
public:
    virtual ~FileManager() = default;

    // The user's Application Support folder, or why it cannot be located.
    virtual std::variant<QString, ZLError> applicationSupportDirectory() = 0;

    // Whether anything (file, folder, link, even one to nothing) is at the path, or cannot be looked at.
    virtual bool fileExists(const QString& path) = 0;
    // Nothing when nothing is there; otherwise whether it is a folder (links followed).
    virtual std::optional<bool> fileExistsIsDirectory(const QString& path) = 0;
    // The item's own directory flag: a link is a link, even to a folder.
    virtual std::variant<bool, ZLError> isDirectoryResource(const QByteArray& path) = 0;
    virtual bool isReadableFile(const QString& path) = 0;
    // Every item beneath the folder that is not a folder itself, depth first in
    // the order the file system lists them, links not followed, unreadable
    // subfolders passed over. Nothing when the folder cannot be opened.
    // onEntryError hears of entries whose type could not be read (they are kept).
    virtual std::optional<QList<QUrl>> filesBeneath(const QByteArray& folder,
                                                    const std::function<void(const ZLError&)>& onEntryError)
        = 0;
    // One folder; its parent must exist already.
    virtual std::optional<ZLError> createDirectory(const QString& path) = 0;
    virtual std::optional<ZLError> removeItem(const QString& path) = 0;
    // The whole of a regular file of at most maxContentsSize bytes; anything else is an error.
    virtual std::variant<QByteArray, ZLError> contents(const QString& path) = 0;
    static constexpr qint64 maxContentsSize = 16 * 1024 * 1024;
    // Creates the file whole: it appears at its name only once written (where the file system
    // allows). Never through a link. A write that fails part-way leaves no file.
    virtual std::optional<ZLError> write(const QString& path, const QByteArray& bytes) = 0;

    // Reads an extended attribute into a buffer of exactly buffer.size() bytes,
    // following symbolic links. The byte count, or -1 on any failure.
    virtual qint64 extendedAttribute(const QString& path, const QString& name, QByteArray& buffer) = 0;
};
