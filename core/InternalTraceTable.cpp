#include "core/InternalTraceTable.h"

#include <algorithm>
#include <cstring>

InternalTraceTable::InternalTraceTable(unsigned int entries, JVMPI_Interface* jvmpi)
    : monitor("_InternalTraceTable", jvmpi) {
    first = static_cast<InternalTraceTableEntry*>(
        PRBMemoryManager::allocate(entries * sizeof(InternalTraceTableEntry)));
    if (first == nullptr) {
        PRBMemoryManager::uncount(entries * sizeof(InternalTraceTableEntry));
        entries = 0;
    }
    next = first;
    end = first + entries;
    if (entries != 0) std::memset(first, ' ', entries * sizeof(InternalTraceTableEntry));
}

InternalTraceTable::~InternalTraceTable() {
    if (first != nullptr)
        PRBMemoryManager::release(first, static_cast<std::size_t>(end - first) *
                                             sizeof(InternalTraceTableEntry));
}

void InternalTraceTable::newTraceEntry(const char* text) {
    if (first == end) return;
    PRBMonitorGuard guard(monitor, 0);
    std::memset(next->text, ' ', sizeof next->text);
    std::memcpy(next->text, text, std::min(std::strlen(text), sizeof next->text));
    if (++next == end) next = first;
}
