#include "TempHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray infoPlist(const QByteArray& feedEntry)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
           "<key>CFBundleIdentifier</key><string>com.zelna.Quorin</string>"
           "<key>CFBundleShortVersionString</key><string>1.0.0</string>"
           "<key>CFBundleVersion</key><string>1.0.0</string>"
           + feedEntry + "</dict></plist>";
}

QByteArray feedEntry(const QString& url)
{
    return "<key>SUFeedURL</key><string>" + url.toUtf8() + "</string>";
}

QByteArray appcast(const char* version)
{
    return QByteArray("<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
                      "<item><title>Q</title><sparkle:version>")
           + version + "</sparkle:version><description>Better</description></item></channel></rss>";
}

// One run of the launcher bundle, with its standard error collected as it comes.
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
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    // Waits until the output holds the text; false when the process ended or time ran out first.
    bool waitFor(const QString& text, int timeoutMs = 15000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!output().contains(text)) {
            if (m_process.state() == QProcess::NotRunning || deadline.hasExpired())
                return false;
            m_process.waitForReadyRead(50);
        }
        return true;
    }
    bool finish(int timeoutMs = 15000) { return m_process.waitForFinished(timeoutMs); }
    bool running() const { return m_process.state() == QProcess::Running; }
    int exitCode() const
    {
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    QString output()
    {
        m_output += QString::fromUtf8(m_process.readAll());
        return m_output;
    }

private:
    QProcess m_process;
    QString m_output;
};

} // namespace

// The built launcher, copied into a bundle of its own, run in a temporary home.
class TestLauncher : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void checkerWithoutNewerVersionExitsQuietly();
    void onlyTheFirstArgumentMakesAChecker_data();
    void onlyTheFirstArgumentMakesAChecker();
    void withoutTextFeedNoCheckIsMade_data();
    void withoutTextFeedNoCheckIsMade();
    void feedThatIsNotAURLEndsTheProcess();
    void newerVersionShowsTheUpdateWindowAndStays();
    void secondLaunchReopensTheFirst();
    void unreadableInfoIsLogged();
    void socketOfAKilledLauncherIsCleared();
    void anotherUserCannotReopen();
    void sharedRuntimeFolderIsNotUsed();

private:
    QString launcher() const { return m_home->path() + u"/bundle/bin/zelna-quorin"_s; }
    void writeInfo(const QByteArray& plist);
    QString writeFeed(const char* version);
    bool checkRecorded() const;

    std::unique_ptr<TempHome> m_home;
    QProcessEnvironment m_env;
};

void TestLauncher::init()
{
    m_home = std::make_unique<TempHome>();
    QVERIFY(m_home->isValid());
    const QString bundle = m_home->path() + u"/bundle"_s;
    QVERIFY(QDir().mkpath(bundle + u"/bin"_s));
    QVERIFY(QDir().mkpath(bundle + u"/share/zelna-quorin"_s));
    const QString built = QStringLiteral(ZQ_LAUNCHER);
    QVERIFY(QFile::copy(built, launcher()));
    QVERIFY(QFile::copy(QFileInfo(built).absolutePath() + u"/../share/zelna-quorin/Main.ui"_s,
                        bundle + u"/share/zelna-quorin/Main.ui"_s));
    const QString bin = m_home->path() + u"/fakebin"_s;
    QVERIFY(QDir().mkpath(bin));
    QVERIFY(QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), bin + u"/pluginkit"_s));
    m_env = m_home->environment();
    m_env.insert(u"PATH"_s, bin + u':' + m_env.value(u"PATH"_s));
    m_env.insert(u"ZQ_PLUGINKIT_LOG"_s, m_home->path() + u"/pluginkit.log"_s);
    m_env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    m_env.insert(u"QT_LOGGING_RULES"_s, u"zelna.*.debug=true"_s);
}

void TestLauncher::writeInfo(const QByteArray& plist)
{
    QVERIFY(TempHome::writeFile(m_home->path() + u"/bundle/share/zelna-quorin/Info.plist"_s, plist));
}

QString TestLauncher::writeFeed(const char* version)
{
    const QString path = m_home->path() + u"/appcast.xml"_s;
    TempHome::writeFile(path, appcast(version));
    return QUrl::fromLocalFile(path).toString();
}

bool TestLauncher::checkRecorded() const
{
    return TempHome::readFile(m_home->configHome() + u"/com.zelna.Quorin.plist"_s)
        .contains(u"SULastCheckTime"_s);
}

