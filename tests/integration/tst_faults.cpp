#include "LauncherBundle.h"
#include "PlistDocument.h"
#include "Testing.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>

#include <climits>
#include <csignal>

#include <sched.h>
#include <sys/mount.h>

namespace {

// The errors each kind of call meets on a real machine; other kinds are not faulted.
QStringList errorsOf(const QString& kind, const QString& call)
{
    static const QList<std::pair<QStringList, QString>> table{
        {{u"write"_s, u"pwrite64"_s, u"fdatasync"_s}, u"ENOSPC EIO"_s},
        {{u"linkat"_s, u"renameat"_s}, u"ENOSPC EACCES EROFS EIO"_s},
        {{u"unlink"_s, u"unlinkat"_s}, u"EACCES EROFS EIO"_s},
        {{u"newfstatat"_s, u"statx"_s, u"access"_s}, u"EACCES EIO"_s},
        {{u"read"_s, u"close"_s}, u"EIO"_s},
        {{u"mkdir"_s, u"bind"_s}, u"ENOSPC EACCES EROFS"_s},
        {{u"fchmod"_s, u"chmod"_s}, u"EACCES EROFS"_s},
        {{u"socket"_s, u"socketpair"_s}, u"EMFILE"_s},
        {{u"flock"_s}, u"ENOLCK"_s}};
    QString errors;
    if (kind == u"openat"_s) // a file system without unnamed files refuses them with EOPNOTSUPP
        errors
            = call.contains(QRegularExpression(u"O_(WRONLY|RDWR|CREAT|TMPFILE)"_s))
                  ? u"ENOSPC EACCES EROFS EIO"_s + (call.contains(u"O_TMPFILE"_s) ? u" EOPNOTSUPP"_s : u""_s)
                  : u"EACCES EIO EMFILE"_s;
    for (const auto& [kinds, those] : table)
        errors += kinds.contains(kind) ? those : QString();
    return errors.split(u' ', Qt::SkipEmptyParts);
}

// One path of the launcher: what is on disk, how it is started, and which calls are faulted: a pattern on
// the file a call names (the home as "~"), the folder of an unnamed file, or "socket" for its own sockets.
struct Path {
    QString name;
    QStringList arguments;
    QString display; // the Qt platform: none, offscreen, or xcb (the preview is then turned off by keys)
    QMap<QString, QByteArray> files;
    bool serviceRunning = false;
    QString faulted = u"^~/(config|runtime|data/com\\.zelna)|^socket$"_s;
    QByteArray feed = "1.0"; // see LauncherBundle::writeInfo
};

// One call, as strace -P finds it again: the how-manyth of its kind naming the same file (or of all of its
// kind); and its fault: an error's name, or SIGKILL on entering it.
struct Fault {
    int path = 0;
    QString kind, file;
    int ordinal = 0;
    QString call, fault; // see site()
};

const QString flagFile = u"~/config/K4WQ7ZT2RB.group.zelna.Quorin.plist"_s;
const QString checkFile = u"~/config/com.zelna.Quorin.plist"_s;
const QString previewFile = u"~/data/com.zelna.Quorin.shared/Communication/commnuication_file.json"_s;
const QByteArray checked = "<plist><dict><key>SULastLaunchedBundleVersion</key><string>1.0.0</string>"
                           "<key>SULastCheckTime</key><date>2020-01-01T00:00:00Z</date></dict></plist>";

QByteArray flag(const char* value)
{
    return "<plist><dict><key>QREnabled</key><string>" + QByteArray(value) + "</string></dict></plist>";
}

// Whole as its readers take it, with no log line in it; an entry as a clean run writes it.
bool whole(const QString& name, const QByteArray& bytes, const QByteArray& clean)
{
    if (bytes.contains("ZELNA_LOG") || bytes.contains("zelna-quorin["))
        return false;
    if (name.endsWith(u".plist"_s))
        return PlistDocument::parse(bytes).has_value();
    if (name.endsWith(u".desktop"_s))
        return bytes == clean;
    if (name.endsWith(u".json"_s))
        return QJsonDocument::fromJson(bytes).object().value(u"previewEnabled"_s).isBool();
    return name.endsWith(u".socket"_s); // nothing in it to cut
}

// Which call a line of strace's shows: its kind and first file of the home, else how its arguments begin
// (all a killed call shows), without what differs from run to run.
QString site(const QString& line)
{
    static const QRegularExpression file(u"~/[^\"<>]*"_s), changing(u"0x[0-9a-f]+|[0-9]+"_s);
    const QRegularExpressionMatch named = file.match(line);
    return QString(named.hasMatch() ? line.left(line.indexOf(u'(')) + named.captured() : line.left(24))
        .replace(changing, u"#"_s);
}

} // namespace

