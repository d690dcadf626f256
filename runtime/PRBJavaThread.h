// The agent's model of one Java thread.
#ifndef PRB_RUNTIME_PRBJAVATHREAD_H
#define PRB_RUNTIME_PRBJAVATHREAD_H

#include "core/PRBCollections.h"
#include "core/PRBJavaRawMonitor.h"
#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaObject.h"

#include <atomic>
#include <memory>
#include <string>
#include <sys/time.h>
#include <vector>

class PRBCThreadSample;
class PRBMonitorHashTable;

enum _ThreadState : int {
    kThreadRunning = 1,
    kThreadContended = 2, // blocked entering a monitor
    kThreadWaiting = 3,
    kThreadEnded = 4
};
enum _MonitorEvent : int { kContendedEnter = 0, kMonitorWait = 1 };
// kFindThreadObject looks the object up when it is not cached; any other value does not.
enum _FindJavaThreadObject : int { kFindThreadObject = 0, kCachedThreadObject = 1 };

// Built by the thread-start handler, kept in "_ThreadTable" until the purge after its end. The
// event operations run on the thread that the object stands for; the collection operations on
// the thread of a data return; the sampler touches counters from its own thread. Counters are
// relaxed atomics and a sample takes them with an exchange, so nothing is counted twice or lost.
//
// Times are nanoseconds. In sampling mode (PRBContext::isCPUSamplingActive) the CPU time holds a
// count of samples, and the two unsampled times are what the sampler counted.
class PRBJavaThread : public PRBJavaObject {
public:
    class MethodFrequency;         // runtime/PRBMethodFrequency.h
    class InstrumentedMethodEntry; // runtime/PRBInstrumentedMethodEntry.h
    class MonitorContentionEvent;  // runtime/PRBMonitorContentionEvent.h

    // From a thread-start event; null names are empty. isBackground: the agent's own thread.
    PRBJavaThread(const char* name, const char* groupName, const char* parentName,
                  jobjectID threadId, JNIEnv* envId, int isBackground);
    // A look-up key: nothing but the environment.
    explicit PRBJavaThread(JNIEnv* envId);
    ~PRBJavaThread() override;
    PRBJavaThread(const PRBJavaThread&) = delete;
    PRBJavaThread& operator=(const PRBJavaThread&) = delete;

    // ---- Identity ----
    std::uint16_t isA() const override { return 32740; }
    std::uint32_t hash() const override;
    bool isEqual(const PRBCollectable* other) const override; // by environment
    // The environment; a key built without one takes the calling thread's and keeps it.
    JNIEnv* getThreadEnvId() const;
    static JNIEnv* getEnvIdForCurrentThread(); // null without a JavaVM or when not attached
    // For an ended thread whose environment a new thread has got: from now on hash and equality
    // are its own address. REQUIRES: out of the registry while called.
    void retire() { retired.store(true, std::memory_order_relaxed); }

    const std::string& getName() const { return name; }
    const std::string& getGroupName() const { return groupName; }
    const std::string& getParentName() const { return parentName; }
    jobjectID getThreadId() const { return threadId; }
    JNIEnv* getEnvId() const { return envId.load(std::memory_order_relaxed); }
    int isThisBackgroundThread() const { return background; }
    _ThreadState getThreadState() const { return state.load(std::memory_order_acquire); }
    void setThreadState(_ThreadState s) { state.store(s, std::memory_order_release); }

    // ---- Events, on this thread ----
    void methodEntry(jmethodID method, jobjectID object);
    void methodExit(jmethodID method);
    void monitorEntry(jobjectID object);
    void monitorEntered(jobjectID object);
    void monitorWait(jobjectID object);
    void monitorWaited(jobjectID object);
    void heapAllocation(long long size); // bytes
    // From any thread, inside a collection pause too. REQUIRES: the object registry held.
    void heapFree(long long size);

    // ---- Collection ----
    // Fills the sample and resets the counters; answers 1.
    int createSample(PRBCThreadSample& sample, long long value310, long long value315);
    void clearCounters();
    using MethodUsageCallback = int (*)(void* context, MethodFrequency* record, long long nowMs);
    // Calls back for every record, or for that of onlyMethod, until a call answers 0.
    void getMethodUsageSamples(MethodUsageCallback callback, void* context, jmethodID onlyMethod);
    using ContentionCallback = int (*)(void* context, MonitorContentionEvent* event,
                                       long long nowMs);
    void getContentionSamples(ContentionCallback callback, void* context);
    static long long getAndResetCPUTime(); // exclusive CPU of all threads' method exits
    // Workloads running; may fall below 0 when the Java side is out of balance.
    int workloadRunning() { return workloads.fetch_add(1, std::memory_order_relaxed) + 1; }
    int workloadDone() { return workloads.fetch_sub(1, std::memory_order_relaxed) - 1; }
    int getNumWorkloadsRunning() const { return workloads.load(std::memory_order_relaxed); }

