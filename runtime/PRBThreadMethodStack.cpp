// The stack of methods that a thread is in, and what is measured at their exit. Runs on every
// call of every method while method data is collected: no allocation but the stack's doubling,
// and the method registry only for methods not met lately.
#include "core/PRBContext.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "data/SnapHex.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBThreadDecisions.h"

#include <cassert>
#include <climits>
#include <cstring>

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr const char* kName = PRBComponent::kThread;

std::size_t bytesOfStack(int entries) {
    return static_cast<std::size_t>(entries) * sizeof(PRBJavaThread::StackEntry);
}

long long cpuNow() { return PRBContext::getThreadCPUTimeInMicroSeconds() * 1000; }

} // namespace

// Only its own thread may read the stack, which another reader could see being replaced.
void PRBJavaThread::assertOwner() const {
#ifndef NDEBUG
    pthread_t nobody = 0;
    if (!owner.compare_exchange_strong(nobody, pthread_self(), kRelaxed))
        assert(pthread_equal(nobody, pthread_self()) && "the method stack is its thread's own");
#endif
}

bool PRBJavaThread::growStack() {
    int capacity = stackCapacity == 0 ? kInitialStackEntries : stackCapacity;
    if (stackCapacity != 0) {
        if (capacity > INT_MAX / 2) return false;
        capacity *= 2;
    }
    auto* larger = static_cast<StackEntry*>(PRBMemoryManager::allocate(bytesOfStack(capacity)));
    if (larger == nullptr) return false;
    if (stack != nullptr) {
        std::memcpy(larger, stack, bytesOfStack(stackDepth.load(kRelaxed)));
        PRBMemoryManager::release(stack, bytesOfStack(stackCapacity));
    }
    stack = larger;
    stackCapacity = capacity;
    return true;
}

bool PRBJavaThread::isMethodMonitored(jmethodID method) {
    if (decisions == nullptr) decisions.reset(new DecisionCache);
    const std::uint32_t epoch = getDecisionEpoch();
    if (decisions != nullptr) {
        const DecisionCache::Slot& known = decisions->of(method);
        if (known.method == method && known.epoch == epoch) return known.monitored;
    }
    PRBMonitorHashTable* table = PRBContext::getMethodTable();
    if (table == nullptr) return false;
    PRBReclaimer::Reader hold; // the record may be asked about outside its registry
    PRBJavaMethod key(method);
    auto* record = static_cast<PRBJavaMethod*>(table->find(&key));
    if (record == nullptr) {
        auto* created = new PRBJavaMethod(method);
        if (created == nullptr) return false;
        record = static_cast<PRBJavaMethod*>(table->insert(created));
        if (record != created) delete created;
    }
    bool monitored = record->shouldBeMonitored() == PRBMonitored::kMonitor;
    if (decisions != nullptr && record->isDecided())
        decisions->of(method) = {method, epoch, monitored, nullptr, 0};
    return monitored;
}

void PRBJavaThread::methodEntry(jmethodID method, jobjectID) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::methodEntry");
    if ((PRBContext::getDataBeingCollected() & PRBCollect::kMethods) != 0) {
        assertOwner();
        const int depth = stackDepth.load(kRelaxed);
        if (depth < stackCapacity || growStack()) {
            StackEntry& entry = stack[depth];
            entry = StackEntry{};
            entry.method = method;
            stackDepth.store(depth + 1, kRelaxed);
            if (isMethodMonitored(method)) {
                entry.isTimed = 1;
                entry.StartCPUTime = cpuNow();
                entry.StartRealTime = PRBClock::now();
            }
        }
    }
    setThreadState(kThreadRunning);
}

void PRBJavaThread::methodExit(jmethodID method) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::methodExit");
    assertOwner();
    int depth = stackDepth.load(kRelaxed);
    // Entries above the method's own belong to frames that an exception left.
    while (depth > 0) {
        StackEntry& popped = stack[--depth];
        if (popped.method != method) continue;
        if (popped.isTimed != 0) measureExit(popped, depth);
        break;
    }
    if (depth == 0) ++stackPeriod;
    stackDepth.store(depth, std::memory_order_release);
    if (depth == 0 && graveyardCount.load(kRelaxed) > 0) emptyGraveyard();
    setThreadState(kThreadRunning);
}

