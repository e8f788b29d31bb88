#include "LinuxWorkspace.h"
#include "ProcFs.h"
#include "ServiceEnableHandler.h"
#include "Testing.h"
#include "XdgLoginItems.h"

static const QString service = u"com.zelna.Quorin.Service"_s;
static const QString usualExec = u"quorin-service --background %U"_s;

// The Linux adapters, and whole service passes on them, in a temporary home with stand-in programs.
class TestDesktop : public QObject {
    Q_OBJECT
    TempHome m_home;
    // A private copy: processes are told apart by their program.
    QString m_service = m_home.path() + u"/bin/quorin-service"_s;
    QString m_journal = m_home.path() + u"/journal"_s; // the election tool's calls and the service's starts
    QString m_autostart = m_home.autostartDir() + u'/' + service + u".desktop"_s;

    QStringList journal() const { return TempHome::readFile(m_journal).split(u'\n', Qt::SkipEmptyParts); }
    QProcess* startService(const QStringList& arguments, bool asNobody = false)
    {
        auto* process = new QProcess(this);
        if (asNobody)
            TempHome::runAsNobody(*process);
        process->start(m_service, arguments);
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
        m_home.installApplication(service, usualExec);
    }
    void cleanup()
    {
        qDeleteAll(findChildren<QProcess*>()); // each one killed and waited for
        TempHome::killAll(m_service);          // and those started detached
    }

    void loginItem()
    {
        // GLib reads "/usr/bin/en"v as one word; a cut inside it would name another program.
        QCOMPARE(XdgLoginItems::execWithProgram(u" \t\"/usr/bin/en\"v\t-x"_s, u"/usr/bin/env"_s),
                 u"/usr/bin/env\t-x"_s);
        QCOMPARE(XdgLoginItems::execWithProgram(u"'my svc' %U"_s, u"/opt/my svc"_s), u"\"/opt/my svc\" %U"_s);
        QCOMPARE(XdgLoginItems::execWithProgram(u"svc -x"_s, u"/o/svc"_s), u"/o/svc -x"_s);
        QCOMPARE(XdgLoginItems::execWithProgram(u"\"a\\\"b\" %U"_s, u"/o/1%a\"b$"_s),
                 u"\"/o/1%%a\\\"b\\$\" %U"_s);
        XdgLoginItems items;
        QVERIFY(!items.setEnabled(u"../escape"_s, true));
        // A system-wide entry is hidden (unless unreadable), and shown again on enabling; without one, the
        // user's goes.
        const QString systemEntry = m_home.systemConfigDir() + u"/autostart/"_s + service + u".desktop"_s;
        QVERIFY(TempHome::writeFile(systemEntry, "not an entry") && !items.setEnabled(service, false));
        QVERIFY(TempHome::writeFile(systemEntry, "[Desktop Entry]\nType=Application\nName=S\nExec=x\n")
                && items.setEnabled(service, false) && validEntry()
                && TempHome::readFile(m_autostart).contains(u"\nHidden=true\n"_s));
        QVERIFY(items.setEnabled(service, true));
        QCOMPARE(TempHome::readFile(m_autostart),
                 u"[Desktop Entry]\nType=Application\nVersion=1.4\nName=%1\nExec=%2 --background %U\n"
                 u"NoDisplay=true\nX-GNOME-Autostart-enabled=true\n"_s.arg(service, m_service));
        QVERIFY(QFile::remove(systemEntry) && items.setEnabled(service, false)
                && !QFile::exists(m_autostart));
    }

    void neverByPidAlone()
    {
        const int input = ::dup(STDIN_FILENO); // there may be no standard input: 0 is closed like any other
        ::close(STDIN_FILENO);
        const uint openFiles = QDir(u"/proc/self/fd"_s).count();
        const ProcFs::Process self = *ProcFs().process(QCoreApplication::applicationPid());
        // The process at a pid may run another program by now, or be another user's: this one, say.
        QVERIFY(
            !LinuxWorkspace().forceTerminate({self.pid, service, m_service})
            && !LinuxWorkspace(nullptr, self.uid + 1).forceTerminate({self.pid, service, self.executable}));
        QVERIFY(ProcFs().processes().size() > 1);
        QCOMPARE(QDir(u"/proc/self/fd"_s).count(), openFiles); // nothing left open
        QCOMPARE(::dup(input), STDIN_FILENO);                  // standard input back where it was
    }

