// Which events of the VM a collection needs, and which of them are enabled now.
#ifndef PRB_COLLECTOR_PRBEVENTCOLLECTION_H
#define PRB_COLLECTOR_PRBEVENTCOLLECTION_H

#include "jvmpi/jvmpi.h"

#include <array>
#include <cstdint>

// One row of the event collection table.
struct PRBEventState {
    std::int32_t event;   // JVMPI_EVENT_...
    std::int32_t enabled; // by this agent's collections
};

// The event collection table of the collector. Not locked: collections are started and stopped
// one at a time.
class PRBEventCollection {
public:
    static constexpr unsigned NumEvents = 16;
    static constexpr unsigned NumCollectionTypes = 6;
    static constexpr std::uint32_t kEndOfList = 0xFFFFFFFF;
    using Table = std::array<PRBEventState, NumEvents>;

    // A collection type's bit and the indices, into the event table, of the events it needs.
    struct CollectionRow {
        std::uint32_t bit;
        const std::uint32_t* events; // ended by kEndOfList
    };

    static const Table InitialEventCollectionTable; // all disabled
    static const CollectionRow CollectionTable[NumCollectionTypes];

    // The table that a collection of these types needs.
    static Table tableFor(std::uint32_t collectionType);

    // Passes the differences to the VM, in the order of the table.
    void changeTo(std::uint32_t collectionType, JVMPI_Interface* jvmpi);
    // Disables what is enabled.
    void disableAll(JVMPI_Interface* jvmpi);

    const Table& current() const { return current_; }

private:
    Table current_ = InitialEventCollectionTable;
};

#endif
