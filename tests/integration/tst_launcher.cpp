#include "TempHome.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

#define VERIFY_RUN(condition, run) QVERIFY2(condition, qPrintable((run)->output()))

namespace {

// One run of the launcher bundle, with its output collected as it comes; killed when dropped.
struct Launch : QProcess {
    QString seen;
    ~Launch() override { kill(), waitForFinished(); }
    QString output() { return seen += QString::fromUtf8(readAll()); }
    bool says(const QString& text) { return output().contains(text); }
    // False when the process ended or time ran out before the text came.
    bool waitFor(const QString& text)
    {
        return QTest::qWaitFor([&] { return says(text) || state() == NotRunning; }, 15000) && says(text);
    }
    // 0 for success, 1 for any failure (a fatal error aborts), -1 when still running after the time-out.
    int finish() { return !waitForFinished(15000) ? -1 : exitStatus() || exitCode() ? 1 : 0; }
};

const QString window = u"window shown: MainWindow"_s;
const QString handedOver = u"handed over to the running launcher"_s;
const QString check = u"checkVersion"_s;
const char* const feedXml = "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
                            "<channel><item><sparkle:version>%1</sparkle:version></item></channel></rss>";
const char* const infoXml = "<plist><dict>%1<key>CFBundleIdentifier</key><string>com.zelna.Quorin</string>"
                            "<key>CFBundleShortVersionString</key><string>1.0.0</string>"
                            "<key>CFBundleVersion</key><string>1.0.0</string></dict></plist>";

} // namespace

