// Base of the agent's own threads: how a controlling thread asks one to stop and waits for it.
#ifndef PRB_RUNTIME_PRBPROFILERBACKGROUNDTHREAD_H
#define PRB_RUNTIME_PRBPROFILERBACKGROUNDTHREAD_H

#include "core/PRBJavaRawMonitor.h"
#include "core/PRBMemoryManager.h"
#include "jvmpi/jvmpi.h"

#include <atomic>

// A derived body waits on the stop request monitor between passes, tests the stop flag after
// each wait, and posts the stopped monitor on its way out.
class PRBProfilerBackgroundThread : public PRBMemoryManager {
public:
    explicit PRBProfilerBackgroundThread(JVMPI_Interface* jvmpi);
    virtual ~PRBProfilerBackgroundThread() = default;
    PRBProfilerBackgroundThread(const PRBProfilerBackgroundThread&) = delete;
    PRBProfilerBackgroundThread& operator=(const PRBProfilerBackgroundThread&) = delete;

    virtual void backgroundProcessing() {} // the thread's body
    // Asks the thread to stop and waits until it has (at most kStopTimeoutMs).
    virtual void shutdown();

    static constexpr int kStopTimeoutMs = 999999;

    int isStopRequested() const { return stopRequested.load(std::memory_order_acquire); }
    int isTerminated() const { return terminated.load(std::memory_order_acquire); }

protected:
    JVMPI_Interface* jvmpi;
    PRBJavaRawMonitor stopRequestMonitor; // also the wake-up monitor of derived threads
    PRBJavaRawMonitor stoppedMonitor;
    std::atomic<int> stopRequested{0};
    std::atomic<int> terminated{1}; // 0 while the body runs
};

#endif