// `depth`: the entries below the popped one.
void PRBJavaThread::measureExit(StackEntry& entry, int depth) {
    const long long cpu = cpuNow();
    const auto dump = [](const long long& value, const char* label) {
        SnapHex(reinterpret_cast<const unsigned char*>(&value), sizeof value, label, nullptr);
    };
    if (cpu < entry.StartCPUTime) {
        if (PRBTrace::isDebugEnabled(kName)) {
            PRBTrace::writeToLog("Found TotalCPUTime < pNextEntry->StartCPUTime");
            dump(cpu, "TotalCPUTime");
            dump(entry.StartCPUTime, "pNextEntry->StartCPUTime");
        }
        return;
    }
    const long long totalCpu = cpu - entry.StartCPUTime;
    const long long totalReal = TimeSpan(entry.StartRealTime, PRBClock::now());
    if (totalCpu > totalReal) {
        if (PRBTrace::isDebugEnabled(kName)) {
            // The text says it the other way round; readers of logs know it so.
            PRBTrace::writeToLog("Found TotalCPUTime < TotalRealTime");
            dump(totalCpu, "TotalCPUTime");
            dump(totalReal, "TotalRealTime");
        }
        return;
    }
    const long long exclusive = totalCpu - entry.ChildCPUTime;
    if (totalCpu > 0) {
        exitSequence = nextExitSequence(exitSequence);
        chargeCallers(depth, totalCpu, totalReal, exclusive);
    }
    cpuTime.fetch_add(exclusive, kRelaxed);
    CPUUsedByAllThreads.fetch_add(exclusive, kRelaxed);
    if (exclusive > 0)
        if (MethodFrequency* record = frequencyOf(entry)) record->sampleCPU(0, exclusive, 0);
}

void PRBJavaThread::chargeCallers(int depth, long long totalCpu, long long totalReal,
                                  long long exclusive) {
    bool nearest = true;
    for (int i = depth - 1; i >= 0; --i) {
        StackEntry& caller = stack[i];
        if (caller.isTimed == 0) continue;
        if (nearest) {
            caller.ChildCPUTime += totalCpu;
            caller.ChildRealTime += totalReal;
            if (exclusive == 0) return;
            nearest = false;
        }
        if (MethodFrequency* record = frequencyOf(caller))
            record->sampleCPU(depth - i, exclusive, exitSequence);
    }
}

PRBJavaThread::MethodFrequency* PRBJavaThread::frequencyOf(StackEntry& entry) {
    if (entry.frequency != nullptr) return entry.frequency;
    DecisionCache::Slot* known = decisions == nullptr ? nullptr : &decisions->of(entry.method);
    if (known != nullptr && known->method == entry.method && known->period == stackPeriod)
        return entry.frequency = known->record;
    entry.frequency = findMethodFrequency(entry.method);
    if (known != nullptr && known->method == entry.method) {
        known->record = entry.frequency;
        known->period = stackPeriod;
    }
    return entry.frequency;
}

jmethodID PRBJavaThread::getCurrentMethod() {
    const int depth = stackDepth.load(kRelaxed);
    if (depth > 0) {
        assertOwner();
        return stack[depth - 1].method;
    }
    const JVMPI_Interface* jvmpi = PRBContext::getInterface();
    if (jvmpi == nullptr || jvmpi->GetCallTrace == nullptr) return nullptr;
    JVMPI_CallFrame frame{};
    JVMPI_CallTrace trace{getEnvId(), 0, &frame};
    jvmpi->GetCallTrace(&trace, 1);
    return trace.num_frames == 1 ? frame.method_id : nullptr;
}

const PRBJavaThread::StackEntry* PRBJavaThread::getStackEntry(int n) const {
    const int depth = stackDepth.load(kRelaxed);
    if (n < 0 || n >= depth) return nullptr;
    assertOwner();
    return &stack[depth - 1 - n];
}
