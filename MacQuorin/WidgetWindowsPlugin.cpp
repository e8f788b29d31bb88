#include "WidgetWindowsPlugin.h"

#include "WidgetWindows.h"

#include <QApplication>

using namespace Qt::Literals::StringLiterals;

std::unique_ptr<QCoreApplication> WidgetWindowsPlugin::makeApplication(int& argc, char** argv)
{
    auto application = std::make_unique<QApplication>(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false); // the application's delegate decides
    QApplication::setApplicationDisplayName(u"ZELNA Quorin"_s);
    QGuiApplication::setDesktopFileName(u"com.zelna.Quorin"_s);
    return application;
}

std::unique_ptr<LauncherWindows> WidgetWindowsPlugin::create(const Bundle& bundle)
{
    return std::make_unique<WidgetWindows>(bundle);
}
