#pragma once

#include "ZLError.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

// A process of the current user, with the identifier of the application it runs.
struct RunningApplication {
    qint64 pid = 0;
    std::optional<QString> bundleIdentifier;
    QString executable;
};

// The applications of the desktop: which run, where they are installed, how to start them.
class Workspace {
public:
    using OpenHandler = std::function<void(std::optional<qint64> pid, std::optional<ZLError> error)>;

    virtual ~Workspace() = default;

    // The user's own running processes of the application with this identifier.
    virtual QList<RunningApplication> runningApplications(const QString& bundleIdentifier) = 0;
    // Brings the application to the front; answers whether that worked.
    virtual bool activate(const RunningApplication& application) = 0;
    // Ends the process at once. False when it is gone or no longer the same program.
    virtual bool forceTerminate(const RunningApplication& application) = 0;
    // Where the application with this identifier is installed, if it is.
    virtual std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) = 0;
    // Starts the application asynchronously; the handler runs once, on a background thread.
    virtual void openApplication(const QUrl& location, OpenHandler handler) = 0;
    // Opens an address with the desktop's default handler (the browser for web pages).
    virtual bool openURL(const QUrl& url) = 0;
    // The older synchronous start by name; answers whether it started.
    virtual bool launchApplication(const QString& name) = 0;
};
