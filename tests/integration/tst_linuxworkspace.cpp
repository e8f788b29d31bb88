#include "LinuxWorkspace.h"
#include "ProcFs.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <semaphore>
#include <QThread>

#include <csignal>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString service = u"com.zelna.Quorin.Service"_s;
// A private copy: processes are told apart by their program, and other
// tests running at the same time start the shared one.
QString testService;

// Another user's processes, as a process table could show them.
class ForeignProcFs : public ProcFs {
public:
    QList<Process> processes() const override
    {
        return {{100, getuid() + 1, testService}, {101, getuid(), testService}};
    }
    bool kill(qint64 pid, const QString&, uid_t uid) const override
    {
        killed.append({pid, uid});
        return true;
    }
    mutable QList<std::pair<qint64, uid_t>> killed;
};

// The line the test service wrote for this pid ("PID SID"), once it has.
QString waitForStart(const QString& file, qint64 pid)
{
    for (int i = 0; i < 500; ++i) {
        for (const QString& line : TempHome::readFile(file).split(u'\n', Qt::SkipEmptyParts)) {
            if (line.section(u' ', 0, 0).toLongLong() == pid)
                return line;
        }
        QThread::msleep(10);
    }
    return {};
}

int countStarts(const QString& file)
{
    return int(TempHome::readFile(file).count(u'\n'));
}

} // namespace

class TestLinuxWorkspace : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void installedMeansTheProgramResolves();
    void runningProcessesCarryTheirIdentifier();
    void forceTerminateKillsOnlyTheSameProgram();
    void othersProcessesAreNeverListedOrKilled();
    void openStartsDetachedAndReportsOffTheMainThread();
    void openReportsAnErrorForAMissingProgram();
    void launchByNameAnswersWhetherItStarted();

private:
    TempHome m_home;
    QString m_starts;
    QList<qint64> m_started;
};

void TestLinuxWorkspace::initTestCase()
{
    RecordingLogSink::install();
    QVERIFY(m_home.isValid());
    // GIO reads the XDG variables once: set them, and every entry, before its first use.
    m_home.applyToProcess();
    testService = m_home.path() + u"/quorin-service"_s;
    QVERIFY(QFile::copy(QStringLiteral(ZQ_TEST_SERVICE), testService));
    m_starts = m_home.path() + u"/starts"_s;
    qputenv("ZQ_SERVICE_STARTS", m_starts.toUtf8());
    m_home.installApplication(service, u"\""_s + testService + u"\" --flag %U"_s);
    m_home.installApplication(u"com.example.Missing"_s, u"/nonexistent/program"_s);
    m_home.installApplication(u"com.example.Sleep"_s, u"sleep 1000"_s);
}

void TestLinuxWorkspace::cleanupTestCase()
{
    TempHome::killAll(testService);
}

void TestLinuxWorkspace::installedMeansTheProgramResolves()
{
    LinuxWorkspace workspace;
    QCOMPARE(
        workspace.urlForApplication(service),
        std::optional<QUrl>(QUrl::fromLocalFile(m_home.applicationsDir() + u'/' + service + u".desktop"_s)));
    QCOMPARE(workspace.urlForApplication(u"com.example.Missing"_s), std::nullopt);
    QCOMPARE(workspace.urlForApplication(u"com.example.Absent"_s), std::nullopt);
}

void TestLinuxWorkspace::runningProcessesCarryTheirIdentifier()
{
    QProcess serviceProcess;
    serviceProcess.start(testService, {});
    QVERIFY(serviceProcess.waitForStarted());
    LinuxWorkspace workspace;
    const QList<RunningApplication> running = workspace.runningApplications();
    bool foundService = false;
    bool foundSelf = false;
    for (const RunningApplication& app : running) {
        if (app.pid == serviceProcess.processId()) {
            foundService = true;
            QCOMPARE(app.bundleIdentifier, std::optional<QString>(service));
            QCOMPARE(app.executable, QFileInfo(testService).canonicalFilePath());
        }
        if (app.pid == getpid()) {
            foundSelf = true;
            QCOMPARE(app.bundleIdentifier, std::nullopt); // no entry runs this test
        }
    }
    QVERIFY(foundService && foundSelf);
    serviceProcess.kill();
    serviceProcess.waitForFinished();
}

