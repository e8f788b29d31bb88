#pragma once

#include "platform/CommandRunner.h"
#include "platform/DefaultsStore.h"
#include "platform/DefaultsSuite.h"
#include "platform/LoginItems.h"
#include "platform/OsVersion.h"
#include "platform/Workspace.h"

#include <QMutex>
#include <QStringList>
#include <QVariantMap>

#include <memory>
#include <thread>

// In-memory stand-ins for every platform service. Each call is noted in one
// shared journal so tests can check the order of steps across services.
class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();

    void note(const QString& step);
    QStringList journal() const;

    // Defaults
    bool defaultsOpenable = true;
    QVariantMap defaults;

    // Workspace
    QList<RunningApplication> running;
    std::optional<QUrl> serviceLocation;
    bool launchAnswer = true;
    // Open results are held until deliverOpen(), which sends them from another thread.
    std::optional<ZLError> openError;
    void deliverOpen();
    bool hasPendingOpen() const;

    // Command runner
    int commandStatus = 0;

    // Operating system
    bool modernSystem = true;

    // Installs these fakes as the platform's services (the log sink is left alone).
    void install();

private:
    class Defaults;
    class Suite;
    class FakeWorkspace;
    class Logins;
    class Runner;
    class Version;

    mutable QMutex m_mutex;
    QStringList m_journal;
    Workspace::OpenHandler m_pendingOpen;
    std::thread m_deliverer;
};
