#include "AppDelegate.h"
#include "Application.h"
#include "Bundle.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"
#include "Storyboard.h"
#include "TempHome.h"
#include "UpdateDelegate.h"
#include "ViewController.h"
#include "WindowController.h"
#include "ZLButton.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QLoggingCategory>
#include <QPushButton>
#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {
const QString enabledFile = uR"({"previewEnabled":true})"_s;
const QString disabledFile = uR"({"previewEnabled":false})"_s;
std::atomic<int> g_activations; // the launcher's "application activated" debug lines

// A click on the box itself, where a user clicks (a wide checkbox's middle may lie past its text).
void clickBox(QAbstractButton* box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
}
} // namespace

// The application shell and the settings window made from the bundle's own
// Main.ui, driven with real mouse and key events on the offscreen platform.
class TestGui : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    std::unique_ptr<FakePlatform> m_fake;
    std::unique_ptr<WindowController> m_window;

    ViewController& open()
    {
        m_window = Storyboard::storyboardWithName(u"Main"_s, Bundle::main())
                       .instantiateControllerWithIdentifier(u"MainWindow"_s);
        m_window->showWindow();
        if (!QTest::qWaitForWindowExposed(m_window->window()))
            qWarning("the settings window was not exposed");
        return *m_window->contentViewController();
    }
    QString previewFile() const
    {
        return m_home->dataHome() + u"/com.zelna.Quorin.shared/Communication/commnuication_file.json"_s;
    }
    QStringList since(qsizetype start) const { return m_fake->journal().mid(start); }

