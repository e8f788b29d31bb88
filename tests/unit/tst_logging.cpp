#include "CLogger.h"
#include "DispatchQueue.h"
#include "LinuxLogSink.h"
#include "PrintfFormat.h"
#include "TempHome.h"

#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTest>

#include <semaphore>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;
using S = OutputStream;

// The log line's format, and the optional file stream.
class TestLogging : public QObject {
    Q_OBJECT
    TempHome m_dir;

private Q_SLOTS:
    // Missing arguments print as zero or null, "%n" writes nothing, hostile widths are capped.
    void format()
    {
        using Args = QList<PrintfFormat::Argument>;
        const Args three{"one", std::nullopt, "three"};
        const QList<std::tuple<QByteArray, Args, QByteArray>> cases{
            {"100%% %d %ld %lld %hhu %zu %lx [%5d|%-3d|%05x]", {}, "100% 0 0 0 0 0 0 [    0|0  |00000]"},
            {"%.3f %g %e|%@|%s|%10s|%p", {}, "0.000 0 0.000000e+00|(null)|(null)|    (null)|(nil)"},
            {"[%c]a%nb%hhnc[%*d][%.*f]", {}, "[]abc[0][0.000000]"},
            {"%y %k caf\xc3\xa9 50%", {}, "%y %k caf\xc3\xa9 50%"}, // unknown directives kept as written
            {"%@-%@-%@ %d %f %s %@", three + three, "one-(null)-three 0 0.000000 three (null)"}, // in turn
            {"%-6@|%.2s|%@", {"ab", "xyz", "%d%n%s"}, "ab    |xy|%d%n%s"}};
        for (const auto& [format, args, expected] : cases)
            QCOMPARE(PrintfFormat::render(format, args), expected);
        const int max = PrintfFormat::maxFieldWidth;
        QCOMPARE(PrintfFormat::render("%999999999999d|%.99999999f|%99999999999s"),
                 QByteArray(max - 1, ' ') + "0|0." + QByteArray(max, '0') + '|' + QByteArray(max - 6, ' ')
                     + "(null)");
    }

    // Standard error gets each line after local time to the millisecond, program, pid and thread.
    void platformLogLine()
    {
        QTemporaryFile capture;
        const int saved = ::dup(STDERR_FILENO);
        QVERIFY(capture.open() && ::dup2(capture.handle(), STDERR_FILENO) == STDERR_FILENO);
        LinuxLogSink().write("a line");
        const QByteArray longName(300, 'n'); // the prefix is cut at 255 bytes, the line is not
        char* const name = std::exchange(program_invocation_short_name, const_cast<char*>(longName.data()));
        LinuxLogSink().write("a line");
        program_invocation_short_name = name;
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);
        static const QRegularExpression line(
            uR"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} tst_logging\[\d+:\d+\] a line\n.{255}a line\n$)"_s);
        const QString written = TempHome::readFile(capture.fileName());
        QVERIFY2(line.match(written).hasMatch(), qPrintable(written));
    }

    void streamAppendsToTheFile()
    {
        const QString path = m_dir.path() + u"/log"_s;
        FileStreamer streamer(path);
        streamer.open();
        QVERIFY(streamer.append(u"one\n"_s));
        streamer.startNewStreamWith(path); // keeps what is there
        QVERIFY(streamer.append(u"zwei \u00FC\n"_s));
        streamer.close();
        QCOMPARE(TempHome::readFile(path), u"one\nzwei \u00FC\n"_s);
    }

    // Events arrive on the thread that scheduled the stream, and find nothing once it is gone.
    void streamEventsStayOnTheirThread()
    {
        struct Recorder : StreamDelegate {
            QList<std::pair<int, DispatchQueue*>> events;
            void stream(OutputStream*, int e) override { events.append({e, DispatchQueue::current()}); }
        } recorder;
        DispatchQueue queue(u"com.zelna.stream"_s);
        S stream(m_dir.path() + u"/events"_s, true);
        std::binary_semaphore done{0};
        queue.async([&] {
            stream.setDelegate(&recorder);
            stream.scheduleInCurrentRunLoop();
            stream.open();
            S dropped(m_dir.path() + u"/gone"_s, true);
            dropped.setDelegate(&recorder);
            dropped.scheduleInCurrentRunLoop();
            dropped.post(S::HasSpaceAvailable);       // gone before this is delivered
            queue.async([&done] { done.release(); }); // after the streams' own events
        });
        QVERIFY(done.try_acquire_for(std::chrono::seconds(5)));
        QCOMPARE(recorder.events, (QList<std::pair<int, DispatchQueue*>>{{S::OpenCompleted, &queue},
                                                                         {S::HasSpaceAvailable, &queue}}));
    }
};

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
