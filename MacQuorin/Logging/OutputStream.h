#pragma once

#include "ZLError.h"

#include <QFile>

#include <memory>
#include <mutex>
#include <optional>

class OutputStream;
class WorkRunner;

// Hears a stream's events on the thread the stream was scheduled on.
class StreamDelegate {
public:
    virtual ~StreamDelegate() = default;
    virtual void stream(OutputStream* stream, int event) = 0;
};

// A byte stream into a file whose events carry the platform's stream event
// values and arrive through the event loop of the thread that scheduled it.
class OutputStream {
public:
    enum Event {
        None = 0,
        OpenCompleted = 1,
        HasBytesAvailable = 2,
        HasSpaceAvailable = 4,
        ErrorOccurred = 8,
        EndEncountered = 16,
    };

    OutputStream(const QString& path, bool append);
    ~OutputStream();

    void setDelegate(StreamDelegate* delegate) { m_delegate = delegate; }
    // Events go to the current thread's event loop from now on.
    void scheduleInCurrentRunLoop();
    void open();
    void close();
    // The bytes written, or -1 after an error (reported as an event too).
    qint64 write(const QByteArray& bytes);
    std::optional<ZLError> streamError() const { return m_error; }

    // Delivers an event as the stream would; used by open, write and tests.
    void post(int event);

private:
    // Shared with queued events: they find no stream once it is gone.
    struct Presence {
        explicit Presence(OutputStream* s) : stream(s) { }
        std::recursive_mutex mutex;
        OutputStream* stream;
    };

    void fail(const QString& what);

    QFile m_file;
    bool m_append;
    StreamDelegate* m_delegate = nullptr;
    WorkRunner* m_runner = nullptr; // lives on the scheduling thread, deleted there
    std::shared_ptr<Presence> m_presence = std::make_shared<Presence>(this);
    std::optional<ZLError> m_error;
};
