#include "ApplicationMain.h"

#include "AppDelegate.h"
#include "Application.h"
#include "Bundle.h"
#include "HeadlessUserDriver.h"
#include "LauncherLogging.h"
#include "InstanceChannel.h"
#include "Platform.h"
#include "ServiceEnableHandler.h"
#include "SUStandardUserDriver.h"
#include "SUUpdater.h"
#include "Translations.h"
#include "UpdateDelegate.h"

#include <QApplication>

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcLauncher, "zelna.launcher", QtWarningMsg)

namespace {

std::unique_ptr<SUUpdater> makeSharedUpdater(const Bundle& bundle, bool headless, const QString& language)
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
    if (headless)
        driver = std::make_unique<HeadlessUserDriver>();
    else
        driver = std::make_unique<SUStandardUserDriver>(name.isEmpty() ? u"ZELNA Quorin"_s : name, language);
    auto updater = std::make_unique<SUUpdater>(std::move(host), std::move(driver));
    SUUpdater::setSharedUpdater(updater.get());
    return updater;
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

    std::unique_ptr<QCoreApplication> app;
    std::unique_ptr<QTranslator> translator; // the windows in the user's language, where there is one
    if (headless) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        app = std::make_unique<QApplication>(argc, argv);
        if ((translator = Translations::load(QLocale(), Bundle::main())))
            QCoreApplication::installTranslator(translator.get());
        QApplication::setQuitOnLastWindowClosed(false); // the delegate decides
        QApplication::setApplicationDisplayName(u"ZELNA Quorin"_s);
        QGuiApplication::setDesktopFileName(u"com.zelna.Quorin"_s);
    }

    Platform::quitOnTerminationSignals();

    Application application(arguments);
    if (role == InstanceChannel::Role::Listening)
        Platform::instanceChannel().listen(
            [&application](const QByteArray& token) { application.reopen(token); });
    // The release notes in the language of the windows, where the feed has them.
    const std::unique_ptr<SUUpdater> updater
        = makeSharedUpdater(Bundle::main(), headless, translator ? translator->language() : u"en"_s);
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
