#include "DispatchQueue.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"
#include "ServiceEnableHandler.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <atomic>
#include <semaphore>
#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {
const QString service = u"com.zelna.Quorin.Service"_s;
const QString use = u"run /usr/bin/env pluginkit -e use -i com.zelna.Quorin.Service.Finder"_s;
const QString ignore = u"run /usr/bin/env pluginkit -e ignore -i com.zelna.Quorin.Service.Finder"_s;
const QString on = u"login com.zelna.Quorin.Service on"_s;
const QString storedTrue = u"\"ServiceEnableHandler -> updateUserDefaults -> true\". <Service>"_s;
} // namespace

// Service control against a fake platform, and the work queues under it.
class TestCore : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<FakePlatform> m_fake;

private Q_SLOTS:
    void init()
    {
        m_sink->clear();
        m_fake = std::make_unique<FakePlatform>();
        m_fake->install();
    }

    void pass_data()
    {
        // The platform: the stored flag ("-" absent, "x" unopenable), the running
        // processes (pid:identifier, "" for none), the service's location, an old system.
        QTest::addColumn<QString>("flag");
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<bool>("installed");
        QTest::addColumn<bool>("old");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("logged"); // the log, one line or none
        const QStringList mixed{u"10:"_s + service, u"11:other.app"_s, u"12:"_s, u"13:"_s + service,
                                u"14:"_s + service + u".Finder"_s};
        // Every instance killed, however the election went (it fails here).
        QTest::newRow("disabled") << u"0"_s << mixed << true << false
                                  << QStringList{ignore, u"list"_s, u"kill 10"_s, u"kill 13"_s,
                                                 u"login com.zelna.Quorin.Service off"_s}
                                  << QString();
        QTest::newRow("enabled, running")
            << u"1"_s << mixed << true << false << QStringList{use, on, u"list"_s} << QString();
        QTest::newRow("enabled, not installed")
            << u"1"_s << QStringList() << false << false
            << QStringList{use, on, u"list"_s, u"locate "_s + service} << QString();
        QTest::newRow("absent flag stored first")
            << u"-"_s << QStringList{u"5:"_s + service} << true << false
            << QStringList{u"defaults QREnabled=1"_s, use, on, u"list"_s} << storedTrue;
        QTest::newRow("defaults unopenable")
            << u"x"_s << QStringList() << true << false << QStringList() << QString();
        // The identifier, not the location found, is launched on an old system.
        QTest::newRow("old system")
            << u"1"_s << QStringList() << true << true
            << QStringList{use, on, u"list"_s, u"locate "_s + service, u"launch "_s + service}
            << u"\"ServiceEnableHandler -> handleEnabled -> launchApplication -> true\""_s;
    }
    void pass()
    {
        QFETCH(QString, flag);
        QFETCH(QStringList, running);
        QFETCH(bool, installed);
        QFETCH(bool, old);
        QFETCH(QStringList, steps);
        QFETCH(QString, logged);
        if (flag != u"-"_s && flag != u"x"_s)
            m_fake->defaults[u"QREnabled"_s] = flag;
        m_fake->defaultsOpenable = flag != u"x"_s;
        for (const QString& process : running) {
            const QString id = process.section(u':', 1);
            m_fake->running.append({process.section(u':', 0, 0).toLongLong(),
                                    id.isEmpty() ? std::nullopt : std::optional(id), u"/bin/x"_s});
        }
        if (installed)
            m_fake->serviceLocation = QUrl(u"file:///apps/s.desktop"_s);
        m_fake->modernSystem = !old;
        m_fake->commandStatus = 1;
        std::atomic<int> calls = 0;
        std::thread::id thread;
        ServiceEnableHandler::handleEnabled([&] {
            thread = std::this_thread::get_id();
            ++calls;
        });
        QCOMPARE(m_fake->journal(), steps);
        QCOMPARE(calls.load(), 1);
        QCOMPARE(thread, std::this_thread::get_id());
        QCOMPARE(m_sink->lines().size(), logged.isEmpty() ? 0 : 1);
        QVERIFY(logged.isEmpty() || m_sink->lines()[0].contains(logged));
        QCOMPARE(m_fake->defaults.value(u"QREnabled"_s).typeId(),
                 flag == u"x"_s ? QMetaType::UnknownType : QMetaType::QString);
    }

    void openCompletesOnTheCallbackThread_data()
    {
        QTest::addColumn<std::optional<ZLError>>("error");
        QTest::addColumn<QString>("described");
        QTest::newRow("opened") << std::optional<ZLError>() << u"nil"_s;
        QTest::newRow("failed") << std::optional(ZLError(u"NSCocoaErrorDomain"_s, 260, u"Not there"_s))
                                << u"Optional(Error Domain=NSCocoaErrorDomain Code=260 \"Not there\")"_s;
        QTest::newRow("old system refused") << std::optional<ZLError>() << QString();
    }
    void openCompletesOnTheCallbackThread()
    {
        QFETCH(std::optional<ZLError>, error);
        QFETCH(QString, described);
        m_fake->defaults[u"QREnabled"_s] = u"1"_s;
        m_fake->serviceLocation = QUrl(u"file:///apps/com.zelna.Quorin.Service.desktop"_s);
        m_fake->openError = error;
        m_fake->modernSystem = !described.isEmpty();
        m_fake->launchAnswer = false;
        std::atomic<int> calls = 0;
        std::thread::id thread;
        ServiceEnableHandler::handleEnabled([&] {
            thread = std::this_thread::get_id();
            ++calls;
        });
        if (described.isEmpty()) { // launched by name, refused: completes at once, logged
            QCOMPARE(calls.load(), 1);
            QVERIFY(m_sink->lines().value(0).contains(u"launchApplication -> false\". <Service>"_s));
            return;
        }
        // Returns before the open has reported.
        QCOMPARE(calls.load(), 0);
        QCOMPARE(m_fake->journal(), (QStringList{use, on, u"list"_s, u"locate "_s + service,
                                                 u"open file:///apps/com.zelna.Quorin.Service.desktop"_s}));
        QVERIFY(m_sink->lines().isEmpty());
        m_fake->deliverOpen();
        QCOMPARE(calls.load(), 1);
        QVERIFY(thread != std::this_thread::get_id());
        QCOMPARE(m_sink->lines().size(), 1);
        QVERIFY2(
            m_sink->lines()[0].contains(u"]: \"ServiceEnableHandler -> handleEnabled -> openApplication -> "
                                        u"with error: "_s
                                        + described + u"\". <Service>, "_s),
            qPrintable(m_sink->lines()[0]));
    }

    void noCompletionOnEveryPath()
    {
        m_fake->defaults[u"QREnabled"_s] = u"0"_s;
        ServiceEnableHandler::handleEnabled();
        m_fake->defaults[u"QREnabled"_s] = u"1"_s;
        ServiceEnableHandler::handleEnabled();
        m_fake->serviceLocation = QUrl(u"file:///s.desktop"_s);
        ServiceEnableHandler::handleEnabled();
        m_fake->deliverOpen();
        m_fake->modernSystem = false;
        ServiceEnableHandler::handleEnabled();
        QCOMPARE(m_fake->journal().filter(u"login"_s).size(), 4);
    }

    void readingTheFlag_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<QVariant>("afterwards");
        QTest::newRow("absent") << QVariant() << true << QVariant(u"1"_s);
        QTest::newRow("one") << QVariant(u"1"_s) << true << QVariant(u"1"_s);
        QTest::newRow("zero") << QVariant(u"0"_s) << false << QVariant(u"0"_s);
        QTest::newRow("word true") << QVariant(u"true"_s) << false << QVariant(u"true"_s);
        QTest::newRow("one and a space") << QVariant(u"1 "_s) << false << QVariant(u"1 "_s);
        QTest::newRow("number one") << QVariant(qint64(1)) << true << QVariant(u"1"_s);
        QTest::newRow("number zero") << QVariant(qint64(0)) << true << QVariant(u"1"_s);
        QTest::newRow("boolean false") << QVariant(false) << true << QVariant(u"1"_s);
    }
    void readingTheFlag()
    {
        QFETCH(QVariant, stored);
        QFETCH(bool, expected);
        QFETCH(QVariant, afterwards);
        if (stored.isValid())
            m_fake->defaults[u"QREnabled"_s] = stored;
        QCOMPARE(ServiceEnableHandler::userDefaultsHandler(std::nullopt), std::optional<bool>(expected));
        const QVariant now = m_fake->defaults.value(u"QREnabled"_s);
        QCOMPARE(now, afterwards);
        QCOMPARE(now.typeId(), afterwards.typeId());
        const bool rewritten = now != stored || now.typeId() != stored.typeId();
        QCOMPARE(m_sink->lines().size(), rewritten ? 1 : 0);
        QVERIFY(!rewritten || m_sink->lines()[0].contains(storedTrue));
    }

    void writingAndTheShell()
    {
        QCOMPARE(ServiceEnableHandler::userDefaultsHandler(false), std::optional<bool>()); // answers nothing
        ServiceEnableHandler::updateUserDefaults(false);
        QCOMPARE(m_fake->journal(), (QStringList{u"defaults QREnabled=0"_s, u"defaults QREnabled=0"_s}));
        QCOMPARE(m_sink->lines()
                     .filter(u"\"ServiceEnableHandler -> updateUserDefaults -> false\". <Service>"_s)
                     .size(),
                 2);
        m_fake->defaultsOpenable = false;
        m_sink->clear();
        ServiceEnableHandler::updateUserDefaults(true);
        QCOMPARE(ServiceEnableHandler::userDefaultsHandler(std::nullopt), std::optional<bool>());
        QCOMPARE(m_sink->lines(), QStringList());

        m_fake->commandStatus = 7;
        QCOMPARE(ServiceEnableHandler::shell({u"pluginkit"_s, u"-e"_s, u"ignore"_s, u"a b"_s}), 7);
        QCOMPARE(m_fake->journal().last(), u"run /usr/bin/env pluginkit -e ignore a b"_s);
    }

    void queuesRunInOrderOnTheirThread()
    {
        QCOMPARE(DispatchQueue::current(), &DispatchQueue::main());
        QCOMPARE(OperationQueue::current()->underlyingQueue(), &DispatchQueue::main());
        DispatchQueue serial(u"AggregationQueue"_s);
        QList<int> order;
        QSet<QThread*> threads;
        QSet<DispatchQueue*> current, underlying;
        std::binary_semaphore done{0};
        for (int i = 0; i < 50; ++i)
            serial.async([&, i] {
                order.append(i);
                threads.insert(QThread::currentThread());
                current.insert(DispatchQueue::current());
                underlying.insert(OperationQueue::current() ? OperationQueue::current()->underlyingQueue()
                                                            : nullptr);
                if (i == 49)
                    done.release();
            });
        QVERIFY(done.try_acquire_for(5s));
        QCOMPARE(order.size(), 50);
        QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
        QCOMPARE(threads.size(), 1);
        QCOMPARE((*threads.cbegin())->objectName(), u"AggregationQueue"_s);
        QCOMPARE(current, QSet<DispatchQueue*>{&serial});
        QCOMPARE(underlying, QSet<DispatchQueue*>{&serial});
        bool none = false; // any other thread has no queue
        std::thread([&none] { none = !DispatchQueue::current() && !OperationQueue::current(); }).join();
        QVERIFY(none);
    }

    void delayedWorkWaitsAndLandsOnTheMainQueue()
    {
        QElapsedTimer clock;
        clock.start();
        qint64 ranAfter = -1;
        DispatchQueue* ranOn = nullptr;
        DispatchQueue::main().asyncAfter(200ms, [&] {
            ranAfter = clock.elapsed();
            ranOn = DispatchQueue::current();
        });
        QCOMPARE(ranAfter, -1); // never in the same turn
        int runs = 0;           // two scheduled together, one from another thread: all run
        DispatchQueue::main().asyncAfter(50ms, [&runs] { ++runs; });
        std::thread([&runs] { DispatchQueue::main().asyncAfter(60ms, [&runs] { ++runs; }); }).join();
        QTRY_VERIFY_WITH_TIMEOUT(ranAfter >= 0 && runs == 2, 10000);
        QVERIFY2(ranAfter >= 195, qPrintable(QString::number(ranAfter)));
        QCOMPARE(ranOn, &DispatchQueue::main());
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
