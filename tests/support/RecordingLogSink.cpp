#include "RecordingLogSink.h"

#include "Platform.h"

void RecordingLogSink::write(const QByteArray& line)
{
    const QMutexLocker locker(&m_mutex);
    m_lines.append(QString::fromUtf8(line));
}

QStringList RecordingLogSink::lines() const
{
    const QMutexLocker locker(&m_mutex);
    return m_lines;
}

void RecordingLogSink::clear()
{
    const QMutexLocker locker(&m_mutex);
    m_lines.clear();
}

std::shared_ptr<RecordingLogSink> RecordingLogSink::install()
{
    auto sink = std::make_shared<RecordingLogSink>();
    PlatformServices services;
    services.logSink = sink;
    Platform::replace(services);
    return sink;
}
