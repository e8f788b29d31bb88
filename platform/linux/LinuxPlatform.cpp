#include "Platform.h"

#include "ProcessCommandRunner.h"
#include "CurrentOsVersion.h"
#include "LinuxLogSink.h"
#include "LinuxWorkspace.h"
#include "LocalSocketInstanceChannel.h"
#include "PlistDefaultsStore.h"
#include "PosixFileManager.h"
#include "StandardStreams.h"
#include "TerminationSignals.h"
#include "XdgLoginItems.h"

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

void Platform::prepareProcess()
{
    StandardStreams::secure();
}

bool Platform::hasDisplay()
{
    // A platform chosen by name (offscreen, vnc, ...) needs no display server.
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
           || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

void Platform::quitOnTerminationSignals()
{
    TerminationSignals::install();
}

void Platform::endIfTerminated()
{
    if (const int number = TerminationSignals::received()) {
        instanceChannel().close();
        TerminationSignals::endBy(number);
    }
}
