#include "WindowController.h"

#include "MacQuorin/LauncherLogging.h"

WindowController::WindowController(std::unique_ptr<QWidget> window) : m_window(std::move(window)) { }

WindowController::~WindowController() = default;

void WindowController::showWindow()
{
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    qCDebug(lcLauncher, "window shown: %s", qUtf8Printable(m_window->objectName()));
}
