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

using namespace Qt::Literals::StringLiterals;

namespace {
const QString suiteName = u"K4WQ7ZT2RB.group.zelna.Quorin"_s;
} // namespace

// The shared defaults suite as a property list file that other programs read and write too.
class TestDefaults : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    PlistDefaultsStore m_store;

    QString suiteFile() const { return m_home->configHome() + u'/' + suiteName + u".plist"_s; }
    QStringList aside() const
    {
        return QDir(m_home->configHome()).entryList({suiteName + u".plist.corrupt-*"_s});
    }
    QString python(const QString& script) const
    {
        return TempHome::plistPython(u"d=plistlib.load(open(f,'rb'))\n"_s + script, suiteFile());
    }
    // Writers in processes of their own, each storing COUNT keys PREFIX-i = "i".
    std::vector<std::unique_ptr<QProcess>> writers(const QStringList& prefixes, int count)
    {
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QString& prefix : prefixes) {
            processes.push_back(std::make_unique<QProcess>());
            processes.back()->setProcessEnvironment(m_home->environment());
            processes.back()->start(QStringLiteral(ZQ_DEFAULTS_WRITER),
                                    {suiteName, prefix, QString::number(count)});
        }
        return processes;
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        m_sink->clear();
    }

    void valuesKeepTheirTypesAndOthersKeys()
    {
        auto suite = m_store.open(suiteName);
        QCOMPARE(suite->value(u"QREnabled"_s), QVariant()); // no file yet
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s) && suite->setValue(u"n"_s, qint64(1))
                && suite->setValue(u"b"_s, true));
        QCOMPARE(python(u"print(type(d['QREnabled']).__name__, d['QREnabled'])"_s), u"str 1"_s);
        auto again = m_store.open(suiteName); // reads the file anew
        QCOMPARE(again->value(u"QREnabled"_s), QVariant(u"1"_s));
        QCOMPARE(again->value(u"n"_s).typeId(), QMetaType::LongLong);
        QCOMPARE(again->value(u"b"_s).typeId(), QMetaType::Bool);
        QVERIFY(!QFile::exists(suiteFile() + u".lock"_s));

        // Every type another program stored survives, binary lists are read too.
        QCOMPARE(TempHome::plistPython(
                     u"import "
                     u"datetime\nplistlib.dump({'Count':-7,'Ratio':2.5,'On':True,'Blob':b'\\x00\\x01','When':"
                     "datetime.datetime(2025,1,2,3,4,5),'List':[1,'a'],'Nested':{'k':'v'},'QREnabled':'0'},"
                     "open(f,'wb'),fmt=plistlib.FMT_BINARY)"_s,
                     suiteFile()),
                 QString());
        QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"0"_s));
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
        QCOMPARE(
            python(u"print(sorted(d.items()))"_s),
            u"[('Blob', b'\\x00\\x01'), ('Count', -7), ('List', [1, 'a']), ('Nested', {'k': 'v'}), "
            "('On', True), ('QREnabled', '1'), ('Ratio', 2.5), ('When', datetime.datetime(2025, 1, 2, 3, 4, 5))]"_s);
    }

    void unreadableListsAreSetAside_data()
    {
        QTest::addColumn<QString>("writer"); // Python with plistlib, the file's path in f
        QTest::addColumn<bool>("write");     // met by a write rather than a read
        QTest::newRow("cut short")
            << u"open(f,'w').write('<?xml version=\"1.0\"?><plist><dict><key>QREnabled</key>"
               u"<string>0')"_s
            << false;
        QTest::newRow("not a list, written") << u"open(f,'w').write('not a plist')"_s << true;
        // libplist accepts these but aborts when the bytes are read back, or lets
        // a write change one of two entries of the same name.
        QTest::newRow("NUL in text, XML")
            << u"open(f,'wb').write(b'<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
               u"<key>QREnabled</key><string>a\\0b</string></dict></plist>')"_s
            << false;
        QTest::newRow("repeated key, binary")
            << u"open(f,'wb').write(bytes.fromhex('"
               u"62706c6973743030d201020304595152456e61626c6564595152456e6162'"
               u" '6c656451315130080d1721230000000000000101000000000000000500000000000000000000000000000025'))"_s
            << false;
        // Binary lists keep non-ASCII text as UTF-16, where a NUL survives parsing.
        QTest::newRow("NUL in key, binary")
            << u"plistlib.dump({'\\u00e9\\0': '1'}, open(f,'wb'), fmt=plistlib.FMT_BINARY)"_s << false;
    }
    void unreadableListsAreSetAside()
    {
        QFETCH(QString, writer);
        QFETCH(bool, write);
        QDir().mkpath(m_home->configHome());
        TempHome::plistPython(writer, suiteFile());
        const QString bytes = TempHome::readFile(suiteFile());
        auto suite = m_store.open(suiteName);
        if (write) { // moved aside, then a fresh list
            QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
            QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"1"_s));
        } else {
            QCOMPARE(suite->value(u"QREnabled"_s), QVariant());
            QVERIFY(!QFile::exists(suiteFile()));
        }
        QCOMPARE(aside().size(), 1);
        QCOMPARE(TempHome::readFile(m_home->configHome() + u'/' + aside().first()), bytes);
        QCOMPARE(m_sink->lines().size(), 1);
        QVERIFY(m_sink->lines().first().contains(u"moved it aside"_s));
    }

    void unusableSuites_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("empty") << QString();
        QTest::newRow("dot") << u"."_s;
        QTest::newRow("dot dot") << u".."_s;
        QTest::newRow("slash") << u"a/b"_s;
        QTest::newRow("escape") << u"../../etc/x"_s;
        QTest::newRow("nul") << QString(u"a"_s + QChar(0) + u"b"_s);
        QTest::newRow("too long") << QString(300, u'x');
        QTest::newRow("no home") << suiteName;
    }
    void unusableSuites()
    {
        QFETCH(QString, name);
        if (name == suiteName) {
            qputenv("XDG_CONFIG_HOME", "relative/dir");
            qputenv("HOME", "");
        }
        QVERIFY(!m_store.open(name));
        m_home->applyToProcess();
        QVERIFY(m_store.open(suiteName));
    }

    void concurrentWritersLoseNoKey()
    {
        // Every write is synced to disk, tens of milliseconds on a busy machine:
        // a few writers interleave as well as many, at a fraction of the cost.
        for (const auto& process : writers({u"w0"_s, u"w1"_s, u"w2"_s, u"w3"_s}, 10)) {
            QVERIFY(process->waitForFinished(60000));
            QCOMPARE(process->exitCode(), 0);
        }
        auto suite = m_store.open(suiteName);
        for (int w = 0; w < 4; ++w)
            for (int i = 0; i < 10; ++i)
                QCOMPARE(suite->value(u"w%1-%2"_s.arg(w).arg(i)), QVariant(QString::number(i)));
        QCOMPARE(python(u"print(len(d))"_s), u"40"_s);
    }

    void writersKilledAtRandomLoseNoAcknowledgedKey()
    {
        const quint32 seed = QRandomGenerator::global()->generate();
        qInfo("seed %u", seed);
        QRandomGenerator random(seed);
        QSet<QString> acknowledged;
        for (int round = 0; round < 10; ++round) {
            auto processes
                = writers({u"r%1a"_s.arg(round), u"r%1b"_s.arg(round), u"r%1c"_s.arg(round)}, 100000);
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
                for (const QByteArray& line : out.left(out.lastIndexOf('\n')).split('\n'))
                    if (!line.isEmpty())
                        acknowledged.insert(QString::fromUtf8(line));
            }
        }
        QVERIFY2(acknowledged.size() >= 10, qPrintable(QString::number(acknowledged.size())));
        QSet<QString> present;
        for (const QString& entry :
             python(u"print('\\n'.join(k + '=' + v for k, v in d.items()))"_s).split(u'\n')) {
            QCOMPARE(entry.section(u'=', 1), entry.section(u'=', 0, 0).section(u'-', 1));
            present.insert(entry.section(u'=', 0, 0));
        }
        for (const QString& key : std::as_const(acknowledged))
            QVERIFY2(present.contains(key), qPrintable(key + u" was acknowledged but is missing"_s));
        QVERIFY(
            m_store.open(suiteName)->value(*acknowledged.cbegin()).isValid()); // this program reads it too
        QCOMPARE(m_sink->lines(), QStringList());
    }

    // What a writer killed between creating its lock and filling it in leaves behind.
    void lockNamingNoOwnerGoesStale()
    {
        QVERIFY(QDir().mkpath(m_home->configHome()));
        QFile lock(suiteFile() + u".lock"_s);
        QVERIFY(
            lock.open(QIODevice::WriteOnly)
            && lock.setFileTime(QDateTime::currentDateTime().addSecs(-5), QFileDevice::FileModificationTime));
        lock.close();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(m_store.open(suiteName)->setValue(u"QREnabled"_s, u"1"_s));
        QVERIFY(timer.elapsed() < 5000); // not the 10 s a held lock is waited for
    }

    // Another program that writes for longer than a writer would wait for any one
    // holder: the writer waits as long as the lock keeps changing hands, then
    // stores its key. Waiting with growing pauses lost the race and the key.
    void busySuiteDelaysAWriteButNeverDropsIt()
    {
        QVERIFY(QDir().mkpath(m_home->configHome()));
        const QString lockFile = suiteFile() + u".lock"_s;
        std::unique_ptr<QThread> busy(QThread::create([&lockFile] {
            for (QDeadlineTimer busyFor(12000); !busyFor.hasExpired();) {
                QLockFile held(lockFile);
                QThread::msleep(held.tryLock() ? 20 : 1);
            }
        }));
        busy->start();
        auto writer = writers({u"late"_s}, 1);
        QVERIFY(busy->wait(30000));
        QVERIFY(writer[0]->waitForFinished(30000));
        QCOMPARE(writer[0]->exitCode(), 0);
        QCOMPARE(m_store.open(suiteName)->value(u"late-0"_s), QVariant(u"0"_s));
    }
};

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
