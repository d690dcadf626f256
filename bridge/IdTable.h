// Ids and the weak references behind them: the numbers by which the profiler knows objects.
//
// Ids are 32-bit on both word sizes: classes from kFirstClass, everything else that keeps its id
// for life from kFirstObject. They are never used again. What is above, up to 0x7FFFFFFE, belongs
// to TransientIds. The table knows nothing of the VM; ObjectIds joins it with tags and references.
//
// Any thread may call; the lock is the table's own and held for a few instructions.
#ifndef PRB_BRIDGE_IDTABLE_H
#define PRB_BRIDGE_IDTABLE_H

#include <cstdint>
#include <mutex>
#include <vector>

#include <jni.h>

#include "bridge/FlatMap.h"

namespace bridge {

class IdTable {
public:
    static constexpr uint32_t kFirstClass = 1;
    static constexpr uint32_t kFirstObject = 0x40000000;
    static constexpr uint32_t kEndObject = 0x50000000;
    static constexpr uint32_t kEnd = 0x7FFFFFFF; // of all ids, transient ones included

    static bool isClass(uint32_t id) { return id >= kFirstClass && id < kFirstObject; }
    static bool isObject(uint32_t id) { return id >= kFirstObject && id < kEndObject; }

    IdTable() : IdTable(kFirstClass, kFirstObject) {}
    // Starts counting elsewhere (tests of the ends of the ranges).
    IdTable(uint32_t nextClass, uint32_t nextObject)
        : nextClass_(nextClass), nextObject_(nextObject) {}

    // A new id for the object that the reference names; 0 when the range is used up. The table
    // takes the reference over, except when it answers 0.
    uint32_t addClass(jweak reference);
    uint32_t addObject(jweak reference);

    // The object is gone: its id answers nothing from now on.
    void remove(uint32_t id);

    // A reference being used. While any exists, no reference that the table gave up is deleted:
    // the VM would hand its place to another object.
    class Use {
    public:
        Use(IdTable& table, uint32_t id);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        jweak reference() const { return reference_; } // null for an unknown id

    private:
        IdTable& table_;
        jweak reference_;
    };

    struct Entry {
        uint32_t id;
        jweak reference;
    };
    // Copies at most `room` entries from a place on and moves the place on, to 0 after the last.
    // Of what is added and removed between two calls some entries may be left out. Answers how
    // many. REQUIRES: room is not 0; a Use exists for as long as the references are used.
    size_t copy(size_t& place, Entry* to, size_t room) const;

    // All references, as they are now. REQUIRES: a Use exists for as long as they are used.
    std::vector<jweak> references() const;

    // References that were given up and that nobody uses, for a thread that may call the VM to
    // delete. Cheap when there are none.
    std::vector<jweak> takeDead();

    size_t size() const;

private:
    uint32_t add(uint32_t& next, uint32_t end, jweak reference);

    mutable std::mutex mutex_;
    uint32_t nextClass_;
    uint32_t nextObject_;
    uint32_t uses_ = 0;
    FlatMap<uint32_t, jweak> references_;
    std::vector<jweak> dead_;
};

} // namespace bridge

#endif
