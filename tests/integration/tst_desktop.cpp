#include "LinuxWorkspace.h"
#include "ServiceEnableHandler.h"
#include "TempHome.h"
#include "XdgLoginItems.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <QThread>

#include <csignal>

using namespace Qt::Literals::StringLiterals;

static const QString service = u"com.zelna.Quorin.Service"_s;

// The Linux adapters, and whole service passes on them, in a temporary home with stand-in programs.
class TestDesktop : public QObject {
    Q_OBJECT
    TempHome m_home;
    // A private copy: processes are told apart by their program.
    QString m_service = m_home.path() + u"/bin/quorin-service"_s;
    QString m_journal = m_home.path() + u"/journal"_s; // the election tool's calls and the service's starts
    QString m_autostart = m_home.autostartDir() + u'/' + service + u".desktop"_s;

    QStringList journal() const { return TempHome::readFile(m_journal).split(u'\n', Qt::SkipEmptyParts); }
    QProcess* startService(bool asNobody = false)
    {
        auto* process = new QProcess(this);
        if (asNobody)
            TempHome::runAsNobody(*process);
        process->start(m_service, {});
        return process;
    }
    bool validEntry() const { return QProcess::execute(u"desktop-file-validate"_s, {m_autostart}) == 0; }

private Q_SLOTS:
    void initTestCase()
    {
        m_home.applyToProcess(); // GIO reads the XDG variables once: before its first use
        const QString bin = QFileInfo(m_service).path();
        QVERIFY(QDir().mkpath(bin) && QFile::copy(QStringLiteral(ZQ_TEST_SERVICE), m_service)
                && QFile::copy(QStringLiteral(ZQ_FAKE_PLUGINKIT), bin + u"/pluginkit"_s));
        qputenv("PATH", (bin + u':' + qEnvironmentVariable("PATH")).toUtf8());
        qputenv("ZQ_SERVICE_STARTS", m_journal.toUtf8());
        qputenv("ZQ_PLUGINKIT_LOG", m_journal.toUtf8());
        // The other user must be able to run the very same program, whatever the umask.
        QVERIFY(TempHome::letOthersThrough(m_home.path()) && TempHome::letOthersThrough(bin)
                && QFile::setPermissions(m_service,
                                         QFile::permissions(m_service) | QFile::ReadOther | QFile::ExeOther));
    }
    void init()
    {
        // Found on PATH by its bare name, as installed services usually are.
        m_home.installApplication(service, u"quorin-service --background %U"_s);
        QFile::remove(m_journal);
    }
    void cleanup()
    {
        qDeleteAll(findChildren<QProcess*>()); // each one killed and waited for
        TempHome::killAll(m_service);          // and those started detached
    }

    void execGetsAnAbsoluteProgram_data()
    {
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("expected");
        QTest::newRow("escapes") << u"\"a\\\"b\" -x"_s << u"/o/a\"b$"_s << u"\"/o/a\\\"b\\$\" -x"_s;
        QTest::newRow("percent in path") << u"svc %U"_s << u"/o/100%"_s << u"/o/100%% %U"_s;
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
        QVERIFY(items.setEnabled(service, true) && validEntry());
        QCOMPARE(TempHome::readFile(m_autostart),
                 u"[Desktop Entry]\nType=Application\nVersion=1.4\nName=%1\nExec=%2 --background %U\n"
                 u"NoDisplay=true\nX-GNOME-Autostart-enabled=true\n"_s.arg(service, m_service));
        QVERIFY(items.setEnabled(service, false) && !QFile::exists(m_autostart));
        // A system-wide entry is hidden, and shown again on enabling.
        const QString systemEntry = m_home.systemConfigDir() + u"/autostart/"_s + service + u".desktop"_s;
        QVERIFY(TempHome::writeFile(systemEntry,
                                    "[Desktop Entry]\nType=Application\nName=S\nExec=quorin-service\n"));
        QVERIFY(items.setEnabled(service, false) && validEntry()
                && TempHome::readFile(m_autostart).contains(u"\nHidden=true\n"_s));
        QVERIFY(items.setEnabled(service, true) && !TempHome::readFile(m_autostart).contains(u"Hidden"_s));
        QFile::remove(systemEntry);
        QVERIFY(!items.setEnabled(u"com.example.NotInstalled"_s, true)
                && !items.setEnabled(u"../escape"_s, true));
    }

