#pragma once

#include <QString>

class SUUpdater;

// What the updater tells the application; all arrive on the main thread.
class SUUpdaterDelegate {
public:
    virtual ~SUUpdaterDelegate() = default;
    virtual void updaterDidNotFindUpdate(SUUpdater* updater) = 0;
    virtual void updaterDidRelaunchApplication(SUUpdater* updater) = 0;
    // A check ended without an answer (feed unreachable, not a feed, ...); already logged.
    virtual void updaterDidAbortWithError(SUUpdater*, const QString& /*error*/) { }
};
