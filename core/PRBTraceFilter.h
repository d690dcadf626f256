// Which components may trace.
#ifndef PRB_CORE_PRBTRACEFILTER_H
#define PRB_CORE_PRBTRACEFILTER_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

class PRBSlist;

// A list of PRBCollectableString, each the beginning of the components that pass. What it says of
// the agent's own components is worked out when it is set, so that a test is one look into a
// table; other names are compared with the list. Set at start-up, read by any thread.
class PRBTraceFilter {
public:
    constexpr PRBTraceFilter() = default;
    PRBTraceFilter(const PRBTraceFilter&) = delete;
    PRBTraceFilter& operator=(const PRBTraceFilter&) = delete;

    // Borrowed. Null: no filter, everything passes. An empty list lets no named component pass.
    void store(const PRBSlist* list, std::memory_order = std::memory_order_release);
    PRBTraceFilter& operator=(const PRBSlist* list) {
        store(list);
        return *this;
    }
    const PRBSlist* load(std::memory_order order = std::memory_order_acquire) const {
        return list_.load(order);
    }

    // May the component trace? A null component passes every filter.
    bool passes(const char* component) const;
    // Does some entry equal the component's beginning? False without a filter; an empty entry
    // matches every component.
    bool matches(const char* component) const;

    static constexpr std::size_t kSlots = 256;

private:
    std::atomic<const PRBSlist*> list_{nullptr};
    std::array<std::atomic<bool>, kSlots> decided_{}; // by slot of the component
};

#endif
