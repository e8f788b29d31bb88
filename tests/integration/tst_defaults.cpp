#include "DefaultsSuite.h"
#include "PlistDefaultsStore.h"
#include "RecordingLogSink.h"
#include "Testing.h"

#include <QDeadlineTimer>
#include <QLockFile>

#include <thread>

#include <fcntl.h>

static const QString suiteName = u"K4WQ7ZT2RB.group.zelna.Quorin"_s;

// The shared defaults suite as a property list file that other programs read and write too.
class TestDefaults : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    PlistDefaultsStore m_store;

    QString file() const { return m_home->configHome() + u'/' + suiteName + u".plist"_s; }
    // Runs Python with plistlib imported and the file's path in f; answers what it printed.
    QString python(const QString& script) const
    {
        QProcess process;
        process.start(u"python3"_s, {u"-c"_s, u"import plistlib,sys\nf=sys.argv[1]\n"_s + script, file()});
        process.waitForFinished(30000);
        return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError()).trimmed();
    }
    QString log() const { return m_sink->lines().join(u'\n'); }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        m_sink->clear();
        QVERIFY(QDir().mkpath(m_home->configHome()));
    }

    void valuesKeepTheirTypesAndOthersKeys()
    {
        // Every type another program stored survives a write; binary lists are read too. An empty lock, as a
        // writer killed early leaves, goes stale quickly.
        python(
            u"import datetime,os,time\nopen(f+'.lock','w')\nos.utime(f+'.lock',(time.time()-5,)*2)\n"
            u"plistlib.dump({'Count':-7,'Ratio':2.5,'On':True,'Blob':b'\\x00','QREnabled':'0','List':[1,'a'],"
            u"'When':datetime.datetime(2025,1,2,3,4,5),'Nested':{'k':'v'}},open(f,'wb'),fmt=plistlib.FMT_BINARY)"_s);
        auto suite = m_store.open(suiteName);
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s) && suite->setValue(u"n"_s, qint64(1))
                && suite->setValue(u"b"_s, true) && suite->setValue(u"l"_s, QVariantList{qint64(1), u"a"_s})
                && suite->setValue(u"d"_s, QDateTime(QDate(2025, 1, 2), QTime(3, 4, 5), Qt::UTC)));
        QCOMPARE(
            python(u"print(sorted(plistlib.load(open(f,'rb')).items()))"_s),
            u"[('Blob', b'\\x00'), ('Count', -7), ('List', [1, 'a']), ('Nested', {'k': 'v'}), ('On', True), "
            u"('QREnabled', '1'), ('Ratio', 2.5), ('When', datetime.datetime(2025, 1, 2, 3, 4, 5)), "
            u"('b', True), ('d', datetime.datetime(2025, 1, 2, 3, 4, 5)), ('l', [1, 'a']), ('n', 1)]"_s);
        QCOMPARE(QList({suite->value(u"n"_s).typeId(), suite->value(u"b"_s).typeId()}),
                 QList({int(QMetaType::LongLong), int(QMetaType::Bool)}));
        QCOMPARE(suite->value(u"Blob"_s), QVariant(QByteArray(1, '\0')));
        QVERIFY(!QFile::exists(file() + u".lock"_s));
    }

    // A list linked in from a dotfiles folder stays linked; a relative link is followed from its real folder.
    void linkedListsStayLinked_data()
    {
        QTest::addColumn<QString>("layout"); // a script in the home making $1, the list's name, a link
        QTest::addColumn<QString>("target"); // where the value then is
        QTest::newRow("absolute") << u"echo '<plist><dict/></plist>' >dot/l; ln -s \"$PWD/dot/l\" \"$1\""_s
                                  << u"dot/l"_s;
        QTest::newRow("relative, in a linked folder")
            << u"mkdir -p real/dot; mv config real; ln -s real/config config; ln -s ../dot/l \"$1\""_s
            << u"real/dot/l"_s;
        QTest::newRow("to a list not there yet") << u"ln -s ../dot/l \"$1\""_s << u"dot/l"_s;
    }
    void linkedListsStayLinked()
    {
        QFETCH(QString, layout);
        QFETCH(QString, target);
        QVERIFY(QDir(m_home->path()).mkpath(u"dot"_s)
                && QProcess::execute(u"sh"_s, {u"-ec"_s, u"cd \"$0\"; "_s + layout, m_home->path(), file()})
                       == 0);
        auto suite = m_store.open(suiteName);
        QVERIFY(suite->setValue(u"QREnabled"_s, u"1"_s));
        QCOMPARE(suite->value(u"QREnabled"_s), QVariant(u"1"_s));
        QVERIFY(QFileInfo(file()).isSymLink()
                && TempHome::readFile(m_home->path() + u'/' + target).contains(u"QREnabled"_s));
    }

    void unreadableListsAreSetAside_data()
    {
        QTest::addColumn<QString>("writer"); // Python with plistlib, the file's path in f
        QTest::addColumn<bool>("write");     // met by a write rather than a read
        const QString xml
            = u"open(f,'wb').write(b'<?xml version=\"1.0\"?><plist><dict><key>QREnabled</key>"_s;
        QTest::newRow("cut short") << xml + u"<string>0')"_s << false;
        QTest::newRow("not a list, written") << u"open(f,'w').write('not a plist')"_s << true;
        // libplist accepts these, then aborts reading them back or changes one of two same-named entries.
        QTest::newRow("NUL in text") << xml + u"<string>a\\0b</string></dict></plist>')"_s << false;
        QTest::newRow("repeated key, binary")
            << u"open(f,'wb').write(plistlib.dumps({'QREnabled':'1','QREnablee':"
               u"'0'},fmt=plistlib.FMT_BINARY).replace(b'ee',b'ed'))"_s
            << false;
        // Binary lists keep non-ASCII text as UTF-16, where a NUL survives parsing.
        QTest::newRow("NUL in key, binary")
            << u"plistlib.dump({'\\u00e9\\0': '1'}, open(f,'wb'), fmt=plistlib.FMT_BINARY)"_s << false;
    }
    void unreadableListsAreSetAside()
    {
        QFETCH(QString, writer);
        QFETCH(bool, write);
        python(writer);
        const QString bytes = TempHome::readFile(file());
        auto suite = m_store.open(suiteName);
        QVERIFY(!write || suite->setValue(u"QREnabled"_s, u"1"_s)); // moved aside, then a fresh list
        QCOMPARE(suite->value(u"QREnabled"_s), write ? QVariant(u"1"_s) : QVariant());
        QCOMPARE(QFile::exists(file()), write);
        const QStringList aside = QDir(m_home->configHome()).entryList({suiteName + u".plist.corrupt-*"_s});
        QCOMPARE(TempHome::readFile(m_home->configHome() + u'/' + aside.value(0)), bytes);
        QVERIFY2(m_sink->lines().size() == 1 && log().contains(u"moved it aside"_s), qPrintable(log()));
    }

    // A lock that keeps changing hands for longer than the writer waits for one holder is waited out.
    void busyLockDelaysAWriteButNeverDropsIt()
    {
        QLockFile held(file() + u".lock"_s);
        QVERIFY(held.tryLock());
        std::jthread busy([&held] { // touched as each new holder's lock would be
            for (QDeadlineTimer busyFor(12000); !busyFor.hasExpired(); QThread::msleep(20))
                ::utimensat(AT_FDCWD, QFile::encodeName(held.fileName()), nullptr, 0);
            held.unlock();
        });
        QVERIFY2(m_store.open(suiteName)->setValue(u"QREnabled"_s, u"1"_s), qPrintable(log()));
        QVERIFY(!QFile::exists(file() + u".lock"_s));
    }
};

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
