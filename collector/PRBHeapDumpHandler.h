// Who receives a heap dump that the agent has requested.
#ifndef PRB_COLLECTOR_PRBHEAPDUMPHANDLER_H
#define PRB_COLLECTOR_PRBHEAPDUMPHANDLER_H

#include "jvmpi/jvmpi.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>

// Registered with PRBMonitorGlobal for the time of one request; called by its notify, on the
// requesting thread, before RequestEvent returns. The dump's bytes are valid during the call.
class PRBHeapDumpHandler {
public:
    virtual void handleHeapDump(JVMPI_Event* event) = 0;

protected:
    ~PRBHeapDumpHandler() = default; // never deleted through the interface
};

// While one exists, allocation events that this thread requests tell what a dump holds already:
// they make the object known and count no allocation, neither for its class nor for a thread.
// Passes are serial, so one note of the walking thread serves the process.
class PRBHeapDumpReplay {
public:
    PRBHeapDumpReplay() { walker.store(self(), std::memory_order_relaxed); }
    ~PRBHeapDumpReplay() { walker.store(0, std::memory_order_relaxed); }
    PRBHeapDumpReplay(const PRBHeapDumpReplay&) = delete;
    PRBHeapDumpReplay& operator=(const PRBHeapDumpReplay&) = delete;

    // For the handler of allocation events: is the calling thread inside such a walk?
    static bool isReplaying() {
        std::uintptr_t thread = walker.load(std::memory_order_relaxed);
        return thread != 0 && thread == self();
    }

private:
    static std::uintptr_t self() { return static_cast<std::uintptr_t>(pthread_self()); }
    inline static std::atomic<std::uintptr_t> walker{0};
};

#endif
