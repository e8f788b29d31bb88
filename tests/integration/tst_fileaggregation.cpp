#include "ZLFileManager.h"
#include "FileManager.h"
#include "Platform.h"
#include "PosixFileManager.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
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
    for (const QByteArray& path : find.readAllStandardOutput().split('\0')) {
        if (!path.isEmpty())
            files.append(QUrl::fromEncoded("file://" + path.toPercentEncoding("/")));
    }
    return files;
}

QByteArray pathBytes(const QUrl& url)
{
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
}

// The real file manager, except that the listed folders read as unreadable
// (root reads every folder, so permissions alone cannot show this).
class UnreadableFolders : public PosixFileManager {
public:
    explicit UnreadableFolders(QStringList unreadable) : m_unreadable(std::move(unreadable)) { }
    bool isReadableFile(const QString& p) override
    {
        return !m_unreadable.contains(p) && PosixFileManager::isReadableFile(p);
    }
    std::optional<QList<QUrl>> filesBeneath(const QByteArray& f,
                                            const std::function<void(const ZLError&)>& e) override
    {
        checked.append(QFile::decodeName(f));
        return PosixFileManager::filesBeneath(f, e);
    }
    QStringList checked;

private:
    QStringList m_unreadable;
};

} // namespace

class TestFileAggregation : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void classifiesOneURL();
    void plainMissingAndNothing();
    void folderContentsInEnumeratorOrder();
    void duplicatesAndRelativePaths();
    void linksAndSpecialFilesAreListedNotOpened();
    void namesThatAreNotUtf8KeepTheirBytes();
    void treeDeeperThanThePathLimit();
    void unreadableChosenFolderStopsWithTheError();
    void unreadableFolderDeepInsideIsPassedOver();
    void overlappingCallsAndAManagerThatIsGone();

private:
    Outcome aggregate(ZLFileManager& manager, const QStringList& paths);
    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    void touch(const QString& relative) { QVERIFY(TempHome::writeFile(path(relative), "x")); }

    std::unique_ptr<TempHome> m_home;
    std::shared_ptr<RecordingLogSink> m_sink;
};

void TestFileAggregation::initTestCase()
{
    m_sink = RecordingLogSink::install();
}

void TestFileAggregation::init()
{
    m_home = std::make_unique<TempHome>();
    m_sink->clear();
}

Outcome TestFileAggregation::aggregate(ZLFileManager& manager, const QStringList& paths)
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

void TestFileAggregation::classifiesOneURL()
{
    touch(u"plain"_s);
    touch(u"stub"_s);
    setxattr(QFile::encodeName(path(u"stub"_s)).constData(), "user.is.zelna.stub", "ZELNA", 5, 0);
    ZLFileManager manager;
    QCOMPARE(manager.isDir(QUrl::fromLocalFile(path(u"none"_s))), ZLFileManager::ZLFileResult::notFound);
    QCOMPARE(manager.isDir(QUrl::fromLocalFile(m_home->path())), ZLFileManager::ZLFileResult::directory);
    QCOMPARE(manager.isDir(QUrl::fromLocalFile(path(u"plain"_s))), ZLFileManager::ZLFileResult::file);
    QCOMPARE(manager.isDirAt(QUrl::fromLocalFile(path(u"none"_s))), 3);
    if (getxattr(QFile::encodeName(path(u"stub"_s)).constData(), "user.is.zelna.stub", nullptr, 0) == 5)
        QCOMPARE(manager.isDir(QUrl::fromLocalFile(path(u"stub"_s))), ZLFileManager::ZLFileResult::stubFile);
}

void TestFileAggregation::plainMissingAndNothing()
{
    touch(u"file"_s);
    ZLFileManager manager;
    const Outcome none = aggregate(manager, {});
    QCOMPARE(none.calls, 1);
    QVERIFY(none.onMainThread);
    QVERIFY(none.files.isEmpty() && !none.error);
    QCOMPARE(m_sink->lines().size(), 2);
    QVERIFY(m_sink->lines()[0].contains(u"\"Mapping paths -> URLs...\". <Service>, ZLFileManag ("_s));
    QVERIFY(m_sink->lines()[1].contains(u"\"Mapping paths -> URLs completed.\". <Service>"_s));

    m_sink->clear();
    const Outcome some = aggregate(manager, {path(u"file"_s), path(u"missing"_s)});
    QCOMPARE(some.files,
             (QList<QUrl>{QUrl::fromLocalFile(path(u"file"_s)), QUrl::fromLocalFile(path(u"missing"_s))}));
    QVERIFY(!some.error);
    const QStringList errors = m_sink->lines().filter(u"Error: "_s);
    QCOMPARE(errors.size(), 1);
    QVERIFY2(errors.first().startsWith(u"Error: Error Domain=NSPOSIXErrorDomain Code=2"_s),
             qPrintable(errors.first()));
}

