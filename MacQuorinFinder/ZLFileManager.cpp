#include "ZLFileManager.h"

#include "MacQuorin/CLogger.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"

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

} // namespace

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
