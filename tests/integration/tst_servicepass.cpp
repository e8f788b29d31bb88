#include "TempHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <csignal>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {
const QString service = u"com.zelna.Quorin.Service"_s;
const QString suiteFile = u"/K4WQ7ZT2RB.group.zelna.Quorin.plist"_s;

struct PassResult {
    QString out;
    QString err;
};
} // namespace

// The whole launch pass against the real Linux platform, in a temporary home:
// a test service installed as a desktop entry and a stand-in election tool on PATH.
class TestServicePass : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void firstLaunchEnablesAndStartsTheService();
    void alreadyRunningServiceIsNotStartedAgain();
    void disabledKillsEveryInstanceAndRemovesTheLoginItem();
    void anotherUsersServiceIsNeitherCountedNorKilled();
    void brokenServiceEntryEndsThePassWithALogLine_data();
    void brokenServiceEntryEndsThePassWithALogLine();

private:
    PassResult runPass();
    bool writeFlag(const QByteArray& value, const QByteArray& more = {}) const
    {
        return TempHome::writeFile(m_home->configHome() + suiteFile,
                                   "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>QREnabled</key>"
                                   "<string>"
                                       + value + "</string>" + more + "</dict></plist>");
    }
    QStringList starts() const;
    QString python(const QString& script) const
    {
        return TempHome::plistPython(u"d=plistlib.load(open(f,'rb'))\n"_s + script,
                                     m_home->configHome() + suiteFile);
    }

    std::unique_ptr<TempHome> m_home;
    QProcessEnvironment m_env;
    QString m_pluginkitLog;
    QString m_startsLog;
    QString m_service;
};

void TestServicePass::init()
{
    m_home = std::make_unique<TempHome>();
    QVERIFY(m_home->isValid());
    const QString bin = m_home->path() + u"/bin"_s;
    QVERIFY(QDir().mkpath(bin));
    QVERIFY(QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), bin + u"/pluginkit"_s));
    // A private copy: processes are told apart by their program, and other
    // tests running at the same time start the shared one.
    m_service = bin + u"/quorin-service"_s;
    QVERIFY(QFile::copy(QStringLiteral(ZQ_TEST_SERVICE), m_service));
    m_home->installApplication(service, m_service);
    m_pluginkitLog = m_home->path() + u"/pluginkit.log"_s;
    m_startsLog = m_home->path() + u"/starts.log"_s;
    m_env = m_home->environment();
    m_env.insert(u"PATH"_s, bin + u':' + m_env.value(u"PATH"_s));
    m_env.insert(u"ZQ_PLUGINKIT_LOG"_s, m_pluginkitLog);
    m_env.insert(u"ZQ_SERVICE_STARTS"_s, m_startsLog);
}

void TestServicePass::cleanup()
{
    TempHome::killAll(m_service);
}

PassResult TestServicePass::runPass()
{
    QProcess pass;
    pass.setProcessEnvironment(m_env);
    pass.start(QStringLiteral(ZQ_SERVICE_PASS), {});
    if (!pass.waitForFinished(60000))
        return {};
    return {QString::fromUtf8(pass.readAllStandardOutput()).trimmed(),
            QString::fromUtf8(pass.readAllStandardError())};
}

QStringList TestServicePass::starts() const
{
    return TempHome::readFile(m_startsLog).split(u'\n', Qt::SkipEmptyParts);
}

void TestServicePass::firstLaunchEnablesAndStartsTheService()
{
    const PassResult result = runPass();
    QVERIFY2(result.out == u"completions=1 thread=other"_s, qPrintable(result.out + u'\n' + result.err));
    QCOMPARE(python(u"print(repr(d['QREnabled']))"_s), u"'1'"_s);
    QCOMPARE(TempHome::readFile(m_pluginkitLog), u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
    QVERIFY(QFile::exists(m_home->autostartDir() + u'/' + service + u".desktop"_s));
    QTRY_COMPARE(starts().size(), 1);
    QThread::msleep(200);
    QCOMPARE(starts().size(), 1);

    const QStringList lines = result.err.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].contains(u"]: \"ServiceEnableHandler -> updateUserDefaults -> true\". <Service>, "_s),
             qPrintable(lines[0]));
    QVERIFY2(QRegularExpression(
                 u"\\]: \"ServiceEnableHandler -> handleEnabled -> openApplication -> with error: nil\"\\. "
                 u"<Service>, ServiceEnableHandl \\(\\d+\\)$"_s)
                 .match(lines[1])
                 .hasMatch(),
             qPrintable(lines[1]));
    // Standard error carries the platform log prefix.
    QVERIFY2(
        QRegularExpression(
            u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} zq-service-pass\\[\\d+:\\d+\\] ZELNA_LOG\\["_s)
            .match(lines[1])
            .hasMatch(),
        qPrintable(lines[1]));
}

