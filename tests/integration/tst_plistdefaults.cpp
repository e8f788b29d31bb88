#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "PlistDefaultsStore.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QLockFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>
#include <QThread>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {
const QString suiteName = u"K4WQ7ZT2RB.group.zelna.Quorin"_s;

} // namespace

class TestPlistDefaults : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void textStaysTextForOtherReaders();
    void otherProgramsKeysSurviveEveryWrite();
    void valueTypesAreKept();
    void corruptFileIsMovedAsideNotOverwritten();
    void unusableSuiteNamesCannotBeOpened_data();
    void unusableSuiteNamesCannotBeOpened();
    void noHomeMeansNoSuite();
    void concurrentWritersLoseNoKey();
    void unsafeListsAreSetAsideNotFatal_data();
    void unsafeListsAreSetAsideNotFatal();
    void writersKilledAtRandomLoseNoAcknowledgedKey();
    void lockNamingNoOwnerGoesStale();
    void busySuiteDelaysAWriteButNeverDropsIt();

private:
    QString suiteFile() const { return m_home->configHome() + u'/' + suiteName + u".plist"_s; }
    std::unique_ptr<TempHome> m_home;
    std::shared_ptr<RecordingLogSink> m_sink;
    PlistDefaultsStore m_store;
};

void TestPlistDefaults::initTestCase()
{
    m_sink = RecordingLogSink::install();
}

void TestPlistDefaults::init()
{
    m_home = std::make_unique<TempHome>();
    QVERIFY(m_home->isValid());
    m_home->applyToProcess();
    m_sink->clear();
}

void TestPlistDefaults::textStaysTextForOtherReaders()
{
    auto suite = m_store.open(suiteName);
    QVERIFY(suite);
    QCOMPARE(suite->value(u"QREnabled"_s), QVariant()); // no file yet
    QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
    QCOMPARE(TempHome::plistPython(
                 u"d=plistlib.load(open(f,'rb'));print(type(d['QREnabled']).__name__, d['QREnabled'])"_s,
                 suiteFile()),
             u"str 1"_s);
    // A new handle reads the file anew.
    QCOMPARE(m_store.open(suiteName)->value(u"QREnabled"_s), QVariant(u"1"_s));
    QVERIFY(!QFile::exists(suiteFile() + u".lock"_s));
}

void TestPlistDefaults::otherProgramsKeysSurviveEveryWrite()
{
    const QString written = TempHome::plistPython(
        u"import datetime\nplistlib.dump({'Count':-7,'Ratio':2.5,'On':True,'Blob':b'\\x00\\x01','When':"
        "datetime.datetime(2025,1,2,3,4,5),'List':[1,'a'],'Nested':{'k':'v'},'QREnabled':'0'},open(f,'wb'),"
        "fmt=plistlib.FMT_BINARY)"_s,
        suiteFile());
    QCOMPARE(written, QString());
    auto suite = m_store.open(suiteName);
    QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"0"_s)); // binary lists are read too
    QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
    QVERIFY(suite->setValue(u"Other"_s, u"x"_s));
    QCOMPARE(TempHome::plistPython(u"d=plistlib.load(open(f,'rb'));print(sorted(d.items()))"_s, suiteFile()),
             u"[('Blob', b'\\x00\\x01'), ('Count', -7), ('List', [1, 'a']), ('Nested', {'k': 'v'}), "
             "('On', True), ('Other', 'x'), ('QREnabled', '1'), ('Ratio', 2.5), "
             "('When', datetime.datetime(2025, 1, 2, 3, 4, 5))]"_s);
}

void TestPlistDefaults::valueTypesAreKept()
{
    auto suite = m_store.open(suiteName);
    QVERIFY(suite->setValue(u"n"_s, qint64(1)));
    QVERIFY(suite->setValue(u"b"_s, true));
    QVERIFY(suite->setValue(u"t"_s, u"1"_s));
    QCOMPARE(suite->value(u"n"_s).typeId(), QMetaType::LongLong);
    QCOMPARE(suite->value(u"b"_s).typeId(), QMetaType::Bool);
    QCOMPARE(suite->value(u"t"_s).typeId(), QMetaType::QString);
}

