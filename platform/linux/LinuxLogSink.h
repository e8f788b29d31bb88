#pragma once

#include "LogSink.h"

// Standard error with the platform log prefix, and the same line to syslog(3); only syslog when standard
// error is the journal already.
class LinuxLogSink : public LogSink {
public:
    LinuxLogSink();
    void write(const QByteArray& line) override;

    // "2026-11-21 14:03:07.123 zelna-quorin[pid:tid] "
    static QByteArray prefix();

private:
    bool m_journalOnly = false;
};
