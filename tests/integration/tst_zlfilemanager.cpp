#include "ZLFileManager.h"
#include "FileManager.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::Literals::StringLiterals;

namespace {

ino_t inode(const QString& path)
{
    struct stat info { };
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

} // namespace

class TestZLFileManager : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void foldersAreMadeParentFirstOnFirstRead();
    void locationsAreKeptOnceComputed();
    void plainFileWhereAFolderBelongs();
    void unlocatableApplicationSupportLogsOnce();
    void writesExactBytesAsANewFileEachTime();
    void writingNothingIsRefused();
    void readFailures_data();
    void readFailures();
    void somethingElseInTheFilesPlace_data();
    void somethingElseInTheFilesPlace();
    void codingKeys();
    void readersNeverSeeAMixedFile();

private:
    QString shared() const { return m_home->dataHome() + u"/com.zelna.Quorin.shared"_s; }
    QString commFile() const { return shared() + u"/Communication/commnuication_file.json"_s; }

    std::unique_ptr<TempHome> m_home;
    std::shared_ptr<RecordingLogSink> m_sink;
};

void TestZLFileManager::initTestCase()
{
    m_sink = RecordingLogSink::install();
}

void TestZLFileManager::init()
{
    m_home = std::make_unique<TempHome>();
    m_home->applyToProcess();
    m_sink->clear();
}

void TestZLFileManager::foldersAreMadeParentFirstOnFirstRead()
{
    ZLFileManager manager;
    QVERIFY(!QFileInfo::exists(shared())); // nothing on construction
    QCOMPARE(manager.communicationDir(), std::optional(QUrl::fromLocalFile(shared() + u"/Communication"_s)));
    QVERIFY(QFileInfo(shared() + u"/Communication"_s).isDir());
    QCOMPARE(manager.communicationFileURL(), std::optional(QUrl::fromLocalFile(commFile())));
    QVERIFY(!QFileInfo::exists(commFile())); // located, not made
    QCOMPARE(m_sink->lines(), QStringList());

    // Application Support itself is never made: without it both levels fail, logged.
    qputenv("XDG_DATA_HOME", (m_home->path() + u"/missing/share"_s).toUtf8());
    ZLFileManager other;
    QVERIFY(other.communicationFileURL());
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].contains(u"Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\""_s),
             qPrintable(lines[0]));
    QVERIFY(
        lines[0].contains(u"NSFilePath="_s + m_home->path() + u"/missing/share/com.zelna.Quorin.shared"_s));
    QVERIFY(lines[0].endsWith(u"<Service>, ZLFileManag ("_s + lines[0].section(u'(', -1)));
}

void TestZLFileManager::locationsAreKeptOnceComputed()
{
    ZLFileManager manager;
    QVERIFY(manager.sharedApplicationSupportDir());
    QVERIFY(QDir(shared()).removeRecursively());
    QVERIFY(manager.communicationFileURL()); // computed now, on the kept shared folder
    QVERIFY(!QFileInfo::exists(shared()));   // which is not made again
    manager.setPreviewStateEnabled(true);    // and the write fails, logged
    QCOMPARE(m_sink->lines().size(), 2);     // the Communication folder, then the write
    QCOMPARE(manager.previewStateEnabled(), std::nullopt);
}

void TestZLFileManager::plainFileWhereAFolderBelongs()
{
    QVERIFY(TempHome::writeFile(shared() + u"/Communication"_s, "not a folder"));
    ZLFileManager manager;
    QVERIFY(manager.communicationFileURL());
    QCOMPARE(m_sink->lines(), QStringList()); // it exists, so nothing is made
    manager.setPreviewStateEnabled(false);
    QCOMPARE(manager.previewStateEnabled(), std::nullopt);
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 2);
    for (const QString& line : lines)
        QVERIFY2(line.contains(u"Code=20 \"Not a directory\""_s), qPrintable(line));
    QCOMPARE(TempHome::readFile(shared() + u"/Communication"_s), u"not a folder"_s);
}

void TestZLFileManager::unlocatableApplicationSupportLogsOnce()
{
    qputenv("XDG_DATA_HOME", "");
    qputenv("HOME", "relative");
    ZLFileManager manager;
    QCOMPARE(manager.communicationFileURL(), std::nullopt);
    QCOMPARE(manager.sharedApplicationSupportDir(), std::nullopt);
    QCOMPARE(m_sink->lines().size(), 1);
    QVERIFY(m_sink->lines().first().contains(u"Error Domain=NSCocoaErrorDomain Code=4"_s));
    m_sink->clear();
    QCOMPARE(manager.previewStateEnabled(), std::nullopt);
    manager.setPreviewStateEnabled(true);
    QCOMPARE(m_sink->lines().size(), 2);
    QVERIFY(m_sink->lines()[0].contains(u"\"Error reading previewState value\". <Service>"_s));
    QVERIFY(m_sink->lines()[1].contains(u"\"Error writing previewState value\". <Service>"_s));
}

