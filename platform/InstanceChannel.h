#pragma once

#include <functional>

// One launcher per user session: a second start asks the running one to
// reopen instead of starting again.
class InstanceChannel {
public:
    virtual ~InstanceChannel() = default;
    // Asks a running launcher to reopen; true when one took the request.
    virtual bool forwardReopen() = 0;
    // Takes requests from later starts; onReopen runs on the calling thread.
    // False when another launcher already listens.
    virtual bool listen(std::function<void()> onReopen) = 0;
};
