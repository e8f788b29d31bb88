#include "WindowController.h"

#include "LauncherLogging.h"
#include "ViewController.h"

WindowController::WindowController(std::unique_ptr<QWidget> window, std::unique_ptr<ViewController> content)
    : m_window(std::move(window))
    , m_content(std::move(content))
{ }

WindowController::~WindowController() = default;

void WindowController::showWindow()
{
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    qCDebug(lcLauncher, "window shown: %s", qUtf8Printable(m_window->objectName()));
}
