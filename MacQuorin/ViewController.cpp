#include "ViewController.h"

#include "Bundle.h"
#include "ServiceEnableHandler.h"
#include "ZLButton.h"
#include "ZLFileManager.h"
#include "OsVersion.h"
#include "Platform.h"
#include "Workspace.h"

#include <QAbstractButton>
#include <QFontDatabase>
#include <QSignalBlocker>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

// A missing outlet is a programming error: the storyboard and this class disagree.
template <typename Widget> Widget& required(const QPointer<Widget>& outlet, const char* name)
{
    if (!outlet)
        qFatal("The settings window has no outlet \"%s\"", name);
    return *outlet;
}

bool isOn(const QAbstractButton& button)
{
    const auto* box = qobject_cast<const QCheckBox*>(&button);
    return box ? box->checkState() == Qt::Checked : button.isChecked(); // mixed is not on
}

Qt::CheckState stateFor(bool on)
{
    return on ? Qt::Checked : Qt::Unchecked;
}

} // namespace

ViewController::ViewController() : zlFileManager(std::make_unique<ZLFileManager>()) { }

ViewController::ViewController(QWidget* view) : zlFileManager(std::make_unique<ZLFileManager>()), m_view(view)
{
    connectOutletsAndActions();
}

ViewController::~ViewController() = default;

void ViewController::connectOutletsAndActions()
{
    versionTxt = m_view->findChild<QLabel*>(u"versionTxt"_s);
    channelsPopupBtn = m_view->findChild<QComboBox*>(u"channelsPopupBtn"_s);
    enableCheckBox = m_view->findChild<ZLButton*>(u"enableCheckBox"_s);
    autoStartCheckBox = m_view->findChild<QCheckBox*>(u"autoStartCheckBox"_s);
    disablePreviewCheckbox = m_view->findChild<QCheckBox*>(u"disablePreviewCheckbox"_s);
    disablePreviewIndicator = m_view->findChild<QProgressBar*>(u"disablePreviewIndicator"_s);
    makeSureTextFieldCell = m_view->findChild<QLabel*>(u"makeSureTextFieldCell"_s);

    // A button's "action" property names the method its clicks send, as "toggle:".
    for (QAbstractButton* button : m_view->findChildren<QAbstractButton*>()) {
        const QString action = button->property("action").toString();
        if (action.isEmpty())
            continue;
        const QByteArray method = action.chopped(action.endsWith(u':') ? 1 : 0).toLatin1();
        if (metaObject()->indexOfMethod(QByteArray(method + "(QObject*)").constData()) < 0)
            qFatal("The settings window's controller has no action \"%s\"", qPrintable(action));
        // A box's action follows its state however it changes: a click, a key, or an assistive tool's
        // Toggle, which changes the state without a click. This controller's own updates are silent.
        const auto send = [this, button, method] {
            QMetaObject::invokeMethod(this, method.constData(), Q_ARG(QObject*, button));
        };
        if (button->isCheckable())
            connect(button, &QAbstractButton::toggled, this, send);
        else
            connect(button, &QAbstractButton::clicked, this, send);
    }
}

void ViewController::viewDidLoad()
{
    QLabel& instructions = required(makeSureTextFieldCell, "makeSureTextFieldCell");
    QString text;
    if (Platform::osVersion().isAtLeast(13, 0, 0)) {
        QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        font.setPointSizeF(12.0);
        instructions.setFont(font);
        text = tr(modernInstructions);
    } else {
        text = tr(earlierInstructions);
    }
    instructions.setText(text);

    const auto& info = Bundle::main().infoDictionary();
    if (!info || !info->contains(u"CFBundleShortVersionString"_s))
        qFatal("The bundle's Info.plist has no CFBundleShortVersionString");
    required(versionTxt, "versionTxt")
        .setText(tr(versionPrefix) + info->value(u"CFBundleShortVersionString"_s).toString());

    const QList<RunningApplication> applications
        = Platform::workspace().runningApplications(ServiceEnableHandler::serviceBundleIdentifier);
    const bool running
        = std::any_of(applications.cbegin(), applications.cend(), &ServiceEnableHandler::isService);
    required(autoStartCheckBox, "autoStartCheckBox").setCheckState(stateFor(running));
    const QSignalBlocker enableSilent(required(enableCheckBox, "enableCheckBox"));
    enableCheckBox->setCheckState(stateFor(running));

    QCheckBox& preview = required(disablePreviewCheckbox, "disablePreviewCheckbox");
    const QSignalBlocker previewSilent(preview);
    const std::optional<bool> previewEnabled = zlFileManager->previewStateEnabled();
    if (!previewEnabled) {
        preview.setCheckState(Qt::Unchecked);
        zlFileManager->setPreviewStateEnabled(true); // from now on a state file exists
    } else {
        preview.setCheckState(stateFor(!*previewEnabled));
    }
    preview.setEnabled(running);
}

void ViewController::startToggleTimer(ZLButton* checkBox)
{
    checkBox->disableMouseDown = true;
    // Whichever timer fires first clears the guard; nothing else changes.
    QTimer::singleShot(1s, checkBox, [checkBox] { checkBox->disableMouseDown = false; });
}

void ViewController::toggle(QObject* sender)
{
    auto* checkBox = qobject_cast<ZLButton*>(sender);
    if (!checkBox)
        qFatal("toggle: needs the Enable checkbox as its sender");
    startToggleTimer(checkBox);
    ServiceEnableHandler::updateUserDefaults(isOn(*checkBox));
    if (isOn(*checkBox))
        ServiceEnableHandler::handleEnabled(); // turning off only stores the flag
    required(autoStartCheckBox, "autoStartCheckBox").setCheckState(stateFor(isOn(*checkBox)));
    required(disablePreviewCheckbox, "disablePreviewCheckbox").setEnabled(isOn(*checkBox));
}

void ViewController::disablePreviewAction(QObject* sender)
{
    auto* button = qobject_cast<QAbstractButton*>(sender);
    if (!button)
        return;
    // The checkbox speaks of disabling; the file of enabling.
    zlFileManager->setPreviewStateEnabled(!isOn(*button));
}

void ViewController::openLink(QObject*)
{
    const Bundle& bundle = Bundle::main();
    const QString base = bundle.objectForInfoDictionaryKey(u"ZLHelpBaseURL"_s).toString();
    const QString page = bundle.objectForInfoDictionaryKey(u"ZLHelpPageFragment"_s).toString();
    const QUrl baseURL(base, QUrl::StrictMode);
    const QUrl reference(u"#"_s + page, QUrl::StrictMode);
    if (base.isEmpty() || !base.endsWith(u'/') || !baseURL.isValid() || baseURL.isRelative() || page.isEmpty()
        || !reference.isValid())
        qFatal("The help address cannot be formed from ZLHelpBaseURL \"%s\" and ZLHelpPageFragment \"%s\"",
               qUtf8Printable(base), qUtf8Printable(page));
    Platform::workspace().openURL(baseURL.resolved(reference));
}