void TestLauncher::checkerWithoutNewerVersionExitsQuietly()
{
    writeInfo(infoPlist(feedEntry(writeFeed("1.0"))));
    Launch run(launcher(), m_env, {u"checkVersion"_s});
    QVERIFY(run.finish());
    QCOMPARE(run.exitCode(), 0);
    QVERIFY2(!run.output().contains(u"window shown"_s), qPrintable(run.output()));
    QVERIFY(checkRecorded());
    // The service pass ran first.
    QCOMPARE(TempHome::readFile(m_home->path() + u"/pluginkit.log"_s),
             u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
}

void TestLauncher::onlyTheFirstArgumentMakesAChecker_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("at index 2") << QStringList{u"--verbose"_s, u"checkVersion"_s};
    QTest::newRow("capitalised") << QStringList{u"CheckVersion"_s};
}

void TestLauncher::onlyTheFirstArgumentMakesAChecker()
{
    QFETCH(QStringList, arguments);
    writeInfo(infoPlist(feedEntry(writeFeed("1.0"))));
    Launch run(launcher(), m_env, arguments);
    QVERIFY2(run.waitFor(u"window shown: MainWindow"_s), qPrintable(run.output()));
    QVERIFY(run.waitFor(u"application activated"_s));
    QVERIFY(run.running()); // no update found does not end an interactive launcher
}

void TestLauncher::withoutTextFeedNoCheckIsMade_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::newRow("no feed") << QByteArray();
    QTest::newRow("a number") << QByteArray("<key>SUFeedURL</key><integer>42</integer>");
}

void TestLauncher::withoutTextFeedNoCheckIsMade()
{
    QFETCH(QByteArray, entry);
    writeInfo(infoPlist(entry));
    Launch run(launcher(), m_env, {});
    QVERIFY2(run.waitFor(u"window shown: MainWindow"_s), qPrintable(run.output()));
    QTest::qWait(300);
    QVERIFY(!checkRecorded());
    QVERIFY(!run.output().contains(u"Updater:"_s));
}

void TestLauncher::feedThatIsNotAURLEndsTheProcess()
{
    writeInfo(infoPlist(feedEntry(u"not a url"_s)));
    Launch run(launcher(), m_env, {});
    QVERIFY(run.finish());
    QVERIFY(run.exitCode() != 0);
    QVERIFY2(run.output().contains(u"SUFeedURL \"not a url\" in the bundle's Info.plist is not a URL"_s),
             qPrintable(run.output()));
    QVERIFY(!run.output().contains(u"window shown"_s));
}

void TestLauncher::newerVersionShowsTheUpdateWindowAndStays()
{
    writeInfo(infoPlist(feedEntry(writeFeed("2.0"))));
    Launch run(launcher(), m_env, {u"checkVersion"_s});
    QVERIFY2(run.waitFor(u"update alert shown for version 2.0"_s), qPrintable(run.output()));
    QTest::qWait(500);
    QVERIFY(run.running());
    QVERIFY(!run.output().contains(u"window shown"_s));
}

void TestLauncher::secondLaunchReopensTheFirst()
{
    // A checker whose feed is missing stays, windowless and accessory.
    writeInfo(infoPlist(feedEntry(QUrl::fromLocalFile(m_home->path() + u"/none.xml"_s).toString())));
    Launch first(launcher(), m_env, {u"checkVersion"_s});
    QVERIFY2(first.waitFor(u"Updater: update check of"_s), qPrintable(first.output()));

    Launch second(launcher(), m_env, {});
    QVERIFY(second.finish());
    QCOMPARE(second.exitCode(), 0);
    QVERIFY2(second.output().contains(u"handed over to the running launcher"_s), qPrintable(second.output()));
    QVERIFY(!second.output().contains(u"ZELNA_LOG"_s)); // no service pass of its own

    QVERIFY(first.waitFor(u"window shown: MainWindow"_s));
    const QString reopened = first.output();
    const qsizetype reopen = reopened.indexOf(u"ZENLA Launcher applicationShouldHandleReopen"_s);
    const qsizetype accessory = reopened.indexOf(u"ZENLA Launcher Handling accessory state on reopen"_s);
    QVERIFY2(reopen >= 0 && accessory > reopen, qPrintable(reopened));

    // Once regular, a reopen only logs its first line.
    Launch third(launcher(), m_env, {});
    QVERIFY(third.finish());
    QCOMPARE(third.exitCode(), 0);
    QTRY_COMPARE(first.output().count(u"applicationShouldHandleReopen"_s), 2);
    QCOMPARE(first.output().count(u"Handling accessory state"_s), 1);
}

