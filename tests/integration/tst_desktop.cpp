#include "LinuxWorkspace.h"
#include "ProcFs.h"
#include "RecordingLogSink.h"
#include "TempHome.h"
#include "XdgLoginItems.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

#include <csignal>
#include <semaphore>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString service = u"com.zelna.Quorin.Service"_s;
const QString suiteFile = u"/K4WQ7ZT2RB.group.zelna.Quorin.plist"_s;
QString g_service; // a private copy: processes are told apart by their program

// Another user's processes, as a process table could show them.
class ForeignProcFs : public ProcFs {
public:
    QList<Process> processes() const override
    {
        return {{100, getuid() + 1, g_service}, {101, getuid(), g_service}};
    }
    bool kill(qint64 pid, const QString&, uid_t uid) const override
    {
        killed.append({pid, uid});
        return true;
    }
    mutable QList<std::pair<qint64, uid_t>> killed;
};

bool killedBySignal(QProcess& process)
{
    return process.waitForFinished(5000) && process.exitStatus() == QProcess::CrashExit
           && process.exitCode() == SIGKILL;
}

} // namespace

// The Linux adapters for applications, processes and login items, and the
// launcher's whole service pass on them, in a temporary home with a stand-in
// service and election tool.
class TestDesktop : public QObject {
    Q_OBJECT
    TempHome m_home;
    QProcessEnvironment m_env;
    QString m_starts = m_home.path() + u"/starts"_s;
    QString m_autostart = m_home.autostartDir() + u'/' + service + u".desktop"_s;

