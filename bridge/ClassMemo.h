// What one thread has found out about the classes of the objects that it allocates, by the
// address of the class object, so that most allocations need no question to the VM (which looks
// a tag up under a lock of its own). Addresses hold between two collections only: each entry
// carries the epoch (CollectionEvents::epoch()) in which its address was read.
//
// Used by its own thread alone.
#ifndef PRB_BRIDGE_CLASSMEMO_H
#define PRB_BRIDGE_CLASSMEMO_H

#include <cstddef>
#include <cstdint>

#include <jni.h>

namespace bridge {

struct KnownClass {
    uint32_t id = 0;
    jint type = 0; // of its objects
};

class ClassMemo {
public:
    // Null if the class has not been put in this epoch, or was pushed out by another.
    const KnownClass* find(const void* mirror, uint32_t epoch) const {
        const Entry& entry = entries_[placeOf(mirror)];
        return mirror && entry.mirror == mirror && entry.epoch == epoch ? &entry.known : nullptr;
    }
    void put(const void* mirror, uint32_t epoch, const KnownClass& known) {
        entries_[placeOf(mirror)] = {mirror, epoch, known};
    }

private:
    static constexpr size_t kEntries = 64;
    struct Entry {
        const void* mirror = nullptr;
        uint32_t epoch = 0;
        KnownClass known;
    };
    // Class objects lie some hundred bytes apart.
    static size_t placeOf(const void* mirror) {
        const auto address = reinterpret_cast<uintptr_t>(mirror);
        return (address >> 3 ^ address >> 9 ^ address >> 15) % kEntries;
    }
    Entry entries_[kEntries];
};

} // namespace bridge

#endif
