// How many events of each kind have arrived since the last dump of the counters.
#ifndef PRB_CORE_PRBEVENTMETRICS_H
#define PRB_CORE_PRBEVENTMETRICS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// Counter i belongs to row i of the dispatch table, the last one to all other event types.
class PRBEventMetrics {
public:
    static constexpr std::size_t kCounters = 21;
    static constexpr std::size_t kOther = 20;

    void count(std::size_t row) { counters_[row].fetch_add(1, std::memory_order_relaxed); }
    std::array<std::uint32_t, kCounters> take(); // and zeroes them

private:
    std::array<std::atomic<std::uint32_t>, kCounters> counters_{};
};

#endif