    // ---- Method stack, for its own thread only ----
    struct StackEntry {
        jmethodID method;
        int isTimed;
        long long StartCPUTime;
        timeval StartRealTime;
        long long ChildCPUTime;
        long long ChildRealTime;
        MethodFrequency* frequency; // looked up when first needed
    };
    static constexpr int kInitialStackEntries = 500;
    jmethodID getCurrentMethod();                 // 0 when it is not known
    const StackEntry* getStackEntry(int n) const; // 0 is the top; null below the bottom
    int getStackDepth() const { return stackDepth.load(std::memory_order_acquire); }
    int getStackCapacity() const { return stackCapacity; }
    long long getExitSequence() const { return exitSequence; }
    // The one after it; never 0, which means no exit.
    static long long nextExitSequence(long long sequence) {
        const auto next = static_cast<unsigned long long>(sequence) + 1U;
        return next == 0 ? 1 : static_cast<long long>(next);
    }

    // ---- Method frequency ----
    MethodFrequency* findMethodFrequency(jmethodID method); // created when there is none
    // By the sampler, top frame first.
    void saveMethodFrequency(const JVMPI_CallFrame* frames, int count);
    // By class unload, on any thread: the record goes at the next purge. REQUIRES: none of the
    // class, method, arena and object registries held.
    void removeMethod(jmethodID method);
    void removeMethods(const jmethodID* methods, std::size_t count);
    void purgeMethodFrequencyObjects();
    PRBMonitorHashTable* getMethodFrequencyTable() const { return frequencyTable.get(); }

    // ---- Contention ----
    void newContentionEvent(jobjectID classId, jmethodID method, _MonitorEvent kind,
                            timeval& start);
    void contentionEventEnded(jobjectID classId, jmethodID method, _MonitorEvent kind,
                              long long span, timeval& now);
    PRBMonitorHashTable* getContentionTable() const { // null before the first contention
        return contentionTable.load(std::memory_order_acquire);
    }
    jobjectID getContendedClassId() const { return contendedClassId; }
    jmethodID getContendedMethod() const { return contendedMethod; }

    // ---- Instrumented stack (by natives; normally, but not surely, on this thread) ----
    void createNewInstrumentedProfilingEntry(JNIEnv* env, jobject first, jobject second);
    void removeTopInstrumentedProfilingEntry(JNIEnv* env, jobject first, jobject javaEntry);
    void registerInstrumentedStackObject(JNIEnv* env, jobject stack);
    jobject getInstrumentedStackObject() const {
        return instrumentedStackObject.load(std::memory_order_acquire);
    }
    // Entries are reused and never freed while the thread lives, so the answer may be counted
    // into at any time.
    InstrumentedMethodEntry* getTopMethodEntry() const {
        return topInstrumented.load(std::memory_order_acquire);
    }

    // ---- Java thread object ----
    // The global reference; looked up only on the thread itself.
    jobject getJavaThreadObject(_FindJavaThreadObject mode);
    // Deletes it, and the instrumented stack's, once; through the caller's own environment.
    void destroyJavaThreadObject();
    // Calls Thread.stop on it; 0, or the return code 73, 74 or 75.
    unsigned killThread(JNIEnv* env);

    // ---- Counters that the sampler adds to ----
    void countSampledContention() { sampledContention.fetch_add(1, std::memory_order_relaxed); }
    void countSampledWait() { sampledWait.fetch_add(1, std::memory_order_relaxed); }
    void countSampledCpu(); // the low 32 bits only, without carry
    // At activation of the sampler: the unit of the two unsampled times changes.
    void forgetUnsampledTimes();

    // Nanoseconds from start to end; no check that end is later.
    static long long TimeSpan(const timeval& start, const timeval& end);

    // The counters as they stand; the unsampled times with the samples counted.
    struct Counters {
        long long contentionTime, waitTime, unsampledContention, unsampledWait, cpuTime;
        long long bytesAllocated, liveBytes;
        int contentionCount, waitCount, allocationCount, netObjects;
    };
    Counters getCounters() const;
    timeval getLastSampleTime() const;
    timeval getLastMethodDataTime() const;
    timeval getLastContentionDataTime() const;

private:
    struct DecisionCache;
    class Micros { // a moment that two threads may move; kNone: no moment
    public:
        static constexpr long long kNone = -0x7FFFFFFFFFFFFFFFLL - 1;
        std::atomic<long long> us{kNone};
    };

