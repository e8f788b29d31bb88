#include "ServiceEnableHandler.h"

#include "CLogger.h"
#include "CommandRunner.h"
#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "LoginItems.h"
#include "OsVersion.h"
#include "Platform.h"
#include "Workspace.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList electionArguments(bool enabled)
{
    return {u"pluginkit"_s, u"-e"_s, enabled ? u"use"_s : u"ignore"_s, u"-i"_s,
            ServiceEnableHandler::extensionBundleIdentifier};
}

QString boolText(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

// Not named invoke: argument-dependent lookup would pick std::invoke instead.
void complete(const ServiceEnableHandler::Completion& completion)
{
    if (completion)
        completion();
}

} // namespace

void ServiceEnableHandler::updateUserDefaults(bool enabled)
{
    const auto suite = Platform::defaults().open(defaultsSuiteName);
    if (!suite)
        return;
    CLog::pExp(u"ServiceEnableHandler -> updateUserDefaults -> "_s + boolText(enabled));
    // Text, not a Boolean: the other programs of the group read it as text.
    suite->setValue(enabledKey, enabled ? u"1"_s : u"0"_s);
}

std::optional<bool> ServiceEnableHandler::userDefaultsHandler(std::optional<bool> enabled)
{
    const auto suite = Platform::defaults().open(defaultsSuiteName);
    if (!suite)
        return std::nullopt;
    if (enabled) {
        updateUserDefaults(*enabled);
        return std::nullopt;
    }
    // Unreadable is not absent: the user's choice is unknown, so nothing is changed.
    const std::optional<QVariant> stored = suite->readValue(enabledKey);
    if (!stored)
        return std::nullopt;
    if (stored->typeId() == QMetaType::QString)
        return stored->toString() == u"1"_s;
    updateUserDefaults(true);
    return true;
}

bool ServiceEnableHandler::isService(const RunningApplication& application)
{
    // One without an identifier never matches.
    return application.bundleIdentifier && *application.bundleIdentifier == serviceBundleIdentifier;
}

int32_t ServiceEnableHandler::shell(const QStringList& arguments)
{
    return Platform::commandRunner().run(commandRunner, arguments);
}

void ServiceEnableHandler::startElectionEarly()
{
    if (const std::optional<bool> enabled = userDefaultsHandler(std::nullopt))
        Platform::commandRunner().startEarly(commandRunner, electionArguments(*enabled));
}

void ServiceEnableHandler::handleEnabled(Completion completion)
{
    const std::optional<bool> enabled = userDefaultsHandler(std::nullopt);
    if (!enabled) {
        complete(completion);
        return;
    }
    if (!*enabled) {
        handleDisabled();
        complete(completion);
        return;
    }
    handleEnabledPass(completion);
}

void ServiceEnableHandler::handleDisabled()
{
    shell(electionArguments(false));
    Workspace& workspace = Platform::workspace();
    QList<RunningApplication> instances;
    for (const RunningApplication& application : workspace.runningApplications(serviceBundleIdentifier)) {
        if (isService(application))
            instances.append(application);
    }
    for (const RunningApplication& instance : std::as_const(instances))
        workspace.forceTerminate(instance);
    Platform::loginItems().setEnabled(serviceBundleIdentifier, false);
}

void ServiceEnableHandler::handleEnabledPass(Completion& completion)
{
    shell(electionArguments(true));
    Platform::loginItems().setEnabled(serviceBundleIdentifier, true);

    Workspace& workspace = Platform::workspace();
    for (const RunningApplication& application : workspace.runningApplications(serviceBundleIdentifier)) {
        if (isService(application)) {
            complete(completion); // already running: left alone
            return;
        }
    }
    const std::optional<QUrl> location = workspace.urlForApplication(serviceBundleIdentifier);
    if (!location) {
        complete(completion);
        return;
    }
    if (Platform::osVersion().isAtLeast(10, 15, 0)) {
        // The handler owns the completion from here and calls it on the workspace's thread.
        workspace.openApplication(*location, [completion = std::move(completion)](
                                                 std::optional<qint64>, std::optional<ZLError> error) {
            const QString described = error ? u"Optional("_s + error->description() + u')' : u"nil"_s;
            CLog::pExp(u"ServiceEnableHandler -> handleEnabled -> openApplication -> with error: "_s
                       + described);
            complete(completion);
        });
        return;
    }
    // Older systems: the identifier goes where a name is expected; kept as it is.
    const bool launched = workspace.launchApplication(serviceBundleIdentifier);
    CLog::pExp(u"ServiceEnableHandler -> handleEnabled -> launchApplication -> "_s + boolText(launched));
    complete(completion);
}
