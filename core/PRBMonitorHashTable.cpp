#include "core/PRBMonitorHashTable.h"

#include <algorithm>
#include <utility>

namespace {

using Scope = PRBTraceScope;
constexpr const char* kName = PRBComponent::kMonitorGlobal;
constexpr std::size_t kAhead = 8; // cells: an element that comes from memory takes some 100 ns

} // namespace

PRBMonitorHashTable::PRBMonitorHashTable(const char* name, JVMPI_Interface* jvmpi,
                                         _SerializationType serialization, std::size_t buckets)
    : PRBHashSet(buckets),
      serializationType(serialization),
      monitor(serialization == kSelfGuarding ? new PRBJavaRawMonitor(name, jvmpi) : nullptr) {
    Scope trace(kTraceClass, kName, "PRBMonitorHashTable constructor");
}

PRBMonitorHashTable::~PRBMonitorHashTable() {
    while (detached != nullptr) reclaim(kReclaimStep);
}

void PRBMonitorHashTable::lock() const {
    if (monitor != nullptr) monitor->enter(1);
}

void PRBMonitorHashTable::release() const {
    if (monitor != nullptr) monitor->exit(1);
}

PRBCollectable* PRBMonitorHashTable::find(const PRBCollectable* key) const {
    Scope trace(kTraceClass, kName, kFind);
    PRBTableLock guard(*this);
    if (lastFound != nullptr && lastFound->isEqual(key)) return lastFound;
    PRBCollectable* found = PRBHashSet::find(key);
    if (found != nullptr) lastFound = found;
    return found;
}

PRBCollectable* PRBMonitorHashTable::insert(PRBCollectable* item) {
    Scope trace(kTraceClass, kName, kInsert);
    PRBTableLock guard(*this);
    if (detached != nullptr && !inPause) reclaim(kReclaimStep);
    PRBCollectable* stored = PRBHashSet::insert(item);
    lastFound = stored;
    return stored;
}

PRBCollectable* PRBMonitorHashTable::remove(const PRBCollectable* key) {
    Scope trace(kTraceClass, kName, kRemove);
    PRBTableLock guard(*this);
    if (lastFound != nullptr && lastFound->isEqual(key)) lastFound = nullptr;
    return PRBHashSet::remove(key);
}

bool PRBMonitorHashTable::removeAndDestroy(const PRBCollectable* key) {
    PRBTableLock guard(*this);
    PRBCollectable* element = remove(key);
    delete element;
    return element != nullptr;
}

void PRBMonitorHashTable::clearAndDestroy() {
    Scope trace(kTraceClass, kName, "PRBMonitorHashTable::clearAndDestroy");
    PRBTableLock guard(*this);
    lastFound = nullptr;
    PRBHashSet::clearAndDestroy();
}

std::size_t PRBMonitorHashTable::entries() const {
    PRBTableLock guard(*this);
    return PRBHashSet::entries();
}

PRBHashSet::Iterator* PRBMonitorHashTable::getIterator() {
    auto* iterator = new Iterator(*this);
    lock();
    return iterator;
}

void PRBMonitorHashTable::destroyIterator(Iterator* iterator) {
    delete iterator;
    release();
}

void PRBMonitorHashTable::detachAll(std::size_t elementSize) {
    PRBTableLock guard(*this);
    lastFound = nullptr;
    Array* array = detachArray();
    if (array == nullptr) return;
    array->elementSize = elementSize;
    array->next = std::exchange(detached, array);
    PRBMemoryManager::uncount(array->entries * elementSize);
}

bool PRBMonitorHashTable::reclaim(std::size_t limit) {
    PRBTableLock guard(*this);
    while (detached != nullptr) {
        Array* array = detached;
        const Cell* cells = array->cells();
        // Free cells are passed over quickly, but not without bound.
        const std::size_t end = std::min(array->capacity, array->scanned + limit * 8);
        std::size_t left = std::min(limit, array->entries);
        limit -= left;
        PRBMemoryManager::recount(left * array->elementSize); // each deletion uncounts its own
        while (left != 0 && array->scanned != end) {
            // They were last touched before the collection.
            if (const std::size_t ahead = array->scanned + kAhead; ahead < array->capacity)
                __builtin_prefetch(cells[ahead].element, 1);
            PRBCollectable* element = cells[array->scanned++].element;
            if (!isElement(element)) continue;
            delete element;
            --array->entries;
            --left;
        }
        if (left != 0) PRBMemoryManager::uncount(left * array->elementSize);
        if (array->entries != 0) return true;
        detached = array->next;
        freeArray(array);
        if (limit == 0) return detached != nullptr;
    }
    return false;
}
