#pragma once

#include <QString>

// The system log call. Like the platform's, it takes a printf-style format:
// the text passed in is interpreted as a format with no arguments.
class SystemLog {
public:
    static void log(const QString& format);
    // Logs the text as it stands, percent signs included.
    static void logText(const QString& text);
};
