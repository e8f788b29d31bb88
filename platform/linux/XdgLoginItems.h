#pragma once

#include "LoginItems.h"

// Login items are XDG autostart entries in the user's configuration directory.
class XdgLoginItems : public LoginItems {
public:
    bool setEnabled(const QString& bundleIdentifier, bool enabled) override;

    // The entry's Exec with its program replaced by an absolute path, quoted as entries require.
    static QString execWithProgram(const QString& exec, const QString& absoluteProgram);

private:
    static bool enable(const QString& bundleIdentifier, const QString& target);
    static bool disable(const QString& bundleIdentifier, const QString& target);
};
