#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"
#include "RecordingLogSink.h"
#include "TempHome.h"
#include "SUUpdateAlert.h"
#include "SUUpdater.h"
#include "SUUpdaterDelegate.h"
#include "SUUserDriver.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QTest>
#include <QThread>

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

struct Recorder : SUUpdaterDelegate {
    QList<QString> calls;
    QList<QThread*> threads;
    void updaterDidNotFindUpdate(SUUpdater*) override { record(u"notFound"_s); }
    void updaterDidRelaunchApplication(SUUpdater*) override { record(u"relaunched"_s); }
    void record(const QString& call)
    {
        calls << call;
        threads << QThread::currentThread();
    }
};

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

class TestUpdater : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void intervalsAndRelaunchRules();
    void noNewerVersionIsReported();
    void newerVersionIsOfferedUntilSkipped();
    void badFeedsAreLoggedNotReported_data();
    void badFeedsAreLoggedNotReported();
    void hostileServersAreCutOff_data();
    void hostileServersAreCutOff();
    void downloadOpensOnlyWebAddresses();
    void configurationFromAnotherThread();
    void relaunchIsToldOnceOnTheMainThread();
    void scheduledCheckRunsWhenDue();

private:
    std::unique_ptr<SUUpdater> make(SUUserDriver::Choice choice = SUUserDriver::Choice::RemindLater,
                                    std::chrono::milliseconds timeout = 5s, qint64 maxBytes = 1 << 20,
                                    std::chrono::milliseconds deadline = 2min);
    QUrl writeFeed(const QByteArray& bytes);
    // One background check from url that ends in a single log line and tells nobody.
    void checkEndsInALogLine(SUUpdater& updater, const QUrl& url, const QString& logged);

    std::unique_ptr<TempHome> m_home;
    std::shared_ptr<RecordingLogSink> m_sink;
    QList<SUAppcastItem> m_shown;
};

void TestUpdater::initTestCase()
{
    m_sink = RecordingLogSink::install();
}

void TestUpdater::init()
{
    m_home = std::make_unique<TempHome>();
    m_home->applyToProcess();
    m_sink->clear();
    m_shown.clear();
}

std::unique_ptr<SUUpdater> TestUpdater::make(SUUserDriver::Choice choice, std::chrono::milliseconds timeout,
                                             qint64 maxBytes, std::chrono::milliseconds deadline)
{
    SUUpdater::Host host;
    host.bundleVersion = u"1.0"_s;
    host.displayVersion = u"1.0"_s;
    host.defaultsSuite = suite;
    host.timeout = timeout;
    host.maxFeedBytes = maxBytes;
    host.deadline = deadline;
    return std::make_unique<SUUpdater>(host, std::make_unique<Driver>(&m_shown, choice));
}

QUrl TestUpdater::writeFeed(const QByteArray& bytes)
{
    const QString path = m_home->path() + u"/appcast.xml"_s;
    TempHome::writeFile(path, bytes);
    return QUrl::fromLocalFile(path);
}

void TestUpdater::checkEndsInALogLine(SUUpdater& updater, const QUrl& url, const QString& logged)
{
    Recorder delegate;
    updater.setDelegate(&delegate);
    updater.setFeedURL(url);
    QSignalSpy finished(&updater, &SUUpdater::checkFinished);
    updater.checkForUpdatesInBackground();
    QVERIFY(finished.wait(10000));
    updater.setDelegate(nullptr);
    QCOMPARE(delegate.calls, QStringList());
    QVERIFY(m_shown.isEmpty());
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().startsWith(u"Updater: "_s) && lines.first().contains(logged),
             qPrintable(lines.first()));
}

void TestUpdater::intervalsAndRelaunchRules()
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

void TestUpdater::noNewerVersionIsReported()
{
    auto updater = make();
    Recorder delegate;
    updater->setDelegate(&delegate);
    updater->setFeedURL(writeFeed(feedWith("1.0.0")));
    QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
    updater->checkForUpdatesInBackground();
    QVERIFY(finished.wait(5000));
    QCOMPARE(delegate.calls, QStringList{u"notFound"_s});
    QCOMPARE(delegate.threads.first(), QThread::currentThread());
    QVERIFY(m_shown.isEmpty());
    QVERIFY(Platform::defaults().open(suite)->value(SUUpdater::lastCheckTimeKey).toDateTime().isValid());
}

void TestUpdater::newerVersionIsOfferedUntilSkipped()
{
    auto updater = make(SUUserDriver::Choice::SkipThisVersion);
    Recorder delegate;
    updater->setDelegate(&delegate);
    updater->setFeedURL(writeFeed(feedWith("1.1")));
    QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
    updater->checkForUpdatesInBackground();
    QVERIFY(finished.wait(5000));
    QCOMPARE(m_shown.size(), 1);
    QCOMPARE(m_shown.first().downloadPage(), QUrl(u"https://example.com/q"_s));
    QCOMPARE(delegate.calls, QStringList());

    // The skipped version counts as no update from now on; a newer one is offered again.
    updater->checkForUpdatesInBackground();
    QVERIFY(finished.wait(5000));
    QCOMPARE(m_shown.size(), 1);
    QCOMPARE(delegate.calls, QStringList{u"notFound"_s});
    updater->setFeedURL(writeFeed(feedWith("1.2")));
    updater->checkForUpdatesInBackground();
    QVERIFY(finished.wait(5000));
    QCOMPARE(m_shown.size(), 2);
}

