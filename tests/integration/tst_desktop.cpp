#include "DesktopApplications.h"
#include "DesktopEntry.h"
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

    // What an entry runs is what GIO itself starts for it, and what its login item starts, the program then
    // by its path; the processes so started are the application's.
    void commandAsGioStartsIt_data()
    {
        QTest::addColumn<QByteArray>("exec"); // as written in the entry after the program, then any Icon line
        QTest::newRow("codes for files") << "--background %U %f"_ba;
        QTest::newRow("code inside a word") << "--url=%u -x"_ba;
        QTest::newRow("icon") << "%i -x\nIcon=quorin"_ba;
        QTest::newRow("icon file name") << "%i\nIcon=quorin.svg"_ba;
        QTest::newRow("icon path") << "%i\nIcon=/usr/share/q.png"_ba;
        QTest::newRow("no icon") << "%i -x"_ba;
        QTest::newRow("name and entry file") << "%c %k"_ba;
        QTest::newRow("codes inside quotes") << "\"--name=%c\" '%k' \"%i\"\nIcon=quorin"_ba;
        QTest::newRow("percent signs") << R"(100%% "a %% b" 50%)"_ba;
        QTest::newRow("deprecated and unknown codes") << "%d %D %n %N %v %m %z -x"_ba;
        QTest::newRow("quoting and escapes") << R"("a \\"b\\" \\$c" 'd e' f\\ g h\si "")"_ba;
    }
    void commandAsGioStartsIt()
    {
        QFETCH(QByteArray, exec);
        const QString id = u"a.Gio"_s, entry = m_home.applicationsDir() + u"/a.Gio.desktop"_s,
                      item = m_home.autostartDir() + u"/a.Gio.desktop"_s;
        const QByteArray head
            = "[Desktop Entry]\nType=Application\nName=Quorin Service\nExec=quorin-service ";
        QVERIFY(TempHome::writeFile(entry, head + exec + '\n') && XdgLoginItems().setEnabled(id, true));
        const auto read = DesktopEntry::read(entry);
        QVERIFY(std::holds_alternative<DesktopEntry>(read));
        const auto expected = std::get<DesktopEntry>(read).arguments();
        QVERIFY(expected);
        for (const QString& file : {entry, item}) {
            const auto started = DesktopApplications::launchEntryFile(file);
            QVERIFY(std::holds_alternative<qint64>(started));
            const qint64 pid = std::get<qint64>(started);
            QTRY_VERIFY(journal().contains(u"%1 %1"_s.arg(pid))); // in its main, in a session of its own
            QCOMPARE(ProcFs().arguments(pid).value_or(QStringList()),
                     QStringList(file == entry ? expected->first() : m_service) + expected->mid(1));
            const auto running = LinuxWorkspace().runningApplications(id);
            QVERIFY(std::ranges::find(running, pid, &RunningApplication::pid) != running.end());
        }
    }

    void pass_data()
    {
        // The flag as stored; before the pass, processes of the service's program: this user's as the usual
        // entry starts it ("mine", with "extra" arguments), with the "script" arguments or none ("stranger"),
        // nobody's ("theirs", as root); its file "replaced" while they run, a "twin" entry naming it too, a
        // "pipe" at the login item's name. The entry's Exec unless the usual (found on PATH). What was done.
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QString>("outcome");
        const QByteArray on = "<string>1</string>", off = "<string>0</string>";
        // Nobody's instance is neither counted nor killed.
        QTest::newRow("not running") << on << u"theirs"_s << QString() << u"-e use start login"_s;
        QTest::newRow("running") << on << u"mine"_s << QString() << u"-e use running login"_s;
        QTest::newRow("disabled") << off << u"mine mine theirs"_s << QString()
                                  << u"-e ignore killed 9 killed 9"_s;
        // Any text but "1" is off; anything but text is on, and stored as "1".
        QTest::newRow("the word true")
            << "<string>true</string>"_ba << u"mine"_s << QString() << u"-e ignore killed 9"_s;
        QTest::newRow("a number") << "<integer>0</integer>"_ba << QString() << QString()
                                  << u"-e use start login"_s;
        // Not installed: no login item, nothing started.
        QTest::newRow("missing program")
            << on << QString() << u"/nonexistent/quorin-service"_s << u"-e use"_s;
        QTest::newRow("hidden entry") << on << QString() << u"quorin-service\nHidden=true"_s << u"-e use"_s;
        // Only the command line tells an interpreter's script from the user's other uses of it.
        QTest::newRow("interpreter") << off << u"script stranger"_s << u"quorin-service -c \"serve %%1\" %U"_s
                                     << u"-e ignore killed 9 running"_s;
        QTest::newRow("replaced, more arguments")
            << off << u"extra replaced"_s << QString() << u"-e ignore killed 9"_s;
        QTest::newRow("second entry") << on << u"mine twin"_s << QString() << u"-e use running login"_s;
        // Any program of the user can put a pipe at the login item's name: replaced, never waited on.
        QTest::newRow("pipe as login item") << on << u"mine pipe"_s << QString() << u"-e use running login"_s;
    }
    void pass()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, before);
        QFETCH(QString, exec);
        QFETCH(QString, outcome);
        m_home.installApplication(service, exec.isEmpty() ? usualExec : exec);
        if (before.contains(u"twin"_s))
            m_home.installApplication(u"a.Twin"_s, u"quorin-service --background"_s);
        QVERIFY(TempHome::writeFile(m_home.flagsFile(),
                                    "<plist><dict><key>QREnabled</key>" + stored + "</dict></plist>"));
        QFile::remove(m_autostart); // an invalid entry until the pass rewrites it, or a pipe
        QVERIFY(before.contains(u"pipe"_s) ? ::mkfifo(qPrintable(m_autostart), 0600) == 0
                                           : TempHome::writeFile(m_autostart, "[Desktop Entry]\nExec=x\n"));
        QFile::remove(m_journal);
        QList<QProcess*> instances;
        const QHash<QString, QStringList> arguments{{u"mine"_s, {u"--background"_s}},
                                                    {u"extra"_s, {u"--background"_s, u"-v"_s}},
                                                    {u"script"_s, {u"-c"_s, u"serve %1"_s}},
                                                    {u"stranger"_s, {}}};
        for (const QString& word : before.split(u' '))
            if (arguments.contains(word))
                instances << startService(arguments[word]);
        QTRY_COMPARE(journal().size(), instances.size()); // each noted its start
        if (before.contains(u"replaced"_s))               // as an upgrade does: a new file in its place
            QVERIFY(QFile::copy(m_service, m_service + u".new"_s)
                    && ::rename(qPrintable(m_service + u".new"_s), qPrintable(m_service)) == 0);
        QProcess* other = before.contains(u"theirs"_s) && geteuid() == 0
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
        // Left as it was when text, as the other programs of the group read it; else stored as text.
        const QByteArray text = stored.startsWith("<string>") ? stored : "<string>1</string>";
        QVERIFY(TempHome::readFile(m_home.flagsFile()).contains(QString::fromUtf8(text)));
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
