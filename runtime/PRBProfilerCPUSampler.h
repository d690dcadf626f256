// The statistical CPU profiler: once per interval it stops the runnable Java threads, takes the
// stacks of those that have run, and charges one sample each.
#ifndef PRB_RUNTIME_PRBPROFILERCPUSAMPLER_H
#define PRB_RUNTIME_PRBPROFILERCPUSAMPLER_H

#include "runtime/PRBProfilerBackgroundThread.h"
#include "runtime/PRBSamplerChild.h"
#include "runtime/PRBSamplerWindow.h"

#include <cstdint>
#include <cstdio>

class PRBJavaThread;
class PRBMonitorHashTable;
class PRBProfilerResourceSample;

// One per process, on a thread of the VM named "PRB_CPUSampler_Thread". Controlled by the
// workload collector from Java threads.
//
// idle inactive
//   1     1      waiting for activation
//   0     0      active (1 0: woken, not running yet)
//   0     1      switched off, in its last cycle
class PRBProfilerCPUSampler : public PRBProfilerBackgroundThread {
public:
    static PRBProfilerCPUSampler* createBackgroundThread(JVMPI_Interface* jvmpi,
                                                         unsigned int intervalMs);
    // Starts the thread as its last step.
    PRBProfilerCPUSampler(JVMPI_Interface* jvmpi, unsigned int intervalMs);
    ~PRBProfilerCPUSampler() override;

    static void launchBackgroundThread(void*); // the entry function that the VM calls
    void backgroundProcessing() override;

    // 1 when the state changed; else 0 and nothing changes. A deactivation that comes between an
    // activation and the thread's wake-up answers 0 too, but is noted, so that the thread does
    // not go active; the next activation clears the note.
    int activateSampler(unsigned int intervalMs);
    int deactivateSampler();
    // For a new collection that comes before the thread has noticed the stop of the last one.
    void withdrawDeactivation();

    // No cycle runs from the one to the other, which must be called on the same thread.
    void interruptSampler();
    void resumeSampler(unsigned int intervalMs); // 0 keeps the interval

    int tempSuspend(unsigned int seconds); // 0 while one is pending
    int getCurrentState() const { return idle.load(std::memory_order_acquire); }
    unsigned getInterval() const { return interval.load(std::memory_order_relaxed); }
    int isInactive() const { return inactive.load(std::memory_order_acquire); }

    // Share of the elapsed nanoseconds, in whole numbers.
    long long getCPUUsedBySampler(long long elapsed) const;
    long long getAndResetCPUBusyCount() { return busyCount.exchange(0); }
    long long getAndResetCycleCount() { return cycleCount.exchange(0); }
    void getProfilerUsageStats(PRBProfilerResourceSample& sample) const;

    void createChildProcess();
    void pause(int ms);
    void stopChildProcess();
    FILE* openChildLogFile();
    static void RunInChildProcess(int readFd, int writeFd, FILE* log);

    // One cycle at once, on the calling thread. REQUIRES: the interrupt lock held, or the
    // sampler's thread not active.
    void runCycle();

    // Where failures go besides the log: called with a return code and the logged line. Set once
    // at start-up; null by default.
    using ErrorSink = void (*)(unsigned code, const char* text);
    static std::atomic<ErrorSink> errorSink;

    const PRBSamplerChild& getChild() const { return child; }
    int getTraceCapacity() const { return capacity; } // slots

private:
    bool waitForActivation();
    void sampleUntilStopped();
    void forgetTimesOfThreads();
    int listThreads(PRBMonitorHashTable& table);
    bool reserve(int threads);
    void releaseBuffers();
    void charge(int suspended);
    void makeKnown(const JVMPI_CallFrame* frames, int count);
    static void blockSigpipe();

    PRBSamplerWindow::TraceSlot* slots = nullptr;
    PRBSamplerWindow::Candidate* list = nullptr;
    int capacity = 0;
    std::atomic<long long> cpuUsed{0}; // microseconds
    std::atomic<unsigned> interval;    // milliseconds
    std::atomic<unsigned> suspendSeconds{0};
    std::atomic<long long> busyCount{0};
    std::atomic<long long> cycleCount{0};
    PRBJavaRawMonitor interruptLock;
    std::atomic<int> idle{1};
    std::atomic<int> inactive{1};
    bool stopNoted = false; // under the wake-up monitor
    PRBSamplerChild child;
    // Methods seen in the model, by hash of their id: most frames of a trace were in the last one
    // too. An entry that outlives its method is harmless.
    static constexpr std::size_t kKnownMethods = 2048;
    jmethodID knownMethods[kKnownMethods] = {};

    static std::atomic<PRBProfilerCPUSampler*> pSampler;
};

#endif
