#include "Bundle.h"

#include "FileManager.h"
#include "Platform.h"
#include "PlistDocument.h"
#include "SystemLog.h"

#include <QDir>

using namespace Qt::Literals::StringLiterals;

namespace {

std::optional<QVariantMap> readInfo(const QString& path)
{
    // Read without blocking and only when a regular file: a pipe in its place is an error, not a hang.
    const auto contents = Platform::fileManager().contents(path);
    if (const auto* error = std::get_if<ZLError>(&contents)) {
        SystemLog::logText(u"Cannot read the bundle's information list "_s + path + u": "_s
                           + error->description());
        return std::nullopt;
    }
    const auto document = PlistDocument::parse(std::get<QByteArray>(contents));
    if (!document) {
        SystemLog::logText(u"The bundle's information list "_s + path
                           + u" is not a property list with a dictionary at its root"_s);
        return std::nullopt;
    }
    return document->toMap();
}

} // namespace

Bundle::Bundle(const QString& binDirectory)
    : m_resourcePath(QDir::cleanPath(binDirectory + u"/../"_s + QLatin1StringView(resourceFolder)))
    , m_modulePath(QDir::cleanPath(binDirectory + u"/../"_s + QLatin1StringView(moduleFolder)))
    , m_info(readInfo(pathForResource(u"Info.plist"_s)))
{ }

const Bundle& Bundle::main()
{
    static const Bundle bundle(Platform::executableDirectory());
    return bundle;
}

QVariant Bundle::objectForInfoDictionaryKey(const QString& key) const
{
    return m_info ? m_info->value(key) : QVariant();
}
