#pragma once

#include "LogSink.h"
#include "Platform.h"

#include <QMutex>
#include <QStringList>

// Keeps every log line, from any thread, for the test to inspect.
class RecordingLogSink : public LogSink {
public:
    void write(const QByteArray& line) override
    {
        const QMutexLocker locker(&m_mutex);
        m_lines.append(QString::fromUtf8(line));
    }
    QStringList lines() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_lines;
    }
    void clear()
    {
        const QMutexLocker locker(&m_mutex);
        m_lines.clear();
    }

    // Installs a fresh recorder as the platform's log sink.
    static std::shared_ptr<RecordingLogSink> install()
    {
        PlatformServices services;
        services.logSink = std::make_shared<RecordingLogSink>();
        Platform::replace(services);
        return std::static_pointer_cast<RecordingLogSink>(services.logSink);
    }

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
