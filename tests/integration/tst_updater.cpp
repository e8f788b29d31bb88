#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"
#include "RecordingLogSink.h"
#include "SUAppcast.h"
#include "SUStandardVersionComparator.h"
#include "SUUpdater.h"
#include "SUUpdaterDelegate.h"
#include "SUUserDriver.h"
#include "Testing.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#ifdef ZQ_WINDOWS // built with the windows that show what a check found
#include "SUStandardUserDriver.h"
#include "SUUpdateAlert.h"

#include <QApplication>
#include <QTextBrowser>
#endif

static QByteArray feedWith(const QByteArray& version)
{
    return "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item><s:version>"
           + version + "</s:version></item></channel></rss>";
}
// Time that moves only when told.
struct ManualClock : Clock {
    QDateTime moment = QDateTime(QDate(2030, 1, 1), QTime(0, 0), Qt::UTC);
    QDateTime now() const override { return moment; }
    void advance(std::chrono::seconds by)
    {
        moment = moment.addSecs(by.count());
        Q_EMIT moved();
    }
};
struct SkippingUser : SUUserDriver {
    QStringList* calls;
    explicit SkippingUser(QStringList* list) : calls(list) { }
    void showUpdateFound(const SUAppcastItem& item, const QString&, std::function<void(Choice)> then) override
    {
        *calls << u"offered "_s + item.versionString;
        then(Choice::SkipThisVersion);
    }
};

// The feed, the order of versions, and the updater against feeds in files and from a local server.
class TestUpdater : public QObject, public SUUpdaterDelegate {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    TempHome m_home;
    QTcpServer m_server;
    QStringList m_calls;
    ManualClock m_clock;

    void updaterDidNotFindUpdate(SUUpdater*) override { m_calls << u"notFound"_s; }
    void updaterDidRelaunchApplication(SUUpdater*) override { m_calls << u"relaunched"_s; }
    void updaterDidAbortWithError(SUUpdater*, const QString& error) override { m_calls << error; }

