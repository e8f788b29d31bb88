#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

// One fetch of the update feed, or of release notes, within the updater's limits. The code behind it
// links Qt Network and lives in a module of the bundle's own, loaded at the
// first check, so a start that does not check never maps Qt Network and what it
// links to.
class SUFeedDownload {
public:
    struct Request {
        QUrl url;
        QString userAgent;
        std::chrono::milliseconds timeout;  // without a byte received
        std::chrono::milliseconds deadline; // for the whole feed
        qint64 maxBytes;
    };
    // The feed (with its Content-Type, when the server gave one), or why there is none, as the end of a
    // sentence ("failed: ...", "stopped: ...").
    using Finished = std::function<void(const QByteArray& bytes, const QString& error, const QString& type)>;

    virtual ~SUFeedDownload() = default;
    // Fetches on the calling thread, which runs an event loop; finished is called there, once,
    // unless the download is destroyed first.
    virtual void start(const Request& request, Finished finished) = 0;
};
