#include "UpdateDelegate.h"

#include "AppDelegate.h"
#include "Bundle.h"
#include "DispatchQueue.h"
#include "LoginItems.h"
#include "Platform.h"
#include "SUUpdater.h"

#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

SUUpdater& requireSharedUpdater()
{
    SUUpdater* updater = SUUpdater::sharedUpdater();
    if (!updater)
        qFatal("There is no shared updater to configure");
    return *updater;
}

} // namespace

void UpdateDelegate::configureSharedUpdater(UpdateDelegate& delegate, const Bundle& bundle)
{
    const QVariant feed = bundle.objectForInfoDictionaryKey(u"SUFeedURL"_s);
    if (feed.typeId() != QMetaType::QString)
        return;
    if (SUUpdater* updater = SUUpdater::sharedUpdater())
        updater->setDelegate(&delegate);

    const QString text = feed.toString();
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid())
        qFatal("SUFeedURL \"%s\" in the bundle's Info.plist is not a URL", qUtf8Printable(text));
    requireSharedUpdater().setFeedURL(url);
    requireSharedUpdater().setAutomaticallyChecksForUpdates(true);
    requireSharedUpdater().checkForUpdatesInBackground();
}

void UpdateDelegate::updaterDidNotFindUpdate(SUUpdater*)
{
    if (AppDelegate::isChecker) {
        std::fflush(nullptr);
        std::exit(0);
    }
}

void UpdateDelegate::updaterDidRelaunchApplication(SUUpdater*)
{
    Platform::loginItems().setEnabled(helperBundleName, false);
    // No queue, no second step: the login item then stays off, as intended.
    if (OperationQueue* queue = OperationQueue::current()) {
        if (DispatchQueue* dispatch = queue->underlyingQueue()) {
            const QString name = helperBundleName;
            dispatch->asyncAfter(300ms, [name] { Platform::loginItems().setEnabled(name, true); });
        }
    }
}
