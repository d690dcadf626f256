// How long one thread was blocked on monitors of one class in one method.
#ifndef PRB_RUNTIME_PRBMONITORCONTENTIONEVENT_H
#define PRB_RUNTIME_PRBMONITORCONTENTIONEVENT_H

#include "runtime/PRBJavaThread.h"

class PRBContentionSample;
class PRBJavaClass;

// Kept in the thread's contention table by monitor class and method. The owning thread starts
// and stops the clock; a data return may move the running clock forward at any moment.
class PRBJavaThread::MonitorContentionEvent : public PRBCollectable {
public:
    MonitorContentionEvent() = default;
    MonitorContentionEvent(jobjectID classId, jmethodID method)
        : monitorClassId(classId), methodId(method) {}

    std::uint16_t isA() const override { return 32739; }
    std::uint32_t hash() const override { return foldPointer(monitorClassId); }
    bool isEqual(const PRBCollectable* other) const override;

    void startTheClock(_MonitorEvent kind, timeval& start);
    void stopTheClock(_MonitorEvent kind, timeval& now);
    // Answers 1 when a sample was written. REQUIRES: no registry held.
    int createSample(PRBContentionSample& sample, long long nowMs);

    jobjectID getMonitorClassId() const { return monitorClassId; }
    jmethodID getMethodId() const { return methodId; }
    bool isClockRunning() const { return clockStart.load(std::memory_order_acquire) != kStopped; }
    long long getContentionTime() const { return contentionNs.load(std::memory_order_relaxed); }
    long long getWaitTime() const { return waitNs.load(std::memory_order_relaxed); }
    int getContentionCount() const { return contentions.load(std::memory_order_relaxed); }
    int getWaitCount() const { return waits.load(std::memory_order_relaxed); }

private:
    static constexpr long long kStopped = -0x7FFFFFFFFFFFFFFFLL - 1;
    void addTime(_MonitorEvent kind, long long ns);
    void accountRunningClock();
    const PRBJavaClass* findMonitorClass() const;

    std::atomic<const PRBJavaClass*> methodClass{nullptr};
    jobjectID monitorClassId = nullptr;
    jmethodID methodId = nullptr;
    std::atomic<long long> contentionNs{0}, waitNs{0};
    std::atomic<int> contentions{0}, waits{0};
    std::atomic<int> clockKind{kContendedEnter};
    // Microseconds of the time of day, or kStopped. Whoever replaces it accounts the stretch up
    // to the new value, so each stretch is accounted exactly once.
    std::atomic<long long> clockStart{kStopped};
};

#endif
