#include "core/PRBEventMetrics.h"

std::array<std::uint32_t, PRBEventMetrics::kCounters> PRBEventMetrics::take() {
    std::array<std::uint32_t, kCounters> taken;
    for (std::size_t i = 0; i < kCounters; ++i)
        taken[i] = counters_[i].exchange(0, std::memory_order_relaxed);
    return taken;
}
