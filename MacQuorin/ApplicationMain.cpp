#include "ApplicationMain.h"

#include "AppDelegate.h"
#include "Application.h"
#include "Bundle.h"
#include "HeadlessUserDriver.h"
#include "LauncherLogging.h"
#include "LauncherWindowsFactory.h"
#include "InstanceChannel.h"
#include "Platform.h"
#include "PluginModule.h"
#include "ServiceEnableHandler.h"
#include "SUUpdater.h"
#include "SystemLog.h"
#include "UpdateDelegate.h"

#include <QCoreApplication>

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcLauncher, "zelna.launcher", QtWarningMsg)

namespace {

std::unique_ptr<SUUpdater> makeSharedUpdater(const Bundle& bundle, LauncherWindows* windows)
{
    SUUpdater::Host host;
    host.bundleVersion = bundle.objectForInfoDictionaryKey(u"CFBundleVersion"_s).toString();
    host.displayVersion = bundle.objectForInfoDictionaryKey(u"CFBundleShortVersionString"_s).toString();
    host.defaultsSuite = bundle.objectForInfoDictionaryKey(u"CFBundleIdentifier"_s).toString();
    if (host.defaultsSuite.isEmpty())
        host.defaultsSuite = u"com.zelna.Quorin"_s;
    const QVariant interval = bundle.objectForInfoDictionaryKey(u"SUScheduledCheckInterval"_s);
    bool isNumber = false;
    const qint64 seconds = interval.toLongLong(&isNumber);
    host.checkInterval = SUUpdater::checkInterval(
        isNumber && interval.typeId() != QMetaType::QString ? std::optional(seconds) : std::nullopt);
    host.moduleDirectory = bundle.modulePath();
    const QString name = bundle.objectForInfoDictionaryKey(u"CFBundleName"_s).toString();
    std::unique_ptr<SUUserDriver> driver;
    if (windows)
        driver = windows->makeUserDriver(name.isEmpty() ? u"ZELNA Quorin"_s : name);
    else
        driver = std::make_unique<HeadlessUserDriver>();
    auto updater = std::make_unique<SUUpdater>(std::move(host), std::move(driver));
    SUUpdater::setSharedUpdater(updater.get());
    return updater;
}

// The windows' module makes the application object, then the windows; nothing, and the loader's reason
// logged, when it cannot be loaded.
LauncherWindowsFactory* loadWindows()
{
    QString error;
    auto* module = PluginModule::instance<LauncherWindowsFactory>(Bundle::main().modulePath(),
                                                                  LauncherWindowsFactory::moduleName, &error);
    if (!module)
        SystemLog::logText(u"The windows cannot be shown: "_s + error);
    return module;
}

QStringList processArguments(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

} // namespace

int ApplicationMain(int argc, char* argv[])
{
    // Kept before Qt takes its own options out of argv.
    const QStringList arguments = processArguments(argc, argv);
    const bool checking = arguments.size() >= 2 && arguments[1] == u"checkVersion"_s;
    // A checker run from a timer may have no display; it logs what it finds instead of showing it.
    const bool headless = checking && !Platform::hasDisplay();
    // A later start shows the running launcher's window and ends; a check never forwards. Decided
    // before the application object is made: a start that hands over needs none.
    const InstanceChannel::Role role
        = headless ? InstanceChannel::Role::Alone : Platform::instanceChannel().claim(!checking);
    if (role == InstanceChannel::Role::HandedOver) {
        qCDebug(lcLauncher, "handed over to the running launcher");
        return 0;
    }
    // The launch pass's election runs while the application is set up; the pass waits for it.
    ServiceEnableHandler::startElectionEarly();

    // Without windows (no display, or no module for them) a checker logs what it finds, and any other start
    // ends once the launch pass is done.
    std::unique_ptr<QCoreApplication> app;
    std::unique_ptr<LauncherWindows> windows; // destroyed before the application object
    if (LauncherWindowsFactory* module = headless ? nullptr : loadWindows()) {
        app = module->makeApplication(argc, argv);
        windows = module->create(Bundle::main());
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }

    Platform::quitOnTerminationSignals();

    Application application(arguments, Application::Accessory, windows.get());
    if (role == InstanceChannel::Role::Listening) {
        if (windows)
            Platform::instanceChannel().listen(
                [&application](const QByteArray& token) { application.reopen(token); });
        else
            Platform::instanceChannel().close(); // nothing to reopen: a later start takes the place
    }
    const std::unique_ptr<SUUpdater> updater = makeSharedUpdater(Bundle::main(), windows.get());
    const auto delegate = std::make_shared<AppDelegate>();
    application.setDelegate(delegate.get());
    application.finishLaunching();
    const int status = QCoreApplication::exec();
    application.setDelegate(nullptr);
    UpdateDelegate::finishPendingWork();
    // Ended by the session or a terminal: the end that signal means, so a shell running the
    // launcher in a script stops at Ctrl+C, and a stopped check never reads as "no update".
    Platform::endIfTerminated();
    return status;
}
