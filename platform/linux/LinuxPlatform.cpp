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

#include <QFileInfo>

#include <sys/auxv.h>

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

QString Platform::executableDirectory()
{
    // The kernel's link names the program itself, whatever link it was started through; without /proc, the
    // file it was started as, whose name the kernel hands over by its address.
    QString path = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    if (path.isEmpty()) {
        const auto* started
            = reinterpret_cast<const char*>(::getauxval(AT_EXECFN)); // NOLINT(performance-no-int-to-ptr)
        path = QFileInfo(QFile::decodeName(started)).canonicalFilePath();
    }
    return QFileInfo(path).path();
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