    void pass_data()
    {
        // The stored flag, then processes of the service's program: this user's started as the
        // usual entry says ("mine", or with "extra" arguments), with the "script" arguments, with
        // none ("stranger"), one of nobody's (as root); the program file "replaced" while they
        // run, a "twin" entry naming it too. The service entry's Exec if not the usual one (found
        // on PATH by its bare name, as installed services usually are). What the pass did, in order.
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("outcome");
        // Nobody's instance is neither counted nor killed.
        QTest::newRow("not running") << u"1 theirs"_s << QString() << u"-e use start login"_s;
        QTest::newRow("running") << u"1 mine"_s << QString() << u"-e use running login"_s;
        QTest::newRow("disabled") << u"0 mine mine theirs"_s << QString() << u"-e ignore killed 9 killed 9"_s;
        // Not installed: no login item, nothing started.
        QTest::newRow("missing program") << u"1"_s << u"/nonexistent/quorin-service"_s << u"-e use"_s;
        QTest::newRow("hidden entry") << u"1"_s << u"quorin-service\nHidden=true"_s << u"-e use"_s;
        QTest::newRow("exits at once") << u"1"_s << u"true"_s << u"-e use login"_s;
        // Only the command line tells an interpreter's script from the user's other uses of it.
        QTest::newRow("interpreter") << u"0 script stranger"_s << u"quorin-service -c \"serve %%1\" %U"_s
                                     << u"-e ignore killed 9 running"_s;
        QTest::newRow("replaced, more arguments")
            << u"0 extra replaced"_s << QString() << u"-e ignore killed 9"_s;
        QTest::newRow("second entry") << u"1 mine twin"_s << QString() << u"-e use running login"_s;
        // Any program of the user can put a pipe at the login item's name: replaced, never waited on.
        QTest::newRow("pipe as login item") << u"1 mine pipe"_s << QString() << u"-e use running login"_s;
    }
    void pass()
    {
        QFETCH(QString, platform);
        QFETCH(QString, exec);
        QFETCH(QString, outcome);
        m_home.installApplication(service, exec.isEmpty() ? usualExec : exec);
        if (platform.contains(u"twin"_s))
            m_home.installApplication(u"a.Twin"_s, u"quorin-service --background"_s);
        ServiceEnableHandler::updateUserDefaults(platform.startsWith(u'1'));
        QFile::remove(m_autostart); // an invalid entry until the pass rewrites it, or a pipe
        QVERIFY(platform.contains(u"pipe"_s) ? ::mkfifo(qPrintable(m_autostart), 0600) == 0
                                             : TempHome::writeFile(m_autostart, "[Desktop Entry]\nExec=x\n"));
        QFile::remove(m_journal);
        QList<QProcess*> instances;
        const QHash<QString, QStringList> arguments{{u"mine"_s, {u"--background"_s}},
                                                    {u"extra"_s, {u"--background"_s, u"-v"_s}},
                                                    {u"script"_s, {u"-c"_s, u"serve %1"_s}},
                                                    {u"stranger"_s, {}}};
        for (const QString& word : platform.split(u' '))
            if (arguments.contains(word))
                instances << startService(arguments[word]);
        QTRY_COMPARE(journal().size(), instances.size()); // each noted its start
        if (platform.contains(u"replaced"_s))             // as an upgrade does: a new file in its place
            QVERIFY(QFile::copy(m_service, m_service + u".new"_s)
                    && ::rename(qPrintable(m_service + u".new"_s), qPrintable(m_service)) == 0);
        QProcess* other = platform.contains(u"theirs"_s) && geteuid() == 0
                              ? startService({u"--background"_s}, true)
                              : nullptr;
        QVERIFY(!other || other->waitForStarted());
        std::atomic<bool> completed = false;
        ServiceEnableHandler::handleEnabled([&completed] { completed = true; });
        QTRY_VERIFY(completed);
        const auto now = [&] { // the election, then starts in sessions of their own
            static const QRegularExpression election(u" -i .*"_s), start(u"^(\\d+) \\1$"_s);
            QStringList done = journal().mid(instances.size());
            done.replaceInStrings(election, QString()).replaceInStrings(start, u"start"_s);
            for (QProcess* instance : std::as_const(instances))
                done << (instance->state() == QProcess::Running ? u"running"_s
                                                                : u"killed %1"_s.arg(instance->exitCode()));
            if (validEntry()) // not the invalid one written before
                done << u"login"_s;
            return done.join(u' ');
        };
        QTRY_COMPARE(now(), outcome);
        QVERIFY(!other || other->state() == QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
