#include "Application.h"

#include "ApplicationDelegate.h"
#include "LauncherLogging.h"
#include "LauncherWindows.h"

#include <QCoreApplication>

namespace {
Application* g_shared = nullptr;
} // namespace

Application::Application(QStringList arguments, ActivationPolicy initialPolicy, LauncherWindows* windows)
    : m_arguments(std::move(arguments))
    , m_windows(windows)
    , m_policy(initialPolicy)
{
    g_shared = this;
    if (m_windows)
        m_windows->onLastWindowClosed(this, [this] { lastWindowClosed(); });
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

bool Application::hasVisibleWindows() const
{
    return m_windows && m_windows->hasVisibleWindows();
}

void Application::activateIgnoringOtherApps(bool)
{
    if (m_windows)
        m_windows->activate();
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
        if (m_windows)
            m_windows->useActivationToken(activationToken);
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
