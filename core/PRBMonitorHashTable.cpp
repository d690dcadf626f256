#include "core/PRBMonitorHashTable.h"

#include <utility>

namespace {

using Scope = PRBTraceScope;
constexpr const char* kName = PRBComponent::kMonitorGlobal;

} // namespace

PRBMonitorHashTable::PRBMonitorHashTable(const char* name, JVMPI_Interface* jvmpi,
                                         _SerializationType serialization)
    : serializationType(serialization),
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
        // Free cells are passed over quickly, but not without bound.
        for (std::size_t cells = limit * 8; array->entries != 0; --limit) {
            PRBCollectable* element = nullptr;
            while (!isElement(element)) {
                if (cells-- == 0) return true;
                element = array->cells()[array->scanned++].element;
            }
            if (limit == 0) {
                --array->scanned;
                return true;
            }
            PRBMemoryManager::recount(array->elementSize); // its deletion uncounts it
            delete element;
            --array->entries;
        }
        detached = array->next;
        freeArray(array);
    }
    return false;
}
