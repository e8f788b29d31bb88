#pragma once

#include "LogSink.h"

#include <QMutex>
#include <QStringList>

#include <memory>

// Keeps every log line, from any thread, for the test to inspect.
class RecordingLogSink : public LogSink {
public:
    void write(const QByteArray& line) override;
    QStringList lines() const;
    void clear();

    // Installs a fresh recorder as the platform's log sink.
    static std::shared_ptr<RecordingLogSink> install();

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