void TestUpdater::badFeedsAreLoggedNotReported_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("logged");
    QTest::newRow("malformed") << u"malformed"_s << u"cannot be read"_s;
    QTest::newRow("not a feed") << u"html"_s << u"not an RSS feed"_s;
    QTest::newRow("several megabytes") << u"large"_s << u"larger than"_s;
    QTest::newRow("endless device file") << u"zero"_s << u"cannot be read"_s; // read as empty, no hang
    QTest::newRow("missing file") << u"missing"_s << u"failed"_s;
    QTest::newRow("refused connection") << u"refused"_s << u"failed"_s;
    QTest::newRow("other scheme") << u"ftp"_s << u"not an https, http or file URL"_s;
}

void TestUpdater::badFeedsAreLoggedNotReported()
{
    QFETCH(QString, kind);
    QFETCH(QString, logged);
#if defined(__SANITIZE_THREAD__)
    if (kind == u"refused"_s)
        QSKIP("Qt's HTTP thread is not built with ThreadSanitizer and reports its own hand-overs");
#endif
    QUrl url;
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
    else if (kind == u"refused"_s)
        url = QUrl(u"http://127.0.0.1:1/appcast.xml"_s);
    else
        url = QUrl(u"ftp://127.0.0.1/appcast.xml"_s);
    checkEndsInALogLine(*make(), url, logged);
}

void TestUpdater::hostileServersAreCutOff_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("logged");
    QTest::newRow("never answers") << u"silent"_s << u"failed"_s;
    QTest::newRow("never ends") << u"endless"_s << u"larger than"_s;
    QTest::newRow("trickles") << u"trickle"_s << u"did not arrive within"_s;
    QTest::newRow("redirects in a loop") << u"redirect"_s << u"failed: Too many redirects"_s;
}

void TestUpdater::hostileServersAreCutOff()
{
#if defined(__SANITIZE_THREAD__)
    QSKIP("Qt's HTTP thread is not built with ThreadSanitizer and reports its own hand-overs");
#endif
    QFETCH(QString, kind);
    QFETCH(QString, logged);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    connect(&server, &QTcpServer::newConnection, &server, [&server, kind] {
        QTcpSocket* socket = server.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [socket, kind] {
            if (!socket->readAll().contains("\r\n\r\n") || socket->property("answered").toBool()
                || kind == u"silent"_s)
                return;
            socket->setProperty("answered", true);
            if (kind == u"redirect"_s) {
                socket->write("HTTP/1.1 302 Found\r\nLocation: /appcast.xml\r\nContent-Length: 0\r\n\r\n");
                socket->setProperty("answered", false); // the same connection asks again
                return;
            }
            socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\n\r\n<rss>");
            auto* timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [socket, kind] {
                socket->write(kind == u"endless"_s ? QByteArray(64 * 1024, ' ') : QByteArray(" "));
            });
            timer->start(kind == u"endless"_s ? 1ms : 50ms);
        });
    });
    // A silent server meets the 300 ms transfer time-out; a trickle outlives it.
    checkEndsInALogLine(*make(SUUserDriver::Choice::RemindLater, 300ms, 1 << 20, 1s),
                        QUrl(u"http://127.0.0.1:%1/appcast.xml"_s.arg(server.serverPort())), logged);
}

// A feed's download link can name any scheme; only web pages go to the browser.
void TestUpdater::downloadOpensOnlyWebAddresses()
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

void TestUpdater::configurationFromAnotherThread()
{
    auto updater = make();
    Recorder delegate;
    const QUrl url = writeFeed(feedWith("0.5"));
    QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
    std::thread([&] {
        updater->setDelegate(&delegate);
        updater->setFeedURL(url);
        updater->setAutomaticallyChecksForUpdates(true);
        updater->checkForUpdatesInBackground();
    }).join();
    QVERIFY(finished.wait(5000));
    QCOMPARE(delegate.calls, QStringList{u"notFound"_s});
    QCOMPARE(delegate.threads.first(), QThread::currentThread()); // checks stay on the owner's thread
    QVERIFY(updater->automaticallyChecksForUpdates());
}

void TestUpdater::relaunchIsToldOnceOnTheMainThread()
{
    Platform::defaults().open(suite)->setValue(SUUpdater::lastLaunchedVersionKey, u"0.9"_s);
    auto updater = make();
    QCOMPARE(Platform::defaults().open(suite)->value(SUUpdater::lastLaunchedVersionKey), QVariant(u"1.0"_s));
    Recorder delegate;
    std::thread([&] { updater->setDelegate(&delegate); }).join();
    updater->setDelegate(&delegate);
    QTRY_COMPARE(delegate.calls, QStringList{u"relaunched"_s});
    QCOMPARE(delegate.threads.first(), QThread::currentThread());
    QTest::qWait(50);
    QCOMPARE(delegate.calls.size(), 1);

    // The next start with the same version is no relaunch.
    auto again = make();
    Recorder second;
    again->setDelegate(&second);
    QTest::qWait(50);
    QCOMPARE(second.calls, QStringList());
}

void TestUpdater::scheduledCheckRunsWhenDue()
{
    Platform::defaults().open(suite)->setValue(SUUpdater::lastCheckTimeKey,
                                               QDateTime::currentDateTimeUtc().addDays(-2));
    auto updater = make();
    Recorder delegate;
    updater->setDelegate(&delegate);
    updater->setFeedURL(writeFeed(feedWith("1.0")));
    QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
    updater->setAutomaticallyChecksForUpdates(true); // overdue: checks without being asked
    QVERIFY(finished.wait(5000));
    QCOMPARE(delegate.calls, QStringList{u"notFound"_s});
    // The next one is a whole interval away.
    QVERIFY(!finished.wait(300));
}

QTEST_GUILESS_MAIN(TestUpdater)
#include "tst_updater.moc"
