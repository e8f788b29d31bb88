#pragma once

#include <QString>

// Whether an application starts with the user's session.
class LoginItems {
public:
    virtual ~LoginItems() = default;
    // Registers or removes the login item of the application; answers whether that worked.
    virtual bool setEnabled(const QString& bundleIdentifier, bool enabled) = 0;
};