void TestZLFileManager::writesExactBytesAsANewFileEachTime()
{
    ZLFileManager manager;
    QCOMPARE(manager.previewStateEnabled(), std::nullopt); // first run: no file yet, logged
    QVERIFY(m_sink->lines().value(0).contains(u"Code=2 \"No such file or directory\""_s));

    manager.setPreviewStateEnabled(true);
    QCOMPARE(TempHome::readFile(commFile()).toUtf8(), QByteArray(R"({"previewEnabled":true})"));
    QCOMPARE(manager.previewStateEnabled(), std::optional(true));
    // Holding the old inode keeps it from being reused: a rewrite in place would keep it.
    QFile holder(commFile());
    QVERIFY(holder.open(QIODevice::ReadOnly));
    const ino_t first = inode(commFile());
    manager.setPreviewStateEnabled(false);
    QCOMPARE(TempHome::readFile(commFile()).toUtf8(), QByteArray(R"({"previewEnabled":false})"));
    QVERIFY(inode(commFile()) != first);
    QCOMPARE(holder.readAll(), QByteArray(R"({"previewEnabled":true})"));
    QCOMPARE(manager.previewStateEnabled(), std::optional(false));
    QCOMPARE(m_sink->lines().size(), 1);
}

void TestZLFileManager::writingNothingIsRefused()
{
    ZLFileManager manager;
    manager.setPreviewStateEnabled(true);
    manager.setPreviewStateEnabled(std::nullopt);
    QCOMPARE(m_sink->lines(), QStringList{m_sink->lines().value(0)});
    QVERIFY(m_sink->lines().value(0).contains(
        u"\"Error writing previewState value\". <Service>, ZLFileManag ("_s));
    QCOMPARE(manager.previewStateEnabled(), std::optional(true)); // left as it was
}

void TestZLFileManager::readFailures_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<std::optional<bool>>("expected");
    QTest::addColumn<QString>("logged");
    QTest::newRow("empty object") << QByteArray("{}") << std::optional<bool>() << u"Code=4865"_s;
    QTest::newRow("number") << QByteArray(R"({"previewEnabled":1})") << std::optional<bool>()
                            << u"Code=4864"_s;
    QTest::newRow("string") << QByteArray(R"({"previewEnabled":"true"})") << std::optional<bool>()
                            << u"Code=4864"_s;
    QTest::newRow("null") << QByteArray(R"({"previewEnabled":null})") << std::optional<bool>()
                          << u"Code=4865"_s;
    QTest::newRow("not json") << QByteArray("previewEnabled=true") << std::optional<bool>() << u"Code=4864"_s;
    QTest::newRow("array") << QByteArray("[true]") << std::optional<bool>() << u"Code=4864"_s;
    QTest::newRow("empty file") << QByteArray() << std::optional<bool>() << u"Code=4864"_s;
    QTest::newRow("other case key") << QByteArray(R"({"PreviewEnabled":true})") << std::optional<bool>()
                                    << u"Code=4865"_s;
    QTest::newRow("extra members") << QByteArray(R"({"previewEnabled":false,"other":5})")
                                   << std::optional(false) << QString();
    QTest::newRow("spaced") << QByteArray("{ \"previewEnabled\" : true }\n") << std::optional(true)
                            << QString();
}

void TestZLFileManager::readFailures()
{
    QFETCH(QByteArray, content);
    QFETCH(std::optional<bool>, expected);
    QFETCH(QString, logged);
    ZLFileManager manager;
    QVERIFY(manager.communicationFileURL());
    QVERIFY(TempHome::writeFile(commFile(), content));
    QCOMPARE(manager.previewStateEnabled(), expected);
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), logged.isEmpty() ? 0 : 1);
    if (!logged.isEmpty())
        QVERIFY2(lines.first().contains(u"Error Domain=NSCocoaErrorDomain "_s + logged),
                 qPrintable(lines.first()));
}

void TestZLFileManager::somethingElseInTheFilesPlace_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("a pipe nobody writes") << u"pipe"_s;
    QTest::newRow("an endless device") << u"device"_s;
    QTest::newRow("a huge file") << u"huge"_s;
}

// Any program of the user can put these there; reading must neither hang nor fill memory.
void TestZLFileManager::somethingElseInTheFilesPlace()
{
    QFETCH(QString, kind);
    ZLFileManager manager;
    QVERIFY(manager.communicationFileURL());
    const QString file = commFile();
    if (kind == u"pipe"_s) {
        QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
    } else if (kind == u"device"_s) {
        QVERIFY(QFile::link(u"/dev/zero"_s, file));
    } else {
        QFile huge(file);
        QVERIFY(huge.open(QIODevice::WriteOnly));
        QVERIFY(huge.resize(FileManager::maxContentsSize + 1)); // sparse: costs no disk
    }
    QCOMPARE(manager.previewStateEnabled(), std::optional<bool>());
    QCOMPARE(m_sink->lines().size(), 1);
    QVERIFY2(m_sink->lines().first().contains(u"Error Domain=NSCocoaErrorDomain Code=263 "_s),
             qPrintable(m_sink->lines().first()));
}

void TestZLFileManager::codingKeys()
{
    using State = ZLFileManager::FinderPreviewState;
    QCOMPARE(State::stringValue(State::CodingKeys::previewEnabled), u"previewEnabled"_s);
    QCOMPARE(State::codingKey(u"previewEnabled"_s), std::optional(State::CodingKeys::previewEnabled));
    QCOMPARE(State::codingKey(u"previewenabled"_s), std::nullopt);
    QCOMPARE(State::codingKey(0), std::nullopt);
}

void TestZLFileManager::readersNeverSeeAMixedFile()
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
    qInfo("%s", qPrintable(report));
    QVERIFY2(reader.exitCode() == 0, qPrintable(report));
    QVERIFY2(report.contains(u"mixed=0"_s), qPrintable(report));
    QCOMPARE(m_sink->lines(), QStringList());
}

QTEST_GUILESS_MAIN(TestZLFileManager)
#include "tst_zlfilemanager.moc"
