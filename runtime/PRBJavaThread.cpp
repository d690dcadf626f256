#include "runtime/PRBJavaThread.h"

#include "core/PRBContext.h"
#include "core/PRBFormat.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "data/PRBCThreadSample.h"
#include "data/SnapHex.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBGlobalReferences.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBMonitorContentionEvent.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBThreadDecisions.h"

#include <climits>
#include <utility>

std::atomic<long long> PRBJavaThread::CPUUsedByAllThreads{0};

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr const char* kName = PRBComponent::kThread;

constexpr std::size_t bytesOfStack(int entries) {
    return static_cast<std::size_t>(entries) * sizeof(PRBJavaThread::StackEntry);
}

std::string copyName(const char* name, const char* title) {
    if (name == nullptr) return {};
    std::string copy(name);
    if (PRBTrace::isDebugEnabled(kName)) {
        PRBTrace::writeToLog(title);
        SnapHex(reinterpret_cast<const unsigned char*>(name),
                static_cast<int>(std::min<std::size_t>(copy.size(), INT_MAX)), nullptr, nullptr);
    }
    return copy;
}

timeval fromMicros(long long us) {
    timeval t{};
    if (us == LLONG_MIN) return t;
    t.tv_sec = static_cast<time_t>(us / 1000000);
    t.tv_usec = static_cast<suseconds_t>(us % 1000000);
    return t;
}

} // namespace

PRBJavaThread::PRBJavaThread(const char* threadName, const char* group, const char* parent,
                             jobjectID id, JNIEnv* env, int isBackground)
    : envId(env), background(isBackground), threadId(id) {
    PRBTraceScope trace(PRBTraceClass::kMain, kName, "PRBJavaThread constructor");
    name = copyName(threadName, "New thread name follows");
    groupName = copyName(group, "New group name follows");
    parentName = copyName(parent, "New parent name follows");
    // Untouched pages of the stack cost address space only.
    stack =
        static_cast<StackEntry*>(PRBMemoryManager::allocate(bytesOfStack(kInitialStackEntries)));
    if (stack != nullptr) stackCapacity = kInitialStackEntries;
    frequencyTable.reset(new PRBMonitorHashTable("Thread Method Frequency Table", nullptr,
                                                 kSelfGuarding,
                                                 PRBMonitorHashTable::kThreadBuckets));
    pendingQueueLock.reset(new PRBJavaRawMonitor("PendingMethodRemoveQueueLock", nullptr));
    if (PRBTrace::isDebugEnabled(kName))
        PRBTrace::log("New thread " PRB_PTR " discovered. ThreadEnvId = " PRB_PTR
                      "   ThreadId = " PRB_PTR,
                      prbPtr(this), prbPtr(env), prbPtr(id));
}

PRBJavaThread::PRBJavaThread(JNIEnv* env) : envId(env) {}

PRBJavaThread::~PRBJavaThread() {
    if (frequencyTable == nullptr) return; // a look-up key
    PRBTraceScope trace(PRBTraceClass::kMain, kName, "PRBJavaThread destructor");
    frequencyTable->clearAndDestroy();
    frequencyTable.reset();
    if (PRBMonitorHashTable* contentions = contentionTable.load(std::memory_order_acquire)) {
        contentions->clearAndDestroy();
        delete contentions;
    }
    PRBMemoryManager::release(stack, bytesOfStack(stackCapacity));
    instrumentedStack.clearAndDestroy();
    for (InstrumentedMethodEntry* entry : freeEntries) delete entry;
    pendingRemoves.clearAndDestroy();
    for (MethodFrequency* record : graveyard) delete record;
    PRBGlobalReferences::destroy(javaThreadObject.exchange(nullptr));
    PRBGlobalReferences::destroy(instrumentedStackObject.exchange(nullptr));
}

// ---- Identity -------------------------------------------------------------------------------

JNIEnv* PRBJavaThread::getEnvIdForCurrentThread() {
    JavaVM* vm = PRBContext::getJavaVM();
    void* env = nullptr;
    if (vm == nullptr || vm->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) return nullptr;
    return static_cast<JNIEnv*>(env);
}

JNIEnv* PRBJavaThread::getThreadEnvId() const {
    JNIEnv* env = envId.load(kRelaxed);
    if (env != nullptr) return env;
    env = getEnvIdForCurrentThread();
    envId.store(env, kRelaxed);
    return env;
}

std::uint32_t PRBJavaThread::hash() const {
    return retired.load(kRelaxed) ? foldPointer(this) : foldPointer(getThreadEnvId());
}

