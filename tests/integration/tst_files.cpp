#include "AttrManager.h"
#include "FileManager.h"
#include "Platform.h"
#include "PosixFileManager.h"
#include "RecordingLogSink.h"
#include "TempHome.h"
#include "ZLFileManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QLocalServer>
#include <QProcess>
#include <QTest>
#include <QThread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

using Result = ZLFileManager::ZLFileResult;

struct Outcome {
    int calls = 0;
    QList<QUrl> files;
    std::optional<ZLError> error;
    bool onMainThread = false;
};

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

bool mark(const QString& path, const QByteArray& value, const char* name = "user.is.zelna.stub")
{
    return setxattr(QFile::encodeName(path).constData(), name, value.constData(), size_t(value.size()), 0)
           == 0;
}

// The real file manager, except that the listed folders read as unreadable
// (root reads every folder, so permissions alone cannot show this).
class UnreadableFolders : public PosixFileManager {
public:
    QStringList unreadable, checked;
    bool isReadableFile(const QString& p) override
    {
        return !unreadable.contains(p) && PosixFileManager::isReadableFile(p);
    }
    std::optional<QList<QUrl>> filesBeneath(const QByteArray& f,
                                            const std::function<void(const ZLError&)>& e) override
    {
        checked.append(QFile::decodeName(f));
        return PosixFileManager::filesBeneath(f, e);
    }
};

} // namespace

