#include "CLogger.h"
#include "FakePlatform.h"
#include "PrintfFormat.h"
#include "RecordingLogSink.h"
#include "ServiceEnableHandler.h"
#include "Testing.h"

// The exact steps of a service pass against a fake platform, and the log lines under it.
class TestCore : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<FakePlatform> m_fake;
    TempHome m_dir;

private Q_SLOTS:
    void pass_data()
    {
        // The stored flag; services running among other processes (else the service is installed), an open
        // that fails, the defaults that cannot be opened; the steps taken.
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("steps");
        // Any text but "1" is off. Only the service's instances are killed, though the election failed.
        QTest::newRow("word true") << QVariant(u"true"_s) << u"running"_s
                                   << u"ignore, list svc, kill 10, kill 13, login svc off"_s;
        QTest::newRow("unopenable") << QVariant(u"1"_s) << u"running unopenable"_s << QString();
        QTest::newRow("unreadable") << QVariant::fromValue(nullptr) << u"running"_s
                                    << QString(); // not absent
        const QString opened = u"use, login svc on, list svc, locate svc, open file:///s, "_s;
        QTest::newRow("open fails")
            << QVariant(u"1"_s) << u"fails"_s
            << opened
                   + u"log handleEnabled -> openApplication -> with error: "_s
                     u"Optional(Error Domain=NSCocoaErrorDomain Code=260 \"Not there\")"_s;
        // Anything but text is stored as "1".
        const QString stored = u"defaults QREnabled=1, "_s;
        QTest::newRow("absent") << QVariant() << u"running"_s
                                << stored + u"use, login svc on, list svc, log updateUserDefaults -> true"_s;
        QTest::newRow("number zero, first system that opens")
            << QVariant(qint64(0)) << u"10.15"_s
            << stored + opened
                   + u"log updateUserDefaults -> true, log handleEnabled -> "_s
                     u"openApplication -> with error: nil"_s;
    }
    void pass()
    {
        QFETCH(QVariant, stored);
        QFETCH(QString, platform);
        QFETCH(QString, steps);
        m_fake = std::make_unique<FakePlatform>();
        m_fake->install();
        m_sink->clear();
        m_fake->defaultsOpenable = !platform.contains(u"unopenable"_s);
        m_fake->defaults[u"QREnabled"_s] = stored;
        const QString svc = u"com.zelna.Quorin.Service"_s;
        if (platform.contains(u"running"_s))
            m_fake->running
                = {{10, svc, {}}, {11, u"o"_s, {}}, {12, {}, {}}, {13, svc, {}}, {14, svc + u".F"_s, {}}};
        else
            m_fake->serviceLocation = QUrl(u"file:///s"_s);
        if (platform.contains(u"fails"_s))
            m_fake->openError = ZLError(u"NSCocoaErrorDomain"_s, 260, u"Not there"_s);
        m_fake->commandStatus = 1;
        m_fake->system = platform.contains(u"10.15"_s) ? QVersionNumber(10, 15, 0) : m_fake->system;
        std::atomic<int> calls = 0;
        ServiceEnableHandler::handleEnabled([&calls] { ++calls; });
        m_fake->deliverOpen(); // an open completes once it has reported, from its own thread
        QCOMPARE(calls.load(), 1);
        static const QRegularExpression election(u"^run /usr/bin/env pluginkit -e (\\w+) -i svc.Finder$"_s);
        static const QRegularExpression logged(u"^.*\"ServiceEnableHandler -> (.*)\"\\. <Service>, .*$"_s);
        QStringList journal
            = m_fake->journal().replaceInStrings(svc, u"svc"_s).replaceInStrings(election, u"\\1"_s);
        journal += m_sink->lines().replaceInStrings(logged, u"log \\1"_s); // the words between the quotes
        QCOMPARE(journal.join(u", "_s), steps);
        // Text, as the other programs of the group read it; what could not be read is left alone.
        const bool unreadable = stored.typeId() == QMetaType::Nullptr;
        QCOMPARE(m_fake->defaults.value(u"QREnabled"_s).typeId(),
                 unreadable ? QMetaType::Nullptr : QMetaType::QString);
    }

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
            {"%-6@|%.2s|%@", {"ab", "xyz", "%d%n%s"}, "ab    |xy|%d%n%s"},
            {"%n%c%@", {"n", "c", "shown"}, "shown"}};
        for (const auto& [format, args, expected] : cases)
            QCOMPARE(PrintfFormat::render(format, args), expected);
        const int max = PrintfFormat::maxFieldWidth;
        QCOMPARE(PrintfFormat::render("%999999999999d|%.99999999f|%99999999999s"),
                 QByteArray(max - 1, ' ') + "0|0." + QByteArray(max, '0') + '|' + QByteArray(max - 6, ' ')
                     + "(null)");
        // Lines end at 4 KiB, never inside a UTF-8 sequence, however many directives follow.
        QCOMPARE(PrintfFormat::render(QByteArray(4095, 'a') + "\xc3\xa9%d"), QByteArray(4095, 'a'));
        QCOMPARE(PrintfFormat::render(QByteArray("%999d").repeated(1 << 16)).size(), 4096);
    }

    // A new stream to the same file keeps what is there; of its events, only an error is logged. Events
    // arrive on the thread that scheduled the stream, and find nothing once it is gone.
    void fileStreamer()
    {
        const QString path = m_dir.path() + u"/log"_s;
        FileStreamer streamer(path);
        streamer.open();
        QVERIFY(streamer.append(u"one\n"_s));
        streamer.startNewStreamWith(path);
        QVERIFY(streamer.append(u"zwei \u00FC\n"_s));
        streamer.close();
        QCOMPARE(TempHome::readFile(path), u"one\nzwei \u00FC\n"_s);
        m_sink->clear();
        streamer.startNewStreamWith(m_dir.path()); // a folder
        QTRY_COMPARE(m_sink->lines().filter(u"StreamError: "_s).size(), 1);
        QTest::qWait(20);
        QCOMPARE(m_sink->lines().size(), 1);
        // An event queued for a stream that is gone finds nothing (it once ran on the freed stream).
        struct Recorder : StreamDelegate {
            int events = 0;
            void stream(OutputStream*, int) override { ++events; }
        } recorder;
        {
            OutputStream dropped(m_dir.path() + u"/gone"_s, true);
            dropped.setDelegate(&recorder);
            dropped.scheduleInCurrentRunLoop();
            dropped.post(OutputStream::HasSpaceAvailable);
        }
        QTest::qWait(20);
        QCOMPARE(recorder.events, 0);
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
