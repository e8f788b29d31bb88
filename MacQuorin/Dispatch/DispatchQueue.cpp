#include "DispatchQueue.h"

#include "WorkRunner.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

namespace {
thread_local DispatchQueue* t_serialQueue = nullptr;
} // namespace

DispatchQueue::DispatchQueue()
    : m_label(QStringLiteral("com.apple.main-thread"))
    , m_context(new WorkRunner)
    , m_operationQueue(this)
{
    if (auto* app = QCoreApplication::instance())
        m_context->moveToThread(app->thread());
}

DispatchQueue::DispatchQueue(const QString& label)
    : m_label(label)
    , m_thread(std::make_unique<QThread>())
    , m_context(new WorkRunner)
    , m_operationQueue(this)
{
    m_thread->setObjectName(label);
    QObject::connect(
        m_thread.get(), &QThread::started, m_context, [this] { t_serialQueue = this; }, Qt::DirectConnection);
    m_context->moveToThread(m_thread.get());
    m_thread->start();
}

DispatchQueue::~DispatchQueue()
{
    if (m_thread) {
        // Work still waiting is dropped with the queue.
        m_thread->quit();
        m_thread->wait();
    }
    delete m_context;
}

DispatchQueue& DispatchQueue::main()
{
    static DispatchQueue queue;
    return queue;
}

void DispatchQueue::async(Work work)
{
    m_context->post(std::move(work));
}

void DispatchQueue::asyncAfter(std::chrono::milliseconds delay, Work work)
{
    // The timer is made on the queue's own thread, whichever thread asks.
    QObject* context = m_context;
    async([context, delay, work = std::move(work)] { QTimer::singleShot(delay, context, work); });
}

DispatchQueue* DispatchQueue::current()
{
    if (t_serialQueue)
        return t_serialQueue;
    const auto* app = QCoreApplication::instance();
    if (app && QThread::currentThread() == app->thread())
        return &main();
    return nullptr;
}

OperationQueue* OperationQueue::current()
{
    DispatchQueue* queue = DispatchQueue::current();
    return queue ? &queue->operationQueue() : nullptr;
}
