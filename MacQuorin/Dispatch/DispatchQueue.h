#pragma once

#include "OperationQueue.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QThread;
class WorkRunner;

// Work queues in the platform's sense. The main queue is the GUI thread's
// event loop; a serial queue is a named thread with an event loop of its own.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    static DispatchQueue& main();
    explicit DispatchQueue(const QString& label); // a new serial queue
    ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    const QString& label() const { return m_label; }

    // Runs work later on this queue, from any thread.
    void async(Work work);
    void asyncAfter(std::chrono::milliseconds delay, Work work);

    // The queue whose thread is running this, if any.
    static DispatchQueue* current();
    OperationQueue& operationQueue() { return m_operationQueue; }

private:
    DispatchQueue(); // the main queue

    QString m_label;
    std::unique_ptr<QThread> m_thread;
    WorkRunner* m_context = nullptr; // lives on the queue's thread; its events are the queue
    OperationQueue m_operationQueue;
};
