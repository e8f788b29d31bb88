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
    // Takes the session launcher's place, decided under a lock whatever the timing, unless
    // another one holds it; then, when handOver is set, asks that one to reopen. Needs no
    // application object: a start that hands over ends before making one.
    virtual Role claim(bool handOver) = 0;
    // Once the application object exists, takes later starts' reopen requests in the place
    // claimed (onReopen runs on the calling thread, with the later start's activation token,
    // if any). Answers Listening, or Alone when the place was not claimed or cannot be used.
    virtual Role listen(std::function<void(const QByteArray& activationToken)> onReopen) = 0;
    // Gives the place up before the process ends: the next start becomes the launcher at once.
    virtual void close() { }
};
