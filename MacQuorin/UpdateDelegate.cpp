#include "UpdateDelegate.h"

#include "Bundle.h"
#include "DispatchQueue.h"
#include "LoginItems.h"
#include "Platform.h"
#include "SUUpdater.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The login item's re-enable after a relaunch, between its scheduling and its 300 ms.
struct Reenable {
    QString name;
    QDeadlineTimer due;
    std::atomic<bool> done = false;
    void run()
    {
        if (!done.exchange(true))
            Platform::loginItems().setEnabled(name, true);
    }
};
std::shared_ptr<Reenable> g_reenable; // main thread only

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
    if (m_endsAfterCheck())
        endProcess(0);
}

void UpdateDelegate::updaterDidAbortWithError(SUUpdater*, const QString&)
{
    // Run daily from a timer, a checker that stayed after a failure would pile up.
    if (m_endsAfterCheck())
        endProcess(1);
}

void UpdateDelegate::updaterDidRelaunchApplication(SUUpdater*)
{
    Platform::loginItems().setEnabled(helperBundleName, false);
    // No queue, no second step: the login item then stays off, as intended.
    if (OperationQueue* queue = OperationQueue::current()) {
        if (DispatchQueue* dispatch = queue->underlyingQueue()) {
            auto reenable
                = std::make_shared<Reenable>(helperBundleName, QDeadlineTimer(300ms, Qt::PreciseTimer));
            g_reenable = reenable;
            dispatch->asyncAfter(300ms, [reenable] { reenable->run(); });
        }
    }
}

void UpdateDelegate::finishPendingWork()
{
    if (const std::shared_ptr<Reenable> reenable = std::exchange(g_reenable, nullptr)) {
        if (!reenable->done) {
            std::this_thread::sleep_for(reenable->due.remainingTimeAsDuration());
            reenable->run();
        }
    }
}

void UpdateDelegate::endProcess(int status)
{
    finishPendingWork();
    QCoreApplication::exit(status);
}
