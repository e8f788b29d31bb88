#include "Application.h"

#include "ApplicationDelegate.h"
#include "LauncherLogging.h"
#include "WindowActivation.h"

#include <QApplication>
#include <QWidget>

namespace {
Application* g_shared = nullptr;
} // namespace

Application::Application(QStringList arguments, ActivationPolicy initialPolicy)
    : m_arguments(std::move(arguments))
    , m_policy(initialPolicy)
{
    g_shared = this;
    if (auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) // none without a display
        connect(gui, &QGuiApplication::lastWindowClosed, this, &Application::lastWindowClosed);
}

Application::~Application()
{
    if (g_shared == this)
        g_shared = nullptr;
}

Application* Application::shared()
{
    return g_shared;
}

bool Application::setActivationPolicy(ActivationPolicy policy)
{
    m_policy = policy;
    qCDebug(lcLauncher, "activation policy %d", int(policy));
    return true;
}

bool Application::hasVisibleWindows()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.cbegin(), windows.cend(), [](const QWidget* w) { return w->isVisible(); });
}

void Application::activateIgnoringOtherApps(bool)
{
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
    }
    qCDebug(lcLauncher, "application activated");
}

void Application::finishLaunching()
{
    if (m_delegate)
        m_delegate->applicationDidFinishLaunching();
}

void Application::reopen(const QByteArray& activationToken)
{
    // Desktops that prevent focus stealing bring a window forward only with the token of
    // the user's action that asked for it; handed over before the window is shown.
    if (!activationToken.isEmpty()) {
        qCDebug(lcLauncher, "reopen with activation token %s", activationToken.constData());
        WindowActivation::useToken(activationToken);
    }
    // When the delegate agrees, the usual handling follows: bring the windows forward.
    if (m_delegate && m_delegate->applicationShouldHandleReopen(hasVisibleWindows()) && hasVisibleWindows())
        activateIgnoringOtherApps(true);
}

void Application::lastWindowClosed()
{
    if (m_delegate && m_delegate->applicationShouldTerminateAfterLastWindowClosed())
        QCoreApplication::quit();
}