void TestPlistDefaults::corruptFileIsMovedAsideNotOverwritten()
{
    const QByteArray garbage("<?xml version=\"1.0\"?><plist><dict><key>QREnabled</key><string>0");
    QVERIFY(TempHome::writeFile(suiteFile(), garbage));
    auto suite = m_store.open(suiteName);
    QCOMPARE(suite->value(u"QREnabled"_s), QVariant());

    const QStringList aside = QDir(m_home->configHome()).entryList({suiteName + u".plist.corrupt-*"_s});
    QCOMPARE(aside.size(), 1);
    QCOMPARE(TempHome::readFile(m_home->configHome() + u'/' + aside.first()).toUtf8(), garbage);
    QVERIFY(!QFile::exists(suiteFile()));
    QCOMPARE(m_sink->lines().size(), 1);
    QVERIFY(m_sink->lines().first().contains(u"moved it aside"_s));

    // A write into a corrupt file moves it aside too, then starts afresh.
    QVERIFY(TempHome::writeFile(suiteFile(), "not a plist"));
    QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
    QCOMPARE(QDir(m_home->configHome()).entryList({suiteName + u".plist.corrupt-*"_s}).size(), 2);
    QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"1"_s));
}

void TestPlistDefaults::unusableSuiteNamesCannotBeOpened_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("dot") << u"."_s;
    QTest::newRow("dot dot") << u".."_s;
    QTest::newRow("slash") << u"a/b"_s;
    QTest::newRow("escape") << u"../../etc/x"_s;
    QTest::newRow("nul") << QString(u"a"_s + QChar(0) + u"b"_s);
    QTest::newRow("too long") << QString(300, u'x');
}

void TestPlistDefaults::unusableSuiteNamesCannotBeOpened()
{
    QFETCH(QString, name);
    QVERIFY(!m_store.open(name));
}

void TestPlistDefaults::noHomeMeansNoSuite()
{
    qputenv("XDG_CONFIG_HOME", "relative/dir");
    qputenv("HOME", "");
    QVERIFY(!m_store.open(suiteName));
    qputenv("XDG_CONFIG_HOME", m_home->configHome().toUtf8());
    QVERIFY(m_store.open(suiteName));
}

void TestPlistDefaults::concurrentWritersLoseNoKey()
{
    // Every write is synced to disk, tens of milliseconds on a busy machine:
    // a few writers interleave as well as many, at a fraction of the cost.
    constexpr int writers = 4;
    constexpr int keysEach = 10;
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int w = 0; w < writers; ++w) {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(m_home->environment());
        process->start(QStringLiteral(ZQ_DEFAULTS_WRITER),
                       {suiteName, u"w"_s + QString::number(w), QString::number(keysEach)});
        processes.push_back(std::move(process));
    }
    for (auto& process : processes) {
        QVERIFY(process->waitForFinished(60000));
        QCOMPARE(process->exitCode(), 0);
    }
    auto suite = m_store.open(suiteName);
    for (int w = 0; w < writers; ++w) {
        for (int i = 0; i < keysEach; ++i)
            QCOMPARE(suite->value(u"w%1-%2"_s.arg(w).arg(i)), QVariant(QString::number(i)));
    }
    QCOMPARE(TempHome::plistPython(u"print(len(plistlib.load(open(f,'rb'))))"_s, suiteFile()),
             QString::number(writers * keysEach));
}

void TestPlistDefaults::unsafeListsAreSetAsideNotFatal_data()
{
    QTest::addColumn<QString>("writer"); // Python with plistlib, the file's path in f
    QTest::newRow("text, XML") << u"open(f,'wb').write(b'<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                  u"<key>QREnabled</key><string>a\\0b</string></dict></plist>')"_s;
    QTest::newRow("repeated key, binary")
        << u"open(f,'wb').write(bytes.fromhex('62706c6973743030d201020304595152456e61626c6564595152456e6162'"
           u" '6c656451315130080d1721230000000000000101000000000000000500000000000000000000000000000025'))"_s;
    // Binary lists keep non-ASCII text as UTF-16, where a NUL survives parsing.
    QTest::newRow("key, binary")
        << u"plistlib.dump({'\\u00e9\\0': '1'}, open(f,'wb'), fmt=plistlib.FMT_BINARY)"_s;
}

// libplist accepts these but aborts the program when the bytes are read back,
// or lets a write change one of two entries of the same name.
void TestPlistDefaults::unsafeListsAreSetAsideNotFatal()
{
    QFETCH(QString, writer);
    TempHome::plistPython(writer, suiteFile());
    QFile original(suiteFile());
    QVERIFY(original.open(QIODevice::ReadOnly));
    const QByteArray bytes = original.readAll();

    auto suite = m_store.open(suiteName);
    QCOMPARE(suite->value(u"QREnabled"_s), QVariant());
    const QStringList aside = QDir(m_home->configHome()).entryList({suiteName + u".plist.corrupt-*"_s});
    QCOMPARE(aside.size(), 1);
    QFile kept(m_home->configHome() + u'/' + aside.first());
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), bytes);
}

