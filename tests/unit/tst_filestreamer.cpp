#include "CLogger.h"
#include "DispatchQueue.h"
#include "RecordingLogSink.h"

#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <semaphore>

using namespace Qt::Literals::StringLiterals;

class TestFileStreamer : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void noStreamDoesNothing();
    void errorEventsAreReportedOthersIgnored();
    void eventsArriveOnTheThreadThatStarted();
    void eventsQueuedForAStreamThatIsGoneAreDropped();
    void appendsToTheFile();

private:
    void start(FileStreamer& streamer) { streamer.startNewStream(); }
    std::shared_ptr<RecordingLogSink> m_sink;
    QTemporaryDir m_dir;
};

void TestFileStreamer::initTestCase()
{
    m_sink = RecordingLogSink::install();
}
void TestFileStreamer::init()
{
    m_sink->clear();
}

void TestFileStreamer::noStreamDoesNothing()
{
    FileStreamer streamer(m_dir.filePath(u"log"_s));
    streamer.setOutputStream(nullptr);
    start(streamer);
    QVERIFY(!streamer.append(u"x"_s));
    QTest::qWait(20);
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestFileStreamer::errorEventsAreReportedOthersIgnored()
{
    FileStreamer streamer(m_dir.filePath(u"log"_s));
    OutputStream plain(m_dir.filePath(u"other"_s), true);
    streamer.stream(&plain, OutputStream::ErrorOccurred); // no error object
    for (int event : std::initializer_list<int>{OutputStream::OpenCompleted, OutputStream::HasSpaceAvailable,
                                                OutputStream::EndEncountered,
                                                OutputStream::ErrorOccurred | OutputStream::EndEncountered})
        streamer.stream(&plain, event);
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains(u"]: \"StreamError: nil\". <Launcher>, CLogg ("_s),
             qPrintable(lines.first()));

    // A stream that cannot open reports with its error's description.
    m_sink->clear();
    FileStreamer broken(m_dir.filePath(u"missing-folder/log"_s));
    start(broken);
    QTRY_COMPARE(m_sink->lines().size(), 1);
    QVERIFY2(m_sink->lines().first().contains(u"\"StreamError: Cannot open the log file: "_s),
             qPrintable(m_sink->lines().first()));
}

void TestFileStreamer::eventsArriveOnTheThreadThatStarted()
{
    struct Recorder : StreamDelegate {
        QList<int> events;
        QThread* thread = nullptr;
        void stream(OutputStream*, int event) override
        {
            events.append(event);
            thread = QThread::currentThread();
        }
    };
    DispatchQueue queue(u"com.zelna.stream"_s);
    OutputStream stream(m_dir.filePath(u"events"_s), true);
    Recorder recorder;
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
}

void TestFileStreamer::eventsQueuedForAStreamThatIsGoneAreDropped()
{
    struct Recorder : StreamDelegate {
        int events = 0;
        void stream(OutputStream*, int) override { ++events; }
    } recorder;
    {
        OutputStream stream(m_dir.filePath(u"gone"_s), true);
        stream.setDelegate(&recorder);
        stream.scheduleInCurrentRunLoop();
        stream.post(OutputStream::HasSpaceAvailable);
    } // gone before the event loop runs
    QTest::qWait(20);
    QCOMPARE(recorder.events, 0);
}

void TestFileStreamer::appendsToTheFile()
{
    const QString path = m_dir.filePath(u"append"_s);
    {
        FileStreamer streamer(path);
        streamer.open();
        QVERIFY(streamer.append(u"one\n"_s));
        streamer.startNewStreamWith(path); // a new stream to the same file keeps what is there
        QVERIFY(streamer.append(u"zwei \u00FC\n"_s));
        streamer.close();
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(file.readAll()), u"one\nzwei \u00FC\n"_s);
}

QTEST_GUILESS_MAIN(TestFileStreamer)
#include "tst_filestreamer.moc"
