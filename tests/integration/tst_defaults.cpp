#include "DefaultsSuite.h"
#include "PlistDefaultsStore.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QLockFile>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

// The shared defaults suite as a property list file that other programs read and write too.
class TestDefaults : public QObject {
    Q_OBJECT
    const QString m_name = u"K4WQ7ZT2RB.group.zelna.Quorin"_s;
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    PlistDefaultsStore m_store;

    QString file() const { return m_home->configHome() + u'/' + m_name + u".plist"_s; }
    QString python(const QString& script) const
    {
        return TempHome::plistPython(u"d=plistlib.load(open(f,'rb'))\n"_s + script, file());
    }
    QVariant value(const QString& key) { return m_store.open(m_name)->value(key); }
    // Writers in processes of their own, each storing COUNT keys PREFIX-i = "i"
    // and printing each key once its write has returned.
    std::vector<std::unique_ptr<QProcess>> writers(const QStringList& prefixes, int count)
    {
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QString& prefix : prefixes) {
            processes.push_back(std::make_unique<QProcess>());
            processes.back()->setProcessEnvironment(m_home->environment());
            processes.back()->start(QStringLiteral(ZQ_DEFAULTS_WRITER),
                                    {m_name, prefix, QString::number(count)});
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
        auto suite = m_store.open(m_name);
        QCOMPARE(suite->value(u"QREnabled"_s), QVariant()); // no file yet
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s) && suite->setValue(u"n"_s, qint64(1))
                && suite->setValue(u"b"_s, true));
        QCOMPARE(python(u"print(sorted((k, type(v).__name__) for k, v in d.items()))"_s),
                 u"[('QREnabled', 'str'), ('b', 'bool'), ('n', 'int')]"_s);
        QCOMPARE(value(u"n"_s).typeId(), QMetaType::LongLong); // read anew from the file
        QCOMPARE(value(u"b"_s).typeId(), QMetaType::Bool);
        QVERIFY(!QFile::exists(file() + u".lock"_s));

        // Every type another program stored survives a write; binary lists are read too.
        TempHome::plistPython(
            u"import datetime\nplistlib.dump({'Count':-7,'Ratio':2.5,'On':True,'Blob':b'\\x00',"
            u"'When':datetime.datetime(2025,1,2,3,4,5),'List':[1,'a'],'Nested':{'k':'v'},"
            u"'QREnabled':'0'},open(f,'wb'),fmt=plistlib.FMT_BINARY)"_s,
            file());
        QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"0"_s));
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
        QCOMPARE(
            python(u"print(sorted(d.items()))"_s),
            u"[('Blob', b'\\x00'), ('Count', -7), ('List', [1, 'a']), ('Nested', {'k': 'v'}), ('On', True), "
            u"('QREnabled', '1'), ('Ratio', 2.5), ('When', datetime.datetime(2025, 1, 2, 3, 4, 5))]"_s);
    }

    void unreadableListsAreSetAside_data()
    {
        QTest::addColumn<QString>("writer"); // Python with plistlib, the file's path in f
        QTest::addColumn<bool>("write");     // met by a write rather than a read
        const QString xml
            = u"open(f,'wb').write(b'<?xml version=\"1.0\"?><plist><dict><key>QREnabled</key>"_s;
        QTest::newRow("cut short") << xml + u"<string>0')"_s << false;
        QTest::newRow("not a list, written") << u"open(f,'w').write('not a plist')"_s << true;
        // libplist accepts these but aborts when the bytes are read back, or lets
        // a write change one of two entries of the same name.
        QTest::newRow("NUL in text") << xml + u"<string>a\\0b</string></dict></plist>')"_s << false;
        QTest::newRow("repeated key, binary")
            << u"open(f,'wb').write(bytes.fromhex('"
               u"62706c6973743030d201020304595152456e61626c6564595152456e6162"
               u"6c656451315130080d1721230000000000000101000000000000000500000000000000000000000000000025'))"_s
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
        TempHome::plistPython(writer, file());
        const QString bytes = TempHome::readFile(file());
        auto suite = m_store.open(m_name);
        if (write) // moved aside, then a fresh list
            QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
        QCOMPARE(suite->value(u"QREnabled"_s), write ? QVariant(u"1"_s) : QVariant());
        QCOMPARE(QFile::exists(file()), write);
        const QStringList aside = QDir(m_home->configHome()).entryList({m_name + u".plist.corrupt-*"_s});
        QCOMPARE(aside.size(), 1);
        QCOMPARE(TempHome::readFile(m_home->configHome() + u'/' + aside.first()), bytes);
        QCOMPARE(m_sink->lines().size(), 1);
        QVERIFY(m_sink->lines().first().contains(u"moved it aside"_s));
    }

    void unusableSuitesAndFiles()
    {
        for (const QString& name :
             {QString(), u"."_s, u".."_s, u"a/b"_s, u"../../etc/x"_s, u"a\0b"_s, QString(300, u'x')})
            QVERIFY2(!m_store.open(name), qPrintable(name));
        qputenv("XDG_CONFIG_HOME", "relative/dir");
        qputenv("HOME", "");
        QVERIFY(!m_store.open(m_name));
        m_home->applyToProcess();
        // A file that cannot be read is neither used nor replaced.
        QVERIFY(QDir().mkpath(file()));
        QVERIFY(!value(u"QREnabled"_s).isValid() && !m_store.open(m_name)->setValue(u"QREnabled"_s, u"1"_s));
        QVERIFY(QFileInfo(file()).isDir());
        QVERIFY2(m_sink->lines().value(0).contains(u"Cannot read defaults file "_s + file()),
                 qPrintable(m_sink->lines().join(u'\n')));
    }

    // Three writers at once, each killed at a random moment: none loses
    // another's key, and every key acknowledged is there.
    void writersKilledAtRandomLoseNoAcknowledgedKey()
    {
        const quint32 seed = QRandomGenerator::global()->generate();
        qInfo("seed %u", seed);
        QRandomGenerator random(seed);
        QSet<QString> acknowledged;
        for (int round = 0; round < 10; ++round) {
            const QString r = u"r"_s + QString::number(round);
            auto processes = writers({r + u'a', r + u'b', r + u'c'}, 100000);
            // Killed only once writing, however slowly a (sanitizer) build starts.
            // The lock is not fair: one writer may wait while the others write.
            QTRY_VERIFY_WITH_TIMEOUT(std::any_of(processes.begin(), processes.end(),
                                                 [](const auto& p) { return p->canReadLine(); }),
                                     30000);
            for (auto& process : processes) {
                QThread::msleep(random.bounded(0, 110));
                process->kill();
                QVERIFY(process->waitForFinished(10000));
                // Only whole lines are acknowledgements; the last one may have been cut.
                const QByteArray out = process->readAllStandardOutput();
                for (const QByteArray& line : out.left(out.lastIndexOf('\n')).split('\n'))
                    acknowledged.insert(QString::fromUtf8(line));
            }
        }
        acknowledged.remove(QString());
        QVERIFY2(acknowledged.size() >= 10, qPrintable(QString::number(acknowledged.size())));
        const QStringList present
            = python(u"print('\\n'.join(k for k, v in d.items() if k.split('-')[1] == v))"_s).split(u'\n');
        for (const QString& key : std::as_const(acknowledged))
            QVERIFY2(present.contains(key), qPrintable(key + u" was acknowledged but is missing"_s));
        QVERIFY(value(*acknowledged.cbegin()).isValid()); // this program reads it too
        QCOMPARE(m_sink->lines(), QStringList());
    }

    // What a writer killed between creating its lock and filling it in leaves behind.
    void lockNamingNoOwnerGoesStale()
    {
        QFile lock(file() + u".lock"_s);
        QVERIFY(
            QDir().mkpath(m_home->configHome()) && lock.open(QIODevice::WriteOnly)
            && lock.setFileTime(QDateTime::currentDateTime().addSecs(-5), QFileDevice::FileModificationTime));
        lock.close();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(m_store.open(m_name)->setValue(u"QREnabled"_s, u"1"_s));
        QVERIFY(timer.elapsed() < 5000); // not the 10 s a held lock is waited for
    }

    // Another program that writes for longer than a writer would wait for any one
    // holder: the writer waits as long as the lock keeps changing hands, then
    // stores its key. Waiting with growing pauses lost the race and the key.
    void busySuiteDelaysAWriteButNeverDropsIt()
    {
        QVERIFY(QDir().mkpath(m_home->configHome()));
        const QString lockFile = file() + u".lock"_s;
        std::unique_ptr<QThread> busy(QThread::create([&lockFile] {
            for (QDeadlineTimer busyFor(12000); !busyFor.hasExpired();) {
                QLockFile held(lockFile);
                QThread::msleep(held.tryLock() ? 20 : 1);
            }
        }));
        busy->start();
        auto writer = writers({u"late"_s}, 1);
        QVERIFY(busy->wait(30000) && writer[0]->waitForFinished(30000));
        QCOMPARE(writer[0]->exitCode(), 0);
        QCOMPARE(value(u"late-0"_s), QVariant(u"0"_s));
    }
};

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
