#include "ServiceEnableHandler.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"

#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString service = u"com.zelna.Quorin.Service"_s;
const QString electUse = u"run /usr/bin/env pluginkit -e use -i com.zelna.Quorin.Service.Finder"_s;
const QString electIgnore = u"run /usr/bin/env pluginkit -e ignore -i com.zelna.Quorin.Service.Finder"_s;
const QString updateTrue = u"\"ServiceEnableHandler -> updateUserDefaults -> true\". <Service>"_s;

RunningApplication app(qint64 pid, std::optional<QString> id)
{
    return RunningApplication{pid, std::move(id), u"/bin/x"_s};
}

// Counts calls of a completion and remembers the thread of the last one.
struct CompletionProbe {
    std::atomic<int> calls{0};
    std::atomic<std::thread::id> thread;
    ServiceEnableHandler::Completion completion()
    {
        return [this] {
            thread = std::this_thread::get_id();
            ++calls;
        };
    }
};

} // namespace

class TestServiceEnableHandler : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void disabledKillsEveryInstanceThenRemovesLoginItem();
    void enabledAndRunningLeavesServiceAlone();
    void enabledButNotInstalledEndsSilently();
    void modernOpenCompletesOnTheCallbackThread_data();
    void modernOpenCompletesOnTheCallbackThread();
    void olderLaunchByName_data();
    void olderLaunchByName();
    void unopenableDefaultsOnlyComplete();
    void absentFlagIsStoredBeforeTheEnabledPass();
    void noCompletionOnEveryPath();

    void readingTheFlag_data();
    void readingTheFlag();
    void writingThroughTheHandlerAnswersNothing();
    void shellPassesArgumentsAndStatus();

private:
    std::shared_ptr<RecordingLogSink> m_sink;
    std::unique_ptr<FakePlatform> m_fake;
};

void TestServiceEnableHandler::initTestCase()
{
    m_sink = RecordingLogSink::install();
}

void TestServiceEnableHandler::init()
{
    m_sink->clear();
    m_fake = std::make_unique<FakePlatform>();
    m_fake->install();
}

void TestServiceEnableHandler::cleanup()
{
    if (m_fake->hasPendingOpen())
        m_fake->deliverOpen();
}

