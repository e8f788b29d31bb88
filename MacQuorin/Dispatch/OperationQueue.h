#pragma once

class DispatchQueue;

// The operation queue of the running code: the main queue on the GUI thread,
// a serial queue on its own thread, and none on any other thread.
class OperationQueue {
public:
    explicit OperationQueue(DispatchQueue* underlying) : m_underlying(underlying) { }

    static OperationQueue* current();
    DispatchQueue* underlyingQueue() const { return m_underlying; }

private:
    DispatchQueue* m_underlying;
};
