#include "DispatchQueue.h"

#include <QElapsedTimer>
#include <QTest>

#include <semaphore>
#include <QThread>

#include <thread>

using namespace std::chrono_literals;

class TestDispatch : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void currentQueueFollowsTheThread();
    void serialQueueRunsInOrderOnItsThread();
    void delayedWorkWaitsAndLandsOnItsQueue();
    void foreignThreadsReachTheMainQueue();
};

void TestDispatch::currentQueueFollowsTheThread()
{
    QCOMPARE(DispatchQueue::current(), &DispatchQueue::main());
    QCOMPARE(OperationQueue::current()->underlyingQueue(), &DispatchQueue::main());

    DispatchQueue serial(QStringLiteral("com.zelna.test"));
    std::binary_semaphore done{0};
    DispatchQueue* seen = nullptr;
    DispatchQueue* underlying = nullptr;
    serial.async([&] {
        seen = DispatchQueue::current();
        underlying = OperationQueue::current() ? OperationQueue::current()->underlyingQueue() : nullptr;
        done.release();
    });
    QVERIFY(done.try_acquire_for(std::chrono::milliseconds(5000)));
    QCOMPARE(seen, &serial);
    QCOMPARE(underlying, &serial);

    // Any other thread has no operation queue.
    bool none = false;
    std::thread([&none] { none = !DispatchQueue::current() && !OperationQueue::current(); }).join();
    QVERIFY(none);
}

void TestDispatch::serialQueueRunsInOrderOnItsThread()
{
    DispatchQueue serial(QStringLiteral("AggregationQueue"));
    QList<int> order;
    QSet<QThread*> threads;
    std::binary_semaphore done{0};
    for (int i = 0; i < 50; ++i) {
        serial.async([&, i] {
            order.append(i);
            threads.insert(QThread::currentThread());
            if (i == 49)
                done.release();
        });
    }
    QVERIFY(done.try_acquire_for(std::chrono::milliseconds(5000)));
    QCOMPARE(order.size(), 50);
    QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
    QCOMPARE(threads.size(), 1);
    QVERIFY(!threads.contains(QThread::currentThread()));
    QCOMPARE((*threads.cbegin())->objectName(), QStringLiteral("AggregationQueue"));
}

void TestDispatch::delayedWorkWaitsAndLandsOnItsQueue()
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
    QTRY_VERIFY_WITH_TIMEOUT(ranAfter >= 0, 5000);
    QVERIFY2(ranAfter >= 195, qPrintable(QString::number(ranAfter)));
    QCOMPARE(ranOn, &DispatchQueue::main());

    // Two delays scheduled together both run.
    int runs = 0;
    DispatchQueue::main().asyncAfter(50ms, [&runs] { ++runs; });
    DispatchQueue::main().asyncAfter(60ms, [&runs] { ++runs; });
    QTRY_COMPARE(runs, 2);
}

void TestDispatch::foreignThreadsReachTheMainQueue()
{
    QThread* ranOn = nullptr;
    std::thread([&ranOn] {
        DispatchQueue::main().asyncAfter(10ms, [&ranOn] { ranOn = QThread::currentThread(); });
    }).join();
    QTRY_COMPARE(ranOn, QThread::currentThread());
}

QTEST_GUILESS_MAIN(TestDispatch)
#include "tst_dispatch.moc"
