#pragma once

#include "DefaultsStore.h"

// Suites are property-list files in the user's XDG configuration directory.
class PlistDefaultsStore : public DefaultsStore {
public:
    std::unique_ptr<DefaultsSuite> open(const QString& suiteName) override;

    // False for names that cannot be one plain file name.
    static bool isUsableSuiteName(const QString& suiteName);
};
