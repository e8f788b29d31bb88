#pragma once

#include "FileManager.h"

// File operations through POSIX calls; Application Support is $XDG_DATA_HOME.
class PosixFileManager : public FileManager {
public:
    std::variant<QString, ZLError> applicationSupportDirectory() override;
    bool fileExists(const QString& path) override;
    std::optional<bool> fileExistsIsDirectory(const QString& path) override;
    std::variant<bool, ZLError> isDirectoryResource(const QByteArray& path) override;
    bool isReadableFile(const QString& path) override;
    std::optional<QList<QUrl>> filesBeneath(const QByteArray& folder,
                                            const std::function<void(const ZLError&)>& onEntryError) override;
    std::optional<ZLError> createDirectory(const QString& path) override;
    std::optional<ZLError> removeItem(const QString& path) override;
    std::variant<QByteArray, ZLError> contents(const QString& path) override;
    std::optional<ZLError> write(const QString& path, const QByteArray& bytes) override;
    qint64 extendedAttribute(const QString& path, const QString& name, QByteArray& buffer) override;

    // Linux reads only namespaced attributes: a bare name is read in the user namespace.
    static QByteArray attributeName(const QString& name);
};
