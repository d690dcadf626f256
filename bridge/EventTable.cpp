#include "bridge/EventTable.h"

namespace bridge {

EventTable::EventTable(const EventRow* rows, size_t count, const JVMPI_Interface& interface)
    : interface_(interface) {
    for (size_t i = 0; i < count; i++) rows_[rows[i].type] = &rows[i];
}

const EventRow* EventTable::rowOf(jint type) const {
    const EventRow* row = inRange(type) ? rows_[type] : nullptr;
    return row && (!row->available || row->available()) ? row : nullptr;
}

jint EventTable::enable(jint type) {
    const EventRow* row = rowOf(type);
    if (!row) return JVMPI_NOT_AVAILABLE;
    if (enabled_[type].exchange(true, std::memory_order_acq_rel) || !row->enable)
        return JVMPI_SUCCESS;
    const jint result = row->enable();
    if (result != JVMPI_SUCCESS) enabled_[type].store(false, std::memory_order_release);
    return result;
}

jint EventTable::disable(jint type) {
    const EventRow* row = rowOf(type);
    if (!row) return JVMPI_NOT_AVAILABLE;
    if (enabled_[type].exchange(false, std::memory_order_acq_rel) && row->disable) row->disable();
    return JVMPI_SUCCESS;
}

jint EventTable::request(jint type, void* argument) {
    const EventRow* row = rowOf(type);
    if (!row || !row->request) return JVMPI_NOT_AVAILABLE;
    return row->request(argument);
}

void EventTable::deliver(JVMPI_Event& event) const {
    // The profiler sets its callback at any time, from any thread.
    const auto notify = __atomic_load_n(&interface_.NotifyEvent, __ATOMIC_ACQUIRE);
    if (notify) notify(&event);
}

} // namespace bridge