void TestLinuxWorkspace::forceTerminateKillsOnlyTheSameProgram()
{
    QProcess serviceProcess;
    serviceProcess.start(testService, {});
    QVERIFY(serviceProcess.waitForStarted());
    LinuxWorkspace workspace;
    RunningApplication app{serviceProcess.processId(), service, QFileInfo(testService).canonicalFilePath()};

    RunningApplication impostor = app;
    impostor.executable = u"/usr/bin/something-else"_s;
    QVERIFY(!workspace.forceTerminate(impostor));
    QVERIFY(!serviceProcess.waitForFinished(100));

    QVERIFY(workspace.forceTerminate(app));
    QVERIFY(serviceProcess.waitForFinished(5000));
    QCOMPARE(serviceProcess.exitStatus(), QProcess::CrashExit);
    QCOMPARE(serviceProcess.exitCode(), SIGKILL);
    QVERIFY(!workspace.forceTerminate(app)); // gone
}

void TestLinuxWorkspace::othersProcessesAreNeverListedOrKilled()
{
    auto procFs = std::make_shared<ForeignProcFs>();
    LinuxWorkspace workspace(procFs);
    const QList<RunningApplication> running = workspace.runningApplications();
    QCOMPARE(running.size(), 1);
    QCOMPARE(running.first().pid, 101);
    workspace.forceTerminate(running.first());
    QCOMPARE(procFs->killed, (QList<std::pair<qint64, uid_t>>{{101, getuid()}}));
}

void TestLinuxWorkspace::openStartsDetachedAndReportsOffTheMainThread()
{
    LinuxWorkspace workspace;
    const auto location = workspace.urlForApplication(service);
    QVERIFY(location);
    std::binary_semaphore done{0};
    std::optional<qint64> pid;
    std::optional<ZLError> error;
    QThread* reportedOn = nullptr;
    workspace.openApplication(*location, [&](std::optional<qint64> p, std::optional<ZLError> e) {
        pid = p;
        error = std::move(e);
        reportedOn = QThread::currentThread();
        done.release();
    });
    QVERIFY(done.try_acquire_for(std::chrono::milliseconds(10000)));
    QVERIFY(reportedOn != QThread::currentThread());
    QVERIFY2(!error, error ? qPrintable(error->description()) : "");
    QVERIFY(pid && *pid > 0);
    // The service runs in a session of its own, as the process the handler named.
    QCOMPARE(waitForStart(m_starts, *pid), u"%1 %1"_s.arg(*pid));
}

void TestLinuxWorkspace::openReportsAnErrorForAMissingProgram()
{
    LinuxWorkspace workspace;
    std::binary_semaphore done{0};
    std::optional<ZLError> error;
    std::optional<qint64> pid;
    const QString entry = m_home.applicationsDir() + u"/com.example.Missing.desktop"_s;
    workspace.openApplication(QUrl::fromLocalFile(entry),
                              [&](std::optional<qint64> p, std::optional<ZLError> e) {
                                  pid = p;
                                  error = std::move(e);
                                  done.release();
                              });
    QVERIFY(done.try_acquire_for(std::chrono::milliseconds(10000)));
    QVERIFY(!pid);
    QVERIFY(error);
    QVERIFY2(error->description().contains(u"com.example.Missing.desktop"_s),
             qPrintable(error->description()));
}

void TestLinuxWorkspace::launchByNameAnswersWhetherItStarted()
{
    LinuxWorkspace workspace;
    const int before = countStarts(m_starts);
    QVERIFY(workspace.launchApplication(service));
    QTRY_COMPARE(countStarts(m_starts), before + 1);
    QVERIFY(!workspace.launchApplication(u"com.example.Missing"_s));
    QVERIFY(!workspace.launchApplication(u"com.example.Absent"_s));
}

QTEST_GUILESS_MAIN(TestLinuxWorkspace)
#include "tst_linuxworkspace.moc"
