#include "GioLibrary.h"

#include "SystemLog.h"

#include <dlfcn.h>

using namespace Qt::Literals::StringLiterals;

namespace {

template <typename Function> bool resolve(void* handle, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(dlsym(handle, name));
    return function != nullptr;
}

} // namespace

const GioLibrary* GioLibrary::instance()
{
    static const GioLibrary* const library = []() -> const GioLibrary* {
        void* handle = dlopen("libgio-2.0.so.0", RTLD_NOW | RTLD_LOCAL);
        static GioLibrary loaded;
        if (!handle
            || !resolve(handle, "g_desktop_app_info_new_from_filename", loaded.desktopAppInfoNewFromFilename)
            || !resolve(handle, "g_desktop_app_info_launch_uris_as_manager_with_fds",
                        loaded.launchUrisAsManagerWithFds)
            || !resolve(handle, "g_object_unref", loaded.objectUnref)
            || !resolve(handle, "g_app_info_launch_default_for_uri", loaded.appInfoLaunchDefaultForUri)) {
            SystemLog::logText(u"Cannot load GIO to start applications: "_s
                               + QString::fromLocal8Bit(dlerror()));
            return nullptr;
        }
        return &loaded; // kept loaded for the life of the process
    }();
    return library;
}
