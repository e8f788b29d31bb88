#include "SUUpdater.h"

#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"
#include "PluginModule.h"
#include "SystemLog.h"
#include "SUAppcast.h"
#include "SUFeedDownloadFactory.h"
#include "SUStandardVersionComparator.h"
#include "SUUpdaterDelegate.h"
#include "SUUserDriver.h"

#include <QDateTime>

#include <atomic>

using namespace Qt::Literals::StringLiterals;

namespace {

std::atomic<SUUpdater*> g_shared{nullptr};

// Feeds for other systems are left alone; one feed can serve every build.
const QString thisSystem = u"linux"_s;

} // namespace

SUUpdater::SUUpdater(Host host, std::unique_ptr<SUUserDriver> driver)
    : m_host(std::move(host))
    , m_driver(std::move(driver))
    , m_runner(this)
{
    m_scheduler.setSingleShot(true);
    connect(&m_scheduler, &QTimer::timeout, this, &SUUpdater::startCheck);
    // The next check stays due at the moment it was set for, whichever way the clock jumps.
    connect(m_host.clock, &Clock::moved, this, [this] {
        if (m_scheduler.isActive())
            armScheduler();
    });
    // The driver lives no longer than this updater, and fetches only while showing what it found.
    m_driver->setReleaseNotesFetch([this](const QUrl& link, SUFeedDownload::Finished done) {
        fetchReleaseNotes(link, std::move(done));
    });
    noteLaunch();
}

SUUpdater::~SUUpdater()
{
    m_download.reset(); // its replies first, while everything they could reach is still here
    m_notesDownload.reset();
    SUUpdater* self = this;
    g_shared.compare_exchange_strong(self, nullptr);
}

SUUpdater* SUUpdater::sharedUpdater()
{
    return g_shared.load();
}
void SUUpdater::setSharedUpdater(SUUpdater* updater)
{
    g_shared.store(updater);
}

std::chrono::seconds SUUpdater::checkInterval(std::optional<qint64> requestedSeconds)
{
    if (!requestedSeconds || *requestedSeconds <= 0)
        return defaultCheckInterval;
    return std::max(minimumCheckInterval, std::chrono::seconds(*requestedSeconds));
}

bool SUUpdater::isRelaunch(const std::optional<QString>& previousVersion, const QString& currentVersion)
{
    return previousVersion && !previousVersion->isEmpty() && *previousVersion != currentVersion;
}

void SUUpdater::log(const QString& message) const
{
    SystemLog::logText(u"Updater: "_s + message);
}

void SUUpdater::noteLaunch()
{
    auto defaults = Platform::defaults().open(m_host.defaultsSuite);
    if (!defaults)
        return;
    const QVariant previous = defaults->value(lastLaunchedVersionKey);
    m_relaunched = isRelaunch(previous.typeId() == QMetaType::QString ? std::optional(previous.toString())
                                                                      : std::nullopt,
                              m_host.bundleVersion);
    if (previous != QVariant(m_host.bundleVersion))
        defaults->setValue(lastLaunchedVersionKey, m_host.bundleVersion);
}

void SUUpdater::setDelegate(SUUpdaterDelegate* newDelegate)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_delegate = newDelegate;
    }
    if (!newDelegate)
        return;
    m_runner.post([this] {
        if (!m_relaunched || m_relaunchSent)
            return;
        if (SUUpdaterDelegate* current = delegate()) {
            m_relaunchSent = true;
            current->updaterDidRelaunchApplication(this);
        }
    });
}

void SUUpdater::setFeedURL(const QUrl& url)
{
    const QMutexLocker locker(&m_mutex);
    m_feedURL = url;
}

QUrl SUUpdater::feedURL() const
{
    const QMutexLocker locker(&m_mutex);
    return m_feedURL;
}

void SUUpdater::setAutomaticallyChecksForUpdates(bool automatic)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_automatic = automatic;
    }
    m_runner.post([this] { scheduleNextCheck(); });
}

bool SUUpdater::automaticallyChecksForUpdates() const
{
    const QMutexLocker locker(&m_mutex);
    return m_automatic;
}

void SUUpdater::checkForUpdatesInBackground()
{
    // In the background: after whatever the application has queued already.
    m_runner.post([this] { QTimer::singleShot(0, this, &SUUpdater::startCheck); });
}

void SUUpdater::scheduleNextCheck()
{
    if (!automaticallyChecksForUpdates()) {
        m_scheduler.stop();
        return;
    }
    const QDateTime now = m_host.clock->now();
    QDateTime last;
    if (auto defaults = Platform::defaults().open(m_host.defaultsSuite))
        last = defaults->value(lastCheckTimeKey).toDateTime();
    // A last check in the future (a clock set back) counts as now.
    if (!last.isValid() || last > now)
        last = now;
    m_nextCheck = last.addSecs(m_host.checkInterval.count());
    armScheduler();
}

