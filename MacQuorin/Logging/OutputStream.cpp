#include "OutputStream.h"

#include "WorkRunner.h"

using namespace Qt::Literals::StringLiterals;

OutputStream::OutputStream(const QString& path, bool append) : m_file(path), m_append(append) { }

OutputStream::~OutputStream()
{
    {
        // Waits for an event being delivered right now; later ones find nothing.
        const std::lock_guard lock(m_presence->mutex);
        m_presence->stream = nullptr;
    }
    if (m_runner)
        m_runner->deleteLater();
}

void OutputStream::scheduleInCurrentRunLoop()
{
    if (m_runner)
        m_runner->deleteLater();
    m_runner = new WorkRunner; // lives on the calling thread
}

void OutputStream::post(int event)
{
    if (!m_runner)
        return; // not scheduled: nobody hears it
    m_runner->post([presence = m_presence, event] {
        const std::lock_guard lock(presence->mutex);
        OutputStream* self = presence->stream;
        if (self && self->m_delegate)
            self->m_delegate->stream(self, event);
    });
}

void OutputStream::fail(const QString& what)
{
    m_error = ZLError(u"NSPOSIXErrorDomain"_s, int(m_file.error()), what + u": "_s + m_file.errorString(),
                      u"NSFilePath="_s + m_file.fileName());
    post(ErrorOccurred);
}

void OutputStream::open()
{
    const QIODevice::OpenMode mode
        = QIODevice::WriteOnly | (m_append ? QIODevice::Append : QIODevice::Truncate);
    if (!m_file.open(mode)) {
        fail(u"Cannot open the log file"_s);
        return;
    }
    post(OpenCompleted);
    post(HasSpaceAvailable);
}

void OutputStream::close()
{
    m_file.close();
}

qint64 OutputStream::write(const QByteArray& bytes)
{
    const qint64 written = m_file.isOpen() ? m_file.write(bytes) : -1;
    if (written < 0 || !m_file.flush()) {
        fail(u"Cannot write the log file"_s);
        return -1;
    }
    return written;
}
