#include "core/PRBErrorQueue.h"

#include "data/PRBProfilerError.h"

std::atomic<PRBErrorQueue*> PRBErrorQueue::installed{nullptr};

void PRBErrorQueue::add(PRBProfilerError* error) {
    if (error == nullptr) return;
    PRBCollectable* dropped = nullptr;
    {
        PRBMonitorGuard guard(monitor);
        if (errors.entries() == kMost) dropped = errors.get();
        errors.insert(error);
    }
    delete dropped;
}

PRBProfilerError* PRBErrorQueue::next() {
    PRBMonitorGuard guard(monitor);
    return static_cast<PRBProfilerError*>(errors.get());
}

void PRBErrorQueue::report(unsigned code, const char* text) {
    if (PRBErrorQueue* queue = installed.load(std::memory_order_acquire))
        queue->add(new PRBProfilerError(PRBReturnCode(code), text));
}