// The built launcher in a bundle of its own and a temporary home, with a stand-in pluginkit.
class TestLauncher : public QObject {
    Q_OBJECT
    std::unique_ptr<TempHome> m_home;
    QProcessEnvironment m_env;

    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    std::unique_ptr<Launch> launch(const QStringList& arguments = {})
    {
        auto run = std::make_unique<Launch>();
        run->setProcessEnvironment(m_env);
        run->setProcessChannelMode(QProcess::MergedChannels);
        run->start(path(u"bundle/bin/zelna-quorin"_s), arguments);
        return run;
    }
    // The bundle's Info.plist with the given entries, or with a feed file of version
    // "1.0" or "2.0", or "none" for a feed file that is missing.
    void writeInfo(QByteArray feed)
    {
        const QString appcast = path(u"appcast.xml"_s);
        if (feed == "1.0" || feed == "2.0")
            QVERIFY(TempHome::writeFile(appcast, QByteArray(feedXml).replace("%1", feed)));
        if (feed == "1.0" || feed == "2.0" || feed == "none")
            feed = "<key>SUFeedURL</key><string>" + QUrl::fromLocalFile(appcast).toEncoded() + "</string>";
        QVERIFY(TempHome::writeFile(path(u"bundle/share/zelna-quorin/Info.plist"_s),
                                    QByteArray(infoXml).replace("%1", feed)));
    }
    bool checkRecorded() const
    {
        return TempHome::readFile(m_home->configHome() + u"/com.zelna.Quorin.plist"_s)
            .contains(u"SULastCheckTime"_s);
    }
    // What another user's reopen request meets: "refused", "hung up" or "answered".
    static QString reopenAsNobody(const QString& socket)
    {
        QProcess client;
        TempHome::runAsNobody(client);
        client.start(u"/usr/bin/python3"_s, // the system's, which the other user may run
                     {u"-c"_s,
                      u"import socket, sys\ns = socket.socket(socket.AF_UNIX); s.settimeout(3)\n"
                      u"try: s.connect(sys.argv[1])\nexcept OSError: sys.exit('refused')\n"
                      u"try: s.sendall(b'reopen\\n'); print('answered' if s.recv(10) else 'hung up')\n"
                      u"except OSError: print('hung up')\n"_s,
                      socket});
        client.waitForFinished(10000);
        return QString::fromUtf8(client.readAllStandardOutput() + client.readAllStandardError()).trimmed();
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        QVERIFY(QDir().mkpath(path(u"bundle/bin"_s)) && QDir().mkpath(path(u"bundle/share/zelna-quorin"_s))
                && QDir().mkpath(path(u"tmp"_s)));
        QVERIFY(QFile::copy(QStringLiteral(ZQ_LAUNCHER), path(u"bundle/bin/zelna-quorin"_s))
                && QFile::copy(QFileInfo(QStringLiteral(ZQ_LAUNCHER)).absolutePath()
                                   + u"/../share/zelna-quorin/Main.ui"_s,
                               path(u"bundle/share/zelna-quorin/Main.ui"_s))
                && QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), path(u"bundle/bin/pluginkit"_s)));
        m_home->applyToProcess();
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert(u"PATH"_s, path(u"bundle/bin:"_s) + m_env.value(u"PATH"_s));
        m_env.insert(u"TMPDIR"_s, path(u"tmp"_s));
        m_env.insert(u"ZQ_PLUGINKIT_LOG"_s, path(u"pluginkit.log"_s));
        m_env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        m_env.insert(u"QT_LOGGING_RULES"_s, u"zelna.*.debug=true"_s);
    }

    void start_data()
    {
        QTest::addColumn<QByteArray>("feed"); // see writeInfo
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("status");    // 0, 1 for any failure, -1 for still running
        QTest::addColumn<QString>("shown"); // the window only when this says so
        QTest::newRow("checker, no newer version") << "1.0"_ba << check << 0 << u""_s;
        QTest::newRow("checker, newer version")
            << "2.0"_ba << check << -1 << u"update alert shown for version 2.0"_s;
        // Only the first argument, exactly, makes a checker.
        QTest::newRow("capitalised, then second")
            << "1.0"_ba << u"CheckVersion checkVersion"_s << -1 << window;
        // Without a feed URL (here one of the wrong type) nothing is checked.
        QTest::newRow("a number") << "<key>SUFeedURL</key><integer>42</integer>"_ba << u""_s << -1 << window;
        QTest::newRow("feed not a URL")
            << "<key>SUFeedURL</key><string>not a url</string>"_ba << u""_s << 1
            << u"SUFeedURL \"not a url\" in the bundle's Info.plist is not a URL"_s;
        // No version to show: a clear, deliberate end.
        QTest::newRow("Info.plist cut short")
            << "</dict>"_ba << u""_s << 1 << u"The bundle's Info.plist has no CFBundleShortVersionString"_s;
    }
    void start()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QString, arguments);
        QFETCH(int, status);
        QFETCH(QString, shown);
        writeInfo(feed);
        auto run = launch(arguments.split(u' ', Qt::SkipEmptyParts));
        // Still running means no update found does not end the others.
        VERIFY_RUN(status < 0 ? run->waitFor(shown) && run->state() == QProcess::Running
                              : run->finish() == status,
                   run);
        VERIFY_RUN(run->says(shown) && (shown == window || !run->says(window)), run);
        // Log lines on standard error after local time to the millisecond, program, pid and thread.
        static const QRegularExpression logLine(
            uR"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} zelna-quorin\[\d+:\d+\] )"_s,
            QRegularExpression::MultilineOption);
        VERIFY_RUN(run->output().contains(logLine), run);
        QVERIFY(arguments != check || checkRecorded());
        // The service pass runs at every start, whatever follows.
        QCOMPARE(TempHome::readFile(path(u"pluginkit.log"_s)),
                 u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
        if (feed != "1.0" && feed != "2.0")
            VERIFY_RUN(!run->says(u"Updater:"_s) && !checkRecorded(), run);
    }

    // A second start hands over to the first and ends. Another user is kept out by the
    // folder's permissions and, should those be opened up, by the peer's credentials.
    void secondLaunchReopensTheFirst_data()
    {
        QTest::addColumn<bool>("shared");
        QTest::newRow("private runtime folder") << false;
        // One that others may write is not used; a private folder under TMPDIR is.
        QTest::newRow("shared runtime folder") << true;
    }
    void secondLaunchReopensTheFirst()
    {
        QFETCH(bool, shared);
        QVERIFY(!shared || QFile::setPermissions(path(u"runtime"_s), QFile::Permissions(0x7777)));
        const QString folder
            = shared ? path(u"tmp/zelna-quorin-"_s) + QString::number(::getuid()) : path(u"runtime"_s);
        const QString socket = folder + u"/zelna-quorin.socket"_s;
        writeInfo("none"); // a checker whose feed is missing stays, windowless
        auto first = launch({check});
        VERIFY_RUN(first->waitFor(u"Updater: update check of"_s) && QFile::exists(socket), first);
        if (::geteuid() == 0) { // only root can act as another user
            QCOMPARE(reopenAsNobody(socket), u"refused"_s);
            QVERIFY(TempHome::letOthersThrough(m_home->path()) && TempHome::letOthersThrough(folder));
            QVERIFY(QFile::setPermissions(socket, QFile::Permissions(0x6666)));
            QCOMPARE(reopenAsNobody(socket), u"hung up"_s);
        }
        auto second = launch(); // no service pass of its own
        VERIFY_RUN(second->finish() == 0 && second->says(handedOver) && !second->says(u"ZELNA_LOG"_s),
                   second);
        VERIFY_RUN(first->waitFor(window)
                       && first->says(u"ZENLA Launcher Handling accessory state on reopen"_s),
                   first);
        // Once, with the log text as it has always been spelt; none for the other user.
        QCOMPARE(first->output().count(u"ZENLA Launcher applicationShouldHandleReopen"_s), 1);
        writeInfo("1.0");
        auto checker = launch({check}); // a checker never hands over: it checks
        VERIFY_RUN(checker->finish() == 0 && !checker->says(handedOver), checker);
        // A launcher killed at once leaves its socket file behind; the next one clears it.
        first.reset();
        QVERIFY(QFile::exists(socket));
        auto next = launch();
        VERIFY_RUN(next->waitFor(window) && !next->says(handedOver), next);
    }
};

QTEST_GUILESS_MAIN(TestLauncher)
#include "tst_launcher.moc"
