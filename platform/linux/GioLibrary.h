#pragma once

#include <gio/gdesktopappinfo.h>

// GIO, loaded when an application is first started rather than with the
// launcher: it pulls in a dozen libraries whose set-up costs every start
// about 2 ms, and most starts never launch anything.
class GioLibrary {
public:
    // The loaded library, or nullptr (with the reason logged) when it cannot be loaded.
    static const GioLibrary* instance();

    GDesktopAppInfo* (*desktopAppInfoNewFromFilename)(const char* filename) = nullptr;
    gboolean (*launchUrisAsManagerWithFds)(GDesktopAppInfo* appinfo, GList* uris, GAppLaunchContext* context,
                                           GSpawnFlags flags, GSpawnChildSetupFunc setup, gpointer setupData,
                                           GDesktopAppLaunchCallback pidCallback, gpointer pidData,
                                           gint stdinFd, gint stdoutFd, gint stderrFd, GError** error)
        = nullptr;
    void (*objectUnref)(gpointer object) = nullptr;
    gboolean (*appInfoLaunchDefaultForUri)(const char* uri, GAppLaunchContext* context, GError** error)
        = nullptr;

private:
    GioLibrary() = default;
};