bool PRBJavaThread::isEqual(const PRBCollectable* other) const {
    if (other == nullptr || other->isA() != isA()) return false;
    const auto* thread = static_cast<const PRBJavaThread*>(other);
    if (retired.load(kRelaxed) || thread->retired.load(kRelaxed)) return this == other;
    return getThreadEnvId() == thread->getThreadEnvId();
}

long long PRBJavaThread::TimeSpan(const timeval& start, const timeval& end) {
    long long seconds = static_cast<long long>(end.tv_sec) - start.tv_sec;
    long long micros = static_cast<long long>(end.tv_usec) - start.tv_usec;
    if (micros < 0) {
        seconds -= 1;
        micros += 1000000;
    }
    return micros * 1000 + seconds * 1000000000;
}

// ---- Heap -----------------------------------------------------------------------------------

void PRBJavaThread::heapAllocation(long long size) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::heapAllocation");
    if (isAllocator()) {
        const auto add = [](std::atomic<long long>& total, long long n) {
            total.store(total.load(kRelaxed) + n, kRelaxed);
        };
        add(allocatedHere.objects, 1);
        add(allocatedHere.bytes, size);
    } else {
        allocatedElsewhere.objects.fetch_add(1, kRelaxed);
        allocatedElsewhere.bytes.fetch_add(size, kRelaxed);
    }
    if ((PRBContext::getDataBeingCollected() & PRBCollect::kMethods) == 0) return;
    MethodFrequency key(getCurrentMethod()); // may ask the VM, so before the table
    // Found and used under the table, so that no removal can come between.
    PRBTableLock hold(*frequencyTable);
    if (auto* record = static_cast<MethodFrequency*>(frequencyTable->find(&key)))
        record->heapAllocationEvent(size);
}

void PRBJavaThread::heapFree(long long size) {
    long long gone = netGone.load(kRelaxed);
    while (totalObjects() != gone &&
           !netGone.compare_exchange_weak(gone, gone + 1, std::memory_order_release, kRelaxed)) {
    }
    const long long freed = freedBytes.load(kRelaxed);
    if (totalBytes() - freed >= size) freedBytes.store(freed + size, kRelaxed);
}

// Whoever reports first; events come on the thread that they are about.
bool PRBJavaThread::isAllocator() {
    const auto self = static_cast<std::uintptr_t>(pthread_self());
    std::uintptr_t known = allocator.load(kRelaxed);
    return known == self ||
           (known == 0 && allocator.compare_exchange_strong(known, self, kRelaxed));
}

// ---- Collection -----------------------------------------------------------------------------

int PRBJavaThread::createSample(PRBCThreadSample& sample, long long value310, long long value315) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::createSample");
    const timeval now = PRBClock::now();
    const long long nowUs = PRBClock::toMicros(now);
    long long divisor = PRBContext::getSimulatedSamplingDivisor();
    const bool sampling = divisor == 1; // a simulated sample is never that short
    if (divisor == 0) divisor = 1;
    // Nanoseconds that a block added while the sampler went active are not samples.
    const auto takeUnsampled = [&](std::atomic<long long>& ns, std::atomic<long long>& samples) {
        const long long time = ns.exchange(0, kRelaxed);
        return samples.exchange(0, kRelaxed) + (sampling ? 0 : time);
    };

    // The part of a block that has passed counts now; the rest is measured from now. Whoever
    // replaces the start accounts the stretch before it.
    const _ThreadState blocked = getThreadState();
    if (blocked == kThreadContended || blocked == kThreadWaiting) {
        long long start = stateStartTime.us.load(std::memory_order_acquire);
        if (start != Micros::kNone && getThreadState() == blocked &&
            stateStartTime.us.compare_exchange_strong(start, nowUs, std::memory_order_acq_rel)) {
            auto& time = blocked == kThreadContended ? contentionTime : waitTime;
            time.fetch_add((nowUs - start) * 1000, kRelaxed);
        }
    }
    const unsigned collected = PRBContext::getDataBeingCollected();
    lastSampleTime.us.store(nowUs, kRelaxed);

    sample.saveNumericData(314, PRBClock::toMillis(now));
    sample.saveStringData(301, name.c_str());
    sample.saveStringData(302, groupName.c_str());
    sample.saveStringData(303, parentName.c_str());
    sample.saveNumericData(2,
                           static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(threadId)));
    if ((collected & PRBCollect::kContention) != 0) {
        sample.saveNumericData(304, contentionCount.exchange(0, kRelaxed));
        sample.saveNumericData(305, contentionTime.exchange(0, kRelaxed) / 1000000);
        sample.saveNumericData(306, waitCount.exchange(0, kRelaxed));
        sample.saveNumericData(307, waitTime.exchange(0, kRelaxed) / 1000000);
    }
    if ((collected & PRBCollect::kHeapAllocation) != 0) {
        const long long objects = totalObjects(), bytes = totalBytes();
        sample.saveNumericData(308, objects - reported.objects.exchange(objects, kRelaxed));
        sample.saveNumericData(309, bytes - reported.bytes.exchange(bytes, kRelaxed));
        // Read before the total, the count of those gone is never larger than it.
        long long gone = netGone.load(std::memory_order_acquire), total = totalObjects();
        while (!netGone.compare_exchange_weak(gone, total, std::memory_order_acquire))
            total = totalObjects();
        sample.saveNumericData(340, total - gone);
    }
    sample.saveNumericData(310, value310);
    sample.saveNumericData(311, cpuTime.exchange(0, kRelaxed) / divisor);
    sample.saveNumericData(312, takeUnsampled(unsampledContention, sampledContention) / divisor);
    sample.saveNumericData(313, takeUnsampled(unsampledWait, sampledWait) / divisor);
    sample.saveNumericData(315, value315);
    return trace.returns(1);
}