void TestFileAggregation::folderContentsInEnumeratorOrder()
{
    for (const char* name : {"tree/a", "tree/sub/b", "tree/.c", "tree/sub/deeper/d", "tree/z/e"})
        touch(QString::fromLatin1(name));
    QVERIFY(QDir().mkpath(path(u"tree/empty"_s)));
    QVERIFY(QDir().mkpath(path(u"empty"_s)));
    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {path(u"tree"_s), path(u"empty"_s)});
    QVERIFY(!outcome.error);
    QCOMPARE(outcome.files.size(), 5);
    QCOMPARE(outcome.files, findFiles(path(u"tree"_s)));
    QVERIFY(!outcome.files.contains(QUrl::fromLocalFile(path(u"tree/sub"_s))));
    QCOMPARE(m_sink->lines().size(), 2);
}

void TestFileAggregation::duplicatesAndRelativePaths()
{
    touch(u"d/one"_s);
    const QString before = QDir::currentPath();
    QDir::setCurrent(m_home->path());
    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {u"d"_s, path(u"d"_s), u"d/one"_s});
    QDir::setCurrent(before);
    const QUrl one = QUrl::fromLocalFile(path(u"d/one"_s));
    QCOMPARE(outcome.files, (QList<QUrl>{one, one, one}));
}

void TestFileAggregation::linksAndSpecialFilesAreListedNotOpened()
{
    touch(u"s/target-folder/inside"_s);
    touch(u"s/target-file"_s);
    QVERIFY(QFile::link(path(u"s/target-folder"_s), path(u"s/link-folder"_s)));
    QVERIFY(QFile::link(path(u"s/target-file"_s), path(u"s/link-file"_s)));
    QVERIFY(QFile::link(path(u"s/nowhere"_s), path(u"s/dangling"_s)));
    QCOMPARE(mkfifo(QFile::encodeName(path(u"s/fifo"_s)).constData(), 0600), 0); // opening it would block
    QLocalServer socket;
    QVERIFY(socket.listen(path(u"s/socket"_s)));
    const bool device
        = mknod(QFile::encodeName(path(u"s/null"_s)).constData(), S_IFCHR | 0600, makedev(1, 3)) == 0;

    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {path(u"s"_s), path(u"s/link-folder"_s)});
    QVERIFY(!outcome.error);
    QList<QUrl> expected = findFiles(path(u"s"_s));
    expected.append(QUrl::fromLocalFile(path(u"s/link-folder"_s))); // a link named directly is one item
    QCOMPARE(outcome.files, expected);
    QCOMPARE(outcome.files.size(), 8 + (device ? 1 : 0));
    QVERIFY(!outcome.files.contains(QUrl::fromLocalFile(path(u"s/link-folder/inside"_s))));
}

void TestFileAggregation::namesThatAreNotUtf8KeepTheirBytes()
{
    const QByteArray folder = QFile::encodeName(path(u"raw"_s));
    QVERIFY(QDir().mkpath(path(u"raw"_s)));
    const QByteArray odd = folder + "/caf\xe9-\xff\xfe.txt"; // Latin-1 bytes, not UTF-8
    FILE* file = fopen(odd.constData(), "w");
    QVERIFY(file);
    fclose(file);
    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {path(u"raw"_s)});
    QCOMPARE(outcome.files.size(), 1);
    QCOMPARE(pathBytes(outcome.files.first()), odd);
    unlink(odd.constData()); // a name QTemporaryDir cannot remove
}

