#pragma once

#include "AttrManager.h"

#include "ZLError.h"

#include <QObject>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

class DispatchQueue;
class FileManager;

// The gateway to the files the launcher shares with the file-manager
// extension: the shared folder, the communication file with the preview
// state, and the classification and expansion of paths. Registered with
// Qt's meta-object system, so that clients can make one by name.
class ZLFileManager : public QObject {
    Q_OBJECT
public:
    enum class ZLFileResult { stubFile = 0, directory = 1, file = 2, notFound = 3 };
    Q_ENUM(ZLFileResult)

    using AggregationCompletion = std::function<void(QList<QUrl> files, std::optional<ZLError> error)>;

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

    // Missing, folder, stub file or plain file; on the calling thread.
    ZLFileResult isDir(const QUrl& url);

    // Every non-folder at or beneath the paths, in path order, on a serial queue
    // of its own; the completion runs exactly once, on the main queue.
    void fileAggregation(const QStringList& paths, AggregationCompletion completion);

    // Runtime entry points, for clients that know only this class's name.
    Q_INVOKABLE int isDirAt(const QUrl& url);
    // Calls receiver's method (QList<QUrl> files, QVariantMap error) on the main
    // queue; the map is empty when there is no error, else holds domain, code
    // and localizedDescription.
    Q_INVOKABLE void fileAggregationFrom(const QStringList& paths, QObject* receiver,
                                         const QByteArray& method);

    // The error for a chosen folder that cannot be read.
    static ZLError noPermissionError();

    // Not used by the launcher.
    std::optional<QList<QUrl>> currentZelnaMountURLs() { return std::nullopt; }

    const QString tokenLog = QStringLiteral("ZENLA Launcher");

private:
    void createDirIfNeeded(const QUrl& url);

    FileManager& fileManager;
    AttrManager attrManager;
    std::atomic<std::shared_ptr<DispatchQueue>> aggregationQueue;  // a hint of work in progress
    const std::shared_ptr<int> m_alive = std::make_shared<int>(0); // work items hold it weakly
    std::optional<std::optional<QUrl>> m_sharedApplicationSupportDir;
    std::optional<std::optional<QUrl>> m_communicationDir;
    std::optional<std::optional<QUrl>> m_communicationFileURL;
};
