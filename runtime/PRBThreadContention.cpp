// How long a thread is blocked entering monitors and waiting in them.
#include "core/PRBContext.h"
#include "core/PRBLookup.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBMonitorContentionEvent.h"
#include "runtime/PRBReclaimer.h"

namespace {
constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr const char* kName = PRBComponent::kThread;
} // namespace

void PRBJavaThread::monitorEntry(jobjectID object) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::monitorEntry");
    blockStarted(object, kThreadContended, kContendedEnter);
}

void PRBJavaThread::monitorWait(jobjectID object) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::monitorWait");
    blockStarted(object, kThreadWaiting, kMonitorWait);
}

void PRBJavaThread::monitorEntered(jobjectID) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::monitorEntered");
    blockEnded(kThreadContended, kContendedEnter);
}

void PRBJavaThread::monitorWaited(jobjectID) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::monitorWaited");
    blockEnded(kThreadWaiting, kMonitorWait);
}

void PRBJavaThread::blockStarted(jobjectID object, _ThreadState blocked, _MonitorEvent kind) {
    timeval start = PRBClock::now();
    setThreadState(blocked);
    stateStartTime.us.store(PRBClock::toMicros(start), std::memory_order_release);
    contendedClassId = PRBLookup::getClassIDForObject(object);
    contendedMethod = getCurrentMethod();
    if (contendedClassId != nullptr && contendedMethod != nullptr)
        newContentionEvent(contendedClassId, contendedMethod, kind, start);
}

void PRBJavaThread::blockEnded(_ThreadState blocked, _MonitorEvent kind) {
    if (getThreadState() == blocked) {
        timeval now = PRBClock::now();
        const long long nowUs = PRBClock::toMicros(now);
        // Taken, so that a sample that comes now leaves the stretch to us.
        long long startUs = stateStartTime.us.exchange(Micros::kNone, std::memory_order_acq_rel);
        const long long span = startUs == Micros::kNone ? 0 : (nowUs - startUs) * 1000;
        const bool wait = kind == kMonitorWait;
        InstrumentedMethodEntry* top = getTopMethodEntry();
        if (!PRBContext::isCPUSamplingActive()) {
            (wait ? unsampledWait : unsampledContention).fetch_add(span, kRelaxed);
            if (top != nullptr && getNumWorkloadsRunning() > 0) {
                int low = static_cast<int>(static_cast<unsigned>(span));
                if (wait)
                    top->incrNumSamplesWait(low);
                else
                    top->incrNumSamplesContention(low);
            }
        }
        (wait ? waitCount : contentionCount).fetch_add(1, kRelaxed);
        (wait ? waitTime : contentionTime).fetch_add(span, kRelaxed);
        setThreadState(kThreadRunning);
        if (contendedClassId != nullptr && contendedMethod != nullptr)
            contentionEventEnded(contendedClassId, contendedMethod, kind, span, now);
        if (top != nullptr) {
            if (wait)
                top->incrNumWaitEvents(span);
            else
                top->incrNumContentionEvents(span);
        }
    }
    contendedClassId = nullptr;
    contendedMethod = nullptr;
}

void PRBJavaThread::newContentionEvent(jobjectID classId, jmethodID method, _MonitorEvent kind,
                                       timeval& start) {
    PRBMonitorHashTable* table = getContentionTable();
    if (table == nullptr) {
        table = new PRBMonitorHashTable("_Contention_Table", nullptr, kSelfGuarding,
                                        PRBMonitorHashTable::kThreadBuckets);
        if (table == nullptr) return;
        contentionTable.store(table, std::memory_order_release);
    }
    MonitorContentionEvent key(classId, method);
    PRBTableLock hold(*table);
    auto* event = static_cast<MonitorContentionEvent*>(table->find(&key));
    if (event == nullptr) {
        auto* created = new MonitorContentionEvent(classId, method);
        if (created == nullptr) return;
        event = static_cast<MonitorContentionEvent*>(table->insert(created));
    }
    event->startTheClock(kind, start);
}

void PRBJavaThread::contentionEventEnded(jobjectID classId, jmethodID method, _MonitorEvent kind,
                                         long long span, timeval& now) {
    if (PRBMonitorHashTable* table = getContentionTable()) {
        MonitorContentionEvent key(classId, method);
        PRBTableLock hold(*table);
        if (auto* event = static_cast<MonitorContentionEvent*>(table->find(&key)))
            event->stopTheClock(kind, now);
    }
    if ((PRBContext::getDataBeingCollected() & PRBCollect::kMethods) == 0) return;
    MethodFrequency key(method);
    PRBTableLock hold(*frequencyTable);
    if (auto* record = static_cast<MethodFrequency*>(frequencyTable->find(&key)))
        record->contentionEvent(span, kind);
}

void PRBJavaThread::getContentionSamples(ContentionCallback callback, void* context) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::getContentionSamples");
    PRBReclaimer::Reader hold; // keeps the records that are being returned
    const timeval now = PRBClock::now();
    const long long nowMs = PRBClock::toMillis(now);
    lastContentionDataTime.us.store(PRBClock::toMicros(now), std::memory_order_relaxed);
    PRBMonitorHashTable* table = getContentionTable();
    if (table == nullptr) return;
    // The callbacks take registries and ask the VM, so they run without the table.
    std::vector<MonitorContentionEvent*> events;
    {
        PRBTableLock guard(*table);
        events.reserve(table->entries());
        PRBHashSet::Iterator walk(*table);
        while (auto* event = static_cast<MonitorContentionEvent*>(walk())) events.push_back(event);
    }
    for (MonitorContentionEvent* event : events)
        if (callback(context, event, nowMs) == 0) break;
}
