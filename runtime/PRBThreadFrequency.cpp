// A thread's method frequency records: finding, filling by the sampler, removal, data return.
//
// A record that leaves the table may still be cached in the thread's stack entries, and be in
// the hands of the sampler or of a data return. It waits in the graveyard until the stack has
// been empty once after its removal, then in the reclaimer until no reader is left.
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBReclaimer.h"

namespace {
constexpr const char* kName = PRBComponent::kThread;
// A thread that nobody polls must not collect removals without end.
constexpr std::size_t kMostPending = 1000;
} // namespace

PRBJavaThread::MethodFrequency* PRBJavaThread::findMethodFrequency(jmethodID method) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::findMethodFrequency");
    MethodFrequency key(method);
    PRBTableLock hold(*frequencyTable);
    auto* record = static_cast<MethodFrequency*>(frequencyTable->find(&key));
    if (record != nullptr) return record;
    auto* created = new MethodFrequency(method);
    if (created == nullptr) return nullptr;
    return static_cast<MethodFrequency*>(frequencyTable->insert(created));
}

void PRBJavaThread::saveMethodFrequency(const JVMPI_CallFrame* frames, int count) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBJavaThread::saveMethodFrequency");
    PRBTableLock hold(*frequencyTable);
    for (int i = 0; i < count; ++i) {
        MethodFrequency* record = findMethodFrequency(frames[i].method_id);
        if (record != nullptr && record->isReported()) record->sampleCPU(i, 1, 0);
    }
}

void PRBJavaThread::removeMethod(jmethodID method) { removeMethods(&method, 1); }

void PRBJavaThread::removeMethods(const jmethodID* methods, std::size_t n) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::removeMethod");
    PRBMonitorGuard guard(*pendingQueueLock);
    for (std::size_t i = 0; i < n; ++i)
        if (auto* key = new MethodFrequency(methods[i])) pendingRemoves.insert(key);
    const bool tooMany = pendingRemoves.entries() > kMostPending;
    guard.release();
    if (tooMany) purgeMethodFrequencyObjects();
}

void PRBJavaThread::purgeMethodFrequencyObjects() {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::purgeMethodFrequencyObjects");
    PRBSlist keys;
    {
        PRBMonitorGuard guard(*pendingQueueLock);
        keys.swap(pendingRemoves);
    }
    std::vector<MethodFrequency*> removed;
    while (PRBCollectable* key = keys.get()) {
        if (PRBCollectable* record = frequencyTable->remove(key))
            removed.push_back(static_cast<MethodFrequency*>(record));
        delete key;
    }
    bury(removed);
    emptyGraveyard();
}

void PRBJavaThread::bury(const std::vector<MethodFrequency*>& records) {
    if (records.empty()) return;
    PRBMonitorGuard guard(*pendingQueueLock);
    graveyard.insert(graveyard.end(), records.begin(), records.end());
    graveyardCount.store(static_cast<int>(graveyard.size()), std::memory_order_relaxed);
}

// An entry takes a record into its cache only while the depth is above 0, and finds none that
// has left the table: so at a depth of 0, read after the removal, nothing in the graveyard is
// cached, whatever the thread does next. The depth is published after an exit's work is done.
void PRBJavaThread::emptyGraveyard() {
    std::vector<MethodFrequency*> free;
    {
        PRBMonitorGuard guard(*pendingQueueLock);
        if (graveyard.empty() || stackDepth.load(std::memory_order_acquire) != 0) return;
        free.swap(graveyard);
        graveyardCount.store(0, std::memory_order_relaxed);
    }
    for (MethodFrequency* record : free) PRBReclaimer::retire(record);
}

void PRBJavaThread::getMethodUsageSamples(MethodUsageCallback callback, void* context,
                                          jmethodID onlyMethod) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::getMethodUsageSamples");
    PRBReclaimer::Reader hold; // keeps the records that are being returned
    purgeMethodFrequencyObjects();
    const timeval now = PRBClock::now();
    const long long nowMs = PRBClock::toMillis(now);
    lastMethodDataTime.us.store(PRBClock::toMicros(now), std::memory_order_relaxed);
    if (onlyMethod != nullptr) {
        MethodFrequency key(onlyMethod);
        if (auto* record = static_cast<MethodFrequency*>(frequencyTable->find(&key)))
            callback(context, record, nowMs);
        return;
    }
    // The callbacks take registries and may ask the VM, so they run without the table.
    std::vector<MethodFrequency*> records;
    {
        PRBTableLock guard(*frequencyTable);
        records.reserve(frequencyTable->entries());
        PRBHashSet::Iterator walk(*frequencyTable);
        while (auto* record = static_cast<MethodFrequency*>(walk())) records.push_back(record);
    }
    // A large model's records are in no cache.
    constexpr std::size_t kRecordsAhead = 6, kTextsAhead = 3;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (i + kRecordsAhead < records.size()) records[i + kRecordsAhead]->prefetchForReturn();
        if (i + kTextsAhead < records.size()) records[i + kTextsAhead]->prefetchTexts();
        if (callback(context, records[i], nowMs) == 0) break;
    }
}
