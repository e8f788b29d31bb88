#pragma once

#include "LauncherWindowsFactory.h"

#include <QObject>

// The windows module's entry point: a QApplication and the windows made with Qt Widgets.
class WidgetWindowsPlugin : public QObject, public LauncherWindowsFactory {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID LauncherWindowsFactory_iid)
    Q_INTERFACES(LauncherWindowsFactory)
public:
    std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv) override;
    std::unique_ptr<LauncherWindows> create(const Bundle& bundle) override;
};
