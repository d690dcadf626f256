// What the garbage collection events tell, and the sample made of it.
#ifndef PRB_CORE_PRBGARBAGECOLLECTIONSTATS_H
#define PRB_CORE_PRBGARBAGECOLLECTIONSTATS_H

#include <atomic>
#include <cstdint>

class PRBSample;

// Written by the collecting thread inside the pause, read by data returns. No lock. Bytes, CPU
// time in nanoseconds, wall-clock time in milliseconds; -1 is unknown.
//
// Totals of collections, frees and moves are cumulative, while CPU time, bytes freed and elapsed
// time are per sample.
class PRBGarbageCollectionStats {
public:
    constexpr PRBGarbageCollectionStats() = default;
    // Of this process; constant-initialised and never destroyed.
    static PRBGarbageCollectionStats& instance();

    // ---- Events ----
    void objectMoved() { moved_.fetch_add(1, std::memory_order_relaxed); }
    void objectFreed() { freed_.fetch_add(1, std::memory_order_relaxed); }
    void noteWallClockStart(long long nowMs) { set(wallStartMs_, nowMs); }
    void noteBytesFreeAtStart(long long bytes) { set(bytesFreeAtStart_, bytes); }
    void start(long long cpuNs);
    void finish(long long cpuNs);
    // The space after the collection; answers the bytes it freed. For collections that are
    // reported, after finish.
    long long noteSpace(long long usedBytes, long long totalBytes, long long nowMs);

    // ---- Data ----
    void createSample(PRBSample& sample);
    long long getGCCPUTime() const { return get(cpuTotalNs_); } // never reset
    long long getBytesFreeAtStart() const { return get(bytesFreeAtStart_); }

private:
    using Count = std::atomic<std::uint32_t>;
    using Amount = std::atomic<long long>;
    static void set(Amount& a, long long v) { a.store(v, std::memory_order_relaxed); }
    static long long get(const Amount& a) { return a.load(std::memory_order_relaxed); }
    static long long take(Amount& a) { return a.exchange(0, std::memory_order_relaxed); }

    Count moved_{0}, freed_{0}; // during the collection in progress
    Count collections_{0}, totalMoved_{0}, totalFreed_{0};
    Amount cpuStartNs_{0};
    Amount cpuSinceSampleNs_{0}, cpuTotalNs_{0};
    Amount bytesFreeAtStart_{-1}, wallStartMs_{-1};
    Amount freeBytes_{-1}, totalBytes_{-1}; // of the last collection
    Amount previousInUse_{0};
    Amount bytesFreedSinceSample_{0};
    Amount elapsedSinceSampleMs_{0};
};

#endif
