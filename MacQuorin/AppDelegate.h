#pragma once

#include "ApplicationDelegate.h"

#include <QString>

#include <atomic>
#include <memory>

class UpdateDelegate;

// The application's delegate: applies the service state at launch, sets up
// the updater, and shows the settings window unless it only checks for updates.
class AppDelegate : public ApplicationDelegate, public std::enable_shared_from_this<AppDelegate> {
public:
    AppDelegate();
    ~AppDelegate() override;

    const QString tokenLog = QStringLiteral("ZENLA Launcher");
    const std::unique_ptr<UpdateDelegate> UODATE_DELEGATE;

    // Set once "checkVersion" was recognised; read when the updater finds nothing.
    static inline std::atomic<bool> isChecker{false};
    // Set once the settings window was shown: a checker has then become an interactive launcher.
    static inline std::atomic<bool> hasShownWindow{false};

    void applicationDidFinishLaunching() override;
    bool applicationShouldTerminateAfterLastWindowClosed() override { return true; }
    bool applicationShouldHandleReopen(bool hasVisibleWindows) override;

private:
    static void finishLaunchLogic(const std::shared_ptr<AppDelegate>& delegate);
    void switchPolicyToRegularIfNeeded();
    void setAppPolicyToRegular();
};
