#include "WorkRunner.h"

#include <QCoreApplication>
#include <QEvent>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

const QEvent::Type workEventType = static_cast<QEvent::Type>(QEvent::registerEventType());

class WorkEvent : public QEvent {
public:
    explicit WorkEvent(std::function<void()> work) : QEvent(workEventType), m_work(std::move(work)) { }
    std::function<void()> m_work;
};

// Qt's event queue orders posting before running, but its locks live in a
// library ThreadSanitizer cannot see: tell it, so that work handed between
// threads is not reported as racing with its sender.
void handedOver([[maybe_unused]] void* event)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(event);
#endif
}

void takenOver([[maybe_unused]] void* event)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(event);
#endif
}

} // namespace

void WorkRunner::post(std::function<void()> work)
{
    auto* event = new WorkEvent(std::move(work));
    handedOver(event);
    QCoreApplication::postEvent(this, event);
}

bool WorkRunner::event(QEvent* event)
{
    takenOver(event); // before any read of it; a no-op for events nobody handed over
    if (event->type() != workEventType)
        return QObject::event(event);
    static_cast<WorkEvent*>(event)->m_work();
    return true;
}