void SUUpdater::armScheduler()
{
    const qint64 dueMs = m_host.clock->now().msecsTo(m_nextCheck);
    m_scheduler.start(
        std::chrono::milliseconds(std::clamp<qint64>(dueMs, 0, std::numeric_limits<int>::max())));
}

void SUUpdater::startCheck()
{
    if (m_checking)
        return; // one check at a time
    const QUrl url = feedURL();
    const QString scheme = url.scheme().toLower();
    if (url.isEmpty() || (scheme != u"https"_s && scheme != u"http"_s && scheme != u"file"_s)) {
        fail(u"no update check: the feed address \""_s + url.toString()
             + u"\" is not an https, http or file URL"_s);
        Q_EMIT checkFinished();
        return;
    }
    if (auto defaults = Platform::defaults().open(m_host.defaultsSuite))
        defaults->setValue(lastCheckTimeKey, m_host.clock->now());

    QString error;
    if (!m_download && !(m_download = makeDownload(error))) {
        finishCheck(url, {}, u"failed: "_s + error);
        return;
    }
    m_checking = true;
    m_download->start(request(url),
                      [this, url](const QByteArray& bytes, const QString& failure, const QString&) {
                          m_checking = false;
                          finishCheck(url, bytes, failure);
                      });
}

std::unique_ptr<SUFeedDownload> SUUpdater::makeDownload(QString& error) const
{
    auto* factory = PluginModule::instance<SUFeedDownloadFactory>(m_host.moduleDirectory,
                                                                  SUFeedDownloadFactory::moduleName, &error);
    return factory ? factory->create() : nullptr;
}

SUFeedDownload::Request SUUpdater::request(const QUrl& url) const
{
    return {url, u"ZELNA Quorin/"_s + m_host.displayVersion, m_host.timeout, m_host.deadline,
            m_host.maxFeedBytes};
}

void SUUpdater::fetchReleaseNotes(const QUrl& link, SUFeedDownload::Finished done)
{
    // The one window shows one item's notes: a fetch for another ends the one before, unanswered.
    m_notesDownload.reset();
    auto finished = [this, link, done = std::move(done)](const QByteArray& bytes, const QString& failure,
                                                         const QString& type) {
        if (!failure.isEmpty())
            log(u"release notes of "_s + link.toString() + u' ' + failure);
        done(bytes, failure, type);
    };
    const QString scheme = link.scheme().toLower();
    QString error;
    if (!link.isValid() || (scheme != u"https"_s && scheme != u"http"_s))
        finished({}, u"failed: not an https or http URL"_s, {});
    else if (!(m_notesDownload = makeDownload(error)))
        finished({}, u"failed: "_s + error, {});
    else
        m_notesDownload->start(request(link), std::move(finished));
}

void SUUpdater::finishCheck(const QUrl& url, const QByteArray& bytes, const QString& error)
{
    if (error.isEmpty())
        handleFeed(bytes);
    else
        fail(u"update check of "_s + url.toString() + u' ' + error);
    scheduleNextCheck();
    Q_EMIT checkFinished();
}

void SUUpdater::handleFeed(const QByteArray& bytes)
{
    QString error;
    const auto appcast = SUAppcast::parse(bytes, &error);
    if (!appcast) {
        fail(u"the update feed "_s + feedURL().toString() + u" cannot be read: "_s + error);
        return;
    }
    if (const qsizetype ignored = appcast->overlongVersions())
        log(QString::number(ignored) + u" item(s) of the update feed ignored: their version is longer than "_s
            + QString::number(SUAppcast::maxVersionLength) + u" characters"_s);
    const std::optional<SUAppcastItem> best = appcast->bestItem(thisSystem);
    if (!best
        || SUStandardVersionComparator::compareVersions(best->versionString, m_host.bundleVersion) <= 0) {
        notifyDidNotFindUpdate();
        return;
    }
    auto defaults = Platform::defaults().open(m_host.defaultsSuite);
    if (defaults && defaults->value(skippedVersionKey) == QVariant(best->versionString)) {
        notifyDidNotFindUpdate();
        return;
    }
    const QString version = best->versionString;
    const QString suite = m_host.defaultsSuite;
    m_driver->showUpdateFound(*best, m_host.displayVersion, [suite, version](SUUserDriver::Choice choice) {
        if (choice != SUUserDriver::Choice::SkipThisVersion)
            return;
        if (auto skipped = Platform::defaults().open(suite))
            skipped->setValue(skippedVersionKey, version);
    });
}

SUUpdaterDelegate* SUUpdater::delegate() const
{
    const QMutexLocker locker(&m_mutex);
    return m_delegate;
}

void SUUpdater::notifyDidNotFindUpdate()
{
    if (SUUpdaterDelegate* current = delegate())
        current->updaterDidNotFindUpdate(this);
}

void SUUpdater::fail(const QString& message)
{
    log(message);
    if (SUUpdaterDelegate* current = delegate())
        current->updaterDidAbortWithError(this, message);
}
