#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "FileManager.h"
#include "Platform.h"
#include "RecordingLogSink.h"
#include "TempHome.h"
#include "ZLFileManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>
#include <QThread>

#include <fstream>
#include <thread>

#include <sched.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

using Result = ZLFileManager::ZLFileResult;
bool privateMounts = false; // this process has a mount namespace of its own

// GNU find's listing of the same tree: depth first, directory order, folders left out.
QList<QUrl> findFiles(const QString& root)
{
    QProcess find;
    find.start(u"find"_s, {root, u"-mindepth"_s, u"1"_s, u"!"_s, u"-type"_s, u"d"_s, u"-print0"_s});
    find.waitForFinished(60000);
    QList<QUrl> files;
    for (const QByteArray& path : find.readAllStandardOutput().split('\0'))
        if (!path.isEmpty())
            files.append(QUrl::fromEncoded("file://" + path.toPercentEncoding("/")));
    return files;
}

} // namespace

class TestFiles : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    QList<QUrl> m_files;
    QStringList m_completions; // the error of each call

    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    QString shared() const { return m_home->dataHome() + u"/com.zelna.Quorin.shared"_s; }
    QString commFile() const { return shared() + u"/Communication/commnuication_file.json"_s; }
    // Nothing when the log has one line for each fragment that is not empty, in this order; else the log.
    QString unlike(QStringList fragments) const
    {
        fragments.removeAll(QString());
        const QStringList lines = m_sink->lines();
        for (qsizetype i = 0; i < std::max(lines.size(), fragments.size()); ++i)
            if (!lines.value(i).contains(fragments.value(i, u"\n"_s)))
                return lines.join(u'\n') + u"\nexpected: "_s + fragments.join(u", "_s);
        return {};
    }