void TestPlistDefaults::writersKilledAtRandomLoseNoAcknowledgedKey()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo("seed %u", seed);
    QRandomGenerator random(seed);
    QSet<QString> acknowledged;
    for (int round = 0; round < 10; ++round) {
        std::vector<std::unique_ptr<QProcess>> processes;
        for (int w = 0; w < 3; ++w) {
            auto process = std::make_unique<QProcess>();
            process->setProcessEnvironment(m_home->environment());
            process->start(QStringLiteral(ZQ_DEFAULTS_WRITER),
                           {suiteName, u"r%1w%2"_s.arg(round).arg(w), u"100000"_s});
            QVERIFY(process->waitForStarted());
            processes.push_back(std::move(process));
        }
        // Killed only once writing, however slowly a (sanitizer) build starts.
        // The lock is not fair: one writer may wait while the others write.
        QTRY_VERIFY_WITH_TIMEOUT(std::any_of(processes.begin(), processes.end(),
                                             [](const auto& process) { return process->canReadLine(); }),
                                 30000);
        for (auto& process : processes) {
            QThread::msleep(random.bounded(0, 110));
            process->kill();
            QVERIFY(process->waitForFinished(10000));
            // Only whole lines are acknowledgements; the last one may have been cut.
            const QByteArray out = process->readAllStandardOutput();
            const QList<QByteArray> lines = out.left(out.lastIndexOf('\n')).split('\n');
            for (const QByteArray& line : lines) {
                if (!line.isEmpty())
                    acknowledged.insert(QString::fromUtf8(line));
            }
        }
    }
    QVERIFY2(acknowledged.size() >= 10, qPrintable(QString::number(acknowledged.size())));
    auto suite = m_store.open(suiteName);
    const QString keys = TempHome::plistPython(
        u"d=plistlib.load(open(f,'rb'))\nprint('\\n'.join(k + '=' + v for k, v in d.items()))"_s,
        suiteFile());
    const QStringList stored = keys.split(u'\n', Qt::SkipEmptyParts);
    QSet<QString> present;
    for (const QString& entry : stored) {
        const QString key = entry.section(u'=', 0, 0);
        QCOMPARE(entry.section(u'=', 1), key.section(u'-', 1));
        present.insert(key);
    }
    for (const QString& key : std::as_const(acknowledged))
        QVERIFY2(present.contains(key), qPrintable(key + u" was acknowledged but is missing"_s));
    QVERIFY(suite->value(*acknowledged.cbegin()).isValid()); // and this program reads it too
    QCOMPARE(m_sink->lines(), QStringList());
}

// What a writer killed between creating its lock and filling it in leaves behind.
void TestPlistDefaults::lockNamingNoOwnerGoesStale()
{
    QVERIFY(QDir().mkpath(m_home->configHome()));
    QFile lock(suiteFile() + u".lock"_s);
    QVERIFY(lock.open(QIODevice::WriteOnly));
    QVERIFY(lock.setFileTime(QDateTime::currentDateTime().addSecs(-5), QFileDevice::FileModificationTime));
    lock.close();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(m_store.open(suiteName)->setValue(u"QREnabled"_s, u"1"_s));
    QVERIFY(timer.elapsed() < 5000);
}

// Another program that writes for longer than a writer would wait for any one
// holder: the writer waits as long as the lock keeps changing hands, then
// stores its key. Waiting with growing pauses lost the race and the key.
void TestPlistDefaults::busySuiteDelaysAWriteButNeverDropsIt()
{
    QVERIFY(QDir().mkpath(m_home->configHome()));
    const QString lockFile = suiteFile() + u".lock"_s;
    QProcess writer;
    std::unique_ptr<QThread> busy(QThread::create([&lockFile] {
        for (QDeadlineTimer busyFor(12000); !busyFor.hasExpired();) {
            QLockFile held(lockFile);
            QThread::msleep(held.tryLock() ? 20 : 1);
        }
    }));
    busy->start();
    writer.setProcessEnvironment(m_home->environment());
    writer.start(QStringLiteral(ZQ_DEFAULTS_WRITER), {suiteName, u"late"_s, u"1"_s});
    QVERIFY(busy->wait(30000));
    QVERIFY(writer.waitForFinished(30000));
    QCOMPARE(writer.exitCode(), 0);
    QCOMPARE(m_store.open(suiteName)->value(u"late-0"_s), QVariant(u"0"_s));
}

QTEST_GUILESS_MAIN(TestPlistDefaults)
#include "tst_plistdefaults.moc"
