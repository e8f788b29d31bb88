#include "WidgetWindows.h"

#include "Storyboard.h"
#include "SUStandardUserDriver.h"
#include "Translations.h"
#include "WindowActivation.h"
#include "WindowController.h"

#include <QApplication>
#include <QWidget>

using namespace Qt::Literals::StringLiterals;

WidgetWindows::WidgetWindows(const Bundle& bundle) : m_bundle(bundle)
{
    if ((m_translator = Translations::load(QLocale(), bundle)))
        QCoreApplication::installTranslator(m_translator.get());
}

WidgetWindows::~WidgetWindows() = default;

std::unique_ptr<SUUserDriver> WidgetWindows::makeUserDriver(const QString& applicationName)
{
    // The release notes in the language of the windows, where the feed has them.
    return std::make_unique<SUStandardUserDriver>(applicationName,
                                                  m_translator ? m_translator->language() : u"en"_s);
}

WindowController& WidgetWindows::settingsWindow()
{
    if (!m_settings) {
        m_settings = Storyboard::storyboardWithName(u"Main"_s, m_bundle)
                         .instantiateControllerWithIdentifier(u"MainWindow"_s);
    }
    return *m_settings;
}

void WidgetWindows::showSettingsWindow()
{
    settingsWindow().showWindow();
}

bool WidgetWindows::hasVisibleWindows() const
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.cbegin(), windows.cend(), [](const QWidget* w) { return w->isVisible(); });
}

void WidgetWindows::activate()
{
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
    }
}

void WidgetWindows::useActivationToken(const QByteArray& token)
{
    WindowActivation::useToken(token);
}

void WidgetWindows::onLastWindowClosed(QObject* context, std::function<void()> handler)
{
    QObject::connect(qGuiApp, &QGuiApplication::lastWindowClosed, context, std::move(handler));
}