void TestLauncher::unreadableInfoIsLogged()
{
    // Without an information list there is no version to show: a clear, deliberate end.
    writeInfo("this is not a property list");
    Launch run(launcher(), m_env, {});
    QVERIFY(run.finish());
    QVERIFY(run.exitCode() != 0);
    QVERIFY2(run.output().contains(u"is not a property list"_s), qPrintable(run.output()));
    QVERIFY(run.output().contains(u"The bundle's Info.plist has no CFBundleShortVersionString"_s));
}

void TestLauncher::socketOfAKilledLauncherIsCleared()
{
    writeInfo(infoPlist({}));
    {
        Launch killed(launcher(), m_env, {});
        QVERIFY(killed.waitFor(u"window shown: MainWindow"_s));
    } // killed at once: its socket file stays behind
    QVERIFY(QFile::exists(m_home->path() + u"/runtime/zelna-quorin.socket"_s));
    Launch next(launcher(), m_env, {});
    QVERIFY2(next.waitFor(u"window shown: MainWindow"_s), qPrintable(next.output()));
    QVERIFY(!next.output().contains(u"handed over"_s));
}

// Another user is kept out by the folder's permissions and, should those be
// opened up, by the peer's credentials.
void TestLauncher::anotherUserCannotReopen()
{
    if (::geteuid() != 0)
        QSKIP("needs root to connect as another user");
    writeInfo(infoPlist(feedEntry(QUrl::fromLocalFile(m_home->path() + u"/none.xml"_s).toString())));
    Launch first(launcher(), m_env, {u"checkVersion"_s});
    QVERIFY2(first.waitFor(u"Updater: update check of"_s), qPrintable(first.output()));
    const QString socket = m_home->path() + u"/runtime/zelna-quorin.socket"_s;
    QVERIFY(QFile::exists(socket));

    auto reopenAsNobody = [&socket] {
        QProcess client;
        TempHome::runAsNobody(client);
        client.start(u"/usr/bin/python3"_s, {u"-c"_s,
                                             u"import socket, sys\n"
                                             u"s = socket.socket(socket.AF_UNIX)\n"
                                             u"try:\n    s.connect(sys.argv[1])\n"
                                             u"except OSError:\n    print('refused'); sys.exit()\n"
                                             u"try:\n    s.sendall(b'reopen\\n'); s.settimeout(3)\n"
                                             u"    print('answered' if s.recv(10) else 'hung up')\n"
                                             u"except OSError:\n    print('hung up')\n"_s,
                                             socket});
        client.waitForFinished(10000);
        return QString::fromUtf8(client.readAllStandardOutput() + client.readAllStandardError()).trimmed();
    };
    QCOMPARE(reopenAsNobody(), u"refused"_s);
    QVERIFY(TempHome::letOthersThrough(m_home->path())
            && TempHome::letOthersThrough(m_home->path() + u"/runtime"_s));
    QVERIFY(QFile::setPermissions(socket, QFile::permissions(socket) | QFile::ReadOther | QFile::WriteOther));
    QCOMPARE(reopenAsNobody(), u"hung up"_s);

    QTest::qWait(300);
    QVERIFY(!first.output().contains(u"applicationShouldHandleReopen"_s));
    QVERIFY(first.running());
}

void TestLauncher::sharedRuntimeFolderIsNotUsed()
{
    writeInfo(infoPlist({}));
    const QString runtime = m_home->path() + u"/runtime"_s;
    QVERIFY(QFile::setPermissions(runtime, QFile::Permissions(0x7777)));
    const QString temp = m_home->path() + u"/tmp"_s;
    QVERIFY(QDir().mkpath(temp));
    QProcessEnvironment env = m_env;
    env.insert(u"TMPDIR"_s, temp);

    Launch first(launcher(), env, {});
    QVERIFY2(first.waitFor(u"window shown: MainWindow"_s), qPrintable(first.output()));
    QVERIFY(QDir(runtime).entryList(QDir::System | QDir::Files).isEmpty());
    const QString privateFolder = temp + u"/zelna-quorin-"_s + QString::number(::getuid());
    QVERIFY(QFile::exists(privateFolder + u"/zelna-quorin.socket"_s));
    QCOMPARE(QFile::permissions(privateFolder) & (QFile::ReadOther | QFile::WriteOther | QFile::ExeOther),
             QFile::Permissions());

    Launch second(launcher(), env, {});
    QVERIFY(second.finish());
    QVERIFY2(second.output().contains(u"handed over to the running launcher"_s), qPrintable(second.output()));
}

QTEST_GUILESS_MAIN(TestLauncher)
#include "tst_launcher.moc"
