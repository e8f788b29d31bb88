#pragma once

class SUUpdater;

// What the updater tells the application; both arrive on the main thread.
class SUUpdaterDelegate {
public:
    virtual ~SUUpdaterDelegate() = default;
    virtual void updaterDidNotFindUpdate(SUUpdater* updater) = 0;
    virtual void updaterDidRelaunchApplication(SUUpdater* updater) = 0;
};
