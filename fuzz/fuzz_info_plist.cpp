// The bundle's Info.plist, read the way the launcher reads it at start.
#include "FuzzSupport.h"

#include "Bundle.h"

#include <QDir>
#include <QUrl>

namespace {
QString binFolder;
QString infoPath;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    const QString root = FuzzSupport::scratchFolder();
    binFolder = root + QStringLiteral("/bin");
    QDir().mkpath(binFolder);
    QDir().mkpath(root + u'/' + QLatin1StringView(Bundle::resourceFolder));
    infoPath = root + u'/' + QLatin1StringView(Bundle::resourceFolder) + QStringLiteral("/Info.plist");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::writeFile(infoPath, FuzzSupport::bytes(data, size));

    const Bundle bundle(binFolder);
    for (const char* key : {"CFBundleIdentifier", "CFBundleShortVersionString", "CFBundleVersion",
                            "ZLHelpBaseURL", "ZLHelpPageFragment"}) {
        (void)bundle.objectForInfoDictionaryKey(QLatin1StringView(key)).toString();
    }
    const QVariant feed = bundle.objectForInfoDictionaryKey(QStringLiteral("SUFeedURL"));
    if (feed.typeId() == QMetaType::QString)
        (void)QUrl(feed.toString(), QUrl::StrictMode).isValid();
    return 0;
}
