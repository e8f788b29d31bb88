#pragma once

#include "LauncherWindows.h"

#include <QtPlugin>

#include <memory>

class Bundle;
class QCoreApplication;

// What the windows module offers.
class LauncherWindowsFactory {
public:
    static constexpr const char* moduleName = "libzq-windows.so";

    virtual ~LauncherWindowsFactory() = default;
    // The application object of a start that shows windows: the process's one, made before them. argc
    // and argv must outlive it.
    virtual std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv) = 0;
    // The windows, in the user's language where the bundle has a translation for it.
    virtual std::unique_ptr<LauncherWindows> create(const Bundle& bundle) = 0;
};

#define LauncherWindowsFactory_iid "com.zelna.Quorin.LauncherWindowsFactory/1"
Q_DECLARE_INTERFACE(LauncherWindowsFactory, LauncherWindowsFactory_iid)