void TestServiceEnableHandler::disabledKillsEveryInstanceThenRemovesLoginItem()
{
    m_fake->defaults[u"QREnabled"_s] = u"0"_s;
    m_fake->running = {app(10, service), app(11, u"other.app"_s), app(12, std::nullopt), app(13, service),
                       app(14, service + u".Finder"_s)};
    m_fake->commandStatus = 1; // a failing election changes nothing
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    QCOMPARE(m_fake->journal(), (QStringList{electIgnore, u"list"_s, u"kill 10"_s, u"kill 13"_s,
                                             u"login com.zelna.Quorin.Service off"_s}));
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(probe.thread.load(), std::this_thread::get_id());
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestServiceEnableHandler::enabledAndRunningLeavesServiceAlone()
{
    m_fake->defaults[u"QREnabled"_s] = u"1"_s;
    m_fake->running = {app(3, std::nullopt), app(5, service), app(6, service)};
    m_fake->serviceLocation = QUrl(u"file:///apps/service.desktop"_s);
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    QCOMPARE(m_fake->journal(), (QStringList{electUse, u"login com.zelna.Quorin.Service on"_s, u"list"_s}));
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestServiceEnableHandler::enabledButNotInstalledEndsSilently()
{
    m_fake->defaults[u"QREnabled"_s] = u"1"_s;
    m_fake->running = {app(5, u"other"_s)};
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    QCOMPARE(m_fake->journal(), (QStringList{electUse, u"login com.zelna.Quorin.Service on"_s, u"list"_s,
                                             u"locate com.zelna.Quorin.Service"_s}));
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestServiceEnableHandler::modernOpenCompletesOnTheCallbackThread_data()
{
    QTest::addColumn<std::optional<ZLError>>("error");
    QTest::addColumn<QString>("described");
    QTest::newRow("opened") << std::optional<ZLError>() << u"nil"_s;
    QTest::newRow("failed") << std::optional<ZLError>(ZLError(u"NSCocoaErrorDomain"_s, 260, u"Not there"_s))
                            << u"Optional(Error Domain=NSCocoaErrorDomain Code=260 \"Not there\")"_s;
}

void TestServiceEnableHandler::modernOpenCompletesOnTheCallbackThread()
{
    QFETCH(std::optional<ZLError>, error);
    QFETCH(QString, described);
    m_fake->defaults[u"QREnabled"_s] = u"1"_s;
    m_fake->serviceLocation = QUrl(u"file:///apps/com.zelna.Quorin.Service.desktop"_s);
    m_fake->openError = error;
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    // handleEnabled returns before the open has reported.
    QCOMPARE(probe.calls.load(), 0);
    QCOMPARE(m_fake->journal(), (QStringList{electUse, u"login com.zelna.Quorin.Service on"_s, u"list"_s,
                                             u"locate com.zelna.Quorin.Service"_s,
                                             u"open file:///apps/com.zelna.Quorin.Service.desktop"_s}));
    QCOMPARE(m_sink->lines(), QStringList());

    m_fake->deliverOpen();
    QCOMPARE(probe.calls.load(), 1);
    QVERIFY(probe.thread.load() != std::this_thread::get_id());
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains(
                 u"]: \"ServiceEnableHandler -> handleEnabled -> openApplication -> with error: "_s
                 + described + u"\". <Service>, "_s),
             qPrintable(lines.first()));
}

void TestServiceEnableHandler::olderLaunchByName_data()
{
    QTest::addColumn<bool>("answer");
    QTest::newRow("started") << true;
    QTest::newRow("refused") << false;
}

void TestServiceEnableHandler::olderLaunchByName()
{
    QFETCH(bool, answer);
    m_fake->defaults[u"QREnabled"_s] = u"1"_s;
    m_fake->serviceLocation = QUrl(u"file:///apps/s.desktop"_s);
    m_fake->modernSystem = false;
    m_fake->launchAnswer = answer;
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    // The identifier, not the location found, is what gets launched.
    QCOMPARE(m_fake->journal().last(), u"launch com.zelna.Quorin.Service"_s);
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(probe.thread.load(), std::this_thread::get_id());
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains(u"\"ServiceEnableHandler -> handleEnabled -> launchApplication -> "_s
                                    + (answer ? u"true"_s : u"false"_s) + u"\". <Service>"_s),
             qPrintable(lines.first()));
}

void TestServiceEnableHandler::unopenableDefaultsOnlyComplete()
{
    m_fake->defaultsOpenable = false;
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(m_fake->journal(), QStringList());
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestServiceEnableHandler::absentFlagIsStoredBeforeTheEnabledPass()
{
    m_fake->running = {app(5, service)};
    CompletionProbe probe;
    ServiceEnableHandler::handleEnabled(probe.completion());

    QCOMPARE(m_fake->journal().mid(0, 2), (QStringList{u"defaults QREnabled=1"_s, electUse}));
    QCOMPARE(m_fake->defaults.value(u"QREnabled"_s).typeId(), QMetaType::QString);
    QCOMPARE(probe.calls.load(), 1);
    QCOMPARE(m_sink->lines().size(), 1);
    QVERIFY(m_sink->lines().first().contains(updateTrue));
}

void TestServiceEnableHandler::noCompletionOnEveryPath()
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

void TestServiceEnableHandler::readingTheFlag_data()
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

void TestServiceEnableHandler::readingTheFlag()
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
    if (rewritten)
        QVERIFY(m_sink->lines().first().contains(updateTrue));
}

void TestServiceEnableHandler::writingThroughTheHandlerAnswersNothing()
{
    QCOMPARE(ServiceEnableHandler::userDefaultsHandler(false), std::optional<bool>());
    QCOMPARE(m_fake->defaults.value(u"QREnabled"_s), QVariant(u"0"_s));
    ServiceEnableHandler::updateUserDefaults(false);
    QCOMPARE(m_fake->journal(), (QStringList{u"defaults QREnabled=0"_s, u"defaults QREnabled=0"_s}));
    const QStringList lines = m_sink->lines();
    QCOMPARE(lines.size(), 2);
    for (const QString& line : lines)
        QVERIFY(line.contains(u"\"ServiceEnableHandler -> updateUserDefaults -> false\". <Service>"_s));

    m_fake->defaultsOpenable = false;
    m_sink->clear();
    ServiceEnableHandler::updateUserDefaults(true);
    QCOMPARE(ServiceEnableHandler::userDefaultsHandler(std::nullopt), std::optional<bool>());
    QCOMPARE(m_sink->lines(), QStringList());
}

void TestServiceEnableHandler::shellPassesArgumentsAndStatus()
{
    m_fake->commandStatus = 7;
    QCOMPARE(ServiceEnableHandler::shell({u"pluginkit"_s, u"-e"_s, u"ignore"_s, u"a b"_s}), 7);
    QCOMPARE(m_fake->journal(), QStringList{u"run /usr/bin/env pluginkit -e ignore a b"_s});
}

QTEST_APPLESS_MAIN(TestServiceEnableHandler)
#include "tst_serviceenablehandler.moc"
