#include "core/PRBEventDispatcher.h"

#include "core/PRBEventHandlers.h"

#include <array>
#include <cstdint>

namespace {

using namespace PRBEventHandlers;
using PRBEventDispatcher::Row;

constexpr Row kRows[] = {
    {JVMPI_EVENT_METHOD_ENTRY, HandleMethodEntry},
    {JVMPI_EVENT_METHOD_ENTRY2, HandleMethodEntry2},
    {JVMPI_EVENT_METHOD_EXIT, HandleMethodExit},
    {JVMPI_EVENT_OBJECT_ALLOC, HandleObjectAlloc},
    {JVMPI_EVENT_OBJECT_FREE, HandleObjectFree},
    {JVMPI_EVENT_OBJECT_MOVE, HandleObjectMove},
    {JVMPI_EVENT_THREAD_START, HandleThreadStart},
    {JVMPI_EVENT_THREAD_END, HandleThreadEnd},
    {JVMPI_EVENT_HEAP_DUMP, HandleHeapDump},
    {JVMPI_EVENT_CLASS_LOAD, HandleClassLoad},
    {JVMPI_EVENT_CLASS_UNLOAD, HandleClassUnload},
    {JVMPI_EVENT_JVM_SHUT_DOWN, HandleJVMShutdown},
    {JVMPI_EVENT_ARENA_NEW, HandleArenaNew},
    {JVMPI_EVENT_ARENA_DELETE, HandleArenaDelete},
    {JVMPI_EVENT_MONITOR_CONTENDED_ENTER, HandleMonitorContendedEnter},
    {JVMPI_EVENT_MONITOR_CONTENDED_ENTERED, HandleMonitorContendedEntered},
    {JVMPI_EVENT_MONITOR_WAIT, HandleMonitorWait},
    {JVMPI_EVENT_MONITOR_WAITED, HandleMonitorWaited},
    {JVMPI_EVENT_GC_START, HandleGCStart},
    {JVMPI_EVENT_GC_FINISH, HandleGCFinish},
};
constexpr std::size_t kRowCount = sizeof kRows / sizeof kRows[0];
static_assert(kRowCount == PRBEventMetrics::kOther);

// The row of each event type; kRowCount for types without one.
constexpr auto kRowOfType = [] {
    std::array<std::uint8_t, JVMPI_MAX_EVENT_TYPE_VAL + 1> rows{};
    rows.fill(kRowCount);
    for (std::size_t i = 0; i < kRowCount; ++i)
        rows[static_cast<std::size_t>(kRows[i].event)] = static_cast<std::uint8_t>(i);
    return rows;
}();

constinit PRBEventMetrics eventMetrics;

} // namespace

const Row* PRBEventDispatcher::table(std::size_t& rows) {
    rows = kRowCount;
    return kRows;
}

void PRBEventDispatcher::dispatch(JVMPI_Event* event) {
    if (event == nullptr) return;
    const auto type = static_cast<std::size_t>(
        static_cast<std::uint32_t>(event->event_type & ~JVMPI_REQUESTED_EVENT));
    const std::size_t row = type < kRowOfType.size() ? kRowOfType[type] : kRowCount;
    eventMetrics.count(row);
    if (row != kRowCount) kRows[row].handler(event);
}

PRBEventMetrics& PRBEventDispatcher::metrics() { return eventMetrics; }
