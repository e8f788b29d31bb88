#include "DispatchQueue.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"
#include "ServiceEnableHandler.h"

#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <semaphore>
#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

// Service control against a fake platform, and the work queues under it.
class TestCore : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<FakePlatform> m_fake;

private Q_SLOTS:
    // First, so that the main queue is made off the main thread, as a completion on a pool thread may.
    void queues()
    {
        QThread* ranOn = nullptr;
        std::thread([&] {
            DispatchQueue::main().asyncAfter(50ms, [&] { ranOn = QThread::currentThread(); });
        }).join();
        QTRY_COMPARE(ranOn, QThread::currentThread());
        DispatchQueue serial(u"AggregationQueue"_s);
        QString seen;
        std::binary_semaphore done{0};
        serial.async([&] {
            seen = QThread::currentThread()->objectName();
            seen += OperationQueue::current()->underlyingQueue() == &serial ? u""_s : u", not current"_s;
            done.release();
        });
        QVERIFY(done.try_acquire_for(5s));
        QCOMPARE(seen, u"AggregationQueue"_s);
        bool none = false; // any other thread has no queue
        std::thread([&none] { none = !OperationQueue::current(); }).join();
        QVERIFY(none);
    }

    void pass_data()
    {
        // The platform: the stored flag ("-" none, "#0" the number 0, "x" the defaults cannot be opened),
        // services running among other processes, the service installed, an old system, an open that
        // fails; then the steps taken, with "svc" for the service's identifier.
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("steps");
        const QString opened
            = u"use, login svc on, list, locate svc, open file:///s, log handleEnabled -> openApplication -> with error: "_s;
        // Every instance killed, however the election went (it fails here).
        QTest::newRow("disabled") << u"0 running installed"_s
                                  << u"ignore, list, kill 10, kill 13, login svc off"_s;
        QTest::newRow("running") << u"1 running installed"_s << u"use, login svc on, list"_s;
        QTest::newRow("opened") << u"1 installed"_s << opened + u"nil"_s;
        QTest::newRow("open fails")
            << u"1 installed fails"_s
            << opened + u"Optional(Error Domain=NSCocoaErrorDomain Code=260 \"Not there\")"_s;
        // The identifier, not the location found, is launched on an old system.
        QTest::newRow("old system")
            << u"1 installed old"_s
            << u"use, login svc on, list, locate svc, launch svc, log handleEnabled -> launchApplication -> true"_s;
        QTest::newRow("unopenable") << u"x running installed"_s << QString();
        // Only the text "1" is on, any other text off; anything else is stored as "1".
        QTest::newRow("absent")
            << u"- running installed"_s
            << u"defaults QREnabled=1, use, login svc on, list, log updateUserDefaults -> true"_s;
        QTest::newRow("number zero, not installed")
            << u"#0"_s
            << u"defaults QREnabled=1, use, login svc on, list, locate svc, log updateUserDefaults -> true"_s;
        QTest::newRow("word true") << u"true"_s << u"ignore, list, login svc off"_s;
    }
    void pass()
    {
        QFETCH(QString, platform);
        QFETCH(QString, steps);
        m_fake = std::make_unique<FakePlatform>();
        m_fake->install();
        m_sink->clear();
        const QString flag = platform.section(u' ', 0, 0);
        m_fake->defaultsOpenable = flag != u"x"_s;
        if (flag != u"-"_s && flag != u"x"_s)
            m_fake->defaults[u"QREnabled"_s] = flag == u"#0"_s ? QVariant(qint64(0)) : QVariant(flag);
        const QString svc = u"com.zelna.Quorin.Service"_s;
        const QStringList ids{svc, u"other.app"_s, QString(), svc, svc + u".Finder"_s}; // pids 10 to 14
        for (const QString& id : platform.contains(u"running"_s) ? ids : QStringList())
            m_fake->running.append(
                {10 + m_fake->running.size(), id.isEmpty() ? std::nullopt : std::optional(id), {}});
        if (platform.contains(u"installed"_s))
            m_fake->serviceLocation = QUrl(u"file:///s"_s);
        if (platform.contains(u"fails"_s))
            m_fake->openError = ZLError(u"NSCocoaErrorDomain"_s, 260, u"Not there"_s);
        m_fake->modernSystem = !platform.contains(u"old"_s);
        m_fake->commandStatus = 1;
        std::atomic<int> calls = 0;
        ServiceEnableHandler::handleEnabled([&calls] { ++calls; });
        QCOMPARE(calls.load(), m_fake->hasPendingOpen() ? 0 : 1); // an open completes once it has reported
        if (m_fake->hasPendingOpen())
            m_fake->deliverOpen(); // from its own thread
        QCOMPARE(calls.load(), 1);
        static const QRegularExpression election(
            u"^run /usr/bin/env pluginkit -e (\\w+) -i com.zelna.Quorin.Service.Finder$"_s);
        static const QRegularExpression logged(
            u"^.*\\]: \"ServiceEnableHandler -> (.*)\"\\. <Service>, .*$"_s);
        QStringList journal = m_fake->journal().replaceInStrings(election, u"\\1"_s);
        journal += m_sink->lines().replaceInStrings(logged, u"log \\1"_s); // the words between the quotes
        QCOMPARE(journal.replaceInStrings(u"com.zelna.Quorin.Service"_s, u"svc"_s).join(u", "_s), steps);
        QCOMPARE(m_fake->defaults.value(u"QREnabled"_s).typeId(),
                 flag == u"x"_s ? QMetaType::UnknownType : QMetaType::QString);
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
