#pragma once

#include "LoginItems.h"

// Login items are XDG autostart entries in the user's configuration directory.
class XdgLoginItems : public LoginItems {
public:
    bool setEnabled(const QString& bundleIdentifier, bool enabled) override;

private:
    static bool enable(const QString& bundleIdentifier, const QString& target);
    static bool disable(const QString& bundleIdentifier, const QString& target);
};
