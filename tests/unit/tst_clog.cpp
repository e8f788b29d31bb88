#include "CLogger.h"
#include "RecordingLogSink.h"

#include <QRegularExpression>
#include <QTest>

#include <thread>

using namespace Qt::Literals::StringLiterals;

class TestCLog : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void lineShape();
    void shortFileName_data();
    void shortFileName();
    void markerArgAndTags();
    void callSitePositionIsTheCaller();
    void formattedVariantPrintsNil();
    void composedLineIsUsedAsFormat();
    void concurrentLinesStayWhole();

private:
    QString only();
    std::shared_ptr<RecordingLogSink> m_sink;
};

void TestCLog::initTestCase()
{
    m_sink = RecordingLogSink::install();
}
void TestCLog::init()
{
    m_sink->clear();
}

QString TestCLog::only()
{
    const QStringList lines = m_sink->lines();
    return lines.size() == 1 ? lines.first() : u"<%1 lines>"_s.arg(lines.size());
}

void TestCLog::lineShape()
{
    CLog::pExp(u"ServiceEnableHandler -> updateUserDefaults -> true"_s, std::nullopt,
               CLog::StringTag::service, false, 99, "/src/MacQuorin/ServiceEnableHandler.swift", "fn");
    static const QRegularExpression shape(
        uR"(^ZELNA_LOG\[(\d\d):(\d\d):(\d\d)\.(\d{3})\]: "ServiceEnableHandler -> updateUserDefaults -> true"\. <Service>, ServiceEnableHandler \(99\)$)"_s);
    const QString line = only();
    const auto match = shape.match(line);
    QVERIFY2(match.hasMatch(), qPrintable(line));
    // The stamp is local wall-clock time of now.
    const QTime stamp(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    QVERIFY(qAbs(stamp.secsTo(QTime::currentTime())) <= 2
            || qAbs(stamp.secsTo(QTime::currentTime())) >= 86398);
}

void TestCLog::shortFileName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("six-character extension") << u"/a/b/CLogger.abcde"_s << u"CLogger"_s;
    QTest::newRow("seven characters") << u"x.abcde"_s << u"x"_s;
    QTest::newRow("fixed cut, short extension") << u"main.cpp"_s << u"ma"_s;
    QTest::newRow("six kept whole") << u"abcdef"_s << u"abcdef"_s;
    QTest::newRow("short kept whole") << u"a.c"_s << u"a.c"_s;
    QTest::newRow("no extension still cut") << u"ABCDEFG"_s << u"A"_s;
    QTest::newRow("empty") << QString() << u"-"_s;
    QTest::newRow("slashes only") << u"///"_s << u"-"_s;
    QTest::newRow("trailing slash") << u"/a/b/"_s << u"b"_s;
    QTest::newRow("doubled slashes") << u"a//b.swift"_s << u"b"_s;
}

void TestCLog::shortFileName()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    const QByteArray file = path.toUtf8();
    CLog::pExp(u"m"_s, std::nullopt, CLog::StringTag::service, false, 1, file.constData(), "");
    QVERIFY2(only().endsWith(u"<Service>, "_s + expected + u" (1)"_s), qPrintable(only()));
}

void TestCLog::markerArgAndTags()
{
    CLog::pExp(u"item"_s, QVariant(42), CLog::StringTag::finderExt, true, 7, "/x/Sample.swift",
               "secretFunctionName");
    const QString line = only();
    QVERIFY2(line.startsWith(u"ZELNA_LOG ZL_DOWNLOAD_LOG["_s), qPrintable(line));
    QVERIFY2(line.endsWith(u"]: \"item 42\". <FinderExt>, Sample (7)"_s), qPrintable(line));
    QVERIFY(!line.contains(u"secretFunctionName"_s));

    m_sink->clear();
    CLog::pExp(QVariant(12.5), std::nullopt, CLog::StringTag::launcher, false, 3, "f.swift", "");
    QVERIFY2(only().endsWith(u"]: \"12.5\". <Launcher>, f (3)"_s), qPrintable(only()));
}

void TestCLog::callSitePositionIsTheCaller()
{
    const int expectedLine = __LINE__ + 1;
    CLog::pExp(u"here"_s);
    // This file's name minus the fixed six-character cut.
    QVERIFY2(only().endsWith(u"<Service>, tst_cl ("_s + QString::number(expectedLine) + u')'),
             qPrintable(only()));
}

void TestCLog::formattedVariantPrintsNil()
{
    CLog::f(u"StreamError: %@"_s, {std::nullopt}, CLog::StringTag::launcher, false, 5, "/p/CLogger.swift");
    QVERIFY2(only().endsWith(u"]: \"StreamError: nil\". <Launcher>, CLogger (5)"_s), qPrintable(only()));

    m_sink->clear();
    CLog::f(u"%@ and %@"_s, {u"disk full"_s, std::nullopt}, CLog::StringTag::launcher, false, 5, "a");
    QVERIFY2(only().contains(u"\"disk full and nil\""_s), qPrintable(only()));
}

void TestCLog::composedLineIsUsedAsFormat()
{
    // Directives inside a message are interpreted by the system log, never escaped.
    CLog::pExp(u"50%d done, 100%% sure, %@ %n%s"_s, std::nullopt, CLog::StringTag::service, false, 2, "a");
    QVERIFY2(only().contains(u"\"500 done, 100% sure, (null) (null)\""_s), qPrintable(only()));
}

void TestCLog::concurrentLinesStayWhole()
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i)
                CLog::pExp(u"thread %1 line %2"_s.arg(t).arg(i));
        });
    }
    for (auto& thread : threads)
        thread.join();
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 800);
    for (const QString& line : lines)
        QVERIFY2(line.startsWith(u"ZELNA_LOG["_s) && line.endsWith(u')'), qPrintable(line));
}

QTEST_APPLESS_MAIN(TestCLog)
#include "tst_clog.moc"
