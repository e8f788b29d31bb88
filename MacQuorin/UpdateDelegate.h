#pragma once

#include "SUUpdaterDelegate.h"

#include <QString>

#include <functional>

class Bundle;

// Answers the updater: ends a checking-only process once its check has an
// answer, and re-registers the service's login item after an update relaunch.
class UpdateDelegate : public SUUpdaterDelegate {
public:
    // endsAfterCheck: whether the process is a checker that an answer ends.
    explicit UpdateDelegate(std::function<bool()> endsAfterCheck)
        : m_endsAfterCheck(std::move(endsAfterCheck))
    { }

    const QString helperBundleName = QStringLiteral("com.zelna.Quorin.Service");

    void updaterDidNotFindUpdate(SUUpdater* updater) override;
    void updaterDidAbortWithError(SUUpdater* updater, const QString& error) override;
    void updaterDidRelaunchApplication(SUUpdater* updater) override;

    // Points the shared updater at the bundle's feed and starts a background check.
    // Nothing happens without a text "SUFeedURL"; one that is not a URL ends the process.
    static void configureSharedUpdater(UpdateDelegate& delegate, const Bundle& bundle);

    // Does the delayed work already scheduled (keeping its delay), so that no exit cuts it off.
    static void finishPendingWork();
    // Ends the process with STATUS, after the pending work: the event loop is left at once, with no
    // question to the application's delegate, and main returns STATUS.
    static void endProcess(int status);

private:
    std::function<bool()> m_endsAfterCheck;
};