void TestServicePass::alreadyRunningServiceIsNotStartedAgain()
{
    QVERIFY(writeFlag("1", "<key>Mine</key><integer>5</integer>"));
    QProcess running;
    running.setProcessEnvironment(m_env);
    running.start(m_service, {});
    QVERIFY(running.waitForStarted());
    QTRY_COMPARE(starts().size(), 1);

    const PassResult result = runPass();
    QCOMPARE(result.out, u"completions=1 thread=main"_s);
    QCOMPARE(result.err, QString()); // nothing to log on this path
    QCOMPARE(TempHome::readFile(m_pluginkitLog), u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
    QCOMPARE(starts().size(), 1);
    QCOMPARE(python(u"print(d['Mine'], d['QREnabled'])"_s), u"5 1"_s);
    running.kill();
    running.waitForFinished();
}

void TestServicePass::disabledKillsEveryInstanceAndRemovesTheLoginItem()
{
    QVERIFY(writeFlag("0"));
    const QString autostart = m_home->autostartDir() + u'/' + service + u".desktop"_s;
    QVERIFY(TempHome::writeFile(autostart, "[Desktop Entry]\nType=Application\nName=S\nExec=x\n"));
    QProcess first;
    QProcess second;
    QProcess bystander; // same program, but not started as the service's program path
    for (QProcess* process : {&first, &second}) {
        process->setProcessEnvironment(m_env);
        process->start(m_service, {});
        QVERIFY(process->waitForStarted());
    }
    bystander.start(u"sleep"_s, {u"30"_s});
    QVERIFY(bystander.waitForStarted());

    const PassResult result = runPass();
    QCOMPARE(result.out, u"completions=1 thread=main"_s);
    QCOMPARE(TempHome::readFile(m_pluginkitLog), u"-e ignore -i com.zelna.Quorin.Service.Finder\n"_s);
    for (QProcess* process : {&first, &second}) {
        QVERIFY(process->waitForFinished(5000));
        QCOMPARE(process->exitStatus(), QProcess::CrashExit);
        QCOMPARE(process->exitCode(), SIGKILL);
    }
    QVERIFY(!bystander.waitForFinished(200));
    QVERIFY(!QFile::exists(autostart));
    QCOMPARE(python(u"print(d['QREnabled'])"_s), u"0"_s);
    bystander.kill();
    bystander.waitForFinished();
}

// With a real second user; without root the fake process table of the
// workspace tests covers the same rule.
void TestServicePass::anotherUsersServiceIsNeitherCountedNorKilled()
{
    if (::geteuid() != 0)
        QSKIP("needs root to start a process as another user");
    // The other user must be able to run the very same program, whatever
    // umask it was built under.
    QVERIFY(TempHome::letOthersThrough(m_home->path())
            && TempHome::letOthersThrough(m_home->path() + u"/bin"_s)
            && QFile::setPermissions(m_service,
                                     QFile::permissions(m_service) | QFile::ReadOther | QFile::ExeOther));
    QProcess theirs;
    theirs.setProcessEnvironment(m_env);
    TempHome::runAsNobody(theirs);
    theirs.start(m_service, {});
    QVERIFY(theirs.waitForStarted());
    const auto why = [&theirs] {
        return u"theirs ended: %1 %2, %3"_s
            .arg(theirs.exitStatus() == QProcess::CrashExit ? u"signal"_s : u"status"_s)
            .arg(theirs.exitCode())
            .arg(QString::fromLocal8Bit(theirs.readAllStandardError()))
            .toLocal8Bit();
    };
    QVERIFY2(!theirs.waitForFinished(300), why().constData());

    QVERIFY(writeFlag("0"));
    QCOMPARE(runPass().out, u"completions=1 thread=main"_s);
    QVERIFY2(!theirs.waitForFinished(300), why().constData()); // not killed

    QVERIFY(writeFlag("1"));
    QCOMPARE(runPass().out, u"completions=1 thread=other"_s); // theirs does not count as running
    QTRY_COMPARE(starts().size(), 1);
    QCOMPARE(theirs.state(), QProcess::Running);
    theirs.kill();
    theirs.waitForFinished();
}

void TestServicePass::brokenServiceEntryEndsThePassWithALogLine_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<bool>("loginItem");
    const QString notInstalled = u"No installed application com.zelna.Quorin.Service to start at login"_s;
    QTest::newRow("missing program") << u"/nonexistent/quorin-service --background"_s
                                     << u"completions=1 thread=main"_s << notInstalled << false;
    QTest::newRow("a folder") << u"/usr/bin"_s << u"completions=1 thread=main"_s << notInstalled << false;
    QTest::newRow("exits at once") << u"true"_s << u"completions=1 thread=other"_s
                                   << u"openApplication -> with error: nil"_s << true;
}

// The pass ends, once, whatever the service's entry points at.
void TestServicePass::brokenServiceEntryEndsThePassWithALogLine()
{
    QFETCH(QString, exec);
    QFETCH(QString, out);
    QFETCH(QString, logged);
    QFETCH(bool, loginItem);
    m_home->installApplication(service, exec);
    const PassResult result = runPass();
    QVERIFY2(result.out == out, qPrintable(result.out + u'\n' + result.err));
    const QStringList lines = result.err.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[1].contains(logged), qPrintable(lines[1]));
    QCOMPARE(QFile::exists(m_home->autostartDir() + u'/' + service + u".desktop"_s), loginItem);
}

QTEST_GUILESS_MAIN(TestServicePass)
#include "tst_servicepass.moc"
