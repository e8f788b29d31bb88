#pragma once

#include <QByteArray>

// Where finished system-log lines go (standard error and syslog on Linux).
class LogSink {
public:
    virtual ~LogSink() = default;
    // One complete line, already rendered, without a trailing newline.
    virtual void write(const QByteArray& line) = 0;
};
