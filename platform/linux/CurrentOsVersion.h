#pragma once

#include "OsVersion.h"

// Linux counts as a current system: every version threshold is met.
class CurrentOsVersion : public OsVersion {
public:
    bool isAtLeast(int, int, int) const override { return true; }
};
