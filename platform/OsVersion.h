#pragma once

// The operating-system version test.
class OsVersion {
public:
    virtual ~OsVersion() = default;
    virtual bool isAtLeast(int major, int minor, int patch) const = 0;
};
