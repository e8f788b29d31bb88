#include "Bundle.h"

#include "PlistDocument.h"
#include "SystemLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

using namespace Qt::Literals::StringLiterals;

namespace {

std::optional<QVariantMap> readInfo(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        SystemLog::logText(u"Cannot read the bundle's information list "_s + path + u": "_s
                           + file.errorString());
        return std::nullopt;
    }
    constexpr qint64 maxSize = 4 * 1024 * 1024;
    auto document = PlistDocument::parse(file.read(maxSize + 1));
    if (!document || file.size() > maxSize) {
        SystemLog::logText(u"The bundle's information list "_s + path
                           + u" is not a property list with a dictionary at its root"_s);
        return std::nullopt;
    }
    return document->toMap();
}

} // namespace

Bundle::Bundle(const QString& binDirectory)
    : m_resourcePath(QDir::cleanPath(binDirectory + u"/../"_s + QLatin1StringView(resourceFolder)))
    , m_info(readInfo(pathForResource(u"Info.plist"_s)))
{ }

const Bundle& Bundle::main()
{
    static const Bundle bundle(QCoreApplication::applicationDirPath());
    return bundle;
}

QVariant Bundle::objectForInfoDictionaryKey(const QString& key) const
{
    return m_info ? m_info->value(key) : QVariant();
}
