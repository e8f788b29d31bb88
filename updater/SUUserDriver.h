#pragma once

#include "SUAppcastItem.h"
#include "SUFeedDownload.h"

#include <functional>

// Shows the user that an update exists and reports the choice.
class SUUserDriver {
public:
    enum class Choice { Download, SkipThisVersion, RemindLater };

    // How a driver fetches the release notes an item links to, as the feed is fetched.
    using ReleaseNotesFetch = std::function<void(const QUrl& link, SUFeedDownload::Finished done)>;

    virtual ~SUUserDriver() = default;
    virtual void setReleaseNotesFetch(const ReleaseNotesFetch&) { }
    virtual void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                                 std::function<void(Choice)> reply)
        = 0;
};
