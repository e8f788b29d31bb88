#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"
#include "RecordingLogSink.h"
#include "SUUpdateAlert.h"
#include "SUUpdater.h"
#include "SUUpdaterDelegate.h"
#include "SUUserDriver.h"
#include "TempHome.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString suite = u"com.zelna.Quorin"_s;

QByteArray feedWith(const QByteArray& version)
{
    return "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item>"
           "<title>Q</title><sparkle:version>"
           + version + "</sparkle:version><link>https://example.com/q</link></item></channel></rss>";
}

// Notes what the updater tells its delegate, and on which thread.
struct Recorder : SUUpdaterDelegate {
    QStringList calls;
    QList<QThread*> threads;
    void updaterDidNotFindUpdate(SUUpdater*) override { record(u"notFound"_s); }
    void updaterDidRelaunchApplication(SUUpdater*) override { record(u"relaunched"_s); }
    void record(const QString& call)
    {
        calls << call;
        threads << QThread::currentThread();
    }
};

// Answers every update found with one choice, noting the item.
struct Driver : SUUserDriver {
    QList<SUAppcastItem>* shown;
    Choice choice;
    Driver(QList<SUAppcastItem>* list, Choice c) : shown(list), choice(c) { }
    void showUpdateFound(const SUAppcastItem& item, const QString&,
                         std::function<void(Choice)> reply) override
    {
        shown->append(item);
        reply(choice);
    }
};

// Stands in for the browser: notes the addresses it was asked to open.
class Browser : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
    Q_INVOKABLE void open(const QUrl& url) { opened << url; }
};

} // namespace