    auto make(std::chrono::milliseconds timeout = 5s, std::chrono::seconds interval = 24h,
              std::unique_ptr<SUUserDriver> driver = {})
    {
        const SUUpdater::Host host{u"1.0"_s, u"1.0"_s,    u"zq.test"_s, interval,
                                   timeout,  4 * timeout, 1 << 20,      QStringLiteral(ZQ_MODULE_DIR),
                                   &m_clock};
        auto updater = std::make_unique<SUUpdater>(host, driver ? std::move(driver)
                                                                : std::make_unique<SkippingUser>(&m_calls));
        updater->setDelegate(this);
        return updater;
    }
    QUrl writeFeed(const QByteArray& bytes, const QString& name = u"appcast.xml"_s)
    {
        TempHome::writeFile(m_home.path() + u'/' + name, bytes);
        return QUrl::fromLocalFile(m_home.path() + u'/' + name);
    }
    bool check(SUUpdater& updater, const QUrl& feed)
    {
        updater.setFeedURL(feed);
        QSignalSpy finished(&updater, &SUUpdater::checkFinished);
        updater.checkForUpdatesInBackground();
        return finished.wait(10000);
    }

private Q_SLOTS:
    // The server trickles a feed at "/trickle", serves release notes at "/notes…", and is silent otherwise.
    void initTestCase()
    {
        m_home.applyToProcess();
        QVERIFY(m_server.listen(QHostAddress::LocalHost));
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = m_server.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                static const QHash<QByteArray, QByteArray> notes{
                    {"/notes.html", "Content-Type: text/html\r\n\r\n<p>Fixed <b>everything</b>.</p>"},
                    {"/notes-de.txt",
                     "Content-Type: text/plain; charset=iso-8859-1\r\n\r\n<b>Alles</b> gel\xf6st."}};
                const QByteArray path = socket->readAll().split(' ').value(1);
                if (path.startsWith("/notes")) {
                    socket->write(notes.contains(path) ? QByteArray("HTTP/1.1 200 OK\r\n" + notes[path])
                                                       : "HTTP/1.1 404 None\r\n\r\n");
                    socket->disconnectFromHost();
                }
                if (path != "/trickle")
                    return;
                socket->write("HTTP/1.1 200 OK\r\n\r\n<rss>");
                auto* timer = new QTimer(socket);
                connect(timer, &QTimer::timeout, socket, [socket] { socket->write(" "); });
                timer->start(50ms);
            });
        });
    }
    void init()
    {
        m_sink->clear();
        m_calls.clear();
    }

    // A version other than the last launch's means the update was installed: told once.
    void relaunchIsToldAndNewerVersionsOfferedUntilSkipped()
    {
        Platform::defaults().open(u"zq.test"_s)->setValue(SUUpdater::lastLaunchedVersionKey, u"0.9"_s);
        auto updater = make();
        QVERIFY(check(*updater, writeFeed(feedWith("1.0.0"))));
        QVERIFY(check(*updater, writeFeed(feedWith("1.1"))));
        QVERIFY(check(*updater, writeFeed(feedWith("1.1")))); // the skipped version is no update from now on
        QVERIFY(check(*make(), writeFeed(feedWith("1.2"))));  // not even after a restart, but a newer one is
        QCOMPARE(m_calls.join(u'|'), u"relaunched|notFound|offered 1.1|notFound|offered 1.2"_s);
        for (const auto& [asked, interval] : QList<std::pair<std::optional<qint64>, std::chrono::seconds>>{
                 {std::nullopt, 24h}, {0, 24h}, {-5, 24h}, {1, 1h}, {7200, 2h}})
            QCOMPARE(SUUpdater::checkInterval(asked), interval);
    }

    void failedChecksAreLoggedAndReportedAsSuch_data()
    {
        QTest::addColumn<QUrl>("feed");
        QTest::addColumn<QString>("logged");
        const QString served = u"http://127.0.0.1:%1"_s.arg(m_server.serverPort());
        QTest::newRow("malformed") << writeFeed("<rss><channel><item></channel>", u"1"_s) << u"line 1"_s;
        QTest::newRow("several megabytes") << writeFeed(QByteArray(3 << 20, ' '), u"5"_s) << u"larger than"_s;
        QTest::newRow("missing file") << QUrl::fromLocalFile(m_home.path() + u"/none"_s) << u"failed"_s;
        QTest::newRow("endless device file") << QUrl(u"file:///dev/zero"_s) << u"cannot be read"_s; // no hang
        QTest::newRow("other scheme") << QUrl(u"ftp://127.0.0.1/"_s) << u"not an https, http or file URL"_s;
        // A silent server meets the 300 ms transfer time-out; a trickle outlives it, not the 1.2 s deadline.
        QTest::newRow("never answers") << QUrl(served + u"/silent"_s) << u"failed"_s;
        QTest::newRow("trickles") << QUrl(served + u"/trickle"_s) << u"did not arrive within"_s;
    }
    void failedChecksAreLoggedAndReportedAsSuch()
    {
        QFETCH(QUrl, feed);
        QFETCH(QString, logged);
        const bool served = feed.scheme() == u"http"_s;
#if defined(__SANITIZE_THREAD__)
        if (served)
            QSKIP("Qt's HTTP thread is not built with ThreadSanitizer and reports its own hand-overs");
#endif
        QVERIFY(check(*make(served ? 300ms : 5s), feed));
        const QStringList log = m_sink->lines();
        QVERIFY2(m_calls.size() == 1 && log.size() == 1 && log[0].contains(u"Updater: "_s + m_calls[0])
                     && log[0].contains(logged),
                 qPrintable(log.join(u'\n')));
    }

    // Automatic checks come an interval after the last one (one in the future counts as now); off, none.
    void scheduledChecks()
    {
        const QDateTime start = m_clock.now();
        auto suite = Platform::defaults().open(u"zq.test"_s);
        suite->setValue(SUUpdater::lastCheckTimeKey, start.addYears(1));
        auto updater = make(5s, 1h);
        updater->setFeedURL(writeFeed(feedWith("1.0")));
        QSignalSpy finished(updater.get(), &SUUpdater::checkFinished);
        updater->setAutomaticallyChecksForUpdates(true);
        const auto lastCheckAfter = [&](std::chrono::seconds moved) {
            QTest::qWait(1); // what was asked for is done
            m_clock.advance(moved);
            QTest::qWait(1); // a check that is due starts at once, and notes its time first
            return suite->value(SUUpdater::lastCheckTimeKey).toDateTime();
        };
        QCOMPARE(lastCheckAfter(3599s), start.addYears(1));
        QCOMPARE(lastCheckAfter(1s), start.addSecs(3600));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        updater->setAutomaticallyChecksForUpdates(false);
        QCOMPARE(lastCheckAfter(2h), start.addSecs(3600));
        QCOMPARE(m_calls, QStringList{u"notFound"_s});
    }

    // Both ways round and reflexive: order is the sign of compare(older, newer).
    void versionOrder_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<int>("order");
        QTest::addColumn<QString>("b");
        const auto row = [](const char* name, const QString& a, int order, const QString& b) {
            QTest::newRow(name) << a << order << b;
        };
        row("missing parts count as zero", u"1"_s, 0, u"1.0.0.0"_s);
        row("a further part is newer", u"1.0.1"_s, 1, u"1.0"_s);
        row("parts are numbers, not text", u"1.10"_s, 1, u"1.9"_s);
        row("a number too long for 64 bits is the largest", u"99999999999999999999"_s, 1, u"1"_s);
        row("a prerelease before its release", u"1.0b1"_s, -1, u"1.0"_s);
        row("prerelease words in text order", u"1.0rc1"_s, 1, u"1.0b9"_s);
        row("a separator after the shared run lengthens", u"1.0 beta"_s, 1, u"1.0"_s);
        row("nothing after a dash counts", u"1.0-2"_s, 0, u"1.0-1"_s);
        row("a dash's word is no prerelease", u"1.0"_s, 0, u"1.0-beta"_s);
        row("a stray separator loses to a number", u"1..0"_s, -1, u"1.0"_s);
        row("words in text order", u"abc"_s, -1, u"abd"_s);
        row("a number beats a word", u"1a.b"_s, -1, u"1a.1"_s);
    }
    void versionOrder()
    {
        QFETCH(QString, a);
        QFETCH(int, order);
        QFETCH(QString, b);
        const auto compare = &SUStandardVersionComparator::compareVersions;
        QCOMPARE(QList({compare(a, b), compare(b, a), compare(a, a), compare(b, b)}),
                 QList({order, -order, 0, 0}));
    }

    // Linked notes are fetched when the window opens, in the windows' language where there are such; plain
    // text is shown as text; a link that fails says so.
    void releaseNotesInTheWindow_data()
    {
        QTest::addColumn<QByteArray>("elements"); // the item's notes
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("shown");
        const QByteArray link
            = "<s:releaseNotesLink>http://127.0.0.1:" + QByteArray::number(m_server.serverPort()),
            german = "<description>Default</description><description xml:lang=\"de\">Deutsch</description>";
        const QString failed = u"The release notes could not be loaded."_s;
        QTest::newRow("a link only") << link + "/notes.html</s:releaseNotesLink>" << u"en"_s
                                     << u"Fixed everything."_s;
        QTest::newRow("a German link for a German user")
            << link + "/notes.html</s:releaseNotesLink>"
                   + QByteArray(link).replace(">", " xml:lang=\"de-DE\">")
                   + "/notes-de.txt</s:releaseNotesLink>"
            << u"de_DE"_s << u"<b>Alles</b> gel\u00f6st."_s;
        QTest::newRow("a German description for a German user") << german << u"de"_s << u"Deutsch"_s;
        QTest::newRow("a link that fails") << link + "/notes-gone</s:releaseNotesLink>" << u"en"_s << failed;
        QTest::newRow("a link to a file")
            << "<s:releaseNotesLink>file:///etc/passwd</s:releaseNotesLink>"_ba << u"en"_s << failed;
    }
    void releaseNotesInTheWindow()
    {
        QFETCH(QByteArray, elements);
        QFETCH(QString, language);
        QFETCH(QString, shown);
#ifndef ZQ_WINDOWS
        QSKIP("built without windows");
#else
#if defined(__SANITIZE_THREAD__)
        if (elements.contains("http:"))
            QSKIP("Qt's HTTP thread is not built with ThreadSanitizer and reports its own hand-overs");
#endif
        auto updater = make(5s, 24h, std::make_unique<SUStandardUserDriver>(u"ZELNA Quorin"_s, language));
        const QByteArray feed = feedWith("2.0").replace("</item>", QByteArray(elements + "</item>"));
        QVERIFY(check(*updater, writeFeed(feed)));
        SUUpdateAlert* alert = nullptr; // not those of the rows before, closed and soon gone
        for (QWidget* window : QApplication::topLevelWidgets())
            alert = window->isVisible() ? qobject_cast<SUUpdateAlert*>(window) : alert;
        QVERIFY(alert);
        QTRY_COMPARE(alert->findChild<QTextBrowser*>()->toPlainText(), shown);
        QCOMPARE(m_sink->lines().filter(u"Updater: release notes of "_s).size(),
                 int(shown.contains(u"not be"_s)));
        alert->close();
#endif
    }

    // Elements win over the enclosure's attributes; the newest item is of no channel, for this system.
    void readsItemsAndPicksTheNewestForThisSystem()
    {
        const auto appcast = SUAppcast::parse( // any prefix for the update framework's namespace
            "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
            "<item><s:version>1.9</s:version></item><item><s:version>200</s:version><s:os>linux</s:os>"
            "<link>https://example.com/2</link><enclosure url=\"x\" s:version=\"199\" s:os=\"macos\"/></item>"
            "<item><enclosure url=\"https://example.com/1\" s:version=\"100\" s:shortVersionString=\"1.0\" "
            "s:os=\"macos\"/></item><item><s:version> </s:version><enclosure url=\"x\"/></item>"
            "<item><s:version>4.0</s:version><s:channel>beta</s:channel></item><item><s:version>"
            + QByteArray(SUAppcast::maxVersionLength + 1, '9')
            + "</s:version></item>"
              "<item><s:version>1.10</s:version><s:minimumSystemVersion>10</s:minimumSystemVersion></item></"
              "channel></rss>");
        QStringList items;
        for (const SUAppcastItem& i : appcast->items())
            items << u"%1 %2 %3 %4"_s.arg(i.versionString, i.displayVersionString, i.os,
                                          i.downloadPage().toString());
        QCOMPARE(items,
                 (QStringList{u"1.9 1.9  "_s, u"200 200 linux https://example.com/2"_s,
                              u"100 1.0 macos https://example.com/1"_s, u"4.0 4.0  "_s, u"1.10 1.10  "_s}));
        QCOMPARE(appcast->bestItem(u"linux"_s)->versionString, u"200"_s);
        QCOMPARE(appcast->bestItem(u"windows"_s)->versionString, u"1.10"_s);
        QCOMPARE(appcast->overlongVersions(), 1);
    }
};

QTEST_MAIN(TestUpdater) // with QApplication where built with the windows
#include "tst_updater.moc"
