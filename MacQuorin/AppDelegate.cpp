#include "AppDelegate.h"

#include "Application.h"
#include "Bundle.h"
#include "DispatchQueue.h"
#include "LauncherWindows.h"
#include "ServiceEnableHandler.h"
#include "UpdateDelegate.h"
#include "Platform.h"
#include "SystemLog.h"
#include "Workspace.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

// A checker ends once its check has an answer, unless its window was opened meanwhile.
AppDelegate::AppDelegate()
    : UODATE_DELEGATE(std::make_unique<UpdateDelegate>([] { return isChecker && !hasShownWindow; }))
{ }

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    std::weak_ptr<AppDelegate> weakSelf = weak_from_this();
    ServiceEnableHandler::handleEnabled([weakSelf] {
        // Runs wherever the service pass finishes, possibly off the main thread.
        finishLaunchLogic(weakSelf.lock());
    });
}

void AppDelegate::finishLaunchLogic(const std::shared_ptr<AppDelegate>& delegate)
{
    if (!delegate)
        return;
    // Set before the check starts: the check runs on the main thread, and its answer may come before
    // this thread (a pool thread, once the service was opened) goes on.
    const QStringList& arguments = Application::shared()->arguments();
    const bool checking = arguments.size() >= 2 && arguments[1] == u"checkVersion"_s;
    if (checking)
        isChecker = true;
    UpdateDelegate::configureSharedUpdater(*delegate->UODATE_DELEGATE, Bundle::main());
    if (!checking)
        DispatchQueue::main().async([delegate] { delegate->setAppPolicyToRegular(); });
}

bool AppDelegate::applicationShouldHandleReopen(bool)
{
    SystemLog::log(tokenLog + u" applicationShouldHandleReopen"_s);
    switchPolicyToRegularIfNeeded();
    return true;
}

void AppDelegate::switchPolicyToRegularIfNeeded()
{
    if (Application::shared()->activationPolicy() == Application::Accessory) {
        SystemLog::log(tokenLog + u" Handling accessory state on reopen"_s);
        setAppPolicyToRegular();
    }
}

void AppDelegate::setAppPolicyToRegular()
{
    LauncherWindows* windows = Application::shared()->windows();
    if (!windows) { // their module could not be loaded, as logged: a start with nothing to show ends
        UpdateDelegate::endProcess(1);
        return;
    }
    Application::shared()->setActivationPolicy(Application::Regular);
    hasShownWindow = true;
    windows->showSettingsWindow();

    Workspace& workspace = Platform::workspace();
    const QList<RunningApplication> docks = workspace.runningApplications(u"com.apple.dock"_s);
    if (!docks.isEmpty())
        workspace.activate(docks.first());

    // The launcher itself comes forward a moment after the Dock, never in the same turn.
    if (OperationQueue* queue = OperationQueue::current()) {
        if (DispatchQueue* dispatch = queue->underlyingQueue())
            dispatch->asyncAfter(200ms, [] { Application::shared()->activateIgnoringOtherApps(true); });
    }
}
