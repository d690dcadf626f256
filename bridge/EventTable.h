// The events of the profiler interface: which can be had, which are switched on, and how they
// reach the profiler. One row per supported type; every other type answers
// JVMPI_NOT_AVAILABLE. The rows themselves stand in Interface.cpp.
//
// Any thread may call. No lock is held while a row's function or the profiler's callback runs.
#ifndef PRB_BRIDGE_EVENTTABLE_H
#define PRB_BRIDGE_EVENTTABLE_H

#include <atomic>
#include <cstddef>

#include "jvmpi/jvmpi.h"

namespace bridge {

// What a row's functions answer: JVMPI_SUCCESS, JVMPI_NOT_AVAILABLE or JVMPI_FAIL.
struct EventRow {
    jint type;
    // Called when the event goes from off to on, after it counts as on; null: nothing to do.
    // Any answer but success switches it off again and is EnableEvent's answer.
    jint (*enable)();
    // Called when the event goes from on to off, after it counts as off; null: nothing to do.
    void (*disable)();
    // RequestEvent; null: cannot be requested.
    jint (*request)(void* argument);
    // Whether this VM gives the event; null: every VM does. A row that is not available is as
    // good as none.
    bool (*available)() = nullptr;
};

class EventTable {
public:
    // The table reads `interface`'s NotifyEvent afresh for each event.
    EventTable(const EventRow* rows, size_t count, const JVMPI_Interface& interface);
    EventTable(const EventTable&) = delete;
    EventTable& operator=(const EventTable&) = delete;

    jint enable(jint type);
    jint disable(jint type);
    jint request(jint type, void* argument);

    // Whether the event can be enabled in this VM.
    bool supports(jint type) const { return rowOf(type) != nullptr; }
    bool isEnabled(jint type) const {
        return inRange(type) && enabled_[type].load(std::memory_order_acquire);
    }
    // Gives the event to the profiler, on the calling thread.
    void deliver(JVMPI_Event& event) const;

private:
    static bool inRange(jint type) { return type >= 0 && type <= JVMPI_MAX_EVENT_TYPE_VAL; }
    const EventRow* rowOf(jint type) const;

    const EventRow* rows_[JVMPI_MAX_EVENT_TYPE_VAL + 1] = {}; // by type; null: none
    const JVMPI_Interface& interface_;
    std::atomic<bool> enabled_[JVMPI_MAX_EVENT_TYPE_VAL + 1] = {};
};

} // namespace bridge

#endif
