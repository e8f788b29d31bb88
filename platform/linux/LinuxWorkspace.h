#pragma once

#include "Workspace.h"

#include <memory>

#include <sys/types.h>
#include <unistd.h>

class ProcFs;

// Applications are desktop entries; running applications are the user's own
// processes whose executable is the program an entry starts.
class LinuxWorkspace : public Workspace {
public:
    explicit LinuxWorkspace(std::shared_ptr<const ProcFs> procFs = nullptr, uid_t uid = getuid());

    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) override;
    bool activate(const RunningApplication& application) override;
    bool forceTerminate(const RunningApplication& application) override;
    std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) override;
    void openApplication(const QUrl& location, OpenHandler handler) override;
    bool launchApplication(const QString& name) override;
    bool openURL(const QUrl& url) override;

private:
    std::shared_ptr<const ProcFs> m_procFs;
    uid_t m_uid;
};
