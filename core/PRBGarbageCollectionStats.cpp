#include "core/PRBGarbageCollectionStats.h"

#include "core/PRBTrace.h"
#include "data/PRBSample.h"

namespace {

constinit PRBGarbageCollectionStats process;

template <typename T> int shown(T value) { return static_cast<int>(value); }

} // namespace

PRBGarbageCollectionStats& PRBGarbageCollectionStats::instance() { return process; }

void PRBGarbageCollectionStats::start(long long cpuNs) {
    set(cpuStartNs_, cpuNs);
    moved_.store(0, std::memory_order_relaxed);
    freed_.store(0, std::memory_order_relaxed);
}

void PRBGarbageCollectionStats::finish(long long cpuNs) {
    long long used = cpuNs - get(cpuStartNs_);
    if (used > 0) {
        cpuSinceSampleNs_.fetch_add(used, std::memory_order_relaxed);
        cpuTotalNs_.fetch_add(used, std::memory_order_relaxed);
    }
    totalMoved_.fetch_add(moved_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    totalFreed_.fetch_add(freed_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    collections_.fetch_add(1, std::memory_order_relaxed);
}

long long PRBGarbageCollectionStats::noteSpace(long long usedBytes, long long totalBytes,
                                               long long nowMs) {
    long long started = wallStartMs_.exchange(-1, std::memory_order_relaxed);
    if (started != -1) elapsedSinceSampleMs_.fetch_add(nowMs - started, std::memory_order_relaxed);

    long long free = totalBytes - usedBytes;
    set(totalBytes_, totalBytes);
    set(freeBytes_, free);

    long long before = bytesFreeAtStart_.exchange(-1, std::memory_order_relaxed);
    long long freed = before != -1 && free > before ? free - before : 0;
    bytesFreedSinceSample_.fetch_add(freed, std::memory_order_relaxed);
    return freed;
}

void PRBGarbageCollectionStats::createSample(PRBSample& sample) {
    const bool debug = PRBTrace::isDebugEnabled(PRBComponent::kMonitorGlobal);
    const long long cpuMs = take(cpuSinceSampleNs_) / 1000000;
    const std::uint32_t collections = collections_.load(std::memory_order_relaxed);
    const std::uint32_t freed = totalFreed_.load(std::memory_order_relaxed);
    const std::uint32_t moved = totalMoved_.load(std::memory_order_relaxed);
    const long long bytesFreed = take(bytesFreedSinceSample_);
    const long long elapsedMs = take(elapsedSinceSampleMs_);
    sample.saveNumericData(350, cpuMs);
    sample.saveNumericData(352, collections);
    sample.saveNumericData(341, freed);
    sample.saveNumericData(342, moved);
    sample.saveNumericData(353, bytesFreed);
    sample.saveNumericData(356, elapsedMs);
    if (debug)
        PRBTrace::log("Garbage collection num_run %i, tot_cpu %i, num_free %i, num_move %i, "
                      "byte_free %i, real_time %i",
                      shown(collections), shown(cpuMs), shown(freed), shown(moved),
                      shown(bytesFreed), shown(elapsedMs));

    // The space is told once per collection.
    const long long free = get(freeBytes_), total = get(totalBytes_);
    if (free <= 0) return;
    const long long inUse = total - free;
    const long long change = inUse - previousInUse_.exchange(inUse, std::memory_order_relaxed);
    sample.saveNumericData(355, free);
    sample.saveNumericData(354, inUse);
    sample.saveNumericData(357, change);
    set(freeBytes_, -1);
    set(totalBytes_, -1);
    if (debug)
        PRBTrace::log("Garbage collection in_use %i, in_use_d %i, numb_free %i", shown(inUse),
                      shown(change), shown(free));
}
