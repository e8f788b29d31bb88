#include "AppDelegate.h"
#include "Application.h"
#include "Bundle.h"
#include "Storyboard.h"
#include "SUStandardUserDriver.h"
#include "SUUpdateAlert.h"
#include "Testing.h"
#include "UpdateDelegate.h"
#include "ViewController.h"
#include "WidgetWindows.h"
#include "WindowController.h"
#include "ZLButton.h"

#include <QDeadlineTimer>
#include <QLoggingCategory>
#include <QPushButton>
#include <QTextBrowser>
#include <QThreadPool>
#include <QTimer>

namespace {
const QString enabledFile = uR"({"previewEnabled":true})"_s;
const QString disabledFile = uR"({"previewEnabled":false})"_s;
const QString previewPath = u"/com.zelna.Quorin.shared/Communication/commnuication_file.json"_s;
const QString service = QStringLiteral(ZQ_TEST_SERVICE);
std::atomic<int> g_activations; // the launcher's "application activated" debug lines

} // namespace

// The application shell and the settings window from the bundle's Main.ui, driven by mouse and keys.
class TestGui : public QObject {
    Q_OBJECT
    TempHome m_home;
    std::unique_ptr<WindowController> m_window;
    // The addresses the desktop's default browser was given.
    QStringList opened() const
    {
        return TempHome::readFile(m_home.path() + u"/opened"_s).split(u' ', Qt::SkipEmptyParts);
    }

