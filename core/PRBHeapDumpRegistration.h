// Who gets the heap dump that is being requested.
#ifndef PRB_CORE_PRBHEAPDUMPREGISTRATION_H
#define PRB_CORE_PRBHEAPDUMPREGISTRATION_H

#include "collector/PRBHeapDumpHandler.h"
#include "core/PRBJavaRawMonitor.h"

#include <atomic>
#include <pthread.h>

// One handler at a time. A dump is given to it only on the thread that registered it; any other
// dump is ignored.
class PRBHeapDumpRegistration {
public:
    explicit PRBHeapDumpRegistration(JVMPI_Interface* jvmpi)
        : requestMonitor("_HeapDumpRequest", jvmpi) {}

    // Held by a requester from registering to deregistering.
    PRBJavaRawMonitor requestMonitor;

    PRBHeapDumpHandler* set(PRBHeapDumpHandler* handler) { // answers the one before
        requester_.store(self(), std::memory_order_relaxed);
        return handler_.exchange(handler, std::memory_order_acq_rel);
    }
    // The handler for a dump that arrives on the calling thread; null when nobody asked.
    PRBHeapDumpHandler* forCaller() const {
        PRBHeapDumpHandler* handler = handler_.load(std::memory_order_acquire);
        return handler != nullptr && requester_.load(std::memory_order_relaxed) == self() ? handler
                                                                                          : nullptr;
    }

    // The one that events are delivered to; set once at start-up.
    inline static std::atomic<PRBHeapDumpRegistration*> installed{nullptr};

private:
    static std::uintptr_t self() { return static_cast<std::uintptr_t>(pthread_self()); }
    std::atomic<PRBHeapDumpHandler*> handler_{nullptr};
    std::atomic<std::uintptr_t> requester_{0};
};

#endif
