#pragma once

#include "CommandRunner.h"
#include "DefaultsStore.h"
#include "LoginItems.h"
#include "OsVersion.h"
#include "Workspace.h"

#include <QMutex>
#include <QVariantMap>
#include <QVersionNumber>

// In-memory stand-in for every platform service. Each call is noted in one
// journal so tests can check the order of steps across services.
class FakePlatform : public DefaultsStore,
                     public Workspace,
                     public LoginItems,
                     public CommandRunner,
                     public OsVersion {
public:
    // Installs this object as the platform's services (the log sink is left alone).
    void install();
    QStringList journal() const;

    bool defaultsOpenable = true;
    QVariantMap defaults;
    QList<RunningApplication> running;
    std::optional<QUrl> serviceLocation;
    std::optional<ZLError> openError; // what the held open reports
    int commandStatus = 0;
    QVersionNumber system{13, 0, 0}; // the first system version of the current wording, exactly

    // Sends the held open result, if any, from another thread, as the system does.
    void deliverOpen();

    std::unique_ptr<DefaultsSuite> open(const QString& suiteName) override;
    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) override;
    bool activate(const RunningApplication& app) override { return note(u"activate %1"_qs.arg(app.pid)); }
    bool forceTerminate(const RunningApplication& app) override { return note(u"kill %1"_qs.arg(app.pid)); }
    std::optional<QUrl> urlForApplication(const QString& id) override
    {
        return note(u"locate "_qs + id, serviceLocation);
    }
    void openApplication(const QUrl& location, OpenHandler handler) override;
    bool launchApplication(const QString& name) override { return note(u"launch "_qs + name); }
    bool openURL(const QUrl& url) override { return note(u"openURL "_qs + url.toString()); }
    bool setEnabled(const QString& id, bool on) override
    {
        return note(u"login "_qs + id + (on ? u" on"_qs : u" off"_qs));
    }
    int run(const QString& program, const QStringList& arguments) override
    {
        return note(u"run "_qs + program + u' ' + arguments.join(u' '), commandStatus);
    }
    bool isAtLeast(int major, int minor, int patch) const override
    {
        return QVersionNumber(major, minor, patch) <= system;
    }

    // Notes a step; answers the result given, true unless told.
    template <typename Result = bool> Result note(const QString& step, Result result = true)
    {
        const QMutexLocker locker(&m_mutex);
        m_journal.append(step);
        return result;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_journal;
    OpenHandler m_pendingOpen;
};
