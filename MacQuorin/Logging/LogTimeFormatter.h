#pragma once

#include <QString>

#include <chrono>

// Formats a moment as "HH:mm:ss.SSS" in local time. Building one reads the
// time-zone rules once; formatting afterwards touches no shared state.
class LogTimeFormatter {
public:
    LogTimeFormatter();
    QString string(std::chrono::system_clock::time_point moment) const;
};
