#pragma once

// What the application object asks of its delegate; all on the main thread.
class ApplicationDelegate {
public:
    virtual ~ApplicationDelegate() = default;
    virtual void applicationDidFinishLaunching() = 0;
    virtual bool applicationShouldTerminateAfterLastWindowClosed() = 0;
    virtual bool applicationShouldHandleReopen(bool hasVisibleWindows) = 0;
};
