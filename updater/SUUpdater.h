#pragma once

#include "Clock.h"
#include "SUAppcastItem.h"
#include "SUFeedDownload.h"

#include <QMutex>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include "WorkRunner.h"

#include <chrono>
#include <memory>
#include <optional>

class SUUpdaterDelegate;
class SUUserDriver;

// Checks an appcast feed for a newer version of the running bundle. It never
// installs anything: Download opens the release's web page. Configuration
// calls are accepted from any thread; checks run on the thread that owns it.
class SUUpdater : public QObject {
    Q_OBJECT
public:
    struct Host {
        QString bundleVersion;  // compared with the feed's versions
        QString displayVersion; // shown beside the new version
        QString defaultsSuite;  // the application's own defaults
        std::chrono::seconds checkInterval{defaultCheckInterval};
        std::chrono::milliseconds timeout{std::chrono::seconds(30)}; // without a byte received
        std::chrono::milliseconds deadline{std::chrono::minutes(2)}; // for the whole feed
        qint64 maxFeedBytes = 8 * 1024 * 1024;
        QString moduleDirectory;         // where the network module is
        Clock* clock = &Clock::system(); // when checks are due
    };

    static constexpr std::chrono::seconds defaultCheckInterval{24 * 60 * 60};
    static constexpr std::chrono::seconds minimumCheckInterval{60 * 60};

    SUUpdater(Host host, std::unique_ptr<SUUserDriver> driver);
    ~SUUpdater() override;

    // The process-wide updater, when the application made one.
    static SUUpdater* sharedUpdater();
    static void setSharedUpdater(SUUpdater* updater);

    void setDelegate(SUUpdaterDelegate* delegate);
    void setFeedURL(const QUrl& url);
    QUrl feedURL() const;
    void setAutomaticallyChecksForUpdates(bool automatic);
    bool automaticallyChecksForUpdates() const;
    void checkForUpdatesInBackground();

    // The interval an application asks for, within the allowed range.
    static std::chrono::seconds checkInterval(std::optional<qint64> requestedSeconds);
    // Whether this start is the first after the bundle's version changed.
    static bool isRelaunch(const std::optional<QString>& previousVersion, const QString& currentVersion);

    static inline const QString lastCheckTimeKey = QStringLiteral("SULastCheckTime");
    static inline const QString skippedVersionKey = QStringLiteral("SUSkippedVersion");
    static inline const QString lastLaunchedVersionKey = QStringLiteral("SULastLaunchedBundleVersion");

Q_SIGNALS:
    // A check ended: found, not found, or failed (for observers such as tests).
    void checkFinished();

private:
    void startCheck();
    // The network module's download, or why there is none.
    std::unique_ptr<SUFeedDownload> makeDownload(QString& error) const;
    SUFeedDownload::Request request(const QUrl& url) const;
    // Fetches release notes within the feed's limits; done is called on this thread, unless another fetch
    // starts first.
    void fetchReleaseNotes(const QUrl& link, SUFeedDownload::Finished done);
    void finishCheck(const QUrl& url, const QByteArray& bytes, const QString& error);
    void handleFeed(const QByteArray& bytes);
    void scheduleNextCheck();
    void armScheduler(); // for m_nextCheck, by the clock's now
    SUUpdaterDelegate* delegate() const;
    void notifyDidNotFindUpdate();
    void fail(const QString& message); // logged, and told to the delegate
    void noteLaunch();
    void log(const QString& message) const;

    Host m_host;
    std::unique_ptr<SUUserDriver> m_driver;
    std::unique_ptr<SUFeedDownload> m_download; // loaded at the first check
    std::unique_ptr<SUFeedDownload> m_notesDownload;
    bool m_checking = false;
    WorkRunner m_runner; // brings calls from other threads to this one
    QTimer m_scheduler;
    QDateTime m_nextCheck;
    bool m_relaunched = false;
    bool m_relaunchSent = false;

    mutable QMutex m_mutex; // guards the configuration below, set from any thread
    SUUpdaterDelegate* m_delegate = nullptr;
    QUrl m_feedURL;
    bool m_automatic = false;
};
