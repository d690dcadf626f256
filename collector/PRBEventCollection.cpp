#include "collector/PRBEventCollection.h"

#include "core/PRBContext.h"

namespace {

constexpr std::uint32_t kEnd = PRBEventCollection::kEndOfList;

constexpr std::uint32_t ThreadStatisticsTable[] = {kEnd};
constexpr std::uint32_t MethodTable[] = {kEnd};
constexpr std::uint32_t MonitorContentionEventTable[] = {4, 5, 6, 7, 8, kEnd};
constexpr std::uint32_t HeapUsageTable[] = {kEnd};
constexpr std::uint32_t GarbageCollectionTable[] = {kEnd};
constexpr std::uint32_t HeapAllocTable[] = {0, 1, 9, 10, 11, kEnd};

} // namespace

// Method, thread and collection events stand here but in no list: the dispatcher and the sampler
// enable the ones they need, and a collection never touches them.
constexpr PRBEventCollection::Table PRBEventCollection::InitialEventCollectionTable = {{
    {JVMPI_EVENT_ARENA_DELETE, 0},
    {JVMPI_EVENT_ARENA_NEW, 0},
    {JVMPI_EVENT_METHOD_ENTRY, 0},
    {JVMPI_EVENT_METHOD_EXIT, 0},
    {JVMPI_EVENT_MONITOR_CONTENDED_ENTER, 0},
    {JVMPI_EVENT_MONITOR_CONTENDED_ENTERED, 0},
    {JVMPI_EVENT_MONITOR_CONTENDED_EXIT, 0},
    {JVMPI_EVENT_MONITOR_WAIT, 0},
    {JVMPI_EVENT_MONITOR_WAITED, 0},
    {JVMPI_EVENT_OBJECT_ALLOC, 0},
    {JVMPI_EVENT_OBJECT_FREE, 0},
    {JVMPI_EVENT_OBJECT_MOVE, 0},
    {JVMPI_EVENT_THREAD_END, 0},
    {JVMPI_EVENT_THREAD_START, 0},
    {JVMPI_EVENT_GC_START, 0},
    {JVMPI_EVENT_GC_FINISH, 0},
}};

constexpr PRBEventCollection::CollectionRow PRBEventCollection::CollectionTable[] = {
    {PRBCollect::kThreads, ThreadStatisticsTable},
    {PRBCollect::kMethods, MethodTable},
    {PRBCollect::kContention, MonitorContentionEventTable},
    {PRBCollect::kHeap, HeapUsageTable},
    {PRBCollect::kGarbageCollection, GarbageCollectionTable},
    {PRBCollect::kHeapAllocation, HeapAllocTable},
};

PRBEventCollection::Table PRBEventCollection::tableFor(std::uint32_t collectionType) {
    Table table = InitialEventCollectionTable;
    for (const CollectionRow& row : CollectionTable) {
        if ((collectionType & row.bit) == 0) continue;
        for (const std::uint32_t* index = row.events; *index != kEndOfList; ++index)
            table[*index].enabled = 1;
    }
    return table;
}

void PRBEventCollection::changeTo(std::uint32_t collectionType, JVMPI_Interface* jvmpi) {
    const Table wanted = tableFor(collectionType);
    for (unsigned i = 0; i < NumEvents; ++i) {
        if (wanted[i].enabled == current_[i].enabled) continue;
        auto change = jvmpi == nullptr           ? nullptr
                      : current_[i].enabled != 0 ? jvmpi->DisableEvent
                                                 : jvmpi->EnableEvent;
        if (change != nullptr) change(current_[i].event, nullptr);
    }
    current_ = wanted;
}

void PRBEventCollection::disableAll(JVMPI_Interface* jvmpi) {
    for (PRBEventState& row : current_) {
        if (row.enabled == 0) continue;
        if (jvmpi != nullptr && jvmpi->DisableEvent != nullptr)
            jvmpi->DisableEvent(row.event, nullptr);
        row.enabled = 0;
    }
}
