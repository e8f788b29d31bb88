#include "platform/Platform.h"

#include "platform/ProcessCommandRunner.h"
#include "platform/linux/CurrentOsVersion.h"
#include "platform/linux/LinuxLogSink.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/LocalSocketInstanceChannel.h"
#include "platform/linux/PlistDefaultsStore.h"
#include "platform/linux/PosixFileManager.h"
#include "platform/linux/XdgLoginItems.h"

PlatformServices Platform::createDefault()
{
    PlatformServices services;
    services.defaults = std::make_shared<PlistDefaultsStore>();
    services.workspace = std::make_shared<LinuxWorkspace>();
    services.loginItems = std::make_shared<XdgLoginItems>();
    services.commandRunner = std::make_shared<ProcessCommandRunner>();
    services.osVersion = std::make_shared<CurrentOsVersion>();
    services.logSink = std::make_shared<LinuxLogSink>();
    services.instanceChannel = std::make_shared<LocalSocketInstanceChannel>();
    services.fileManager = std::make_shared<PosixFileManager>();
    return services;
}