// The updater against feeds in files and on a local server, with its
// defaults in a temporary home.
class TestUpdater : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    QList<SUAppcastItem> m_shown;
    Recorder m_delegate;

    std::unique_ptr<SUUpdater> make(SUUserDriver::Choice choice = SUUserDriver::Choice::RemindLater,
                                    std::chrono::milliseconds timeout = 5s,
                                    std::chrono::milliseconds deadline = 2min)
    {
        SUUpdater::Host host{u"1.0"_s, u"1.0"_s, suite};
        host.timeout = timeout;
        host.deadline = deadline;
        host.maxFeedBytes = 1 << 20;
        auto updater = std::make_unique<SUUpdater>(host, std::make_unique<Driver>(&m_shown, choice));
        updater->setDelegate(&m_delegate);
        return updater;
    }
    QUrl writeFeed(const QByteArray& bytes)
    {
        TempHome::writeFile(m_home->path() + u"/appcast.xml"_s, bytes);
        return QUrl::fromLocalFile(m_home->path() + u"/appcast.xml"_s);
    }
    // One background check from the feed; true once it has finished.
    bool check(SUUpdater& updater, const std::optional<QUrl>& feed = {})
    {
        if (feed)
            updater.setFeedURL(*feed);
        QSignalSpy finished(&updater, &SUUpdater::checkFinished);
        updater.checkForUpdatesInBackground();
        return finished.wait(10000);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        m_sink->clear();
        m_shown.clear();
        m_delegate = {};
    }

    void intervalsAndRelaunchRules()
    {
        QCOMPARE(SUUpdater::checkInterval(std::nullopt), 86400s);
        QCOMPARE(SUUpdater::checkInterval(0), 86400s);
        QCOMPARE(SUUpdater::checkInterval(-5), 86400s);
        QCOMPARE(SUUpdater::checkInterval(60), 3600s);
        QCOMPARE(SUUpdater::checkInterval(7200), 7200s);
        QVERIFY(!SUUpdater::isRelaunch(std::nullopt, u"1.0"_s)); // a fresh account
        QVERIFY(!SUUpdater::isRelaunch(u"1.0"_s, u"1.0"_s));
        QVERIFY(SUUpdater::isRelaunch(u"0.9"_s, u"1.0"_s));
        QVERIFY(SUUpdater::isRelaunch(u"1.1"_s, u"1.0"_s)); // a downgrade is a change too
    }

    void newerVersionIsOfferedUntilSkipped()
    {
        auto updater = make(SUUserDriver::Choice::SkipThisVersion);
        QVERIFY(check(*updater, writeFeed(feedWith("1.0.0"))));
        QCOMPARE(m_delegate.calls, QStringList{u"notFound"_s});
        QCOMPARE(m_delegate.threads, QList{QThread::currentThread()});
        QVERIFY(m_shown.isEmpty());
        QVERIFY(Platform::defaults().open(suite)->value(SUUpdater::lastCheckTimeKey).toDateTime().isValid());

        QVERIFY(check(*updater, writeFeed(feedWith("1.1"))));
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(m_shown.first().downloadPage(), QUrl(u"https://example.com/q"_s));
        QCOMPARE(m_delegate.calls.size(), 1);
        // The skipped version counts as no update from now on; a newer one is offered again.
        QVERIFY(check(*updater));
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(m_delegate.calls.size(), 2);
        QVERIFY(check(*updater, writeFeed(feedWith("1.2"))));
        QCOMPARE(m_shown.size(), 2);
    }

    void failedChecksAreLoggedNotReported_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("logged");
        QTest::newRow("malformed") << u"malformed"_s << u"cannot be read"_s;
        QTest::newRow("not a feed") << u"html"_s << u"not an RSS feed"_s;
        QTest::newRow("several megabytes") << u"large"_s << u"larger than"_s;
        QTest::newRow("endless device file") << u"zero"_s << u"cannot be read"_s; // read as empty, no hang
        QTest::newRow("missing file") << u"missing"_s << u"failed"_s;
        QTest::newRow("other scheme") << u"ftp"_s << u"not an https, http or file URL"_s;
        // Servers: a silent one meets the 300 ms transfer time-out; a trickle outlives it.
        QTest::newRow("refused connection") << u"refused"_s << u"failed"_s;
        QTest::newRow("never answers") << u"silent"_s << u"failed"_s;
        QTest::newRow("never ends") << u"endless"_s << u"larger than"_s;
        QTest::newRow("trickles") << u"trickle"_s << u"did not arrive within"_s;
        QTest::newRow("redirects in a loop") << u"redirect"_s << u"failed: Too many redirects"_s;
    }
    void failedChecksAreLoggedNotReported()
    {
        QFETCH(QString, kind);
        QFETCH(QString, logged);
        QTcpServer server;
        QUrl url = QUrl(u"http://127.0.0.1:%1/appcast.xml"_s.arg(
            server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0));
        if (kind == u"malformed"_s)
            url = writeFeed("<rss><channel><item>");
        else if (kind == u"html"_s)
            url = writeFeed("<html/>");
        else if (kind == u"large"_s)
            url = writeFeed(feedWith("9.0").append(QByteArray(3 << 20, ' ')));
        else if (kind == u"zero"_s)
            url = QUrl(u"file:///dev/zero"_s);
        else if (kind == u"missing"_s)
            url = QUrl::fromLocalFile(m_home->path() + u"/none.xml"_s);
        else if (kind == u"ftp"_s)
            url = QUrl(u"ftp://127.0.0.1/appcast.xml"_s);
        else if (kind == u"refused"_s)
            url.setPort(1);
#if defined(__SANITIZE_THREAD__)
        if (url.scheme() == u"http"_s)
            QSKIP("Qt's HTTP thread is not built with ThreadSanitizer and reports its own hand-overs");
#endif
        connect(&server, &QTcpServer::newConnection, &server, [&server, kind] {
            QTcpSocket* socket = server.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket, kind] {
                if (!socket->readAll().contains("\r\n\r\n") || socket->property("answered").toBool()
                    || kind == u"silent"_s)
                    return;
                if (kind == u"redirect"_s) { // the same connection asks again
                    socket->write(
                        "HTTP/1.1 302 Found\r\nLocation: /appcast.xml\r\nContent-Length: 0\r\n\r\n");
                    return;
                }
                socket->setProperty("answered", true);
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\n\r\n<rss>");
                auto* timer = new QTimer(socket);
                connect(timer, &QTimer::timeout, socket, [socket, kind] {
                    socket->write(kind == u"endless"_s ? QByteArray(64 * 1024, ' ') : QByteArray(" "));
                });
                timer->start(kind == u"endless"_s ? 1ms : 50ms);
            });
        });
        const bool served = url.scheme() == u"http"_s;
        auto updater = make(SUUserDriver::Choice::RemindLater, served ? 300ms : 5s, served ? 1s : 2min);
        QVERIFY(check(*updater, url));
        QCOMPARE(m_delegate.calls, QStringList());
        QVERIFY(m_shown.isEmpty());
        QCOMPARE(m_sink->lines().size(), 1);
        QVERIFY2(m_sink->lines()[0].startsWith(u"Updater: "_s) && m_sink->lines()[0].contains(logged),
                 qPrintable(m_sink->lines()[0]));
    }

    // A feed's download link can name any scheme; only web pages go to the browser.
    void downloadOpensOnlyWebAddresses()
    {
        Browser browser;
        const QStringList schemes{u"http"_s, u"https"_s, u"file"_s, u"javascript"_s, u"smb"_s, u"ftp"_s};
        for (const QString& scheme : schemes)
            QDesktopServices::setUrlHandler(scheme, &browser, "open");
        const auto unset = qScopeGuard([&schemes] {
            for (const QString& scheme : schemes)
                QDesktopServices::unsetUrlHandler(scheme);
        });
        const QStringList refused{
            u"file:///etc/passwd"_s,      u"javascript:alert(1)"_s, u"smb://host/share/q.deb"_s,
            u"ftp://example.com/q.deb"_s, u"/opt/q.deb"_s,          u""_s};
        for (const QString& address : refused)
            QVERIFY2(!SUUpdateAlert::openDownloadPage(QUrl(address)), qPrintable(address));
        QVERIFY(SUUpdateAlert::openDownloadPage(QUrl(u"https://example.com/q"_s)));
        QVERIFY(SUUpdateAlert::openDownloadPage(QUrl(u"HTTP://example.com/q"_s)));
        QCOMPARE(browser.opened,
                 (QList<QUrl>{QUrl(u"https://example.com/q"_s), QUrl(u"HTTP://example.com/q"_s)}));
        QCOMPARE(m_sink->lines().size(), refused.size());
    }

    void configurationFromAnotherThreadAndScheduledChecks()
    {
        Platform::defaults().open(suite)->setValue(SUUpdater::lastCheckTimeKey,
                                                   QDateTime::currentDateTimeUtc().addDays(-2));
        auto updater = make();
        const QUrl url = writeFeed(feedWith("0.5"));
        QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
        std::thread([&] {
            updater->setFeedURL(url);
            updater->setAutomaticallyChecksForUpdates(true); // overdue: checks without being asked
        }).join();
        QVERIFY(finished.wait(5000));
        QCOMPARE(m_delegate.calls, QStringList{u"notFound"_s});
        QCOMPARE(m_delegate.threads.first(), QThread::currentThread()); // checks stay on the owner's thread
        QVERIFY(updater->automaticallyChecksForUpdates());
        QVERIFY(!finished.wait(300)); // the next one is a whole interval away
    }

    void relaunchIsToldOnceOnTheMainThread()
    {
        Platform::defaults().open(suite)->setValue(SUUpdater::lastLaunchedVersionKey, u"0.9"_s);
        auto updater = make();
        QCOMPARE(Platform::defaults().open(suite)->value(SUUpdater::lastLaunchedVersionKey),
                 QVariant(u"1.0"_s));
        std::thread([&] { updater->setDelegate(&m_delegate); }).join();
        QTRY_COMPARE(m_delegate.calls, QStringList{u"relaunched"_s});
        QCOMPARE(m_delegate.threads.first(), QThread::currentThread());
        QTest::qWait(50);
        QCOMPARE(m_delegate.calls.size(), 1);
        auto again = make(); // the next start with the same version is no relaunch
        QTest::qWait(50);
        QCOMPARE(m_delegate.calls.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestUpdater)
#include "tst_updater.moc"
