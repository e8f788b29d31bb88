#pragma once

#include <QObject>

#include <functional>

// Runs work handed over from any thread on the thread this object lives in,
// through that thread's event loop.
class WorkRunner : public QObject {
public:
    using QObject::QObject;

    // Thread-safe; the work runs later, in posting order.
    void post(std::function<void()> work);

protected:
    bool event(QEvent* event) override;
};