private Q_SLOTS:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(u"zelna.*.debug=true"_s);
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            g_activations += message == u"application activated"_s;
        });
    }
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess(); // the window writes the preview file
        m_fake = std::make_unique<FakePlatform>();
        m_fake->install();
        m_fake->defaults[u"QREnabled"_s] = u"1"_s;
        m_sink->clear();
        g_activations = 0;
    }
    void cleanup() { m_window.reset(); }

    void reopen_data()
    {
        QTest::addColumn<bool>("accessory");
        QTest::addColumn<bool>("hasVisibleWindows"); // has no say in anything
        QTest::newRow("regular") << false << false;
        QTest::newRow("accessory") << true << false;
        QTest::newRow("accessory, visible windows") << true << true;
    }
    void reopen()
    {
        QFETCH(bool, accessory);
        QFETCH(bool, hasVisibleWindows);
        Application application({u"zelna-quorin"_s},
                                accessory ? Application::Accessory : Application::Regular);
        const auto delegate = std::make_shared<AppDelegate>();
        m_fake->running = {{3, u"com.apple.dock"_s, u"/x"_s}};
        QVERIFY(delegate->applicationShouldHandleReopen(hasVisibleWindows));
        QStringList logged{u"ZENLA Launcher applicationShouldHandleReopen"_s};
        if (accessory)
            logged << u"ZENLA Launcher Handling accessory state on reopen"_s;
        QCOMPARE(m_sink->lines().filter(u"ZENLA Launcher"_s), logged);
        QCOMPARE(application.activationPolicy(), Application::Regular);
        const QWidgetList windows = QApplication::topLevelWidgets();
        QCOMPARE(std::any_of(windows.cbegin(), windows.cend(), [](QWidget* w) { return w->isVisible(); }),
                 accessory);
        // An accessory brings the Dock forward first, then itself after a pause, never at once.
        const QStringList dock{u"list com.apple.dock"_s, u"activate 3"_s};
        QCOMPARE(m_fake->journal().filter(u"dock"_s) + m_fake->journal().filter(u"activate"_s),
                 accessory ? dock : QStringList());
        QCOMPARE(g_activations.load(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(g_activations.load(), accessory ? 1 : 0, 10000);
        WindowController* controller = &delegate->controller();
        QCOMPARE(&delegate->controller(), controller); // made once
        controller->window()->hide();
    }

    void relaunchSwitchesTheLoginItemOffThenOn()
    {
        UpdateDelegate delegate;
        QElapsedTimer clock;
        clock.start();
        delegate.updaterDidRelaunchApplication(nullptr);
        const QString off = u"login com.zelna.Quorin.Service off"_s;
        QCOMPARE(m_fake->journal(), QStringList{off});
        QTRY_COMPARE_WITH_TIMEOUT(m_fake->journal(),
                                  (QStringList{off, u"login com.zelna.Quorin.Service on"_s}), 10000);
        // Not before its 300 ms (a coarse timer may fire 5 % early); later on a loaded machine.
        QVERIFY2(clock.elapsed() >= 285, qPrintable(QString::number(clock.elapsed())));
        // From a thread without a queue the item stays off.
        std::thread([&delegate] { delegate.updaterDidRelaunchApplication(nullptr); }).join();
        QTest::qWait(500);
        QCOMPARE(m_fake->journal().mid(2), QStringList{off});
    }

    void windowShowsTheServiceState_data()
    {
        QTest::addColumn<bool>("running");    // the stored flag says enabled in both: only the process counts
        QTest::addColumn<QString>("preview"); // the file before; empty for none
        QTest::newRow("not running, no preview file, current system") << false << QString();
        QTest::newRow("running, previews disabled, earlier system") << true << disabledFile;
    }
    void windowShowsTheServiceState()
    {
        QFETCH(bool, running);
        QFETCH(QString, preview);
        if (running)
            m_fake->running = {{7, u"com.zelna.Quorin.Service"_s, u"/x"_s}};
        m_fake->modernSystem = !running;
        QVERIFY(preview.isEmpty() || TempHome::writeFile(previewFile(), preview.toUtf8()));
        ViewController& controller = open();
        QCOMPARE(
            (QList<bool>{controller.enableCheckBox->isChecked(), controller.autoStartCheckBox->isChecked(),
                         controller.disablePreviewCheckbox->isChecked(),
                         controller.disablePreviewCheckbox->isEnabled()}),
            QList<bool>(4, running));
        QCOMPARE(controller.versionTxt->text(),
                 u"Version: "_s
                     + Bundle::main().objectForInfoDictionaryKey(u"CFBundleShortVersionString"_s).toString());
        QCOMPARE(TempHome::readFile(previewFile()), running ? disabledFile : enabledFile); // read, or written
        const QLabel& text = *controller.makeSureTextFieldCell;
        QCOMPARE(text.text(),
                 running ? u"Make sure ZELNA Quorin is allowed under: System Preferences > Extensions >"
                           u"\u00A0 Finder Extensions > MacQuorinFinder."_s
                         : u"Make sure ZELNA Quorin is allowed under: System Settings > Privacy & "
                           u"Security > Extensions > Added extensions > ZELNA Quorin Service."_s);
        // The current system's text in the system font at 12 points; the earlier one as the storyboard left
        // it.
        QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        font.setPointSizeF(12);
        QCOMPARE(text.font(), running ? controller.view()->font() : font);
    }

    void enableStoresStartsAndGuardsAgainstASecondClick()
    {
        ViewController& controller = open();
        ZLButton& enable = *controller.enableCheckBox;
        const qsizetype start = m_fake->journal().size();
        clickBox(&enable);
        QVERIFY(enable.isChecked() && enable.disableMouseDown);
        QVERIFY(controller.autoStartCheckBox->isChecked() && controller.disablePreviewCheckbox->isEnabled());
        const QStringList steps = since(start);
        QCOMPARE(steps.value(0), u"defaults QREnabled=1"_s);
        QCOMPARE(steps.filter(u"pluginkit -e use"_s).size(), 1); // one service pass
        clickBox(&enable); // a second press within the second does nothing at all
        QVERIFY(enable.isChecked());
        QCOMPARE(since(start), steps);
        // After the timer, a click goes through: off stores "0" and runs no pass.
        QTRY_VERIFY_WITH_TIMEOUT(!enable.disableMouseDown, 10000);
        clickBox(&enable);
        QVERIFY(!enable.isChecked() && !controller.autoStartCheckBox->isChecked());
        QVERIFY(!controller.disablePreviewCheckbox->isEnabled());
        QCOMPARE(since(start).mid(steps.size()), QStringList{u"defaults QREnabled=0"_s});
        // The keyboard and programmatic clicks get through the guard.
        enable.disableMouseDown = true;
        enable.setFocus();
        QTest::keyClick(&enable, Qt::Key_Space);
        QVERIFY(enable.isChecked() && controller.autoStartCheckBox->isChecked());
        enable.click();
        QVERIFY(!enable.isChecked());
    }

    void previewHelpAndAccessibleNames()
    {
        m_fake->running = {{7, u"com.zelna.Quorin.Service"_s, u"/x"_s}};
        ViewController& controller = open();
        clickBox(controller.disablePreviewCheckbox);
        QCOMPARE(TempHome::readFile(previewFile()), disabledFile); // the inverse of the box
        clickBox(controller.disablePreviewCheckbox);
        QCOMPARE(TempHome::readFile(previewFile()), enabledFile);

        QTest::mouseClick(m_window->window()->findChild<QPushButton*>(u"helpButton"_s), Qt::LeftButton);
        const QString base = Bundle::main().objectForInfoDictionaryKey(u"ZLHelpBaseURL"_s).toString();
        QCOMPARE(m_fake->journal().filter(u"openURL"_s),
                 QStringList{u"openURL "_s + base + u"#gateway-administration-guide"_s});
        QVERIFY(base.startsWith(u"https://"_s) && base.endsWith(u'/'));

        QStringList order; // each control in tab order, named for assistive technology
        const QWidget* window = m_window->window();
        for (QWidget* w = window->nextInFocusChain(); w != window; w = w->nextInFocusChain()) {
            if (w->focusPolicy() & Qt::TabFocus)
                order << w->objectName() + (w->accessibleName().isEmpty() ? u" (no name)"_s : QString());
        }
        QCOMPARE(order, (QStringList{u"enableCheckBox"_s, u"autoStartCheckBox"_s, u"disablePreviewCheckbox"_s,
                                     u"channelsPopupBtn"_s, u"helpButton"_s}));
    }
};

QTEST_MAIN(TestGui)
#include "tst_gui.moc"
