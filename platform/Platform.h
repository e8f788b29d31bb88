#pragma once

#include <QString>

#include <memory>

class CommandRunner;
class DefaultsStore;
class FileManager;
class InstanceChannel;
class LogSink;
class LoginItems;
class OsVersion;
class Workspace;

// The platform services the launcher uses. Each can be replaced as a whole,
// so tests run the shipping code against fakes.
struct PlatformServices {
    std::shared_ptr<DefaultsStore> defaults;
    std::shared_ptr<Workspace> workspace;
    std::shared_ptr<LoginItems> loginItems;
    std::shared_ptr<CommandRunner> commandRunner;
    std::shared_ptr<OsVersion> osVersion;
    std::shared_ptr<LogSink> logSink;
    std::shared_ptr<InstanceChannel> instanceChannel;
    std::shared_ptr<FileManager> fileManager;
};

class Platform {
public:
    // First thing in main, before anything opens a file: standard streams the surroundings left
    // closed, or whose reader went away, cost no file of the program's and never end it.
    static void prepareProcess();

    static DefaultsStore& defaults();
    static Workspace& workspace();
    static LoginItems& loginItems();
    static CommandRunner& commandRunner();
    static OsVersion& osVersion();
    static LogSink& logSink();
    static InstanceChannel& instanceChannel();
    static FileManager& fileManager();

    // Whether windows can be shown at all (a timer or a remote shell may have no display).
    static bool hasDisplay();
    // The running program's folder, known before the application object is made.
    static QString executableDirectory();

    // Ends the event loop, rather than the process, when the session or a terminal asks the
    // program to end. Needs the application object.
    static void quitOnTerminationSignals();
    // After such an end: gives the instance channel's place up, then ends the process by that
    // signal. Returns when the loop ended otherwise.
    static void endIfTerminated();

    // The services of the system this build runs on.
    static PlatformServices createDefault();

    // Swaps the services in use; call before any other thread uses them.
    // Services left empty keep their current implementation.
    static void replace(const PlatformServices& services);
};
