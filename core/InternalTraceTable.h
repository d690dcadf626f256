// The log's other destination: a ring of fixed texts in memory, read from a dump of the process.
#ifndef PRB_CORE_INTERNALTRACETABLE_H
#define PRB_CORE_INTERNALTRACETABLE_H

#include "core/PRBJavaRawMonitor.h"

// 64 characters filled with blanks, without a terminating zero.
struct InternalTraceTableEntry {
    char text[64];
};
static_assert(sizeof(InternalTraceTableEntry) == 64);

// Any thread may add an entry. While a table is attached to PRBTrace nothing goes to the file.
class InternalTraceTable : public PRBMemoryManager {
public:
    InternalTraceTable(unsigned int entries, JVMPI_Interface* jvmpi);
    ~InternalTraceTable();
    InternalTraceTable(const InternalTraceTable&) = delete;
    InternalTraceTable& operator=(const InternalTraceTable&) = delete;

    // Overwrites the oldest entry; longer texts are cut at 64 characters.
    void newTraceEntry(const char* text);

    const InternalTraceTableEntry* begin() const { return first; }
    const InternalTraceTableEntry* nextEntry() const { return next; }

private:
    InternalTraceTableEntry* first;
    InternalTraceTableEntry* end;
    InternalTraceTableEntry* next; // overwritten by the next text
    PRBJavaRawMonitor monitor;
};

#endif
