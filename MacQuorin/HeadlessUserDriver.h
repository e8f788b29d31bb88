#pragma once

#include "SUUserDriver.h"

// For a checker without a display: no one can see a window, so a found
// update is logged and the process ends with status 2.
class HeadlessUserDriver : public SUUserDriver {
public:
    static constexpr int updateFoundStatus = 2;
    void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                         std::function<void(Choice)> reply) override;
};