    QStringList starts() const { return TempHome::readFile(m_starts).split(u'\n', Qt::SkipEmptyParts); }
    QProcess* startService(QObject* owner, bool asNobody = false)
    {
        auto* process = new QProcess(owner);
        process->setProcessEnvironment(m_env);
        if (asNobody)
            TempHome::runAsNobody(*process);
        process->start(g_service, {});
        return process;
    }
    bool writeFlag(const QByteArray& value, const QByteArray& more = {}) const
    {
        return TempHome::writeFile(
            m_home.configHome() + suiteFile,
            "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>QREnabled</key><string>" + value
                + "</string>" + more + "</dict></plist>");
    }
    QString flag() const
    {
        return TempHome::plistPython(u"print(plistlib.load(open(f,'rb')).get('QREnabled'))"_s,
                                     m_home.configHome() + suiteFile);
    }
    // One pass of the launcher in its own process: what it printed, and its log lines.
    std::pair<QString, QStringList> runPass()
    {
        QProcess pass;
        pass.setProcessEnvironment(m_env);
        pass.start(QStringLiteral(ZQ_SERVICE_PASS), {});
        if (!pass.waitForFinished(60000))
            return {};
        return {QString::fromUtf8(pass.readAllStandardOutput()).trimmed(),
                QString::fromUtf8(pass.readAllStandardError()).split(u'\n', Qt::SkipEmptyParts)};
    }
    QString elections() const { return TempHome::readFile(m_home.path() + u"/pluginkit.log"_s); }

private Q_SLOTS:
    void initTestCase()
    {
        RecordingLogSink::install();
        m_home.applyToProcess(); // GIO reads the XDG variables once: before its first use
        const QString bin = m_home.path() + u"/bin"_s;
        g_service = bin + u"/quorin-service"_s;
        QVERIFY(QDir().mkpath(bin) && QFile::copy(QStringLiteral(ZQ_TEST_SERVICE), g_service));
        QVERIFY(QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), bin + u"/pluginkit"_s));
        qputenv("PATH", (bin + u':' + qEnvironmentVariable("PATH")).toUtf8());
        qputenv("ZQ_SERVICE_STARTS", m_starts.toUtf8());
        qputenv("ZQ_PLUGINKIT_LOG", (m_home.path() + u"/pluginkit.log"_s).toUtf8());
        m_env = QProcessEnvironment::systemEnvironment();
        m_home.installApplication(u"com.example.Missing"_s, u"/nonexistent/program"_s);
    }
    void init()
    {
        // Found on PATH by its bare name, as installed services usually are.
        m_home.installApplication(service, u"quorin-service --background %U"_s);
        QFile::remove(m_autostart);
        QFile::remove(m_starts);
        QFile::remove(m_home.configHome() + suiteFile);
        QFile::remove(m_home.path() + u"/pluginkit.log"_s);
    }
    void cleanup()
    {
        qDeleteAll(findChildren<QProcess*>()); // each one killed and waited for
        TempHome::killAll(g_service);          // and those started detached
    }

    void execGetsAnAbsoluteProgram_data()
    {
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("expected");
        QTest::newRow("field code") << u"svc --bg %U"_s << u"/usr/bin/svc"_s << u"/usr/bin/svc --bg %U"_s;
        QTest::newRow("program only") << u"svc"_s << u"/opt/svc"_s << u"/opt/svc"_s;
        QTest::newRow("quoted program") << u"\"my svc\" -x"_s << u"/opt/my svc"_s << u"\"/opt/my svc\" -x"_s;
        QTest::newRow("escapes") << u"\"a\\\"b\" -x"_s << u"/o/a\"b$"_s << u"\"/o/a\\\"b\\$\" -x"_s;
        QTest::newRow("percent in path") << u"svc"_s << u"/o/100%"_s << u"/o/100%%"_s;
        // GLib reads these as one word; a cut inside it would name another program.
        QTest::newRow("quoted part joined")
            << u"\"/usr/bin/en\"v -x"_s << u"/usr/bin/env"_s << u"/usr/bin/env -x"_s;
        QTest::newRow("single quotes, blank")
            << u"'my svc' %U"_s << u"/opt/my svc"_s << u"\"/opt/my svc\" %U"_s;
        QTest::newRow("tab ends the word") << u"svc\t-x"_s << u"/opt/svc"_s << u"/opt/svc\t-x"_s;
        QTest::newRow("leading blanks") << u" \tsvc -x"_s << u"/opt/svc"_s << u"/opt/svc -x"_s;
    }
    void execGetsAnAbsoluteProgram()
    {
        QFETCH(QString, exec);
        QFETCH(QString, program);
        QFETCH(QString, expected);
        QCOMPARE(XdgLoginItems::execWithProgram(exec, program), expected);
    }

    void loginItems()
    {
        XdgLoginItems items;
        QVERIFY(items.setEnabled(service, true));
        const QString entry = TempHome::readFile(m_autostart);
        QVERIFY2(entry.contains(u"\nExec="_s + g_service + u" --background %U\n"_s), qPrintable(entry));
        QVERIFY(entry.contains(u"\nX-GNOME-Autostart-enabled=true\n"_s) && !entry.contains(u"Hidden"_s));
        if (!QStandardPaths::findExecutable(u"desktop-file-validate"_s).isEmpty()) {
            QProcess validate;
            validate.start(u"desktop-file-validate"_s, {m_autostart});
            QVERIFY(validate.waitForFinished(30000));
            QCOMPARE(validate.readAll(), QByteArray()); // a clean entry
        }
        QVERIFY(items.setEnabled(service, false) && !QFile::exists(m_autostart));
        QVERIFY(items.setEnabled(service, false)); // nothing to remove is fine

        // A system-wide entry is hidden, and shown again on enabling.
        const QString systemEntry = m_home.systemConfigDir() + u"/autostart/"_s + service + u".desktop"_s;
        QVERIFY(TempHome::writeFile(systemEntry,
                                    "[Desktop Entry]\nType=Application\nName=Svc\nExec=quorin-service\n"));
        QVERIFY(items.setEnabled(service, false));
        QVERIFY(TempHome::readFile(m_autostart).contains(u"\nHidden=true\n"_s));
        QVERIFY(items.setEnabled(service, true));
        QVERIFY(!TempHome::readFile(m_autostart).contains(u"Hidden"_s));
        QFile::remove(systemEntry);

        QVERIFY(!items.setEnabled(u"com.example.NotInstalled"_s, true));
        QVERIFY(!items.setEnabled(u"../escape"_s, true));
        QVERIFY(!QFile::exists(m_home.autostartDir() + u"/com.example.NotInstalled.desktop"_s));
    }

    void processesAreTheServiceByProgramAndUser()
    {
        LinuxWorkspace workspace;
        QCOMPARE(
            workspace.urlForApplication(service),
            std::optional(QUrl::fromLocalFile(m_home.applicationsDir() + u'/' + service + u".desktop"_s)));
        QCOMPARE(workspace.urlForApplication(u"com.example.Missing"_s),
                 std::nullopt); // its program is not there
        QCOMPARE(workspace.urlForApplication(u"com.example.Absent"_s), std::nullopt);

        QProcess* running = startService(this);
        QVERIFY(running->waitForStarted());
        std::optional<RunningApplication> found, self;
        for (const RunningApplication& app : workspace.runningApplications()) {
            if (app.pid == running->processId())
                found = app;
            if (app.pid == getpid())
                self = app;
        }
        QVERIFY(found && self);
        QCOMPARE(found->bundleIdentifier, std::optional(service));
        QCOMPARE(found->executable, QFileInfo(g_service).canonicalFilePath());
        QCOMPARE(self->bundleIdentifier, std::nullopt); // no entry runs this test

        RunningApplication impostor = *found;
        impostor.executable = u"/usr/bin/something-else"_s;
        QVERIFY(!workspace.forceTerminate(impostor));
        QVERIFY(!running->waitForFinished(100));
        QVERIFY(workspace.forceTerminate(*found));
        QVERIFY(killedBySignal(*running));
        QVERIFY(!workspace.forceTerminate(*found)); // gone

        auto procFs = std::make_shared<ForeignProcFs>();
        LinuxWorkspace foreign(procFs);
        const QList<RunningApplication> mine = foreign.runningApplications();
        QCOMPARE(mine.size(), 1);
        QCOMPARE(mine.first().pid, 101);
        foreign.forceTerminate(mine.first());
        QCOMPARE(procFs->killed, (QList<std::pair<qint64, uid_t>>{{101, getuid()}}));
    }

    void openAndLaunch()
    {
        LinuxWorkspace workspace;
        for (const QString& id : {service, u"com.example.Missing"_s}) {
            std::binary_semaphore done{0};
            std::optional<qint64> pid;
            std::optional<ZLError> error;
            QThread* reportedOn = nullptr;
            workspace.openApplication(
                QUrl::fromLocalFile(m_home.applicationsDir() + u'/' + id + u".desktop"_s),
                [&](std::optional<qint64> p, std::optional<ZLError> e) {
                    pid = p;
                    error = std::move(e);
                    reportedOn = QThread::currentThread();
                    done.release();
                });
            QVERIFY(done.try_acquire_for(std::chrono::seconds(10)));
            QVERIFY(reportedOn != QThread::currentThread());
            if (id == service) {
                QVERIFY2(!error && pid > 0, error ? qPrintable(error->description()) : "");
                // In a session of its own, as the process the handler named.
                QTRY_VERIFY(starts().contains(u"%1 %1"_s.arg(*pid)));
            } else {
                QVERIFY(!pid && error && error->description().contains(u"com.example.Missing.desktop"_s));
            }
        }
        QVERIFY(workspace.launchApplication(service));
        QTRY_COMPARE(starts().size(), 2);
        QVERIFY(!workspace.launchApplication(u"com.example.Missing"_s));
        QVERIFY(!workspace.launchApplication(u"com.example.Absent"_s));
    }

    void firstPassEnablesAndStartsTheService()
    {
        const auto [out, lines] = runPass();
        QVERIFY2(out == u"completions=1 thread=other"_s, qPrintable(out + u'\n' + lines.join(u'\n')));
        QCOMPARE(flag(), u"1"_s);
        QCOMPARE(elections(), u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
        QVERIFY(QFile::exists(m_autostart));
        QTRY_COMPARE(starts().size(), 1);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(
            lines[0].contains(u"]: \"ServiceEnableHandler -> updateUserDefaults -> true\". <Service>, "_s),
            qPrintable(lines[0]));
        // With the platform log's prefix on standard error.
        static const QRegularExpression opened(
            uR"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} zq-service-pass\[\d+:\d+\] ZELNA_LOG\[.*\]: "ServiceEnableHandler -> handleEnabled -> openApplication -> with error: nil"\. <Service>, ServiceEnableHandl \(\d+\)$)"_s);
        QVERIFY2(opened.match(lines[1]).hasMatch(), qPrintable(lines[1]));
        QThread::msleep(200);
        QCOMPARE(starts().size(), 1);
    }

    void passLeavesARunningServiceAlone()
    {
        QVERIFY(writeFlag("1", "<key>Mine</key><integer>5</integer>"));
        QVERIFY(startService(this)->waitForStarted());
        QTRY_COMPARE(starts().size(), 1);
        QCOMPARE(runPass(), std::make_pair(u"completions=1 thread=main"_s, QStringList()));
        QCOMPARE(elections(), u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
        QCOMPARE(starts().size(), 1);
        QCOMPARE(TempHome::plistPython(u"d=plistlib.load(open(f,'rb'));print(d['Mine'], d['QREnabled'])"_s,
                                       m_home.configHome() + suiteFile),
                 u"5 1"_s);
    }

    void disabledPassKillsEveryInstanceOfThisUser()
    {
        QVERIFY(writeFlag("0"));
        QVERIFY(TempHome::writeFile(m_autostart, "[Desktop Entry]\nType=Application\nName=S\nExec=x\n"));
        QProcess* first = startService(this);
        QProcess* second = startService(this);
        QProcess bystander; // not the service's program
        bystander.start(u"sleep"_s, {u"30"_s});
        QVERIFY(first->waitForStarted() && second->waitForStarted() && bystander.waitForStarted());
        QCOMPARE(runPass().first, u"completions=1 thread=main"_s);
        QCOMPARE(elections(), u"-e ignore -i com.zelna.Quorin.Service.Finder\n"_s);
        QVERIFY(killedBySignal(*first) && killedBySignal(*second));
        QVERIFY(!bystander.waitForFinished(200));
        QVERIFY(!QFile::exists(m_autostart));
        QCOMPARE(flag(), u"0"_s);
        bystander.kill();
        bystander.waitForFinished();
    }

    // With a real second user; the foreign process table above covers the rule without root.
    void anotherUsersServiceIsNeitherCountedNorKilled()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to start a process as another user");
        // The other user must be able to run the very same program, whatever umask it was built under.
        QVERIFY(TempHome::letOthersThrough(m_home.path())
                && TempHome::letOthersThrough(m_home.path() + u"/bin"_s)
                && QFile::setPermissions(g_service,
                                         QFile::permissions(g_service) | QFile::ReadOther | QFile::ExeOther));
        QProcess* theirs = startService(this, true);
        QVERIFY(theirs->waitForStarted());
        const auto why = [theirs] {
            return u"theirs ended: %1 %2, %3"_s
                .arg(theirs->exitStatus() == QProcess::CrashExit ? u"signal"_s : u"status"_s)
                .arg(theirs->exitCode())
                .arg(QString::fromLocal8Bit(theirs->readAllStandardError()))
                .toLocal8Bit();
        };
        QVERIFY2(!theirs->waitForFinished(300), why().constData());
        QVERIFY(writeFlag("0"));
        QCOMPARE(runPass().first, u"completions=1 thread=main"_s);
        QVERIFY2(!theirs->waitForFinished(300), why().constData()); // not killed
        QVERIFY(writeFlag("1"));
        QCOMPARE(runPass().first, u"completions=1 thread=other"_s); // theirs does not count as running
        QTRY_COMPARE(starts().size(), 1);
        QCOMPARE(theirs->state(), QProcess::Running);
        theirs->kill();
        theirs->waitForFinished();
    }

    void brokenServiceEntryEndsThePassWithALogLine_data()
    {
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("thread");
        QTest::addColumn<QString>("logged");
        const QString notInstalled = u"No installed application com.zelna.Quorin.Service to start at login"_s;
        QTest::newRow("missing program")
            << u"/nonexistent/quorin-service --background"_s << u"main"_s << notInstalled;
        QTest::newRow("a folder") << u"/usr/bin"_s << u"main"_s << notInstalled;
        QTest::newRow("exits at once") << u"true"_s << u"other"_s << u"openApplication -> with error: nil"_s;
    }
    void brokenServiceEntryEndsThePassWithALogLine()
    {
        QFETCH(QString, exec);
        QFETCH(QString, thread);
        QFETCH(QString, logged);
        m_home.installApplication(service, exec);
        const auto [out, lines] = runPass();
        QCOMPARE(out, u"completions=1 thread="_s + thread);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines[1].contains(logged), qPrintable(lines[1]));
        QCOMPARE(QFile::exists(m_autostart), thread == u"other"_s); // a login item only for an installed one
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
