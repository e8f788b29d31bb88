#include "Platform.h"

namespace {

PlatformServices& current()
{
    static PlatformServices services = Platform::createDefault();
    return services;
}

template <typename T> void replaceIfSet(std::shared_ptr<T>& slot, const std::shared_ptr<T>& replacement)
{
    if (replacement)
        slot = replacement;
}

} // namespace

DefaultsStore& Platform::defaults()
{
    return *current().defaults;
}
Workspace& Platform::workspace()
{
    return *current().workspace;
}
LoginItems& Platform::loginItems()
{
    return *current().loginItems;
}
CommandRunner& Platform::commandRunner()
{
    return *current().commandRunner;
}
OsVersion& Platform::osVersion()
{
    return *current().osVersion;
}
LogSink& Platform::logSink()
{
    return *current().logSink;
}
InstanceChannel& Platform::instanceChannel()
{
    return *current().instanceChannel;
}
FileManager& Platform::fileManager()
{
    return *current().fileManager;
}

void Platform::replace(const PlatformServices& services)
{
    PlatformServices& slots = current();
    replaceIfSet(slots.defaults, services.defaults);
    replaceIfSet(slots.workspace, services.workspace);
    replaceIfSet(slots.loginItems, services.loginItems);
    replaceIfSet(slots.commandRunner, services.commandRunner);
    replaceIfSet(slots.osVersion, services.osVersion);
    replaceIfSet(slots.logSink, services.logSink);
    replaceIfSet(slots.instanceChannel, services.instanceChannel);
    replaceIfSet(slots.fileManager, services.fileManager);
}