// The code shared with the file-manager extension, on real files.
class TestFiles : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;

    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    QString shared() const { return m_home->dataHome() + u"/com.zelna.Quorin.shared"_s; }
    QString commFile() const { return shared() + u"/Communication/commnuication_file.json"_s; }
    QStringList lines() const { return m_sink->lines(); }
    Outcome aggregate(ZLFileManager& manager, const QStringList& paths)
    {
        Outcome outcome;
        manager.fileAggregation(paths, [&outcome](QList<QUrl> files, std::optional<ZLError> error) {
            ++outcome.calls;
            outcome.files = std::move(files);
            outcome.error = std::move(error);
            outcome.onMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
        });
        if (!QTest::qWaitFor([&outcome] { return outcome.calls > 0; }, 60000))
            qWarning("no completion");
        QTest::qWait(20); // a second call would show here
        return outcome;
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        m_sink->clear();
    }

    void locationsAreMadeParentFirstAndKept()
    {
        ZLFileManager manager;
        QVERIFY(!QFileInfo::exists(shared())); // nothing on construction
        QCOMPARE(manager.communicationDir(),
                 std::optional(QUrl::fromLocalFile(shared() + u"/Communication"_s)));
        QVERIFY(QFileInfo(shared() + u"/Communication"_s).isDir());
        QCOMPARE(manager.communicationFileURL(), std::optional(QUrl::fromLocalFile(commFile())));
        QVERIFY(!QFileInfo::exists(commFile()) && lines().isEmpty()); // located, not made

        // Kept once computed: a deleted folder is not made again, and writes fail, logged.
        ZLFileManager kept;
        QVERIFY(kept.sharedApplicationSupportDir() && QDir(shared()).removeRecursively());
        QVERIFY(kept.communicationFileURL() && !QFileInfo::exists(shared()));
        kept.setPreviewStateEnabled(true);
        QCOMPARE(lines().size(), 2); // the Communication folder, then the write
        QCOMPARE(kept.previewStateEnabled(), std::nullopt);

        // Application Support itself is never made: without it both levels fail, logged.
        m_sink->clear();
        qputenv("XDG_DATA_HOME", (m_home->path() + u"/missing/share"_s).toUtf8());
        QVERIFY(ZLFileManager().communicationFileURL());
        QCOMPARE(lines().size(), 2);
        QVERIFY2(lines()[0].contains(u"Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\" "
                                     u"UserInfo={NSFilePath="_s
                                     + m_home->path()
                                     + u"/missing/share/com.zelna.Quorin.shared}\". <Service>, "
                                       u"ZLFileManag ("_s),
                 qPrintable(lines()[0]));

        // No Application Support at all: logged once, reads and writes say so.
        m_sink->clear();
        qputenv("XDG_DATA_HOME", "");
        qputenv("HOME", "relative");
        ZLFileManager none;
        QCOMPARE(none.communicationFileURL(), std::nullopt);
        QCOMPARE(none.sharedApplicationSupportDir(), std::nullopt);
        QCOMPARE(none.previewStateEnabled(), std::nullopt);
        none.setPreviewStateEnabled(true);
        QCOMPARE(lines().size(), 3);
        QVERIFY(lines()[0].contains(u"Error Domain=NSCocoaErrorDomain Code=4"_s));
        QVERIFY(lines()[1].contains(u"\"Error reading previewState value\". <Service>"_s));
        QVERIFY(lines()[2].contains(u"\"Error writing previewState value\". <Service>"_s));
    }

    void plainFileWhereAFolderBelongs()
    {
        QVERIFY(TempHome::writeFile(shared() + u"/Communication"_s, "not a folder"));
        ZLFileManager manager;
        QVERIFY(manager.communicationFileURL() && lines().isEmpty()); // it exists: nothing is made
        manager.setPreviewStateEnabled(false);
        QCOMPARE(manager.previewStateEnabled(), std::nullopt);
        QCOMPARE(lines().size(), 2);
        for (const QString& line : lines())
            QVERIFY2(line.contains(u"Code=20 \"Not a directory\""_s), qPrintable(line));
        QCOMPARE(TempHome::readFile(shared() + u"/Communication"_s), u"not a folder"_s);
    }

    void previewIsWrittenAsANewFileEachTime()
    {
        ZLFileManager manager;
        QCOMPARE(manager.previewStateEnabled(), std::nullopt); // no file yet, logged
        QVERIFY(lines().value(0).contains(u"Code=2 \"No such file or directory\""_s));
        manager.setPreviewStateEnabled(true);
        QCOMPARE(TempHome::readFile(commFile()), uR"({"previewEnabled":true})"_s);
        // An open reader keeps the old file whole: a rewrite in place would change it.
        QFile holder(commFile());
        QVERIFY(holder.open(QIODevice::ReadOnly));
        manager.setPreviewStateEnabled(false);
        QCOMPARE(TempHome::readFile(commFile()), uR"({"previewEnabled":false})"_s);
        QCOMPARE(holder.readAll(), QByteArray(R"({"previewEnabled":true})"));
        QCOMPARE(manager.previewStateEnabled(), std::optional(false));
        QCOMPARE(lines().size(), 1);
        manager.setPreviewStateEnabled(std::nullopt); // refused, logged, left as it was
        QCOMPARE(lines().size(), 2);
        QVERIFY(lines()[1].contains(u"\"Error writing previewState value\". <Service>, ZLFileManag ("_s));
        QCOMPARE(manager.previewStateEnabled(), std::optional(false));
    }

    void previewReading_data()
    {
        QTest::addColumn<QByteArray>("content"); // "pipe", "device", "huge" put those there
        QTest::addColumn<std::optional<bool>>("expected");
        QTest::addColumn<QString>("logged");
        const std::optional<bool> none;
        QTest::newRow("empty object") << QByteArray("{}") << none << u"Code=4865"_s;
        QTest::newRow("number") << QByteArray(R"({"previewEnabled":1})") << none << u"Code=4864"_s;
        QTest::newRow("string") << QByteArray(R"({"previewEnabled":"true"})") << none << u"Code=4864"_s;
        QTest::newRow("null") << QByteArray(R"({"previewEnabled":null})") << none << u"Code=4865"_s;
        QTest::newRow("not json") << QByteArray("previewEnabled=true") << none << u"Code=4864"_s;
        QTest::newRow("array") << QByteArray("[true]") << none << u"Code=4864"_s;
        QTest::newRow("empty file") << QByteArray("") << none << u"Code=4864"_s;
        QTest::newRow("other case key") << QByteArray(R"({"PreviewEnabled":true})") << none << u"Code=4865"_s;
        QTest::newRow("extra members")
            << QByteArray(R"({"previewEnabled":false,"o":5})") << std::optional(false) << QString();
        QTest::newRow("spaced") << QByteArray("{ \"previewEnabled\" : true }\n") << std::optional(true)
                                << QString();
        // Any program of the user can put these there: no hang, no memory filled.
        QTest::newRow("a pipe nobody writes") << QByteArray("pipe") << none << u"Code=263"_s;
        QTest::newRow("an endless device") << QByteArray("device") << none << u"Code=263"_s;
        QTest::newRow("a huge file") << QByteArray("huge") << none << u"Code=263"_s;
    }
    void previewReading()
    {
        QFETCH(QByteArray, content);
        QFETCH(std::optional<bool>, expected);
        QFETCH(QString, logged);
        ZLFileManager manager;
        QVERIFY(manager.communicationFileURL());
        const QString file = commFile();
        if (content == "pipe") {
            QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
        } else if (content == "device") {
            QVERIFY(QFile::link(u"/dev/zero"_s, file));
        } else if (content == "huge") {
            QFile huge(file);
            QVERIFY(huge.open(QIODevice::WriteOnly)
                    && huge.resize(FileManager::maxContentsSize + 1)); // sparse
        } else {
            QVERIFY(TempHome::writeFile(file, content));
        }
        QCOMPARE(manager.previewStateEnabled(), expected);
        QCOMPARE(lines().size(), logged.isEmpty() ? 0 : 1);
        if (!logged.isEmpty())
            QVERIFY2(lines()[0].contains(u"Error Domain=NSCocoaErrorDomain "_s + logged + u' '),
                     qPrintable(lines()[0]));
    }

    void readersNeverSeeAMixedFile()
    {
        ZLFileManager manager;
        manager.setPreviewStateEnabled(true);
        QProcess reader;
        reader.start(QStringLiteral(ZQ_PREVIEW_READER), {commFile(), u"1500"_s});
        QVERIFY(reader.waitForReadyRead(5000)); // polling has begun
        for (int i = 0; i < 4000 && reader.state() == QProcess::Running; ++i)
            manager.setPreviewStateEnabled(i % 2 == 0);
        QVERIFY(reader.waitForFinished(10000));
        const QString report = QString::fromUtf8(reader.readAll()).trimmed();
        QVERIFY2(reader.exitCode() == 0 && report.contains(u"mixed=0"_s), qPrintable(report));
        QCOMPARE(lines(), QStringList());
    }

    void classification_data()
    {
        QTest::addColumn<QByteArray>("marker"); // the stub attribute's value; "-" for none
        QTest::addColumn<QString>("how");       // how the item is reached
        QTest::addColumn<Result>("expected");
        QTest::newRow("five bytes") << QByteArray("ZELNA") << u"file"_s << Result::stubFile;
        QTest::newRow("with a zero byte") << QByteArray("ZELNA", 6) << u"file"_s << Result::stubFile;
        QTest::newRow("any sixth byte") << QByteArray("ZELNAx") << u"file"_s << Result::stubFile;
        QTest::newRow("seven bytes") << QByteArray("ZELNAxy") << u"file"_s << Result::file;
        QTest::newRow("lower case") << QByteArray("zelna") << u"file"_s << Result::file;
        QTest::newRow("shorter") << QByteArray("ZELN") << u"file"_s << Result::file;
        QTest::newRow("empty") << QByteArray() << u"file"_s << Result::file;
        QTest::newRow("above 127") << QByteArray("ZEL\xc3\x91") << u"file"_s << Result::file;
        QTest::newRow("no attribute") << QByteArray("-") << u"file"_s << Result::file;
        QTest::newRow("the share attribute") << QByteArray("-") << u"share"_s << Result::file;
        QTest::newRow("through a link") << QByteArray("ZELNA") << u"link"_s << Result::stubFile;
        QTest::newRow("missing") << QByteArray("-") << u"missing"_s << Result::notFound;
        QTest::newRow("folder") << QByteArray("-") << u"folder"_s << Result::directory;
    }
    void classification()
    {
        QFETCH(QByteArray, marker);
        QFETCH(QString, how);
        QFETCH(Result, expected);
        QVERIFY(TempHome::writeFile(path(u"item"_s), "content"));
        if (!mark(path(u"item"_s), "Z", "user.probe"))
            QSKIP("this file system refuses user extended attributes");
        QVERIFY(marker == "-" || mark(path(u"item"_s), marker));
        QVERIFY(how != u"share"_s || mark(path(u"item"_s), "ZELNA", "user.is.zelna.share"));
        QVERIFY(how != u"link"_s || QFile::link(path(u"item"_s), path(u"link"_s)));
        const QUrl url = QUrl::fromLocalFile(how == u"link"_s      ? path(u"link"_s)
                                             : how == u"missing"_s ? path(u"none"_s)
                                             : how == u"folder"_s  ? m_home->path()
                                                                   : path(u"item"_s));
        ZLFileManager manager;
        QCOMPARE(manager.isDir(url), expected);
        QCOMPARE(manager.isDirAt(url), int(expected));
        QCOMPARE(AttrManager().isStub(url), expected == Result::stubFile);
    }

    void aggregation_data()
    {
        // The tree: entries "f:path" file, "d:path" folder, "l:path>target" link, "p:path" pipe,
        // "s:path" socket, "c:path" character device. Chosen paths are relative to the home
        // unless they start with "=". Expected: paths, or "find:folder" for GNU find's listing.
        QTest::addColumn<QStringList>("tree");
        QTest::addColumn<QStringList>("chosen");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("nothing chosen") << QStringList() << QStringList() << QStringList();
        QTest::newRow("plain and missing") << QStringList{u"f:file"_s} << QStringList{u"file"_s, u"missing"_s}
                                           << QStringList{u"file"_s, u"missing"_s};
        QTest::newRow("folders in enumerator order")
            << QStringList{u"f:tree/a"_s,   u"f:tree/sub/b"_s, u"f:tree/.c"_s, u"f:tree/sub/deeper/d"_s,
                           u"f:tree/z/e"_s, u"d:tree/empty"_s, u"d:empty"_s}
            << QStringList{u"tree"_s, u"empty"_s} << QStringList{u"find:tree"_s};
        QTest::newRow("duplicates and relative paths")
            << QStringList{u"f:d/one"_s} << QStringList{u"=d"_s, u"d"_s, u"=d/one"_s}
            << QStringList{u"d/one"_s, u"d/one"_s, u"d/one"_s};
        // Listed, never opened (a pipe would block); a link named directly is one item.
        QTest::newRow("links and special files")
            << QStringList{u"f:s/folder/inside"_s,
                           u"f:s/file"_s,
                           u"l:s/link-folder>folder"_s,
                           u"l:s/link-file>file"_s,
                           u"l:s/dangling>nowhere"_s,
                           u"p:s/fifo"_s,
                           u"s:s/socket"_s,
                           u"c:s/null"_s}
            << QStringList{u"s"_s, u"s/link-folder"_s} << QStringList{u"find:s"_s, u"s/link-folder"_s};
    }
    void aggregation()
    {
        QFETCH(QStringList, tree);
        QFETCH(QStringList, chosen);
        QFETCH(QStringList, expected);
        QLocalServer socket;
        for (const QString& entry : tree) {
            const QString name = path(entry.mid(2).section(u'>', 0, 0));
            const QByteArray native = QFile::encodeName(name);
            switch (entry[0].toLatin1()) {
            case 'f':
                QVERIFY(TempHome::writeFile(name, "x"));
                break;
            case 'd':
                QVERIFY(QDir().mkpath(name));
                break;
            case 'l':
                QVERIFY(QFile::link(entry.section(u'>', 1), name));
                break;
            case 'p':
                QCOMPARE(mkfifo(native.constData(), 0600), 0);
                break;
            case 's':
                QVERIFY(socket.listen(name));
                break;
            case 'c':
                if (mknod(native.constData(), S_IFCHR | 0600, makedev(1, 3)) != 0)
                    QVERIFY(TempHome::writeFile(name, "not root: a plain file")); // listed all the same
            }
        }
        QStringList paths;
        for (const QString& p : chosen)
            paths << (p.startsWith(u'=') ? p.mid(1) : path(p));
        QList<QUrl> want;
        for (const QString& e : expected)
            want
                += e.startsWith(u"find:"_s) ? findFiles(path(e.mid(5))) : QList{QUrl::fromLocalFile(path(e))};
        const QString before = QDir::currentPath();
        QDir::setCurrent(m_home->path());
        ZLFileManager manager;
        const Outcome outcome = aggregate(manager, paths);
        QDir::setCurrent(before);
        QCOMPARE(outcome.calls, 1);
        QVERIFY(outcome.onMainThread && !outcome.error);
        QCOMPARE(outcome.files, want);
        const int missing = chosen.contains(u"missing"_s) ? 1 : 0;
        QCOMPARE(lines().filter(u"Error: Error Domain=NSPOSIXErrorDomain Code=2"_s).size(), missing);
        QCOMPARE(lines().size(), 2 + missing);
        QCOMPARE(lines().filter(u"\"Mapping paths -> URLs...\". <Service>, ZLFileManag ("_s).size(), 1);
        QCOMPARE(lines().filter(u"\"Mapping paths -> URLs completed.\". <Service>, ZLFileManag ("_s).size(),
                 1);
    }

    void namesKeepTheirBytesAtAnyDepth()
    {
        // Latin-1 bytes that are not UTF-8, below about 5,000 bytes of path (more
        // than PATH_MAX), made one level at a time.
        QByteArray relative = "/deep";
        int current = open(QFile::encodeName(m_home->path()).constData(), O_RDONLY | O_DIRECTORY);
        QList<QByteArray> levels(50, QByteArray(100, 'n'));
        levels.prepend("deep");
        for (const QByteArray& level : levels) {
            QCOMPARE(mkdirat(current, level.constData(), 0700), 0);
            const int next = openat(current, level.constData(), O_RDONLY | O_DIRECTORY);
            close(current);
            current = next;
            relative += level == "deep" ? QByteArray() : '/' + level;
        }
        const QByteArray odd = "caf\xe9-\xff\xfe.txt";
        const int leaf = openat(current, odd.constData(), O_WRONLY | O_CREAT, 0600);
        QVERIFY(leaf >= 0);
        close(leaf);
        close(current);
        ZLFileManager manager;
        const Outcome outcome = aggregate(manager, {path(u"deep"_s)});
        QCOMPARE(outcome.files.size(), 1);
        QCOMPARE(QByteArray::fromPercentEncoding(outcome.files[0].path(QUrl::FullyEncoded).toLatin1()),
                 QFile::encodeName(m_home->path()) + relative + '/' + odd);
        QProcess::execute(u"rm"_s, {u"-rf"_s, path(u"deep"_s)}); // too deep for QDir to remove
    }

    void unreadableFolders()
    {
        for (const char* name : {"first/a", "second/b", "third/c", "top/a", "top/locked/hidden", "top/z"})
            QVERIFY(TempHome::writeFile(path(QString::fromLatin1(name)), "x"));
        // A chosen folder that cannot be read stops the whole call with the error.
        auto files = std::make_shared<UnreadableFolders>();
        files->unreadable = {path(u"second"_s)};
        PlatformServices services;
        services.fileManager = files;
        Platform::replace(services);
        Outcome outcome = aggregate(*std::make_unique<ZLFileManager>(),
                                    {path(u"first"_s), path(u"second"_s), path(u"third"_s)});
        services.fileManager = std::make_shared<PosixFileManager>();
        Platform::replace(services);
        QVERIFY(outcome.files.isEmpty() && outcome.error);
        QCOMPARE(outcome.error->domain(), u"com.zelna"_s);
        QCOMPARE(outcome.error->code(), 0);
        QCOMPARE(outcome.error->localizedDescription(), u"no permission to folders"_s);
        QCOMPARE(files->checked, QStringList{path(u"first"_s)}); // the third is never examined
        QCOMPARE(lines().filter(u"No read permission at "_s + path(u"second"_s) + u"\". <Service>"_s).size(),
                 1);

        // One deep inside is passed over.
        if (geteuid() == 0)
            QSKIP("root reads every folder, so none can be unreadable");
        QVERIFY(QFile::setPermissions(path(u"top/locked"_s), {}));
        outcome = aggregate(*std::make_unique<ZLFileManager>(), {path(u"top"_s)});
        QFile::setPermissions(path(u"top/locked"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(!outcome.error);
        QCOMPARE(outcome.files.size(), 2);
    }

    void overlappingCallsAndAManagerThatIsGone()
    {
        for (int i = 0; i < 300; ++i)
            QVERIFY(TempHome::writeFile(path(u"big/%1/%2"_s.arg(i % 30).arg(i)), "x"));
        auto manager = std::make_unique<ZLFileManager>();
        QList<int> calls{0, 0};
        QList<qsizetype> sizes{0, 0};
        for (int i : {0, 1})
            manager->fileAggregation(QStringList(i + 1, path(u"big"_s)),
                                     [&, i](QList<QUrl> files, std::optional<ZLError>) {
                                         ++calls[i];
                                         sizes[i] = files.size();
                                     });
        manager.reset(); // gone while both may still run: completions still come, once each
        QTRY_COMPARE(calls[0] + calls[1], 2);
        QTest::qWait(50);
        QCOMPARE(calls, (QList<int>{1, 1}));
        // Paths not reached before the manager went away are skipped.
        QVERIFY(sizes[0] == 300 || sizes[0] == 0);
        QVERIFY(sizes[1] == 600 || sizes[1] == 300 || sizes[1] == 0);
    }
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