    ViewController& open()
    {
        m_window = Storyboard::storyboardWithName(u"Main"_s, Bundle::main())
                       .instantiateControllerWithIdentifier(u"MainWindow"_s);
        m_window->showWindow();
        std::ignore = QTest::qWaitForWindowExposed(m_window->window()); // for the clicks; failing, they fail
        return *m_window->contentViewController();
    }
    // A click on the box itself, where a user clicks (a wide checkbox's middle may lie past its text).
    static void clickBox(QWidget* box) { QTest::mouseClick(box, Qt::LeftButton, {}, {8, box->height() / 2}); }
    QString previewFile() const { return m_home.dataHome() + previewPath; }
    QString loginItem() const { return m_home.autostartDir() + u"/com.zelna.Quorin.Service.desktop"_s; }

private Q_SLOTS:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(u"zelna.*.debug=true"_s);
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            g_activations += message == u"application activated"_s;
        });
        m_home.applyToProcess(); // before GIO reads the variables
        m_home.installApplication(u"com.zelna.Quorin.Service"_s, service);
        // The default browser, through GIO as a desktop session finds it, notes each address it is given.
        m_home.installApplication(u"browser"_s, u"sh -c 'printf \"%%s \" \"$0\" >>\"$HOME\"/opened' %u"_s);
        QVERIFY(TempHome::writeFile(m_home.configHome() + u"/mimeapps.list"_s,
                                    "[Default Applications]\nx-scheme-handler/http=browser.desktop\n"
                                    "x-scheme-handler/https=browser.desktop\n"));
    }
    void cleanup()
    {
        m_window.reset();
        QThreadPool::globalInstance()->waitForDone(); // a start the window asked for
        TempHome::killAll(service);
        QFile::remove(previewFile());
        QFile::remove(m_home.path() + u"/opened"_s);
    }

    void applicationShell()
    {
        // An accessory reopened comes forward after a pause (on macOS, the Dock first), never at once.
        WidgetWindows windows(Bundle::main());
        Application application({u"zelna-quorin"_s}, Application::Accessory, &windows);
        const auto delegate = std::make_shared<AppDelegate>();
        QVERIFY(delegate->applicationShouldHandleReopen(false));
        QVERIFY(windows.settingsWindow().window()->isVisible()); // made once: the one shown
        QCOMPARE(g_activations.load(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(g_activations.load(), 1, 10000);
        // A checker whose window was shown has become a launcher: an answer does not end its event loop.
        UpdateDelegate& updates = *delegate->UODATE_DELEGATE;
        AppDelegate::isChecker = true;
        updates.updaterDidNotFindUpdate(nullptr);
        updates.updaterDidAbortWithError(nullptr, {});
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&loop] { loop.exit(5); });
        QCOMPARE(loop.exec(), 5);
        // After an update the login item goes off, then on 300 ms later, even if the process ends in between.
        QVERIFY(TempHome::writeFile(loginItem(), "[Desktop Entry]\n"));
        const QDeadlineTimer off(300ms, Qt::PreciseTimer);
        updates.updaterDidRelaunchApplication(nullptr);
        QTest::qWait(100);
        QVERIFY(!QFile::exists(loginItem()));
        UpdateDelegate::finishPendingWork();
        QVERIFY(TempHome::readFile(loginItem()).contains(u"Exec="_s + service));
        QVERIFY2(off.hasExpired(), qPrintable(u"back on %1 ms early"_s.arg(off.remainingTime())));
    }
    void settingsWindow_data()
    {
        // No stored flag: only the process counts.
        QTest::addColumn<bool>("running");
        QTest::newRow("not running, no preview file") << false;
        QTest::newRow("running, previews disabled") << true;
    }
    void settingsWindow()
    {
        QFETCH(bool, running);
        QVERIFY(!running || QProcess::startDetached(service)); // ended by cleanup()
        QVERIFY(!running || TempHome::writeFile(previewFile(), disabledFile.toUtf8()));
        ViewController& ui = open();
        QCOMPARE(
            (QList<bool>{ui.enableCheckBox->isChecked(), ui.autoStartCheckBox->isChecked(),
                         ui.disablePreviewCheckbox->isChecked(), ui.disablePreviewCheckbox->isEnabled()}),
            QList<bool>(4, running));
        const auto info
            = [](const QString& key) { return Bundle::main().objectForInfoDictionaryKey(key).toString(); };
        QCOMPARE(ui.versionTxt->text(), u"Version: "_s + info(u"CFBundleShortVersionString"_s));
        QCOMPARE(ui.enableCheckBox->text() + u'|' + ui.makeSureTextFieldCell->text(),
                 u"&Enable ZELNA Quorin|Make sure ZELNA Quorin is allowed under: System Settings > Privacy & "
                 u"Security > Extensions > Added extensions > ZELNA Quorin Service."_s);
        QCOMPARE(ui.makeSureTextFieldCell->font().pointSizeF(), 12.0); // the current system's size
        // The file says the inverse of the box, which changes only while the service runs.
        for (const QString& after : {enabledFile, disabledFile}) {
            clickBox(ui.disablePreviewCheckbox);
            QCOMPARE(TempHome::readFile(previewFile()), running ? after : enabledFile);
        }
        // Help opens the bundle's help page at its fragment.
        QTest::mouseClick(m_window->window()->findChild<QPushButton*>(u"helpButton"_s), Qt::LeftButton);
        QTRY_COMPARE(opened(), QStringList(info(u"ZLHelpBaseURL"_s) + u'#' + info(u"ZLHelpPageFragment"_s)));
        for (QWidget* control :
             m_window->window()->findChildren<QWidget*>()) // named for assistive technology
            QVERIFY2(!(control->focusPolicy() & Qt::TabFocus) || !control->accessibleName().isEmpty(),
                     qPrintable(control->objectName()));
    }

    // Checks that find an update while its window is open raise that one window, at the newest version.
    void oneUpdateWindowAtATime()
    {
        SUStandardUserDriver driver(u"ZELNA Quorin"_s);
        QStringList replies;
        for (const QString& version : {u"2.0"_s, u"2.0"_s, u"3.0"_s, u"2.5"_s}) {
            SUAppcastItem item;
            item.versionString = version;
            item.itemDescription
                = u"<a href='file:///etc'>notes</a><img src='data:image/png;base64,iVBORw0KGgo='>"_s;
            driver.showUpdateFound(item, u"1.0"_s, [&replies, version](auto choice) {
                replies << version + u' ' + QString::number(int(choice));
            });
        }
        QTRY_COMPARE(QApplication::topLevelWidgets().count(), 1); // the ones replaced are gone
        auto* alert = qobject_cast<SUUpdateAlert*>(QApplication::topLevelWidgets().constFirst());
        QVERIFY(alert && alert->isVisible() && alert->item().versionString == u"3.0"_s);
        // Release notes load nothing, and their links go where Download's may: web pages only.
        auto* notes = alert->findChild<QTextBrowser*>();
        for (const QUrl& image :
             {QUrl::fromLocalFile(QCoreApplication::applicationFilePath()), QUrl(u"data:,x"_s)})
            QVERIFY2(notes->document()->resource(QTextDocument::ImageResource, image).isNull(),
                     qPrintable(image.toString()));
        for (const QString& address : {u"file:///etc/passwd"_s, u"javascript:alert(1)"_s, u"/opt/q.deb"_s,
                                       u""_s, u"http://example.com/q"_s, u"HTTPS://example.com/q"_s})
            Q_EMIT notes->anchorClicked(QUrl(address));
        QTRY_COMPARE(opened().size(), 2); // in either order: each is a process of its own
        QVERIFY(opened().contains(u"http://example.com/q"_s)
                && opened().contains(u"https://example.com/q"_s));
        const auto buttons = alert->findChildren<QPushButton*>();
        QTest::mouseClick(*std::ranges::find(buttons, u"Remind Me &Later"_s, &QPushButton::text),
                          Qt::LeftButton);
        QVERIFY(!alert->isVisible()); // answered, then closed
        const QString later = QString::number(int(SUUserDriver::Choice::RemindLater));
        QCOMPARE(replies, QStringList({u"2.0 "_s + later, u"2.0 "_s + later, u"3.0 "_s + later}));
    }

    void enableGuardsAgainstASecondClick()
    {
        ViewController& ui = open();
        ZLButton& enable = *ui.enableCheckBox;
        clickBox(&enable);
        clickBox(&enable); // a second press within the second does nothing at all
        QVERIFY(enable.isChecked() && ui.autoStartCheckBox->isChecked());
        QVERIFY(ui.disablePreviewCheckbox->isEnabled());
        enable.disableMouseDown = true;
        enable.setFocus();
        QTest::keyClick(&enable, Qt::Key_Space); // the keyboard gets through the guard
        QVERIFY(!enable.isChecked() && !ui.autoStartCheckBox->isChecked());
        QVERIFY(!ui.disablePreviewCheckbox->isEnabled());
        enable.click(); // and so does a programmatic click
        QVERIFY(enable.isChecked());
        QTRY_VERIFY_WITH_TIMEOUT(!enable.disableMouseDown, 10000); // a press after the second goes through
        clickBox(&enable);
        QVERIFY(!enable.isChecked()
                && TempHome::readFile(m_home.flagsFile()).contains(u"<string>0</string>"_s));
    }
};

QTEST_MAIN(TestGui)
#include "tst_gui.moc"
