#include "LauncherBundle.h"
#include "Testing.h"

#include <csignal>

#define VERIFY_RUN(condition, run) QVERIFY2(condition, qPrintable((run)->output()))

static const QString window = u"window shown: MainWindow"_s;
static const QString handedOver = u"handed over to the running launcher"_s;
static const QString check = u"checkVersion"_s;
// A desktop's X and D-Bus threads run in libraries that ThreadSanitizer cannot see into.
#if defined(__SANITIZE_THREAD__)
constexpr bool onDesktop = false;
#else
constexpr bool onDesktop = true;
#endif

// The built launcher in a bundle of its own and a temporary home, with a stand-in pluginkit.
class TestLauncher : public QObject {
    Q_OBJECT
    std::unique_ptr<LauncherBundle> m_bundle;

    QString path(const QString& relative) const { return m_bundle->path(relative); }
    bool checkRecorded() const
    {
        return TempHome::readFile(path(u"config/com.zelna.Quorin.plist"_s)).contains(u"SULastCheckTime"_s);
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
        m_bundle = LauncherBundle::make();
        QVERIFY(m_bundle);
    }
    void cleanup() { TempHome::killAll(m_bundle->service()); }

    void start_data()
    {
        QTest::addColumn<QByteArray>("feed");   // see LauncherBundle::writeInfo
        QTest::addColumn<QString>("arguments"); // a leading "-" for a start without a display
        // The exit status (see Launch::finish), or minus the signal then sent to it still running (as by the
        // session, or a terminal): it ends as after Quit, its lock given up, and then by that signal.
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("shown"); // the window only when this says so
        QTest::newRow("checker, no newer version") << "1.0"_ba << check << 0 << u""_s;
        QTest::newRow("checker, newer version")
            << "2.0"_ba << check << -SIGINT << u"update alert shown for version 2.0"_s;
        // A check without an answer ends the checker: run from a timer, it must not pile up.
        QTest::newRow("checker, feed missing") << "none"_ba << check << 1 << u"Updater: update check of"_s;
        // With no display, or no windows module, a checker logs what it found.
        QTest::newRow("checker, no windows module")
            << "no windows"_ba << check << 2 << u"plugins/libzq-windows.so cannot be loaded: "_s;
        QTest::newRow("no display, no newer version") << "1.0"_ba << u"-"_s + check << 0 << u""_s;
        QTest::newRow("no display, newer version")
            << "2.0"_ba << u"-"_s + check << 2
            << u"Updater: version 2.0 (2.0) is available; 1.0.0 is installed"_s;
        // Only the first argument, exactly, makes a checker.
        QTest::newRow("capitalised, then second")
            << "1.0"_ba << u"CheckVersion checkVersion"_s << -SIGTERM << window;
        // Without a feed URL (here one of the wrong type) nothing is checked.
        QTest::newRow("a number") << "<key>SUFeedURL</key><integer>42</integer>"_ba << u""_s << -SIGHUP
                                  << window;
        QTest::newRow("feed not a URL")
            << "<key>SUFeedURL</key><string>not a url</string>"_ba << u""_s << 255
            << u"SUFeedURL \"not a url\" in the bundle's Info.plist is not a URL"_s;
        // No version to show: a clear, deliberate end.
        QTest::newRow("Info.plist cut short")
            << "</dict>"_ba << u""_s << 255 << u"The bundle's Info.plist has no CFBundleShortVersionString"_s;
    }
    void start()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QString, arguments);
        QFETCH(int, status);
        QFETCH(QString, shown);
        QVERIFY(m_bundle->writeInfo(feed));
        const bool display = !arguments.startsWith(u'-');
        arguments.remove(0, display ? 0 : 1);
        // Without a display, the dynamic loader maps nothing of Qt Gui, as it tells.
        auto run = m_bundle->launch(arguments.split(u' ', Qt::SkipEmptyParts), display,
                                    display ? u""_s : u"export LD_DEBUG=files"_s);
        // Still running means no update found does not end the others.
        VERIFY_RUN(status < 0 ? run->waitFor(shown) && run->state() == QProcess::Running
                              : run->finish() == status,
                   run);
        VERIFY_RUN(run->says(shown) && (shown == window || !run->says(window)), run);
        VERIFY_RUN(display || (run->says(u"libQt6Core"_s) && !run->says(u"libQt6Gui"_s)), run);
        // Log lines on standard error after local time to the millisecond, program, pid and thread.
        static const QRegularExpression logLine(
            uR"((?m)^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} zelna-quorin\[\d+:\d+\] )"_s);
        VERIFY_RUN(run->output().contains(logLine), run);
        QVERIFY(arguments != check || checkRecorded());
        // The service pass runs at every start, whatever follows.
        QCOMPARE(TempHome::readFile(path(u"pluginkit.log"_s)),
                 u"-e use -i com.zelna.Quorin.Service.Finder\n"_s);
        if (feed.startsWith('<'))
            VERIFY_RUN(!run->says(u"Updater:"_s) && !checkRecorded(), run);
        if (status < 0) {
            ::kill(pid_t(run->processId()), -status);
            VERIFY_RUN(run->waitForFinished(15000) && run->exitStatus() == QProcess::CrashExit
                           && run->exitCode() == -status
                           && QDir(path(u"runtime"_s)).entryList(QDir::Files | QDir::System).isEmpty(),
                       run);
        }
    }

    // A second start hands over to the first and ends. Another user is kept out by the folder's permissions
    // and, should those be opened up, by the peer's credentials.
    void secondLaunchReopensTheFirst_data()
    {
        QTest::addColumn<bool>("shared");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("instruction"); // as a screen reader reads it
        QTest::newRow("private runtime folder")
            << false << u"C"_s << u"Make sure ZELNA Quorin is allowed under:"_s;
        // One that others may write is not used; a private folder under TMPDIR is.
        QTest::newRow("shared runtime folder") << true << u"de_DE"_s << u"Stellen Sie sicher"_s;
        QTest::newRow("French") << false << u"fr_FR"_s << u"Assurez-vous que ZELNA Quorin"_s;
    }
    void secondLaunchReopensTheFirst()
    {
        QFETCH(bool, shared);
        QFETCH(QString, language);
        QFETCH(QString, instruction);
        QVERIFY(!shared || QFile::setPermissions(path(u"runtime"_s), QFile::Permissions(0x7777)));
        const QString folder
            = shared ? path(u"tmp/zelna-quorin-"_s) + QString::number(::getuid()) : path(u"runtime"_s);
        const QString socket = folder + u"/zelna-quorin.socket"_s;
        // On a desktop with assistive technology on (its bus and window manager read the system's themes).
        Launch bus, desktop;
        m_bundle->env.insert(u"LC_ALL"_s, language);
        m_bundle->env.insert(u"DESKTOP_STARTUP_ID"_s, u"zq-first_TIME41"_s);
        if (onDesktop) {
            bus.start(u"env"_s, {u"-u"_s, u"XDG_DATA_DIRS"_s, u"dbus-daemon"_s, u"--session"_s, u"--nofork"_s,
                                 u"--print-address=1"_s});
            QVERIFY(m_bundle->startDisplay() && bus.waitFor(u"\n"_s));
            m_bundle->env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.output().trimmed());
            m_bundle->env.insert(u"QT_LINUX_ACCESSIBILITY_ALWAYS_ON"_s, u"1"_s);
            desktop.setProcessEnvironment(m_bundle->env);
            desktop.start(u"env"_s, {u"-u"_s, u"XDG_DATA_DIRS"_s, u"-u"_s, u"XDG_CONFIG_DIRS"_s,
                                     u"/usr/bin/python3"_s, QStringLiteral(ZQ_SUPPORT) + u"/desktop.py"_s});
            QVERIFY2(desktop.waitFor(u"ready"_s), qPrintable(desktop.output()));
        }
        QVERIFY(m_bundle->writeInfo("2.0")); // a checker that found an update stays
        auto first = m_bundle->launch({check});
        VERIFY_RUN(first->waitFor(u"update alert shown"_s) && QFile::exists(socket), first);
        if (::geteuid() == 0) { // only root can act as another user
            QCOMPARE(reopenAsNobody(socket), u"refused"_s);
            QVERIFY(TempHome::letOthersThrough(m_bundle->home().path())
                    && TempHome::letOthersThrough(folder));
            QVERIFY(QFile::setPermissions(socket, QFile::Permissions(0x6666)));
            QCOMPARE(reopenAsNobody(socket), u"hung up"_s);
        }
        m_bundle->env.insert(u"DESKTOP_STARTUP_ID"_s, u"zq-\"test\"_TIME42"_s); // as a desktop gives a start
        auto second = m_bundle->launch();                                       // no service pass of its own
        VERIFY_RUN(second->finish() == 0 && second->says(handedOver) && !second->says(u"ZELNA_LOG"_s)
                       && TempHome::readFile(path(u"pluginkit.log"_s)).count(u'\n') == 1,
                   second);
        VERIFY_RUN(first->waitFor(window)
                       && first->says(u"ZENLA Launcher Handling accessory state on reopen"_s)
                       && first->says(u"reopen with activation token zq-\"test\"_TIME42"_s),
                   first);
        // Once, with the log text as it has always been spelt; none for the other user.
        QCOMPARE(first->output().count(u"ZENLA Launcher applicationShouldHandleReopen"_s), 1);
        QVERIFY(m_bundle->writeInfo("1.0"));
        auto checker = m_bundle->launch({check}); // a checker never hands over: it checks
        VERIFY_RUN(checker->finish() == 0 && !checker->says(handedOver), checker);
        if (!onDesktop)
            return;
        // A screen reader reads the labels as shown; its Toggle starts the service as a click does.
        m_bundle->installService();
        auto reader = m_bundle->launch(
            {}, true, {}, {u"/usr/bin/python3"_s, QStringLiteral(ZQ_SUPPORT) + u"/screen-reader.py"_s});
        VERIFY_RUN(reader->finish() == 0 && reader->says(u"label: "_s + instruction)
                       && reader->says(u": 1.0.0 |"_s),
                   reader);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path(u"service-starts"_s)), 15000);
        // Each launch's feedback ends, and the reopened window comes forward.
        VERIFY_RUN(first->waitFor(u"application activated"_s)
                       && desktop.waitFor(u"remove: ID=zq-first_TIME41\n"_s)
                       && desktop.waitFor(u"remove: ID=\"zq-\\\"test\\\"_TIME42\"\n"_s)
                       && desktop.waitFor(u"active: ZELNA Quorin\n"_s),
                   &desktop);
        // On Wayland, under a compositor of another user's (not root's) that opens the windows out of sight,
        // each forwarded token brings them forward, once: a window shown then, and one on screen already.
        const QString wayland = path(u"wayland"_s), focus = u"\"change\": \"focus\""_s;
        QVERIFY(QDir().mkdir(wayland) && QFile::setPermissions(wayland, QFile::Permissions(0x7777))
                && TempHome::letOthersThrough(path(u"."_s)) && m_bundle->writeInfo("2.0")
                && TempHome::writeFile(wayland + u"/config"_s,
                                       "focus_on_window_activation focus\nassign [app_id=com.zelna.Quorin] "
                                       "workspace 2\nexec swaymsg -r -t subscribe -m '[\"window\"]'\n"));
        Launch sway;
        if (::geteuid() == 0)
            TempHome::runAsNobody(sway);
        sway.start(u"env"_s, {u"XDG_RUNTIME_DIR="_s + wayland, u"WLR_BACKENDS=headless"_s,
                              u"WLR_RENDERER=pixman"_s, u"sway"_s, u"-c"_s, wayland + u"/config"_s});
        m_bundle->env.insert(u"WAYLAND_DISPLAY"_s, wayland + u"/wayland-1"_s);
        m_bundle->env.insert(u"QT_QPA_PLATFORM"_s, u"wayland"_s);
        m_bundle->env.insert(u"WAYLAND_DEBUG"_s, u"client"_s); // every request it sends, on standard error
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(wayland + u"/wayland-1"_s), 15000);
        first.reset(); // before its successor claims the session
        first = m_bundle->launch({check});
        VERIFY_RUN(first->waitFor(u"update alert shown"_s), first);
        const QString token = u"export XDG_ACTIVATION_TOKEN=$(python3 "_s + QStringLiteral(ZQ_SUPPORT)
                              + u"/activation-token.py)"_s;
        for (const QString& before : {u""_s, u"swaymsg -s wayland/sway-ipc.*.sock workspace 1\n"_s}) {
            const qsizetype focused = sway.output().count(focus);
            VERIFY_RUN(m_bundle->launch({}, true, before + token)->finish() == 0
                           && QTest::qWaitFor([&] { return sway.output().count(focus) > focused; }, 15000),
                       &sway);
        }
        QCOMPARE(first->output().count(u".activate(\""_s), 2);
        QCOMPARE(first->output().count(u"accessory state on reopen"_s), 1); // regular from the first on
    }
};

QTEST_GUILESS_MAIN(TestLauncher)
#include "tst_launcher.moc"
