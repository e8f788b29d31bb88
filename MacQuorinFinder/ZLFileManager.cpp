#include "ZLFileManager.h"

#include "CLogger.h"
#include "DispatchQueue.h"
#include "FileManager.h"
#include "FileURL.h"
#include "Platform.h"
#include "SystemLog.h"

#include <QDir>
#include <QPointer>

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace {

// The decoding errors the platform's JSON decoder reports, as error objects.
ZLError corruptData(const QString& detail)
{
    return ZLError(u"NSCocoaErrorDomain"_s, 4864,
                   u"The data couldn\u2019t be read because it isn\u2019t in the correct format."_s,
                   u"NSDebugDescription="_s + detail);
}

ZLError missingValue(const QString& detail)
{
    return ZLError(u"NSCocoaErrorDomain"_s, 4865, u"The data couldn\u2019t be read because it is missing."_s,
                   u"NSDebugDescription="_s + detail);
}

std::variant<ZLFileManager::FinderPreviewState, ZLError> decode(const QByteArray& bytes)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return corruptData(u"The given data was not valid JSON: "_s + parseError.errorString()
                           + u" at offset "_s + QString::number(parseError.offset));
    if (!document.isObject())
        return corruptData(u"Expected to decode a dictionary but found something else."_s);
    const QString key = ZLFileManager::FinderPreviewState::stringValue(
        ZLFileManager::FinderPreviewState::CodingKeys::previewEnabled);
    const QJsonObject object = document.object();
    if (!object.contains(key))
        return missingValue(u"No value associated with key \""_s + key + u"\"."_s);
    const QJsonValue value = object.value(key);
    if (value.isNull())
        return missingValue(u"Expected Bool value but found null instead."_s);
    if (!value.isBool())
        return corruptData(u"Expected to decode Bool under \""_s + key + u"\" but found something else."_s);
    return ZLFileManager::FinderPreviewState{value.toBool()};
}

QByteArray encode(const ZLFileManager::FinderPreviewState& state)
{
    QJsonObject object;
    object.insert(ZLFileManager::FinderPreviewState::stringValue(
                      ZLFileManager::FinderPreviewState::CodingKeys::previewEnabled),
                  state.previewEnabled);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

void logError(const ZLError& error, int line = static_cast<int>(std::source_location::current().line()))
{
    CLog::pExp(error.description(), std::nullopt, CLog::StringTag::service, false, line,
               std::source_location::current().file_name());
}

// The URL's own directory flag; a failure is written to the system log and reads as "no".
bool isDirectory(FileManager& files, const QUrl& url)
{
    auto resource = files.isDirectoryResource(FileURL::toPath(url));
    if (const auto* error = std::get_if<ZLError>(&resource)) {
        SystemLog::logText(u"Error: "_s + error->description());
        return false;
    }
    return std::get<bool>(resource);
}

// The URL itself, or everything that is not a folder beneath it.
std::variant<std::optional<QList<QUrl>>, ZLError> filesWithoutDirs(FileManager& files, const QUrl& url)
{
    if (!isDirectory(files, url))
        return std::optional(QList<QUrl>{url});
    const QString path = url.toLocalFile();
    if (!files.isReadableFile(path)) {
        CLog::pExp(u"No read permission at "_s + path);
        return ZLFileManager::noPermissionError();
    }
    const auto beneath = files.filesBeneath(FileURL::toPath(url), [](const ZLError& error) {
        SystemLog::logText(u"Error: "_s + error.description());
    });
    if (!beneath)
        return std::optional<QList<QUrl>>();
    return beneath;
}

// Known to Qt's meta-object system by name from the start, as a runtime class is,
// also by the qualified name that runtime clients create it by.
const bool registeredWithRuntime = [] {
    qRegisterMetaType<ZLFileManager*>("ZLFileManager*");
    qRegisterMetaType<ZLFileManager*>("ZELNA_Quorin.ZLFileManager");
    qRegisterMetaType<QList<QUrl>>("QList<QUrl>");
    return true;
}();

} // namespace

ZLError ZLFileManager::noPermissionError()
{
    //: When a user do not have premission to one or more folders
    return ZLError(u"com.zelna"_s, 0, tr("no permission to folders"));
}

ZLFileManager::ZLFileResult ZLFileManager::isDir(const QUrl& url)
{
    const std::optional<bool> folder = fileManager.fileExistsIsDirectory(url.toLocalFile());
    if (!folder)
        return ZLFileResult::notFound;
    if (*folder)
        return ZLFileResult::directory;
    return attrManager.isStub(url) ? ZLFileResult::stubFile : ZLFileResult::file;
}

int ZLFileManager::isDirAt(const QUrl& url)
{
    return int(isDir(url));
}

void ZLFileManager::fileAggregation(const QStringList& paths, AggregationCompletion completion)
{
    // Every call gets a queue of its own; calls close together run side by side.
    auto queue = std::make_shared<DispatchQueue>(u"AggregationQueue"_s);
    aggregationQueue.store(queue);
    std::weak_ptr<int> alive = m_alive;
    FileManager* files = &fileManager;
    queue->async([queue, alive, files, paths, completion = std::move(completion), this]() mutable {
        CLog::pExp(u"Mapping paths -> URLs..."_s);
        QList<QUrl> urls;
        urls.reserve(paths.size());
        const QString current = QDir::currentPath();
        for (const QString& path : std::as_const(paths))
            urls.append(QUrl::fromLocalFile(QDir::isAbsolutePath(path) ? path : current + u'/' + path));
        CLog::pExp(u"Mapping paths -> URLs completed."_s);

        QList<QUrl> result;
        std::optional<ZLError> error;
        for (const QUrl& url : std::as_const(urls)) {
            if (alive.expired())
                continue; // the manager is gone: nothing more is gathered
            auto found = filesWithoutDirs(*files, url);
            if (auto* failure = std::get_if<ZLError>(&found)) {
                result.clear(); // what was gathered so far is dropped
                error = std::move(*failure);
                break;
            }
            if (auto& list = std::get<std::optional<QList<QUrl>>>(found))
                result.append(std::move(*list));
        }
        // The completion, the end of this queue's work and the release of the
        // queue itself all happen on the main queue.
        // The queue goes along: it must end on another thread than its own.
        DispatchQueue::main().async([queue = std::move(queue), alive, this,
                                     completion = std::move(completion), result = std::move(result),
                                     error = std::move(error)]() mutable {
            if (!alive.expired()) {
                std::shared_ptr<DispatchQueue> expected = queue;
                aggregationQueue.compare_exchange_strong(expected, nullptr);
            }
            completion(std::move(result), std::move(error));
            queue.reset();
        });
    });
}