void PRBJavaThread::clearCounters() {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::clearCounters");
    contentionTime.store(0, kRelaxed);
    waitTime.store(0, kRelaxed);
    contentionCount.store(0, kRelaxed);
    waitCount.store(0, kRelaxed);
    reported.bytes.store(totalBytes(), kRelaxed);
    reported.objects.store(totalObjects(), kRelaxed);
    forgetUnsampledTimes();
    cpuTime.store(0, kRelaxed);

    // The stack may cache records, so they leave the table without being deleted.
    std::vector<MethodFrequency*> removed;
    {
        PRBTableLock hold(*frequencyTable);
        PRBHashSet::Iterator walk(*frequencyTable);
        while (auto* record = static_cast<MethodFrequency*>(walk())) removed.push_back(record);
        for (MethodFrequency* record : removed) frequencyTable->remove(record);
    }
    bury(removed);
    emptyGraveyard();

    if (PRBMonitorHashTable* contentions = getContentionTable()) {
        std::vector<MonitorContentionEvent*> events;
        PRBTableLock hold(*contentions);
        PRBHashSet::Iterator walk(*contentions);
        while (auto* event = static_cast<MonitorContentionEvent*>(walk())) events.push_back(event);
        for (MonitorContentionEvent* event : events) {
            contentions->remove(event);
            PRBReclaimer::retire(event);
        }
    }
    PRBReclaimer::reclaim();
}

long long PRBJavaThread::getAndResetCPUTime() { return CPUUsedByAllThreads.exchange(0, kRelaxed); }

void PRBJavaThread::countSampledCpu() {
    long long time = cpuTime.load(kRelaxed);
    long long next;
    do {
        auto low = static_cast<std::uint32_t>(time) + 1U; // wraps: no carry
        next =
            static_cast<long long>((static_cast<unsigned long long>(time) & ~0xFFFFFFFFULL) | low);
    } while (!cpuTime.compare_exchange_weak(time, next, kRelaxed));
}

void PRBJavaThread::forgetUnsampledTimes() {
    for (auto* time : {&unsampledContention, &unsampledWait, &sampledContention, &sampledWait})
        time->store(0, kRelaxed);
}

PRBJavaThread::Counters PRBJavaThread::getCounters() const {
    return {contentionTime.load(kRelaxed),
            waitTime.load(kRelaxed),
            unsampledContention.load(kRelaxed) + sampledContention.load(kRelaxed),
            unsampledWait.load(kRelaxed) + sampledWait.load(kRelaxed),
            cpuTime.load(kRelaxed),
            totalBytes() - reported.bytes.load(kRelaxed),
            totalBytes() - freedBytes.load(kRelaxed),
            contentionCount.load(kRelaxed),
            waitCount.load(kRelaxed),
            static_cast<int>(totalObjects() - reported.objects.load(kRelaxed)),
            static_cast<int>(totalObjects() - netGone.load(kRelaxed))};
}

timeval PRBJavaThread::getLastSampleTime() const { return fromMicros(lastSampleTime.us.load()); }
timeval PRBJavaThread::getLastMethodDataTime() const {
    return fromMicros(lastMethodDataTime.us.load());
}
timeval PRBJavaThread::getLastContentionDataTime() const {
    return fromMicros(lastContentionDataTime.us.load());
}