void TestFileAggregation::treeDeeperThanThePathLimit()
{
    // About 5,000 bytes of path: more than PATH_MAX, made one level at a time.
    QByteArray relative;
    int fd = open(QFile::encodeName(m_home->path()).constData(), O_RDONLY | O_DIRECTORY);
    QVERIFY(fd >= 0);
    const QByteArray level(100, 'n');
    QCOMPARE(mkdirat(fd, "deep", 0700), 0);
    int current = openat(fd, "deep", O_RDONLY | O_DIRECTORY);
    close(fd);
    for (int i = 0; i < 50; ++i) {
        QCOMPARE(mkdirat(current, level.constData(), 0700), 0);
        const int next = openat(current, level.constData(), O_RDONLY | O_DIRECTORY);
        close(current);
        current = next;
        relative += '/' + level;
    }
    const int leaf = openat(current, "leaf", O_WRONLY | O_CREAT, 0600);
    QVERIFY(leaf >= 0);
    close(leaf);
    close(current);

    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {path(u"deep"_s)});
    QVERIFY(!outcome.error);
    QCOMPARE(outcome.files.size(), 1);
    QCOMPARE(pathBytes(outcome.files.first()), QFile::encodeName(path(u"deep"_s)) + relative + "/leaf");
    QProcess::execute(u"rm"_s, {u"-rf"_s, path(u"deep"_s)}); // too deep for QDir to remove
}

void TestFileAggregation::unreadableChosenFolderStopsWithTheError()
{
    touch(u"first/a"_s);
    touch(u"second/b"_s);
    touch(u"third/c"_s);
    UnreadableFolders files({path(u"second"_s)});
    PlatformServices services;
    services.fileManager = std::shared_ptr<FileManager>(&files, [](FileManager*) {});
    Platform::replace(services);
    Outcome outcome;
    {
        ZLFileManager manager;
        outcome = aggregate(manager, {path(u"first"_s), path(u"second"_s), path(u"third"_s)});
    }
    services.fileManager = std::make_shared<PosixFileManager>();
    Platform::replace(services);

    QVERIFY(outcome.files.isEmpty());
    QVERIFY(outcome.error);
    QCOMPARE(outcome.error->domain(), u"com.zelna"_s);
    QCOMPARE(outcome.error->code(), 0);
    QCOMPARE(outcome.error->localizedDescription(), u"no permission to folders"_s);
    QCOMPARE(files.checked, QStringList{path(u"first"_s)}); // the third is never examined
    QCOMPARE(
        m_sink->lines().filter(u"No read permission at "_s + path(u"second"_s) + u"\". <Service>"_s).size(),
        1);
}

void TestFileAggregation::unreadableFolderDeepInsideIsPassedOver()
{
    if (geteuid() == 0)
        QSKIP("root reads every folder, so none can be unreadable");
    touch(u"top/a"_s);
    touch(u"top/locked/hidden"_s);
    touch(u"top/z"_s);
    QVERIFY(QFile::setPermissions(path(u"top/locked"_s), {}));
    ZLFileManager manager;
    const Outcome outcome = aggregate(manager, {path(u"top"_s)});
    QFile::setPermissions(path(u"top/locked"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QVERIFY(!outcome.error);
    QCOMPARE(outcome.files.size(), 2);
}

void TestFileAggregation::overlappingCallsAndAManagerThatIsGone()
{
    for (int i = 0; i < 300; ++i)
        touch(u"big/%1/%2"_s.arg(i % 30).arg(i));
    auto manager = std::make_unique<ZLFileManager>();
    int first = 0;
    int second = 0;
    QList<QUrl> firstFiles;
    QList<QUrl> secondFiles;
    manager->fileAggregation({path(u"big"_s)}, [&](QList<QUrl> files, std::optional<ZLError>) {
        ++first;
        firstFiles = files;
    });
    manager->fileAggregation({path(u"big"_s), path(u"big"_s)},
                             [&](QList<QUrl> files, std::optional<ZLError>) {
                                 ++second;
                                 secondFiles = files;
                             });
    manager.reset(); // gone while both may still run: completions still come, once each
    QTRY_COMPARE(first + second, 2);
    QTest::qWait(50);
    QCOMPARE(first, 1);
    QCOMPARE(second, 1);
    // Paths not reached before the manager went away are skipped.
    QVERIFY(firstFiles.size() == 300 || firstFiles.isEmpty());
    QVERIFY(secondFiles.size() == 600 || secondFiles.size() == 300 || secondFiles.isEmpty());
}

QTEST_GUILESS_MAIN(TestFileAggregation)
#include "tst_fileaggregation.moc"