    bool growStack();
    bool isMethodMonitored(jmethodID method);
    MethodFrequency* frequencyOf(StackEntry& entry);
    void chargeCallers(int depth, long long totalCpu, long long totalReal, long long exclusive);
    void measureExit(StackEntry& entry, int depth);
    void assertOwner() const;

    void blockStarted(jobjectID object, _ThreadState blocked, _MonitorEvent kind);
    void blockEnded(_ThreadState blocked, _MonitorEvent kind);

    void bury(const std::vector<MethodFrequency*>& records);
    void emptyGraveyard();

    // What the sampler looks at while it stops threads, together: few lines of the cache.
    mutable std::atomic<JNIEnv*> envId{nullptr};
    std::atomic<_ThreadState> state{kThreadRunning};
    std::atomic<int> workloads{0};
    std::atomic<InstrumentedMethodEntry*> topInstrumented{nullptr};
    int background = 0;
    std::atomic<bool> retired{false};

    // Identity; constant after construction but for a key's environment.
    std::string name, groupName, parentName;
    jobjectID threadId = nullptr;

    // Method stack. The array and its capacity are the owner's alone. The depth is published
    // after the work of an exit is done: a reader that sees 0 knows that no entry caches a
    // frequency record.
    StackEntry* stack = nullptr;
    int stackCapacity = 0;
    std::atomic<int> stackDepth{0};
    long long exitSequence = 0;
    std::uint64_t stackPeriod = 1; // how often the stack has become empty
    std::unique_ptr<DecisionCache> decisions;

    std::atomic<PRBMonitorHashTable*> contentionTable{nullptr};
    std::unique_ptr<PRBMonitorHashTable> frequencyTable;

    std::atomic<long long> contentionTime{0}, waitTime{0};
    std::atomic<int> contentionCount{0}, waitCount{0};
    // Every word has one writer, so that an event costs no locked instruction but the one that
    // a free shares with the sample: what the thread itself allocated in its life, what other
    // threads reported for it, and how much of both is out of each figure again.
    struct Allocated {
        std::atomic<long long> objects{0}, bytes{0};
    };
    Allocated allocatedHere, allocatedElsewhere;
    std::atomic<std::uintptr_t> allocator{0}; // the POSIX thread of allocatedHere
    Allocated reported;                       // in samples: the collector's
    std::atomic<long long> netGone{0};        // objects freed, or in samples
    std::atomic<long long> freedBytes{0};     // under the object registry
    long long totalObjects() const {
        return allocatedHere.objects.load(std::memory_order_relaxed) +
               allocatedElsewhere.objects.load(std::memory_order_relaxed);
    }
    long long totalBytes() const {
        return allocatedHere.bytes.load(std::memory_order_relaxed) +
               allocatedElsewhere.bytes.load(std::memory_order_relaxed);
    }
    bool isAllocator();
    // Nanoseconds, by the thread while the sampler is off; and samples, by the sampler. Apart,
    // because a block may end while the sampler goes active.
    std::atomic<long long> unsampledContention{0}, unsampledWait{0};
    std::atomic<long long> sampledContention{0}, sampledWait{0};
    std::atomic<long long> cpuTime{0};
    jobjectID contendedClassId = nullptr; // the owner's
    jmethodID contendedMethod = nullptr;  // the owner's
    Micros stateStartTime, lastSampleTime, lastMethodDataTime, lastContentionDataTime;

    // Instrumented stack: the containers under the pending queue lock.
    PRBSlistStack instrumentedStack;
    std::vector<InstrumentedMethodEntry*> freeEntries;

    // Removals of unloaded methods, and records removed while the stack may cache them; both
    // under the pending queue lock.
    PRBSlist pendingRemoves;
    std::vector<MethodFrequency*> graveyard;
    std::atomic<int> graveyardCount{0};
    std::unique_ptr<PRBJavaRawMonitor> pendingQueueLock;

    std::atomic<jobject> javaThreadObject{nullptr};
    std::atomic<jobject> instrumentedStackObject{nullptr};
    mutable std::atomic<pthread_t> owner{0}; // of the method stack, for the assertion

    static std::atomic<long long> CPUUsedByAllThreads;
};

#if defined(__i386__)
static_assert(sizeof(PRBJavaThread::StackEntry) == 44, "a block of 500 is 22000 bytes");
#endif

#endif
