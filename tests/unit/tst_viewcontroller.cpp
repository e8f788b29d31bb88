#include "Bundle.h"
#include "Storyboard.h"
#include "ViewController.h"
#include "WindowController.h"
#include "ZLButton.h"
#include "FakePlatform.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFontDatabase>
#include <QPushButton>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {
const QString service = u"com.zelna.Quorin.Service"_s;
const QByteArray enabledFile = R"({"previewEnabled":true})";
const QByteArray disabledFile = R"({"previewEnabled":false})";

// A click on the box itself, where a user clicks (a wide checkbox's middle may lie past its text).
void clickBox(QAbstractButton* box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
}
} // namespace

// The settings window made from the bundle's own Main.ui, driven with real
// mouse and key events on the offscreen platform.
class TestViewController : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void serviceNotRunningGreysEverything();
    void serviceRunningWithPreviewsDisabled();
    void instructionsFollowTheSystem_data();
    void instructionsFollowTheSystem();
    void enableStoresStartsAndGuardsAgainstASecondClick();
    void keyboardGetsThroughTheGuard();
    void previewCheckboxWritesTheInverse();
    void helpOpensTheGuideInTheBrowser();
    void everyControlHasAnAccessibleName();

private:
    ViewController& open();
    QString previewFile() const
    {
        return m_home->dataHome() + u"/com.zelna.Quorin.shared/Communication/commnuication_file.json"_s;
    }
    QStringList journalSince(qsizetype start) const { return m_fake->journal().mid(start); }

    std::unique_ptr<TempHome> m_home;
    std::unique_ptr<FakePlatform> m_fake;
    std::unique_ptr<WindowController> m_window;
};

void TestViewController::initTestCase()
{
    RecordingLogSink::install();
}

void TestViewController::init()
{
    m_home = std::make_unique<TempHome>();
    m_home->applyToProcess();
    m_fake = std::make_unique<FakePlatform>();
    m_fake->install();
    m_fake->defaults[u"QREnabled"_s] = u"1"_s;
}

void TestViewController::cleanup()
{
    m_window.reset();
}

ViewController& TestViewController::open()
{
    m_window = Storyboard::storyboardWithName(u"Main"_s, Bundle::main())
                   .instantiateControllerWithIdentifier(u"MainWindow"_s);
    m_window->showWindow();
    if (!QTest::qWaitForWindowExposed(m_window->window()))
        qWarning("the settings window was not exposed");
    return *m_window->contentViewController();
}

void TestViewController::serviceNotRunningGreysEverything()
{
    ViewController& controller = open(); // the stored flag says enabled; only the process counts
    QVERIFY(!controller.enableCheckBox->isChecked());
    QVERIFY(!controller.autoStartCheckBox->isChecked());
    QVERIFY(!controller.disablePreviewCheckbox->isChecked());
    QVERIFY(!controller.disablePreviewCheckbox->isEnabled());
    QCOMPARE(controller.versionTxt->text(),
             u"Version: "_s
                 + Bundle::main().objectForInfoDictionaryKey(u"CFBundleShortVersionString"_s).toString());
    // No preview file yet: one with previews enabled is written.
    QCOMPARE(TempHome::readFile(previewFile()).toUtf8(), enabledFile);
}

void TestViewController::serviceRunningWithPreviewsDisabled()
{
    m_fake->running = {{7, service, u"/x"_s}};
    QVERIFY(TempHome::writeFile(previewFile(), disabledFile));
    ViewController& controller = open();
    QVERIFY(controller.enableCheckBox->isChecked());
    QVERIFY(controller.autoStartCheckBox->isChecked());
    QVERIFY(controller.disablePreviewCheckbox->isChecked());
    QVERIFY(controller.disablePreviewCheckbox->isEnabled());
    QCOMPARE(TempHome::readFile(previewFile()).toUtf8(), disabledFile); // read, not rewritten
}

void TestViewController::instructionsFollowTheSystem_data()
{
    QTest::addColumn<bool>("current");
    QTest::newRow("current system") << true;
    QTest::newRow("earlier system") << false;
}

void TestViewController::instructionsFollowTheSystem()
{
    QFETCH(bool, current);
    m_fake->modernSystem = current;
    ViewController& controller = open();
    const QLabel& text = *controller.makeSureTextFieldCell;
    if (current) {
        QCOMPARE(text.text(),
                 u"Make sure ZELNA Quorin is allowed under: System Settings > Privacy & Security > "
                 u"Extensions > Added extensions > ZELNA Quorin Service."_s);
        QCOMPARE(text.font().pointSizeF(), 12.0);
        QCOMPARE(text.font().family(), QFontDatabase::systemFont(QFontDatabase::GeneralFont).family());
    } else {
        QCOMPARE(text.text(), u"Make sure ZELNA Quorin is allowed under: System Preferences > Extensions >"
                              u"\u00A0 Finder Extensions > MacQuorinFinder."_s);
        QCOMPARE(text.font(), controller.view()->font()); // as the storyboard left it
    }
}

