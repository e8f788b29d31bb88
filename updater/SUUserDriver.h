#pragma once

#include "SUAppcastItem.h"

#include <functional>

// Shows the user that an update exists and reports the choice.
class SUUserDriver {
public:
    enum class Choice { Download, SkipThisVersion, RemindLater };

    virtual ~SUUserDriver() = default;
    virtual void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                                 std::function<void(Choice)> reply)
        = 0;
};
