// One stretch of instrumented Java code that is being timed.
#ifndef PRB_RUNTIME_PRBINSTRUMENTEDMETHODENTRY_H
#define PRB_RUNTIME_PRBINSTRUMENTEDMETHODENTRY_H

#include "runtime/PRBJavaThread.h"

// Pushed and popped by natives; counted into by its thread and by the sampler, whose increment
// may come after the pop: the memory is reused by the same thread only, and reset() then.
class PRBJavaThread::InstrumentedMethodEntry : public PRBCollectable {
public:
    InstrumentedMethodEntry(jobject firstObject, jobject secondObject,
                            InstrumentedMethodEntry* below) {
        reset(firstObject, secondObject, below);
    }
    // Zeroes the counters and takes the start times unless the sampler is active.
    void reset(jobject firstObject, jobject secondObject, InstrumentedMethodEntry* below);

    std::uint16_t isA() const override { return 32710; }

    void incrNumSamples(int n) { add(numSamples, n); }
    void incrNumSamplesContention(int n) { add(numSamplesContention, n); }
    void incrNumSamplesWait(int n) { add(numSamplesWait, n); }
    void incrNumSamplesActive(int n) { add(numSamplesActive, n); }
    void incrNumContentionEvents(long long t) {
        add(contentionEvents, 1);
        contentionTime.fetch_add(t, std::memory_order_relaxed);
    }
    void incrNumWaitEvents(long long t) {
        add(waitEvents, 1);
        waitTime.fetch_add(t, std::memory_order_relaxed);
    }

    // At the pop: turns times into simulated counts when the sampler is not active, then hands
    // the four counts to the Java entry. Missing class, collector or method: skipped silently.
    void updateJavaInstrumentedMethodEntry(JNIEnv* env, jobject firstObject, jobject javaEntry);

    int getNumSamples() const { return get(numSamples); }
    int getNumSamplesContention() const { return get(numSamplesContention); }
    int getNumSamplesWait() const { return get(numSamplesWait); }
    int getNumSamplesActive() const { return get(numSamplesActive); }
    int getContentionEvents() const { return get(contentionEvents); }
    int getWaitEvents() const { return get(waitEvents); }
    long long getContentionTime() const { return contentionTime.load(std::memory_order_relaxed); }
    long long getWaitTime() const { return waitTime.load(std::memory_order_relaxed); }
    InstrumentedMethodEntry* getParent() const { return parent; }

private:
    // Unsigned arithmetic: a nanosecond span's low 32 bits may wrap the counter.
    static void add(std::atomic<unsigned>& counter, int n) {
        counter.fetch_add(static_cast<unsigned>(n), std::memory_order_relaxed);
    }
    static int get(const std::atomic<unsigned>& counter) {
        return static_cast<int>(counter.load(std::memory_order_relaxed));
    }
    void simulateSamples(long long divisor);
    void callJava(JNIEnv* env, jobject javaEntry) const;

    jobject first = nullptr; // of the push call; kept, not used
    jobject second = nullptr;
    std::atomic<unsigned> numSamples{0}, numSamplesContention{0}, numSamplesWait{0},
        numSamplesActive{0};
    std::atomic<unsigned> contentionEvents{0}, waitEvents{0};
    std::atomic<long long> contentionTime{0}, waitTime{0};
    bool timed = false; // pushed while the sampler was not active
    long long StartCPUTime = 0;
    timeval startTime{};
    std::atomic<long long> childCpu{0}, childReal{0};
    InstrumentedMethodEntry* parent = nullptr;
};

#endif