void TestViewController::enableStoresStartsAndGuardsAgainstASecondClick()
{
    ViewController& controller = open();
    ZLButton& enable = *controller.enableCheckBox;
    const qsizetype start = m_fake->journal().size();
    clickBox(&enable);
    QVERIFY(enable.isChecked());
    QVERIFY(enable.disableMouseDown);
    QCOMPARE(controller.autoStartCheckBox->isChecked(), true);
    QVERIFY(controller.disablePreviewCheckbox->isEnabled());
    const QStringList steps = journalSince(start);
    QCOMPARE(steps.value(0), u"defaults QREnabled=1"_s);
    QCOMPARE(steps.filter(u"pluginkit -e use"_s).size(), 1); // one service pass

    // A second press within the second does nothing at all.
    clickBox(&enable);
    QVERIFY(enable.isChecked());
    QCOMPARE(journalSince(start), steps);

    // After the timer, a click goes through: off stores "0" and runs no pass.
    QTRY_VERIFY_WITH_TIMEOUT(!enable.disableMouseDown, 10000);
    clickBox(&enable);
    QVERIFY(!enable.isChecked());
    QCOMPARE(journalSince(start).mid(steps.size()), QStringList{u"defaults QREnabled=0"_s});
    QVERIFY(!controller.autoStartCheckBox->isChecked());
    QVERIFY(!controller.disablePreviewCheckbox->isEnabled());
}

void TestViewController::keyboardGetsThroughTheGuard()
{
    ViewController& controller = open();
    ZLButton& enable = *controller.enableCheckBox;
    enable.disableMouseDown = true;
    enable.setFocus();
    QTest::keyClick(&enable, Qt::Key_Space);
    QVERIFY(enable.isChecked());
    QVERIFY(controller.autoStartCheckBox->isChecked()); // the action ran
    enable.click();                                     // so do programmatic clicks
    QVERIFY(!enable.isChecked());
    enable.disableMouseDown = false;
    enable.setChecked(true);
    QVERIFY(enable.isChecked());
}

void TestViewController::previewCheckboxWritesTheInverse()
{
    m_fake->running = {{7, service, u"/x"_s}};
    ViewController& controller = open();
    QCheckBox& preview = *controller.disablePreviewCheckbox;
    clickBox(&preview);
    QVERIFY(preview.isChecked());
    QCOMPARE(TempHome::readFile(previewFile()).toUtf8(), disabledFile);
    clickBox(&preview);
    QCOMPARE(TempHome::readFile(previewFile()).toUtf8(), enabledFile);
}

void TestViewController::helpOpensTheGuideInTheBrowser()
{
    open();
    auto* help = m_window->window()->findChild<QPushButton*>(u"helpButton"_s);
    QVERIFY(help);
    QTest::mouseClick(help, Qt::LeftButton);
    const QStringList opened = m_fake->journal().filter(u"openURL"_s);
    QCOMPARE(opened.size(), 1);
    const QString base = Bundle::main().objectForInfoDictionaryKey(u"ZLHelpBaseURL"_s).toString();
    QCOMPARE(opened.first(), u"openURL "_s + base + u"#gateway-administration-guide"_s);
    QVERIFY(base.startsWith(u"https://"_s) && base.endsWith(u'/'));
}

void TestViewController::everyControlHasAnAccessibleName()
{
    open();
    QWidget* previous = nullptr;
    QStringList order;
    for (QWidget* widget = m_window->window()->nextInFocusChain();
         widget != m_window->window() && widget != previous; widget = widget->nextInFocusChain()) {
        previous = widget;
        if (widget->focusPolicy() & Qt::TabFocus) {
            order << widget->objectName();
            QVERIFY2(!widget->accessibleName().isEmpty(), qPrintable(widget->objectName()));
        }
    }
    QCOMPARE(order, (QStringList{u"enableCheckBox"_s, u"autoStartCheckBox"_s, u"disablePreviewCheckbox"_s,
                                 u"channelsPopupBtn"_s, u"helpButton"_s}));
}

QTEST_MAIN(TestViewController)
#include "tst_viewcontroller.moc"