public Q_SLOTS:
    void aggregated(const QList<QUrl>& files, const QVariantMap& error)
    {
        m_files = files;
        m_completions << error.value(u"localizedDescription"_s).toString();
        QVERIFY(QThread::currentThread() == QCoreApplication::instance()->thread());
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        QDir::setCurrent(m_home->path());
        m_sink->clear();
        m_completions.clear();
    }

    void locationsAreMadeParentFirstAndKept()
    {
        ZLFileManager manager;
        QVERIFY(!QFileInfo::exists(shared())); // nothing on construction
        QCOMPARE(manager.communicationFileURL(), std::optional(QUrl::fromLocalFile(commFile())));
        QVERIFY(QFileInfo(shared() + u"/Communication"_s).isDir() && !QFileInfo::exists(commFile()));
        QCOMPARE(unlike({}), QString());

        // Kept once computed: a deleted folder is not made again, so writes fail, logged.
        QVERIFY(QDir(shared()).removeRecursively());
        manager.setPreviewStateEnabled(true);
        QCOMPARE(unlike({u"commnuication_file.json}"_s}), QString());

        // No Application Support at all: logged once, reads and writes say so.
        m_sink->clear();
        qputenv("XDG_DATA_HOME", "");
        qputenv("HOME", "relative");
        ZLFileManager none;
        QCOMPARE(none.previewStateEnabled(), std::nullopt);
        none.setPreviewStateEnabled(true);
        QCOMPARE(unlike({u"NSCocoaErrorDomain Code=4 "_s, u"\"Error reading previewState"_s,
                         u"\"Error writing"_s}),
                 QString());

        // A plain file where the folder belongs stands: nothing is made, writes and reads fail.
        init();
        QVERIFY(TempHome::writeFile(shared() + u"/Communication"_s, "not a folder"));
        ZLFileManager blocked;
        blocked.setPreviewStateEnabled(false);
        QCOMPARE(blocked.previewStateEnabled(), std::nullopt);
        QCOMPARE(unlike({u"Code=20 \"Not a directory\""_s, u"Code=20 \"Not a directory\""_s}), QString());
    }

    void previewIsWrittenAsANewFileEachTime()
    {
        ZLFileManager manager;
        QVERIFY(QDir().mkpath(commFile())); // an empty folder in its place is replaced
        manager.setPreviewStateEnabled(true);
        // An open reader keeps the old file whole: a rewrite in place would change it.
        std::ifstream holder(QFile::encodeName(commFile()).toStdString());
        manager.setPreviewStateEnabled(false);
        QCOMPARE(QByteArray::fromStdString({std::istreambuf_iterator<char>(holder), {}}),
                 R"({"previewEnabled":true})");
        manager.setPreviewStateEnabled(std::nullopt); // refused, logged, left as it was
        const int input = ::dup(STDIN_FILENO); // there may be no standard input: 0 is closed like any other
        ::close(STDIN_FILENO);
        QCOMPARE(manager.previewStateEnabled(), std::optional(false));
        QCOMPARE(::dup(input), STDIN_FILENO); // standard input back where it was

        // Another reader finds the old file, none, or the new one being written: never a mix.
        std::atomic<int> reads = 0, mixed = 0;
        std::jthread reader([&, file = QFile::encodeName(commFile()).toStdString()](std::stop_token stop) {
            for (; !stop.stop_requested(); ++reads) {
                const std::string text(std::istreambuf_iterator<char>(std::ifstream(file).rdbuf()), {});
                mixed += !std::string_view(R"({"previewEnabled":true})").starts_with(text)
                         && !std::string_view(R"({"previewEnabled":false})").starts_with(text);
            }
        });
        for (int i = 0; i < 2000 || reads < 200; ++i)
            manager.setPreviewStateEnabled(i % 2 == 0);
        reader = {}; // stopped and joined
        QCOMPARE(mixed, 0);
        QCOMPARE(unlike({u"\"Error writing previewState value\". <Service>, ZLFileManag ("_s}), QString());
    }

    void previewReading_data()
    {
        QTest::addColumn<QByteArray>("content"); // or "!" and a script, given the file
        QTest::addColumn<std::optional<bool>>("expected");
        QTest::addColumn<QString>("logged");
        const std::optional<bool> none;
        QTest::newRow("no file") << QByteArray("!") << none << u"Code=2 "_s;
        QTest::newRow("empty object") << QByteArray("{}") << none << u"Code=4865 "_s;
        QTest::newRow("string") << QByteArray(R"({"previewEnabled":"true"})") << none << u"Code=4864 "_s;
        QTest::newRow("null") << QByteArray(R"({"previewEnabled":null})") << none << u"Code=4865 "_s;
        QTest::newRow("empty file") << QByteArray("") << none << u"Code=4864 "_s;
        QTest::newRow("key case") << QByteArray(R"({"PreviewEnabled":true})") << none << u"Code=4865 "_s;
        QTest::newRow("extra members, spaced")
            << QByteArray("{ \"o\": 5, \"previewEnabled\" : true }\n") << std::optional(true) << QString();
        // Any program of the user can put these there: no hang, no memory filled.
        QTest::newRow("a pipe nobody writes") << QByteArray("!mkfifo \"$1\"") << none << u"Code=263 "_s;
        QTest::newRow("an endless device") << QByteArray("!ln -s /dev/zero \"$1\"") << none << u"Code=263 "_s;
        QTest::newRow("a huge file") << QByteArray("!truncate -s $2 \"$1\"") << none << u"Code=263 "_s;
    }
    void previewReading()
    {
        QFETCH(QByteArray, content);
        QFETCH(std::optional<bool>, expected);
        QFETCH(QString, logged);
        ZLFileManager manager;
        QVERIFY(manager.communicationFileURL());
        const QStringList script{u"-ec"_s, QString::fromUtf8(content.mid(1)), u"sh"_s, commFile(),
                                 QString::number(FileManager::maxContentsSize + 1)};
        QVERIFY(content.startsWith('!') ? QProcess::execute(u"sh"_s, script) == 0
                                        : TempHome::writeFile(commFile(), content));
        QCOMPARE(manager.previewStateEnabled(), expected);
        QCOMPARE(unlike({logged}), QString());
    }

    void writeFaults_data()
    {
        QTest::addColumn<QString>("fault");      // a script, given the preview file and the flag's file
        QTest::addColumn<QStringList>("logged"); // for the preview file, then for the flag
        QTest::addColumn<bool>("previewKept");   // else none is left, never a cut one; the flag's stays
        // Second names keep the old files' blocks in use after they are removed.
        QTest::newRow("disk full")
            << u"ln \"$1\" \"$HOME/1\"; ln \"$2\" \"$HOME/2\"; cat /dev/zero >\"$HOME/0\" 2>/dev/null"_s
            << QStringList{u"Code=28 "_s, u"is the disk full?"_s} << false;
        QTest::newRow("read-only") << u"mount -o remount,ro \"$HOME\""_s
                                   << QStringList{u"Code=30 "_s, u"Read-only file system"_s} << true;
    }
    void writeFaults()
    {
        QFETCH(QString, fault);
        QFETCH(QStringList, logged);
        QFETCH(bool, previewKept);
        if (!privateMounts)
            QSKIP("needs root: the home becomes a small file system of its own");
        const QByteArray home = QFile::encodeName(m_home->path());
        const auto unmount = qScopeGuard([&home] { ::umount2(home, MNT_DETACH); });
        QVERIFY(::mount("zq-fault", home, "tmpfs", 0, "size=256k") == 0 && QDir().mkpath(m_home->dataHome()));
        const auto suite = Platform::defaults().open(u"K4WQ7ZT2RB.group.zelna.Quorin"_s);
        ZLFileManager manager;
        manager.setPreviewStateEnabled(true);
        QVERIFY(suite && suite->setValue(u"Other"_s, 5) && suite->setValue(u"QREnabled"_s, u"1"_s));
        const QStringList files{commFile(), m_home->configHome() + u"/K4WQ7ZT2RB.group.zelna.Quorin.plist"_s};
        const QStringList before{TempHome::readFile(files[0]), TempHome::readFile(files[1])};
        QProcess::execute(u"sh"_s, QStringList{u"-c"_s, fault, u"sh"_s} + files);
        m_sink->clear();
        manager.setPreviewStateEnabled(false);
        QVERIFY(!suite->setValue(u"QREnabled"_s, u"0"_s));
        QCOMPARE(QFileInfo::exists(files[0]) ? TempHome::readFile(files[0]) : u"(none)"_s,
                 previewKept ? before[0] : u"(none)"_s);
        QCOMPARE(TempHome::readFile(files[1]), before[1]);
        QCOMPARE(unlike(logged), QString());
    }

    void classification_data()
    {
        QTest::addColumn<QByteArray>("attribute"); // name=value on the file; empty for none
        QTest::addColumn<QString>("reached");      // the path asked about
        QTest::addColumn<Result>("expected");
        const QByteArray stub = "user.is.zelna.stub=", share = "user.is.zelna.share=";
        QTest::newRow("five bytes") << stub + "ZELNA" << u"item"_s << Result::stubFile;
        QTest::newRow("with a zero byte") << stub + QByteArray("ZELNA", 6) << u"item"_s << Result::stubFile;
        QTest::newRow("any sixth byte") << stub + "ZELNAx" << u"item"_s << Result::stubFile;
        QTest::newRow("seven bytes") << stub + "ZELNAxy" << u"item"_s << Result::file;
        QTest::newRow("lower case") << stub + "zelna" << u"item"_s << Result::file;
        QTest::newRow("shorter") << stub + "ZELN" << u"item"_s << Result::file;
        QTest::newRow("above 127") << stub + "ZEL\xc3\x91" << u"item"_s << Result::file;
        QTest::newRow("the share attribute") << share + "ZELNA" << u"item"_s << Result::file;
        QTest::newRow("through a link") << stub + "ZELNA" << u"link"_s << Result::stubFile;
        QTest::newRow("missing") << QByteArray() << u"none"_s << Result::notFound;
        QTest::newRow("folder") << QByteArray() << u"."_s << Result::directory;
    }
    void classification()
    {
        QFETCH(QByteArray, attribute);
        QFETCH(QString, reached);
        QFETCH(Result, expected);
        QVERIFY(TempHome::writeFile(path(u"item"_s), "content") && QFile::link(u"item"_s, path(u"link"_s)));
        const QByteArray value = attribute.mid(attribute.indexOf('=') + 1);
        if (!attribute.isEmpty()
            && setxattr("item", attribute.left(attribute.indexOf('=')), value, size_t(value.size()), 0) != 0)
            QSKIP("this file system refuses user extended attributes");
        int kind = -1; // asked by name, as a runtime does
        QVERIFY(QMetaObject::invokeMethod(std::make_unique<ZLFileManager>().get(), "isDirAt",
                                          Q_RETURN_ARG(int, kind),
                                          Q_ARG(QUrl, QUrl::fromLocalFile(path(reached)))));
        QCOMPARE(Result(kind), expected);
    }

    void aggregation_data()
    {
        QTest::addColumn<QString>("tree");     // a script run in the home, the current folder
        QTest::addColumn<QString>("chosen");   // "~" stands for the home
        QTest::addColumn<QString>("expected"); // paths, "find:folder" for GNU find's listing, or "error"
        QTest::newRow("nothing chosen") << u"true"_s << QString() << QString();
        QTest::newRow("plain and missing") << u"touch file"_s << u"~/file ~/missing"_s << u"file missing"_s;
        QTest::newRow("find's order") << u"mkdir -p t/s/d t/z t/0 0; touch t/a t/s/b t/.c t/s/d/x t/z/y"_s
                                      << u"~/t ~/0"_s << u"find:t"_s;
        QTest::newRow("duplicates") << u"mkdir d; touch d/1"_s << u"d ~/d d/1"_s << u"d/1 d/1 d/1"_s;
        QTest::newRow("links listed, not followed; special files never opened (a pipe would block)")
            << u"mkdir -p s/f; touch s/f/in s/file; ln -s f s/lf; ln -s file s/lfile; ln -s none s/dangling; "
               u"mkfifo s/fifo; mknod s/null c 1 3 || touch s/null; python3 -c 'import socket; "
               u"socket.socket(socket.AF_UNIX).bind(\"s/socket\")'"_s
            << u"~/s ~/s/lf"_s << u"find:s s/lf"_s;
        QTest::newRow("names not UTF-8, paths over PATH_MAX")
            << u"mkdir deep; cd deep; N=$(printf 'n%.0s' $(seq 100)); for i in $(seq 50); do mkdir $N; "
               u"cd -P $N; done; touch \"$(printf 'caf\\351-\\377\\376.txt')\""_s
            << u"~/deep"_s << u"find:deep"_s;
        // An unreadable chosen folder stops the call: what follows is not even looked at.
        QTest::newRow("unreadable chosen folder")
            << u"mkdir a b; touch a/1 b/2; chmod 0 b"_s << u"a b missing"_s << u"error"_s;
        QTest::newRow("unreadable folder inside")
            << u"mkdir -p a/b; touch a/1 a/b/2 a/3; chmod 0 a/b"_s << u"a"_s << u"find:a"_s;
    }
    void aggregation()
    {
        QFETCH(QString, tree);
        QFETCH(QString, chosen);
        QFETCH(QString, expected);
        if (tree.contains(u"chmod 0"_s) && ::geteuid() == 0) { // root reads every folder: ask another user
            // A copy the other user can run, wherever this checkout is.
            const QString copy = path(u"tst_files"_s);
            QVERIFY(QFile::copy(qApp->applicationFilePath(), copy)
                    && TempHome::letOthersThrough(m_home->path()));
            QProcess child;
            TempHome::runAsNobody(child);
            child.start(copy, {u"aggregation:"_s + QLatin1StringView(QTest::currentDataTag())});
            QVERIFY2(child.waitForFinished(60000) && child.exitCode() == 0, child.readAll().constData());
            return;
        }
        QCOMPARE(QProcess::execute(u"sh"_s, {u"-ec"_s, tree}), 0);
        const bool error = expected == u"error"_s;
        QList<QUrl> want;
        for (const QString& e : expected.remove(u"error"_s).split(u' ', Qt::SkipEmptyParts))
            want
                += e.startsWith(u"find:"_s) ? findFiles(path(e.mid(5))) : QList{QUrl::fromLocalFile(path(e))};
        const QStringList paths = chosen.replace(u'~', m_home->path()).split(u' ', Qt::SkipEmptyParts);
        // Made and called by name only, as the file-manager extension's runtime does.
        const std::unique_ptr<QObject> manager(
            QMetaType::fromName("ZLFileManager*").metaObject()->newInstance());
        QVERIFY(QMetaObject::invokeMethod(manager.get(), "fileAggregationFrom", Q_ARG(QStringList, paths),
                                          Q_ARG(QObject*, this), Q_ARG(QByteArray, "aggregated")));
        QTRY_COMPARE_WITH_TIMEOUT(m_completions.size(), 1, 60000);
        QProcess::execute(u"sh"_s, {u"-c"_s, u"chmod -R u+rwx .; rm -rf deep"_s}); // too deep for QDir
        QCOMPARE(m_completions, QStringList(error ? u"no permission to folders"_s : QString()));
        QCOMPARE(m_files, want);
        const QString more = error                           ? u"No read permission at "_s + path(u"b"_s)
                             : chosen.contains(u"missing"_s) ? u"Error Domain=NSPOSIXErrorDomain Code=2 "_s
                                                             : QString();
        QCOMPARE(unlike({u"\"Mapping paths -> URLs...\". <Service>, ZLFileManag ("_s, u"URLs completed.\""_s,
                         more}),
                 QString());
    }

    void overlappingCallsAndAManagerThatIsGone()
    {
        for (int i = 0; i < 300; ++i)
            QVERIFY(TempHome::writeFile(path(u"big/%1/%2"_s.arg(i % 30).arg(i)), "x"));
        auto manager = std::make_unique<ZLFileManager>();
        for (int i : {1, 2})
            manager->fileAggregationFrom(QStringList(i, u"big"_s), this, "aggregated");
        manager.reset(); // gone while both may still run: completions still come, once each
        QTRY_COMPARE(m_completions.size(), 2);
        QTest::qWait(50);
        QCOMPARE(m_completions, QStringList(2, QString()));
    }
};

int main(int argc, char* argv[])
{
    // While this is the only thread: the write-fault rows mount small file systems of their own.
    privateMounts = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0
                    && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    QCoreApplication app(argc, argv);
    TestFiles test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_files.moc"
