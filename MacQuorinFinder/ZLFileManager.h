#pragma once

#include "MacQuorinFinder/AttrManager.h"

#include <QObject>
#include <QUrl>

#include <optional>

class DispatchQueue;
class FileManager;

// The gateway to the files the launcher shares with the file-manager
// extension: the shared folder, the communication file with the preview
// state, and the classification and expansion of paths. Registered with
// Qt's meta-object system, so that clients can make one by name.
class ZLFileManager : public QObject {
    Q_OBJECT
public:
    // The record kept in the communication file.
    struct FinderPreviewState {
        bool previewEnabled = false;

        enum class CodingKeys { previewEnabled };
        static QString stringValue(CodingKeys key);
        static std::optional<CodingKeys> codingKey(const QString& stringValue);
        static std::optional<CodingKeys> codingKey(int intValue);
    };

    Q_INVOKABLE ZLFileManager();
    ~ZLFileManager() override;

    // Made on first read and kept, absence included; reading one creates the
    // folders above it, one level at a time.
    const std::optional<QUrl>& sharedApplicationSupportDir();
    const std::optional<QUrl>& communicationDir();
    const std::optional<QUrl>& communicationFileURL();

    // Read from disk every time; nothing when unknown.
    std::optional<bool> previewStateEnabled();
    // Replaces the file: removed, then written anew. Nothing is a failure, logged.
    void setPreviewStateEnabled(std::optional<bool> enabled);

    // Not used by the launcher.
    std::optional<QList<QUrl>> currentZelnaMountURLs() { return std::nullopt; }

    const QString tokenLog = QStringLiteral("ZENLA Launcher");

private:
    void createDirIfNeeded(const QUrl& url);

    FileManager& fileManager;
    AttrManager attrManager;
    DispatchQueue* aggregationQueue = nullptr;
    std::optional<std::optional<QUrl>> m_sharedApplicationSupportDir;
    std::optional<std::optional<QUrl>> m_communicationDir;
    std::optional<std::optional<QUrl>> m_communicationFileURL;
};
