#include "TempHome.h"

#include <QDir>
#include <QTest>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// One run of the launcher bundle, with its output collected as it comes.
class Launch {
public:
    Launch(const QString& program, const QProcessEnvironment& env, const QStringList& args)
    {
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(program, args);
    }
    ~Launch()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    // Waits until the output holds the text; false when the process ended or time ran out first.
    bool waitFor(const QString& text)
    {
        for (QDeadlineTimer deadline(15000); !output().contains(text); m_process.waitForReadyRead(50))
            if (m_process.state() == QProcess::NotRunning || deadline.hasExpired())
                return false;
        return true;
    }
    // The exit status; -1 for a crash (a fatal error aborts), -2 when still running after the time-out.
    int finish()
    {
        return !m_process.waitForFinished(15000) ? -2 : m_process.exitStatus() ? -1 : m_process.exitCode();
    }
    bool running() const { return m_process.state() == QProcess::Running; }
    QString output() { return m_output += QString::fromUtf8(m_process.readAll()); }

private:
    QProcess m_process;
    QString m_output;
};

const QString window = u"window shown: MainWindow"_s;

} // namespace

// The built launcher, copied into a bundle of its own, run in a temporary home
// with a stand-in election tool on PATH.
class TestLauncher : public QObject {
    Q_OBJECT
    std::unique_ptr<TempHome> m_home;
    QProcessEnvironment m_env;

    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    QString socket() const { return path(u"runtime/zelna-quorin.socket"_s); }
    std::unique_ptr<Launch> launch(const QStringList& arguments = {})
    {
        return std::make_unique<Launch>(path(u"bundle/bin/zelna-quorin"_s), m_env, arguments);
    }
    // The bundle's Info.plist with the given feed entry: a feed file with that
    // version ("1.0", "2.0"), "none" for a missing feed file, or the raw entry.
    void writeInfo(const QByteArray& feed)
    {
        QByteArray entry = feed;
        if (feed == "1.0" || feed == "2.0" || feed == "none") {
            QVERIFY(feed == "none"
                    || TempHome::writeFile(path(u"appcast.xml"_s),
                                           "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/"
                                           "sparkle\"><channel><item><title>Q</title><sparkle:version>"
                                               + feed + "</sparkle:version></item></channel></rss>"));
            entry = "<key>SUFeedURL</key><string>" + QUrl::fromLocalFile(path(u"appcast.xml"_s)).toEncoded()
                    + "</string>";
        }
        QVERIFY(TempHome::writeFile(path(u"bundle/share/zelna-quorin/Info.plist"_s),
                                    feed == "garbage"
                                        ? QByteArray("this is not a property list")
                                        : "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
                                          "<string>com.zelna.Quorin</string><key>"
                                          "CFBundleShortVersionString</key><string>1.0.0</string>"
                                          "<key>CFBundleVersion</key><string>1.0.0</string>"
                                              + entry + "</dict></plist>"));
    }
    bool checkRecorded() const
    {
        return TempHome::readFile(m_home->configHome() + u"/com.zelna.Quorin.plist"_s)
            .contains(u"SULastCheckTime"_s);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        const QString built = QFileInfo(QStringLiteral(ZQ_LAUNCHER)).absolutePath();
        QVERIFY(QDir().mkpath(path(u"bundle/bin"_s)) && QDir().mkpath(path(u"bundle/share/zelna-quorin"_s))
                && QDir().mkpath(path(u"fakebin"_s)));
        QVERIFY(QFile::copy(QStringLiteral(ZQ_LAUNCHER), path(u"bundle/bin/zelna-quorin"_s))
                && QFile::copy(built + u"/../share/zelna-quorin/Main.ui"_s,
                               path(u"bundle/share/zelna-quorin/Main.ui"_s))
                && QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), path(u"fakebin/pluginkit"_s)));
        m_env = m_home->environment();
        m_env.insert(u"PATH"_s, path(u"fakebin:"_s) + m_env.value(u"PATH"_s));
        m_env.insert(u"ZQ_PLUGINKIT_LOG"_s, path(u"pluginkit.log"_s));
        m_env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        m_env.insert(u"QT_LOGGING_RULES"_s, u"zelna.*.debug=true"_s);
    }

    void start_data()
    {
        QTest::addColumn<QByteArray>("feed"); // see writeInfo
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status"); // 0, 1 for any failure, -1 for still running
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("notShown");
        const QStringList check{u"checkVersion"_s};
        QTest::newRow("checker, no newer version") << QByteArray("1.0") << check << 0 << QString() << window;
        QTest::newRow("checker, newer version")
            << QByteArray("2.0") << check << -1 << u"update alert shown for version 2.0"_s << window;
        // Only the first argument, exactly, makes a checker; no update found does not end the others.
        QTest::newRow("checkVersion second")
            << QByteArray("1.0") << QStringList{u"--verbose"_s, u"checkVersion"_s} << -1
            << u"application activated"_s << QString();
        QTest::newRow("capitalised") << QByteArray("1.0") << QStringList{u"CheckVersion"_s} << -1 << window
                                     << QString();
        QTest::newRow("no feed, no check") << QByteArray() << QStringList() << -1 << window << u"Updater:"_s;
        QTest::newRow("a number, no check") << QByteArray("<key>SUFeedURL</key><integer>42</integer>")
                                            << QStringList() << -1 << window << u"Updater:"_s;
        QTest::newRow("feed not a URL")
            << QByteArray("<key>SUFeedURL</key><string>not a url</string>") << QStringList() << 1
            << u"SUFeedURL \"not a url\" in the bundle's Info.plist is not a URL"_s << window;
        // Without an information list there is no version to show: a clear, deliberate end.
        QTest::newRow("unreadable Info.plist")
            << QByteArray("garbage") << QStringList() << 1
            << u"The bundle's Info.plist has no CFBundleShortVersionString"_s << window;
    }
    void start()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, shown);
        QFETCH(QString, notShown);
        writeInfo(feed);
        auto run = launch(arguments);
        if (status >= 0) {
            const int code = run->finish();
            QVERIFY2(code != -2 && (code != 0) == (status != 0), qPrintable(run->output()));
        } else {
            QVERIFY2(run->waitFor(shown), qPrintable(run->output()));
            QTest::qWait(300);
            QVERIFY(run->running());
        }
        QVERIFY2(run->output().contains(shown) && (notShown.isEmpty() || !run->output().contains(notShown)),
                 qPrintable(run->output()));
        QVERIFY(arguments != QStringList{u"checkVersion"_s} || checkRecorded());
        QVERIFY(notShown != u"Updater:"_s || !checkRecorded());
        // The service pass ran first, whatever followed.
        QCOMPARE(TempHome::readFile(path(u"pluginkit.log"_s)),
                 u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
    }

    void secondLaunchReopensTheFirst()
    {
        writeInfo("none"); // a checker whose feed is missing stays, windowless
        auto first = launch({u"checkVersion"_s});
        QVERIFY2(first->waitFor(u"Updater: update check of"_s), qPrintable(first->output()));
        auto second = launch();
        QCOMPARE(second->finish(), 0);
        QVERIFY2(second->output().contains(u"handed over to the running launcher"_s),
                 qPrintable(second->output()));
        QVERIFY(!second->output().contains(u"ZELNA_LOG"_s)); // no service pass of its own
        QVERIFY2(first->waitFor(u"Handling accessory state on reopen"_s) && first->waitFor(window),
                 qPrintable(first->output()));
        // A checker never hands over: it checks.
        writeInfo("1.0");
        auto checker = launch({u"checkVersion"_s});
        QCOMPARE(checker->finish(), 0);
        QVERIFY2(!checker->output().contains(u"handed over"_s), qPrintable(checker->output()));
        // A launcher killed at once leaves its socket file behind; the next one clears it.
        first.reset();
        QVERIFY(QFile::exists(socket()));
        auto next = launch();
        QVERIFY2(next->waitFor(window) && !next->output().contains(u"handed over"_s),
                 qPrintable(next->output()));
    }

    // Another user is kept out by the folder's permissions and, should those be
    // opened up, by the peer's credentials.
    void anotherUserCannotReopen()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to connect as another user");
        writeInfo("none");
        auto first = launch({u"checkVersion"_s});
        QVERIFY2(first->waitFor(u"Updater: update check of"_s), qPrintable(first->output()));
        auto reopenAsNobody = [this] {
            QProcess client;
            TempHome::runAsNobody(client);
            client.start(
                u"/usr/bin/python3"_s, // the system's, which the other user may run
                {u"-c"_s,
                 u"import socket, sys\ns = socket.socket(socket.AF_UNIX)\ntry: s.connect(sys.argv[1])\n"
                 u"except OSError: sys.exit('refused')\ntry:\n    s.sendall(b'reopen\\n'); s.settimeout(3)\n"
                 u"    print('answered' if s.recv(10) else 'hung up')\nexcept OSError: print('hung up')\n"_s,
                 socket()});
            client.waitForFinished(10000);
            return QString::fromUtf8(client.readAllStandardOutput() + client.readAllStandardError())
                .trimmed();
        };
        QCOMPARE(reopenAsNobody(), u"refused"_s);
        QVERIFY(TempHome::letOthersThrough(m_home->path()) && TempHome::letOthersThrough(path(u"runtime"_s)));
        QVERIFY(QFile::setPermissions(socket(),
                                      QFile::permissions(socket()) | QFile::ReadOther | QFile::WriteOther));
        QCOMPARE(reopenAsNobody(), u"hung up"_s);
        QTest::qWait(300);
        QVERIFY(!first->output().contains(u"applicationShouldHandleReopen"_s) && first->running());
    }

    void sharedRuntimeFolderIsNotUsed()
    {
        writeInfo({});
        QVERIFY(QFile::setPermissions(path(u"runtime"_s), QFile::Permissions(0x7777))
                && QDir().mkpath(path(u"tmp"_s)));
        m_env.insert(u"TMPDIR"_s, path(u"tmp"_s));
        auto first = launch();
        QVERIFY2(first->waitFor(window), qPrintable(first->output()));
        QVERIFY(QDir(path(u"runtime"_s)).entryList(QDir::System | QDir::Files).isEmpty());
        const QString own = path(u"tmp/zelna-quorin-"_s) + QString::number(::getuid());
        QVERIFY(QFile::exists(own + u"/zelna-quorin.socket"_s));
        QCOMPARE(QFile::permissions(own) & (QFile::ReadOther | QFile::WriteOther | QFile::ExeOther),
                 QFile::Permissions());
        auto second = launch();
        QCOMPARE(second->finish(), 0);
        QVERIFY2(second->output().contains(u"handed over to the running launcher"_s),
                 qPrintable(second->output()));
    }
};

QTEST_GUILESS_MAIN(TestLauncher)
#include "tst_launcher.moc"
