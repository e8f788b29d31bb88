#pragma once

#include "CommandRunner.h"
#include "DefaultsStore.h"
#include "LoginItems.h"
#include "OsVersion.h"
#include "Workspace.h"

#include <QMutex>
#include <QStringList>
#include <QVariantMap>

#include <thread>

// In-memory stand-in for every platform service. Each call is noted in one
// journal so tests can check the order of steps across services.
class FakePlatform : public DefaultsStore,
                     public Workspace,
                     public LoginItems,
                     public CommandRunner,
                     public OsVersion {
public:
    ~FakePlatform() override;

    // Installs this object as the platform's services (the log sink is left alone).
    void install();
    QStringList journal() const;

    bool defaultsOpenable = true;
    QVariantMap defaults;
    QList<RunningApplication> running;
    std::optional<QUrl> serviceLocation;
    bool launchAnswer = true;
    std::optional<ZLError> openError; // what the held open reports
    int commandStatus = 0;
    bool modernSystem = true;

    // Sends the held open result from another thread, as the system does.
    void deliverOpen();
    bool hasPendingOpen() const;

    std::unique_ptr<DefaultsSuite> open(const QString& suiteName) override;
    QList<RunningApplication> runningApplications() override;
    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) override;
    bool activate(const RunningApplication& application) override;
    bool forceTerminate(const RunningApplication& application) override;
    std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) override;
    void openApplication(const QUrl& location, OpenHandler handler) override;
    bool launchApplication(const QString& name) override;
    bool openURL(const QUrl& url) override;
    bool setEnabled(const QString& bundleIdentifier, bool enabled) override;
    int run(const QString& program, const QStringList& arguments) override;
    bool isAtLeast(int major, int minor, int patch) const override;

    void note(const QString& step);

private:
    mutable QMutex m_mutex;
    QStringList m_journal;
    OpenHandler m_pendingOpen;
};