    void workspace()
    {
        LinuxWorkspace workspace;
        QProcess* running = startService();
        QVERIFY(running->waitForStarted());
        const RunningApplication found{running->processId(), service,
                                       QFileInfo(m_service).canonicalFilePath()};
        // Never by a pid alone: the process there may run another program, or be another user's.
        const RunningApplication impostor{found.pid, service, u"/usr/bin/something-else"_s};
        QVERIFY(!workspace.forceTerminate(impostor)
                && !LinuxWorkspace(nullptr, getuid() + 1).forceTerminate(found));
        QVERIFY(workspace.forceTerminate(found) && running->waitForFinished(5000)
                && running->exitCode() == SIGKILL);
        QVERIFY(!workspace.forceTerminate(found)); // gone
    }

    void pass_data()
    {
        // The stored flag ("-" none), this user's instances running and one of nobody's (as root), the
        // service entry's Exec; what the pass did.
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("outcome");
        const QString exec = u"quorin-service --background %U"_s;
        // First, while no flag is stored. Nobody's instance is neither counted nor killed.
        QTest::newRow("first pass") << u"- theirs"_s << exec << u"other -e use start login"_s;
        QTest::newRow("running") << u"1 mine"_s << exec << u"main -e use running login"_s;
        QTest::newRow("disabled") << u"0 mine mine theirs"_s << exec << u"main -e ignore killed 9 killed 9"_s;
        // Not installed: no login item, nothing started.
        QTest::newRow("missing program") << u"1"_s << u"/nonexistent/quorin-service"_s << u"main -e use"_s;
        QTest::newRow("a folder") << u"1"_s << u"/usr/bin"_s << u"main -e use"_s;
        QTest::newRow("hidden entry") << u"1"_s << QString(exec + u"\nHidden=true"_s) << u"main -e use"_s;
        QTest::newRow("exits at once") << u"1"_s << u"true"_s << u"other -e use login"_s;
    }
    void pass()
    {
        QFETCH(QString, platform);
        QFETCH(QString, exec);
        QFETCH(QString, outcome);
        m_home.installApplication(service, exec);
        if (!platform.startsWith(u'-'))
            ServiceEnableHandler::updateUserDefaults(platform.startsWith(u'1'));
        const QByteArray stale = "[Desktop Entry]\nType=Application\nName=S\nExec=x\n";
        QVERIFY(TempHome::writeFile(m_autostart, stale));
        QList<QProcess*> instances;
        const int mine = platform.count(u"mine"_s);
        for (int i = 0; i < mine; ++i)
            instances << startService();
        QTRY_COMPARE(journal().size(), mine); // each noted its start
        QProcess* other = platform.contains(u"theirs"_s) && geteuid() == 0 ? startService(true) : nullptr;
        QVERIFY(!other || other->waitForStarted());

        std::atomic<QThread*> completedOn = nullptr;
        ServiceEnableHandler::handleEnabled([&] { completedOn = QThread::currentThread(); });
        QTRY_VERIFY(completedOn);
        const auto now = [&] {
            QStringList done{completedOn == QThread::currentThread() ? u"main"_s : u"other"_s};
            for (const QString& line : journal().mid(mine)) // the election, then starts (in own sessions)
                done << (line.section(u' ', 0, 0) == line.section(u' ', 1) ? u"start"_s
                                                                           : line.section(u' ', 0, 1));
            for (QProcess* instance : std::as_const(instances))
                done << (instance->state() == QProcess::Running ? u"running"_s
                                                                : u"killed %1"_s.arg(instance->exitCode()));
            if (QFile::exists(m_autostart) && TempHome::readFile(m_autostart).toUtf8() != stale)
                done << u"login"_s;
            return done.join(u' ');
        };
        QTRY_COMPARE(now(), outcome);
        QVERIFY(!other || other->state() == QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
