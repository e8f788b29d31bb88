#pragma once

#include <QString>

// Compares version strings the way the update framework's standard comparator
// does: "1.0" equals "1.0.0", "1.0b1" comes before "1.0", and text after the
// first "-" is ignored.
class SUStandardVersionComparator {
public:
    // Negative when a is older than b, zero when equal, positive when newer.
    static int compareVersions(const QString& a, const QString& b);
};
