// What one thread did in one method between two collections.
#ifndef PRB_RUNTIME_PRBMETHODFREQUENCY_H
#define PRB_RUNTIME_PRBMETHODFREQUENCY_H

#include "runtime/PRBJavaThread.h"

class PRBJavaClass;
class PRBMethodUsageSample;

// Kept in the thread's frequency table by method id. Written by the owning thread (exits,
// allocations, contention) and by the sampler, read and reset by a data return; the counters
// are relaxed atomics. The names and the class belong to the data return.
//
// An exit of a method charges every caller on the stack. What that touches lies together, and is
// written by the owning thread alone, without atomic additions: the count only grows, and a data
// return remembers how much of it is reported.
class PRBJavaThread::MethodFrequency : public PRBCollectable {
public:
    explicit MethodFrequency(jmethodID id) : methodId(id) {}

    std::uint16_t isA() const override { return 32735; }
    std::uint32_t hash() const override { return foldPointer(methodId); }
    bool isEqual(const PRBCollectable* other) const override;

    // Level 0 is the method's own CPU, any other a callee's. A non-zero exit sequence that was
    // the last one counted is ignored: a recursive method gets a callee's CPU once per exit.
    // REQUIRES: the owning thread, when the sequence is not 0.
    void sampleCPU(int level, long long cpu, long long sequence);
    void contentionEvent(long long time, _MonitorEvent kind); // nanoseconds
    void heapAllocationEvent(long long size);                 // bytes; does not set updated
    bool reportForThisMethod();
    // The same, asked again only after a decision may have changed.
    bool isReported();
    // Brings the record into the cache for a data return that comes to it soon.
    void prefetchForReturn() const {
        const char* record = reinterpret_cast<const char*>(this);
        for (std::size_t at = 0; at < sizeof *this; at += 64) __builtin_prefetch(record + at);
    }
    void prefetchTexts() const { __builtin_prefetch(method.data()); }
    // Answers 1 when a sample was written. REQUIRES: no registry held.
    int createSample(PRBMethodUsageSample& sample, long long nowMs, long long value310,
                     long long value315);

    jmethodID getMethodId() const { return methodId; }
    bool isNotReportable() const { return notReportable.load(std::memory_order_relaxed); }
    bool isUpdated() const { return updated.load(std::memory_order_relaxed) != 0; }
    long long getOwnCPU() const { return ownCpu.load(std::memory_order_relaxed); }
    long long getCalleeCPU() const {
        return calleeCpu.load(std::memory_order_relaxed) +
               exitCalleeCpu.load(std::memory_order_relaxed) -
               exitCalleeTaken.load(std::memory_order_relaxed);
    }
    long long getContentionCount() const { return contentions.load(std::memory_order_relaxed); }
    long long getContentionTime() const { return contentionNs.load(std::memory_order_relaxed); }
    long long getWaitCount() const { return waits.load(std::memory_order_relaxed); }
    long long getWaitTime() const { return waitNs.load(std::memory_order_relaxed); }
    long long getAllocationCount() const { return allocations.load(std::memory_order_relaxed); }
    long long getAllocatedBytes() const { return allocatedBytes.load(std::memory_order_relaxed); }

private:
    bool fillNames();
    struct Taken;
    Taken take();

    std::atomic<long long> lastExitSequence{0};
    std::atomic<long long> exitCalleeCpu{0}; // by exits, ever
    std::atomic<int> updated{0};
    std::atomic<bool> notReportable{false};
    std::atomic<long long> exitCalleeTaken{0}; // of that, reported
    std::atomic<const PRBJavaClass*> cls{nullptr};
    // Filled when first reported. Class records are never deleted, methods are.
    const char* className = "";
    std::string method; // the name, a zero, the signature
    std::size_t signatureAt = 0;
    const jmethodID methodId;
    std::atomic<long long> ownCpu{0}, calleeCpu{0};
    std::atomic<long long> contentions{0}, waits{0}, allocations{0};
    std::atomic<long long> contentionNs{0}, waitNs{0}, allocatedBytes{0};
    std::atomic<std::uint64_t> reportDecision{0}; // epoch in the high half, answer + 1 in the low
};

inline void PRBJavaThread::MethodFrequency::sampleCPU(int level, long long cpu,
                                                      long long sequence) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    if (sequence != 0) {
        if (lastExitSequence.load(kRelaxed) == sequence) return;
        lastExitSequence.store(sequence, kRelaxed);
    }
    if (cpu == 0) return;
    if (level == 0)
        ownCpu.fetch_add(cpu, kRelaxed);
    else if (sequence == 0)
        calleeCpu.fetch_add(cpu, kRelaxed);
    else
        exitCalleeCpu.store(exitCalleeCpu.load(kRelaxed) + cpu, kRelaxed);
    updated.store(1, kRelaxed);
}

#endif