Q_DECLARE_METATYPE(Fault)

// Before main, while this is the only thread: a mount namespace of its own for a full disk or a journal.
static const bool privateMounts = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0
                                  && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;

// Under a sanitizer each call fails once, with its first error, and no kills: the same code meets them.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

// Each call the main thread makes on the launcher's files and sockets in a clean run of each path fails with
// each error it can meet, and apart from that the launcher is killed right after it. Then it ended as the
// clean run did; every file is whole or as it was; no file is left that a clean run does not leave (but what
// a kill cut short); after a kill the next start ends as usual; else one log line says what failed.
class TestFaults : public QObject {
    Q_OBJECT
    std::unique_ptr<LauncherBundle> m_bundle;
    QList<Path> m_paths;
    QHash<int, std::pair<int, QMap<QString, QByteArray>>> m_clean; // how each path ends, and its files

    QString home() const { return m_bundle->home().path(); }
    QString trace() const { return m_bundle->path(u"trace"_s); }
    // The main thread alone, each descriptor shown with its file.
    QStringList strace() const
    {
        return {u"strace"_s, u"-qq"_s, u"-y"_s, u"-e"_s, u"signal=none"_s, u"-o"_s, trace()};
    }

    // The home as the path finds it, and the service running if it should be.
    void restore(const Path& path)
    {
        TempHome::killAll(m_bundle->service());
        for (const QString& folder : {u"/config"_s, u"/runtime"_s, u"/data/com.zelna.Quorin.shared"_s})
            QVERIFY(QDir(home() + folder).removeRecursively());
        QVERIFY(QDir().mkdir(home() + u"/runtime"_s, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        for (auto file = path.files.begin(); file != path.files.end(); ++file)
            QVERIFY(TempHome::writeFile(QString(file.key()).replace(0, 1, home()), file.value()));
        QVERIFY(m_bundle->writeInfo(path.feed)
                && (!path.serviceRunning || QProcess::startDetached(m_bundle->service())));
    }

    // The launcher's files (with its private folder in TMPDIR), by names with the home as "~", times equal.
    QMap<QString, QByteArray> files() const
    {
        static const QRegularExpression date(u"<date>[^<]*</date>"_s);
        QMap<QString, QByteArray> found;
        for (QDirIterator entries(home(), QDir::Files | QDir::Hidden | QDir::System,
                                  QDirIterator::Subdirectories);
             entries.hasNext();) {
            const QString name = u'~' + entries.next().mid(home().size());
            if (name.contains(QRegularExpression(u"^~/(config|runtime|tmp|data/com\\.zelna)/"_s)))
                found.insert(name, TempHome::readFile(entries.filePath())
                                       .replace(date, u"<date>2000-01-01T00:00:00Z</date>"_s)
                                       .toUtf8());
        }
        return found;
    }

    // Runs the path (through a tracer); a window's preview is turned off, then the window ended as by the
    // session. How it ended (128 + a signal) and its files; nothing when it did not end in time.
    std::optional<std::pair<int, QMap<QString, QByteArray>>> run(const Path& path, const QStringList& tracer,
                                                                 QString& output, const QString& prepare = {})
    {
        m_bundle->env.insert(u"QT_QPA_PLATFORM"_s, path.display);
        // LeakSanitizer cannot look into the threads of a process that a tracer holds.
        m_bundle->env.insert(u"ASAN_OPTIONS"_s,
                             tracer.isEmpty() ? qEnvironmentVariable("ASAN_OPTIONS") : u"detect_leaks=0"_s);
        auto run = m_bundle->launch(path.arguments, path.display != u"none"_s, prepare, tracer);
        const QString launcher = m_bundle->path(u"bundle/bin/zelna-quorin"_s); // its pid, not its tracer's
        if (path.display == u"xcb"_s) {
            const QString preview = QString(previewFile).replace(0, 1, home()),
                          before = TempHome::readFile(preview);
            // Keys once its window is activated, which would take the focus back; traced, that outlasts any
            // fixed wait on a busy machine, and the table's own time-out bounds it. Given the keyboard (there
            // is no window manager), this run's window only: one of an earlier run may not be gone yet.
            Launch xdotool;
            xdotool.setProcessEnvironment(m_bundle->env);
            if (run->waitFor(u"application activated"_s, INT_MAX))
                xdotool.start(u"xdotool"_s, {u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--pid"_s,
                                             QString::number(TempHome::running(launcher).value(0)),
                                             u"--name"_s, u"^ZELNA Quorin$"_s, u"windowfocus"_s, u"--sync"_s,
                                             u"key"_s, u"Tab"_s, u"space"_s});
            if (xdotool.finish() != 0)
                qWarning("xdotool failed: %s", qPrintable(xdotool.output()));
            // Written, or failed and said so, or the launcher was killed.
            (void)QTest::qWaitFor(
                [&] {
                    return TempHome::readFile(preview) != before || run->says(u"Error Domain="_s)
                           || run->state() == QProcess::NotRunning;
                },
                20000);
            if (const qint64 pid = TempHome::running(launcher).value(0))
                ::kill(pid_t(pid), SIGTERM);
        }
        const bool ended = run->state() == QProcess::NotRunning || run->waitForFinished(30000);
        output = run->output();
        if (!ended)
            return std::nullopt;
        return std::pair(run->exitStatus() == QProcess::CrashExit ? 128 + run->exitCode() : run->exitCode(),
                         files());
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_bundle = LauncherBundle::make();
        QVERIFY(m_bundle);
        m_bundle->installService();
        // An older login item, which the enabled pass replaces.
        const std::pair<QString, QByteArray> loginItem{
            u"~/config/autostart/com.zelna.Quorin.Service.desktop"_s,
            "[Desktop Entry]\nType=Application\nName=Service\nExec=" + QFile::encodeName(m_bundle->service())
                + '\n'};
        m_paths = {{u"enabled pass"_s, {u"checkVersion"_s}, u"none"_s, {}},
                   {u"disabled pass"_s,
                    {u"checkVersion"_s},
                    u"none"_s,
                    {{flagFile, flag("0")}, {checkFile, checked}, loginItem},
                    true},
                   {u"checker with a window"_s,
                    {u"checkVersion"_s},
                    u"offscreen"_s,
                    {{flagFile, flag("1")}, {checkFile, checked}, loginItem}}};
        if (!sanitized) { // the X libraries are not instrumented
            // No update check, whose write of the check time would meet the preview's at varying times.
            m_paths.append(
                {u"preview write"_s,
                 {},
                 u"xcb"_s,
                 {{flagFile, flag("1")}, {checkFile, checked}, {previewFile, R"({"previewEnabled":true})"}},
                 false,
                 u"^~/data/com\\.zelna"_s,
                 "<key>SUFeedURL</key><integer>42</integer>"});
            QVERIFY(m_bundle->startDisplay());
        }
    }

    void cleanup() { TempHome::killAll(m_bundle->service()); }

    void faults_data()
    {
        QTest::addColumn<Fault>("fault");
        static const QRegularExpression line(u"^(\\w+)\\((.*)\\) += "_s), named(u"[\"<](~/[^\"<>#]*)[\">]"_s),
            unnamed(u"<(~/[^<>]*)/#[0-9]+>"_s), ownSocket(u"^(socket|socketpair|bind|listen)$"_s);
        for (int i = 0; i < m_paths.size(); ++i) {
            const QRegularExpression faulted(m_paths[i].faulted);
            restore(m_paths[i]);
            QString output;
            const auto clean = run(m_paths[i], strace(), output);
            QVERIFY2(clean, qPrintable(output));
            m_clean.insert(i, *clean);
            QHash<QString, int> counts; // by kind, and by kind and file
            QString previous;
            for (const QString& text : TempHome::readFile(trace()).replace(home(), u"~"_s).split(u'\n')) {
                const QRegularExpressionMatch call = line.match(text);
                const QString kind = call.captured(1), shown = call.captured(2);
                // The files it names, as strace -P finds them; the address of a socket is not one.
                QStringList files;
                for (const QRegularExpressionMatch& file :
                     named.globalMatch(ownSocket.match(kind).hasMatch() ? QString() : shown))
                    files << file.captured(1);
                files.removeDuplicates();
                for (const QString& file : files)
                    ++counts[kind + u' ' + file];
                const int all = ++counts[kind];
                // An unnamed file's writes, and the sockets, are counted among all calls of their kind.
                const QString file = files.value(0),
                              scope = !file.isEmpty() ? file
                                      : ownSocket.match(kind).hasMatch() && !shown.contains(u"DGRAM"_s)
                                          ? u"socket"_s
                                          : unnamed.match(shown).captured(1);
                if (!call.hasMatch() || scope.isEmpty() || !scope.contains(faulted))
                    continue;
                // Not an unnamed file's close: its ordinal varies with a window's loads; it changes nothing.
                const QStringList errors
                    = kind == u"close"_s && file.isEmpty() ? QStringList() : errorsOf(kind, shown);
                const int ordinal = file.isEmpty() ? all : counts[kind + u' ' + file];
                const QString where = u"%1 #%2 %3"_s.arg(kind).arg(ordinal).arg(file),
                              at = site(kind + u'(' + shown);
                for (const QString& error : errors.mid(0, sanitized ? 1 : -1))
                    QTest::addRow("%s: %s fails with %s", qPrintable(m_paths[i].name), qPrintable(where),
                                  qPrintable(error))
                        << Fault{i, kind, file, ordinal, at, error};
                // Killed on entering this call: right after the one before, whose effect is all on disk.
                if (!previous.isEmpty() && !errors.isEmpty() && !sanitized)
                    QTest::addRow("%s: killed after %s", qPrintable(m_paths[i].name), qPrintable(previous))
                        << Fault{i, kind, file, ordinal, at, u"SIGKILL"_s};
                previous = errors.isEmpty() ? previous : where;
            }
        }
    }
    void faults()
    {
        QFETCH(Fault, fault);
        const Path& path = m_paths[fault.path];
        const auto& [cleanStatus, cleanFiles] = m_clean[fault.path];
        const bool kill = fault.fault == u"SIGKILL"_s;
        restore(path);
        const QMap<QString, QByteArray> before = files();
        QString output;
        const QString inject = fault.kind + (kill ? u":signal=SIGKILL"_s : u":error="_s + fault.fault)
                               + u":when="_s + QString::number(fault.ordinal);
        QStringList tracer
            = strace() + QStringList{u"-e"_s, u"trace="_s + fault.kind, u"-e"_s, u"inject="_s + inject};
        if (!fault.file.isEmpty())
            tracer << u"-P"_s << QString(fault.file).replace(0, 1, home());
        const auto outcome = run(path, tracer, output);
        QVERIFY2(outcome, qPrintable(u"no end within 30 s\n"_s + output));
        const QString met = TempHome::readFile(trace())
                                .replace(home(), u"~"_s)
                                .section(u'\n', fault.ordinal - 1, fault.ordinal - 1);
        QVERIFY2(site(met) == fault.call && met.endsWith(kill ? u"= ?"_s : u"(INJECTED)"_s),
                 qPrintable(u"the fault met another call: "_s + met + u"\n"_s + output));
        QVERIFY2(outcome->first == (kill ? 128 + SIGKILL : cleanStatus),
                 qPrintable(u"ended with %1\n"_s.arg(outcome->first) + output));
        for (auto [name, bytes] : outcome->second.asKeyValueRange()) {
            // What a kill cut short, or a lock whose removal failed, waits for the next start or writer.
            if (before.value(name) == bytes
                || (name.contains(QRegularExpression(u"\\.(lock|socket|new)$"_s))
                    && (kill || name == fault.file)))
                continue;
            QVERIFY2(cleanFiles.contains(name), qPrintable(u"left behind: "_s + name));
            QVERIFY2(whole(name, bytes, cleanFiles[name]),
                     qPrintable(name + u": "_s + QString::fromUtf8(bytes)));
        }
        for (const QString& name : before.keys())
            QVERIFY2(outcome->second.contains(name) || !cleanFiles.contains(name) || name == previewFile,
                     qPrintable(u"lost: "_s + name));
        if (kill) { // the next start ends as usual; a stale lock of a file it does not write waits
            const auto next = run(path, {}, output);
            QVERIFY2(next && next->first == cleanStatus, qPrintable(output));
            for (auto [name, bytes] : next->second.asKeyValueRange())
                QVERIFY2((cleanFiles.contains(name) && whole(name, bytes, cleanFiles[name]))
                             || name.endsWith(u".lock"_s),
                         qPrintable(name));
        } else if (outcome->second != cleanFiles) {
            // One log line gives strace's reason; Qt names only the file of a lock it cannot remove.
            const QString reason = QRegularExpression::escape(met.section(u'(', -2, -2).chopped(2));
            const QString file = fault.file.endsWith(u".lock"_s)
                                     ? QRegularExpression::escape(QString(fault.file).replace(0, 1, home()))
                                     : reason;
            QVERIFY2(output.split(u'\n').filter(QRegularExpression(reason + u'|' + file)).size() == 1,
                     qPrintable(output));
        }
    }

    // Whatever standard streams and disk it is given, a checker with a window ends as in a clean run: no log
    // line ends it or lands in its files; a full configuration folder is left as it was.
    void surroundings_data()
    {
        QTest::addColumn<QString>("prepare"); // a shell's commands in the home, before the launcher starts
        QTest::addColumn<QString>("mounted"); // where an empty, small file system is mounted first (as root)
        QTest::newRow("standard streams closed") << u"exec <&- >&- 2>&-"_s << QString();
        QTest::newRow("log reader gone after a line")
            << u"rm -f p; mkfifo p; (read -r line <p) & exec 2>p"_s << QString();
        QTest::newRow("log reader not reading")
            << u"rm -f p; mkfifo p && exec 3<>p; dd if=/dev/zero of=p bs=1M count=1 oflag=nonblock 2>&-; exec 2>p"_s
            << QString();
        // With a journal (on a /run of its own): as from a terminal; as a session or a unit starts it.
        QTest::newRow("journal running") << QString() << u"/run"_s;
        QTest::newRow("standard error is the journal")
            << u"exec systemd-cat -t zq sh -c 'JOURNAL_STREAM=$(stat -Lc %d:%i /proc/$$/fd/2) exec \"$0\" \"$@\"' \"$0\" \"$@\""_s
            << u"/run"_s;
        QTest::newRow("configuration folder full") << u"cat /dev/zero >config/fill 2>&-"_s << u"config"_s;
    }
    void surroundings()
    {
        QFETCH(QString, prepare);
        QFETCH(QString, mounted);
        const int path = 2;
        if (!m_clean.contains(path)) {
            QString output;
            restore(m_paths[path]);
            const auto clean = run(m_paths[path], {}, output);
            QVERIFY2(clean, qPrintable(output));
            m_clean.insert(path, *clean);
        }
        const bool full = mounted == u"config"_s;
        const QString folder = full ? home() + u"/config"_s : mounted;
        if (!folder.isEmpty() && !privateMounts)
            QSKIP("needs root: a small file system of its own is mounted");
        restore(m_paths[path]);
        QVERIFY(folder.isEmpty()
                || ::mount("zq-empty", QFile::encodeName(folder), "tmpfs", 0, full ? "size=64k" : nullptr)
                       == 0);
        // syslog(3) reaches the journal through /dev/log, made for the run where there is none (a container).
        const bool journaled = folder == u"/run"_s;
        const bool linked = journaled && QFile::link(u"/run/systemd/journal/dev-log"_s, u"/dev/log"_s);
        const auto unlink = qScopeGuard([linked] {
            if (linked)
                QFile::remove(u"/dev/log"_s);
        });
        Launch journal, journalctl;
        if (journaled)
            journal.start(u"/lib/systemd/systemd-journald"_s);
        QTRY_VERIFY_WITH_TIMEOUT(
            !journal.state() || QFile::exists(u"/run/systemd/journal/io.systemd.journal"_s), 15000);
        QString output;
        const auto outcome = run(m_paths[path], {}, output, prepare);
        if (journal.state()) // all it was sent, once written
            journalctl.startCommand(
                u"sh -c \"journalctl --sync && journalctl -D /run/log/journal -o cat -t zq -t zelna-quorin\""_s);
        QVERIFY(!journal.state() || journalctl.finish() == 0);
        QVERIFY(folder.isEmpty() || ::umount2(QFile::encodeName(folder), MNT_DETACH) == 0);
        QVERIFY2(outcome && outcome->first == m_clean[path].first, qPrintable(output));
        // On the full folder nothing is left but what filled it.
        auto left = outcome->second, expected = m_clean[path].second;
        if (full) {
            left.remove(u"~/config/fill"_s);
            expected.removeIf([](auto file) { return file.key().startsWith(u"~/config/"_s); });
        }
        QCOMPARE(left, expected);
        // Each line once in the journal, through syslog; on standard error too, unless that is the journal.
        const QString logged = journalctl.output(),
                      printed = QString(output).remove(QRegularExpression(
                          u"(?m)^(?!.*zelna-quorin\\[).*\\n|^.*?zelna-quorin\\[\\d+:\\d+\\] "_s));
        QVERIFY2(!journaled
                     || (!logged.isEmpty() && !logged.contains(u"zelna-quorin["_s)
                         && printed == (prepare.isEmpty() ? logged : QString())),
                 qPrintable(logged + output));
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"
