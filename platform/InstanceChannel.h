#pragma once

#include <QByteArray>

#include <functional>

// One launcher per user session: a later start asks the running one to
// reopen instead of starting again.
class InstanceChannel {
public:
    enum class Role {
        Listening,  // this process is the session's launcher
        HandedOver, // another launcher took the reopen request
        Alone,      // neither: runs without taking requests
    };

    virtual ~InstanceChannel() = default;
    // Becomes the session's launcher, taking later starts' reopen requests (onReopen
    // runs on the calling thread, with the later start's activation token, if any),
    // unless another one holds that place; then, when handOver is set, asks that one
    // to reopen. Decided under a lock, whatever the timing.
    virtual Role join(bool handOver, std::function<void(const QByteArray& activationToken)> onReopen) = 0;
};
