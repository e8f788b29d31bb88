#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <optional>

struct RunningApplication;

// Brings the background service, its login item and the file-manager
// extension to the enabled state the user chose. Class-level operations only.
class ServiceEnableHandler {
public:
    using Completion = std::function<void()>;

    static inline const QString serviceBundleIdentifier = QStringLiteral("com.zelna.Quorin.Service");
    static inline const QString extensionBundleIdentifier = QStringLiteral("com.zelna.Quorin.Service.Finder");
    static inline const QString defaultsSuiteName = QStringLiteral("K4WQ7ZT2RB.group.zelna.Quorin");
    static inline const QString enabledKey = QStringLiteral("QREnabled");
    static inline const QString commandRunner = QStringLiteral("/usr/bin/env");

    // Applies the stored flag in one pass. The completion runs exactly once: on the
    // calling thread, or, when the service is being opened, on a background thread.
    static void handleEnabled(Completion completion = {});

    // With a value: stores it and answers nothing. Without: reads the flag,
    // storing "1" when none is stored. Nothing when the suite cannot be opened.
    static std::optional<bool> userDefaultsHandler(std::optional<bool> enabled);
    static void updateUserDefaults(bool enabled);

    // Runs the command runner with these arguments and answers its exit status.
    static int32_t shell(const QStringList& arguments);
    // Reads the flag, as a pass first does, and starts the election that pass will run, so
    // that it runs while the launcher sets up; the pass then waits for it.
    static void startElectionEarly();

    // Whether a running application is the background service.
    static bool isService(const RunningApplication& application);

    ServiceEnableHandler() = delete;

private:
    static void handleDisabled();
    static void handleEnabledPass(Completion& completion);
};