void ZLFileManager::fileAggregationFrom(const QStringList& paths, QObject* receiver, const QByteArray& method)
{
    QPointer<QObject> target(receiver);
    fileAggregation(paths, [target, method](const QList<QUrl>& files, const std::optional<ZLError>& error) {
        if (!target)
            return;
        QVariantMap described;
        if (error) {
            described.insert(u"domain"_s, error->domain());
            described.insert(u"code"_s, error->code());
            described.insert(u"localizedDescription"_s, error->localizedDescription());
        }
        QMetaObject::invokeMethod(target, method.constData(), Qt::DirectConnection, Q_ARG(QList<QUrl>, files),
                                  Q_ARG(QVariantMap, described));
    });
}

QString ZLFileManager::FinderPreviewState::stringValue(CodingKeys)
{
    return u"previewEnabled"_s;
}

std::optional<ZLFileManager::FinderPreviewState::CodingKeys>
ZLFileManager::FinderPreviewState::codingKey(const QString& stringValue)
{
    if (stringValue == u"previewEnabled"_s)
        return CodingKeys::previewEnabled;
    return std::nullopt;
}

std::optional<ZLFileManager::FinderPreviewState::CodingKeys> ZLFileManager::FinderPreviewState::codingKey(int)
{
    return std::nullopt; // the key has no integer form
}

ZLFileManager::ZLFileManager() : fileManager(Platform::fileManager()) { }

ZLFileManager::~ZLFileManager() = default;

void ZLFileManager::createDirIfNeeded(const QUrl& url)
{
    // Whatever stands there counts: a plain file is not replaced.
    if (fileManager.fileExists(url.toLocalFile()))
        return;
    if (const auto error = fileManager.createDirectory(url.toLocalFile()))
        logError(*error);
}

const std::optional<QUrl>& ZLFileManager::sharedApplicationSupportDir()
{
    if (!m_sharedApplicationSupportDir) {
        auto located = fileManager.applicationSupportDirectory();
        if (const auto* error = std::get_if<ZLError>(&located)) {
            logError(*error);
            m_sharedApplicationSupportDir.emplace(std::nullopt);
        } else {
            const QUrl url = QUrl::fromLocalFile(std::get<QString>(located) + u"/com.zelna.Quorin.shared"_s);
            createDirIfNeeded(url);
            m_sharedApplicationSupportDir.emplace(url);
        }
    }
    return *m_sharedApplicationSupportDir;
}

const std::optional<QUrl>& ZLFileManager::communicationDir()
{
    if (!m_communicationDir) {
        const std::optional<QUrl>& shared = sharedApplicationSupportDir();
        if (!shared) {
            m_communicationDir.emplace(std::nullopt);
        } else {
            const QUrl url = QUrl::fromLocalFile(shared->toLocalFile() + u"/Communication"_s);
            createDirIfNeeded(url);
            m_communicationDir.emplace(url);
        }
    }
    return *m_communicationDir;
}

const std::optional<QUrl>& ZLFileManager::communicationFileURL()
{
    if (!m_communicationFileURL) {
        const std::optional<QUrl>& directory = communicationDir();
        m_communicationFileURL.emplace(directory ? std::optional(QUrl::fromLocalFile(
                                           directory->toLocalFile() + u"/commnuication_file.json"_s))
                                                 : std::nullopt);
    }
    return *m_communicationFileURL;
}

std::optional<bool> ZLFileManager::previewStateEnabled()
{
    const std::optional<QUrl>& file = communicationFileURL();
    if (!file) {
        CLog::pExp(u"Error reading previewState value"_s);
        return std::nullopt;
    }
    auto bytes = fileManager.contents(file->toLocalFile());
    if (const auto* error = std::get_if<ZLError>(&bytes)) {
        logError(*error);
        return std::nullopt;
    }
    auto decoded = decode(std::get<QByteArray>(bytes));
    if (const auto* error = std::get_if<ZLError>(&decoded)) {
        logError(*error);
        return std::nullopt;
    }
    return std::get<FinderPreviewState>(decoded).previewEnabled;
}

void ZLFileManager::setPreviewStateEnabled(std::optional<bool> enabled)
{
    const std::optional<QUrl>& file = communicationFileURL();
    if (!file || !enabled) {
        CLog::pExp(u"Error writing previewState value"_s);
        return;
    }
    const QString path = file->toLocalFile();
    // Removed first, then written: a reader finds the old file, none, or the new one,
    // never the old one half overwritten.
    if (fileManager.fileExists(path)) {
        if (const auto error = fileManager.removeItem(path)) {
            logError(*error);
            return;
        }
    }
    if (const auto error = fileManager.write(path, encode(FinderPreviewState{*enabled})))
        logError(*error);
}
