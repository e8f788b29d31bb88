#include "CLogger.h"
#include "DispatchQueue.h"
#include "PrintfFormat.h"
#include "RecordingLogSink.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <semaphore>
#include <thread>

using namespace Qt::Literals::StringLiterals;

// The log line's format and shape, and the optional file stream.
class TestLogging : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    QTemporaryDir m_dir;

    QString only() const
    {
        const QStringList lines = m_sink->lines();
        return lines.size() == 1 ? lines.first() : u"<%1 lines>"_s.arg(lines.size());
    }

private Q_SLOTS:
    void init() { m_sink->clear(); }

    void format_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QList<PrintfFormat::Argument>>("args");
        QTest::addColumn<QByteArray>("expected");
        const QList<PrintfFormat::Argument> none;
        const QList<PrintfFormat::Argument> three{QByteArray("one"), std::nullopt, QByteArray("three")};
        QTest::newRow("escaped percent") << QByteArray("100%% sure") << none << QByteArray("100% sure");
        QTest::newRow("lengths") << QByteArray("%d %ld %lld %hhu %zu %lx") << none
                                 << QByteArray("0 0 0 0 0 0");
        QTest::newRow("width, flags")
            << QByteArray("[%5d|%-3d|%05x]") << none << QByteArray("[    0|0  |00000]");
        QTest::newRow("floating") << QByteArray("%.3f %g %e") << none << QByteArray("0.000 0 0.000000e+00");
        QTest::newRow("null") << QByteArray("%@|%s|%10s|%p") << none
                              << QByteArray("(null)|(null)|    (null)|(nil)");
        QTest::newRow("c and n print nothing") << QByteArray("[%c]a%nb%hhnc") << none << QByteArray("[]abc");
        QTest::newRow("star consumes") << QByteArray("[%*d][%.*f]") << none << QByteArray("[0][0.000000]");
        QTest::newRow("kept as is") << QByteArray("%y %k caf\xc3\xa9 50%") << none
                                    << QByteArray("%y %k caf\xc3\xa9 50%");
        QTest::newRow("arguments in turn")
            << QByteArray("%@-%@-%@-%@") << three << QByteArray("one-(null)-three-(null)");
        QTest::newRow("numbers take theirs")
            << QByteArray("%d %@ %s") << three << QByteArray("0 (null) three");
        QTest::newRow("precision, width")
            << QByteArray("%-6@|%.2s|") << QList<PrintfFormat::Argument>{QByteArray("ab"), QByteArray("xyz")}
            << QByteArray("ab    |xy|");
        QTest::newRow("argument is no format")
            << QByteArray("%@") << QList<PrintfFormat::Argument>{QByteArray("%d%n%s")}
            << QByteArray("%d%n%s");
    }
    void format()
    {
        QFETCH(QByteArray, format);
        QFETCH(QList<PrintfFormat::Argument>, args);
        QFETCH(QByteArray, expected);
        QCOMPARE(PrintfFormat::render(format, args), expected);
    }

    void hostileWidthIsCapped()
    {
        const QByteArray out = PrintfFormat::render("%999999999999d|%.99999999f|%99999999999s");
        QVERIFY(out.size() < 4 * PrintfFormat::maxFieldWidth);
        QVERIFY(out.startsWith(QByteArray(PrintfFormat::maxFieldWidth - 1, ' ').append('0')));
    }

    void lineShape()
    {
        CLog::pExp(u"ServiceEnableHandler -> updateUserDefaults -> true"_s, std::nullopt,
                   CLog::StringTag::service, false, 99, "/src/MacQuorin/ServiceEnableHandler.swift", "fn");
        static const QRegularExpression shape(
            uR"(^ZELNA_LOG\[(\d\d):(\d\d):(\d\d)\.\d{3}\]: "ServiceEnableHandler -> updateUserDefaults -> true"\. <Service>, ServiceEnableHandler \(99\)$)"_s);
        const auto match = shape.match(only());
        QVERIFY2(match.hasMatch(), qPrintable(only()));
        // Local wall-clock time of now.
        const int off
            = qAbs(QTime(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt())
                       .secsTo(QTime::currentTime()));
        QVERIFY(off <= 2 || off >= 86398);

        m_sink->clear();
        CLog::pExp(u"item"_s, QVariant(42), CLog::StringTag::finderExt, true, 7, "/x/Sample.swift",
                   "secretFn");
        QVERIFY2(only().startsWith(u"ZELNA_LOG ZL_DOWNLOAD_LOG["_s), qPrintable(only()));
        QVERIFY2(only().endsWith(u"]: \"item 42\". <FinderExt>, Sample (7)"_s), qPrintable(only()));

        m_sink->clear();
        CLog::pExp(QVariant(12.5), std::nullopt, CLog::StringTag::launcher, false, 3, "f.swift", "");
        QVERIFY2(only().endsWith(u"]: \"12.5\". <Launcher>, f (3)"_s), qPrintable(only()));

        m_sink->clear();
        const int line = __LINE__ + 1;
        CLog::pExp(u"here"_s); // the caller's position, minus a fixed six-character cut
        QVERIFY2(only().endsWith(u"<Service>, tst_loggi ("_s + QString::number(line) + u')'),
                 qPrintable(only()));
    }

    void shortFileName_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("six-character extension") << u"/a/b/CLogger.abcde"_s << u"CLogger"_s;
        QTest::newRow("seven characters") << u"x.abcde"_s << u"x"_s;
        QTest::newRow("fixed cut") << u"main.cpp"_s << u"ma"_s;
        QTest::newRow("six kept whole") << u"abcdef"_s << u"abcdef"_s;
        QTest::newRow("short kept whole") << u"a.c"_s << u"a.c"_s;
        QTest::newRow("no extension") << u"ABCDEFG"_s << u"A"_s;
        QTest::newRow("empty") << QString() << u"-"_s;
        QTest::newRow("slashes only") << u"///"_s << u"-"_s;
        QTest::newRow("trailing slash") << u"/a/b/"_s << u"b"_s;
        QTest::newRow("doubled slashes") << u"a//b.swift"_s << u"b"_s;
    }
    void shortFileName()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        CLog::pExp(u"m"_s, std::nullopt, CLog::StringTag::service, false, 1, path.toUtf8().constData(), "");
        QVERIFY2(only().endsWith(u"<Service>, "_s + expected + u" (1)"_s), qPrintable(only()));
    }

    void messagesAreFormats()
    {
        CLog::f(u"StreamError: %@"_s, {std::nullopt}, CLog::StringTag::launcher, false, 5,
                "/p/CLogger.swift");
        QVERIFY2(only().endsWith(u"]: \"StreamError: nil\". <Launcher>, CLogger (5)"_s), qPrintable(only()));
        m_sink->clear();
        CLog::f(u"%@ and %@"_s, {u"disk full"_s, std::nullopt}, CLog::StringTag::launcher, false, 5, "a");
        QVERIFY2(only().contains(u"\"disk full and nil\""_s), qPrintable(only()));
        // Directives inside a composed message are the system log's, never escaped.
        m_sink->clear();
        CLog::pExp(u"50%d done, 100%% sure, %@ %n%s"_s, std::nullopt, CLog::StringTag::service, false, 2,
                   "a");
        QVERIFY2(only().contains(u"\"500 done, 100% sure, (null) (null)\""_s), qPrintable(only()));
    }

    void concurrentLinesStayWhole()
    {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([t] {
                for (int i = 0; i < 200; ++i)
                    CLog::pExp(u"thread %1 line %2"_s.arg(t).arg(i));
            });
        for (auto& thread : threads)
            thread.join();
        const QStringList lines = m_sink->lines();
        QCOMPARE(lines.size(), 800);
        for (const QString& line : lines)
            QVERIFY2(line.startsWith(u"ZELNA_LOG["_s) && line.endsWith(u')'), qPrintable(line));
    }

    void streamReportsOnlyErrors()
    {
        FileStreamer none(m_dir.filePath(u"log"_s));
        none.setOutputStream(nullptr);
        none.startNewStream();
        QVERIFY(!none.append(u"x"_s));

        OutputStream plain(m_dir.filePath(u"other"_s), true);
        for (int event : std::initializer_list<int>{
                 OutputStream::OpenCompleted, OutputStream::HasSpaceAvailable, OutputStream::EndEncountered,
                 OutputStream::ErrorOccurred | OutputStream::EndEncountered, OutputStream::ErrorOccurred})
            none.stream(&plain, event);
        QVERIFY2(only().contains(u"]: \"StreamError: nil\". <Launcher>, CLogg ("_s), qPrintable(only()));

        m_sink->clear();
        FileStreamer broken(m_dir.filePath(u"missing-folder/log"_s));
        broken.startNewStream();
        QTRY_VERIFY2(only().contains(u"\"StreamError: Cannot open the log file: "_s), qPrintable(only()));
    }

    void streamEventsStayOnTheirThread()
    {
        struct Recorder : StreamDelegate {
            QList<int> events;
            QThread* thread = nullptr;
            void stream(OutputStream*, int event) override
            {
                events.append(event);
                thread = QThread::currentThread();
            }
        } recorder, gone;
        DispatchQueue queue(u"com.zelna.stream"_s);
        OutputStream stream(m_dir.filePath(u"events"_s), true);
        std::binary_semaphore done{0};
        QThread* queueThread = nullptr;
        queue.async([&] {
            queueThread = QThread::currentThread();
            stream.setDelegate(&recorder);
            stream.scheduleInCurrentRunLoop();
            stream.open();
            queue.async([&done] { done.release(); }); // after the stream's own events
        });
        QVERIFY(done.try_acquire_for(std::chrono::seconds(5)));
        QCOMPARE(recorder.events, (QList<int>{OutputStream::OpenCompleted, OutputStream::HasSpaceAvailable}));
        QCOMPARE(recorder.thread, queueThread);
        {
            OutputStream dropped(m_dir.filePath(u"gone"_s), true);
            dropped.setDelegate(&gone);
            dropped.scheduleInCurrentRunLoop();
            dropped.post(OutputStream::HasSpaceAvailable);
        } // gone before its event is delivered
        QTest::qWait(20);
        QVERIFY(gone.events.isEmpty());
    }

    void streamAppendsToTheFile()
    {
        const QString path = m_dir.filePath(u"append"_s);
        {
            FileStreamer streamer(path);
            streamer.open();
            QVERIFY(streamer.append(u"one\n"_s));
            streamer.startNewStreamWith(path); // keeps what is there
            QVERIFY(streamer.append(u"zwei \u00FC\n"_s));
            streamer.close();
        }
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(file.readAll()), u"one\nzwei \u00FC\n"_s);
    }
};

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
