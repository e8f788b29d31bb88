#include "AppDelegate.h"
#include "Application.h"
#include "UpdateDelegate.h"
#include "WindowController.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QMutex>
#include <QTest>

#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {

QMutex g_mutex;
QStringList g_diagnostics;

void collect(QtMsgType, const QMessageLogContext& context, const QString& message)
{
    if (QLatin1StringView(context.category) == "zelna.launcher"_L1) {
        const QMutexLocker locker(&g_mutex);
        g_diagnostics << message;
    }
}

QStringList diagnostics()
{
    const QMutexLocker locker(&g_mutex);
    return g_diagnostics;
}

bool anyWindowVisible()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.cbegin(), windows.cend(), [](QWidget* w) { return w->isVisible(); });
}

} // namespace

class TestAppDelegate : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void reopenWhileRegularOnlyLogs();
    void reopenWhileAccessoryShowsTheWindow_data();
    void reopenWhileAccessoryShowsTheWindow();
    void controllerIsMadeOnce();
    void relaunchSwitchesTheLoginItemOffThenOn();
    void relaunchWithoutAQueueLeavesItOff();

private:
    std::shared_ptr<RecordingLogSink> m_sink;
    FakePlatform m_fake;
    std::unique_ptr<Application> m_application;
    TempHome m_home;
};

void TestAppDelegate::initTestCase()
{
    m_home.applyToProcess(); // the window's controller writes the preview file
    m_sink = RecordingLogSink::install();
    m_fake.install();
    QLoggingCategory::setFilterRules(u"zelna.*.debug=true"_s);
    qInstallMessageHandler(collect);
}

void TestAppDelegate::init()
{
    m_sink->clear();
    const QMutexLocker locker(&g_mutex);
    g_diagnostics.clear();
}

void TestAppDelegate::reopenWhileRegularOnlyLogs()
{
    Application application({u"zelna-quorin"_s}, Application::Regular);
    const auto delegate = std::make_shared<AppDelegate>();
    QVERIFY(delegate->applicationShouldHandleReopen(false));
    QCOMPARE(m_sink->lines(), QStringList{u"ZENLA Launcher applicationShouldHandleReopen"_s});
    QCOMPARE(application.activationPolicy(), Application::Regular);
    QVERIFY(!anyWindowVisible());
}

void TestAppDelegate::reopenWhileAccessoryShowsTheWindow_data()
{
    QTest::addColumn<bool>("hasVisibleWindows"); // has no say in anything
    QTest::newRow("no visible windows") << false;
    QTest::newRow("visible windows") << true;
}

void TestAppDelegate::reopenWhileAccessoryShowsTheWindow()
{
    QFETCH(bool, hasVisibleWindows);
    Application application({u"zelna-quorin"_s}, Application::Accessory);
    const auto delegate = std::make_shared<AppDelegate>();
    const int journalBefore = int(m_fake.journal().size());
    QVERIFY(delegate->applicationShouldHandleReopen(hasVisibleWindows));
    QCOMPARE(m_sink->lines().filter(u"ZENLA Launcher"_s),
             (QStringList{u"ZENLA Launcher applicationShouldHandleReopen"_s,
                          u"ZENLA Launcher Handling accessory state on reopen"_s}));
    QCOMPARE(application.activationPolicy(), Application::Regular);
    QVERIFY(delegate->controller().window()->isVisible());
    QCOMPARE(m_fake.journal().mid(journalBefore).filter(u"com.apple.dock"_s),
             QStringList{u"list com.apple.dock"_s});
    // The launcher comes forward only after its pause, never at once.
    QVERIFY(!diagnostics().contains(u"application activated"_s));
    QTRY_VERIFY_WITH_TIMEOUT(diagnostics().contains(u"application activated"_s), 10000);
    delegate->controller().window()->hide();
}

void TestAppDelegate::controllerIsMadeOnce()
{
    Application application({u"zelna-quorin"_s});
    const auto delegate = std::make_shared<AppDelegate>();
    WindowController* first = &delegate->controller();
    QCOMPARE(&delegate->controller(), first);
    QCOMPARE(first->window()->objectName(), u"MainWindow"_s);
    for (const char* outlet : {"versionTxt", "channelsPopupBtn", "enableCheckBox", "autoStartCheckBox",
                               "disablePreviewCheckbox", "disablePreviewIndicator", "makeSureTextFieldCell"})
        QVERIFY2(first->window()->findChild<QWidget*>(QString::fromLatin1(outlet)), outlet);
    QVERIFY(!first->window()->isVisible()); // made, not shown
}

void TestAppDelegate::relaunchSwitchesTheLoginItemOffThenOn()
{
    UpdateDelegate delegate;
    const int before = int(m_fake.journal().size());
    QElapsedTimer clock;
    clock.start();
    delegate.updaterDidRelaunchApplication(nullptr);
    QCOMPARE(m_fake.journal().mid(before), QStringList{u"login com.zelna.Quorin.Service off"_s});
    QTRY_COMPARE_WITH_TIMEOUT(
        m_fake.journal().mid(before),
        (QStringList{u"login com.zelna.Quorin.Service off"_s, u"login com.zelna.Quorin.Service on"_s}),
        10000);
    // Not before its 300 ms (a coarse Qt timer may fire 5 % early); a loaded
    // machine may make it later, never sooner.
    QVERIFY2(clock.elapsed() >= 285, qPrintable(QString::number(clock.elapsed())));
}

void TestAppDelegate::relaunchWithoutAQueueLeavesItOff()
{
    UpdateDelegate delegate;
    const int before = int(m_fake.journal().size());
    std::thread([&delegate] { delegate.updaterDidRelaunchApplication(nullptr); }).join();
    QTest::qWait(500);
    QCOMPARE(m_fake.journal().mid(before), QStringList{u"login com.zelna.Quorin.Service off"_s});
}

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
