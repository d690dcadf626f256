// The program's classes by id, and the class of each method. Filled as classes are prepared and
// emptied as they are unloaded; answers the profiler's questions without entering the VM.
//
// Any thread may call. The lock is the table's own, held for a few instructions and never while
// anything else is called. A jmethodID is only ever compared, never looked into: after an unload
// it points nowhere, and the VM may give its address to a method of another class.
#ifndef PRB_BRIDGE_CLASSTABLE_H
#define PRB_BRIDGE_CLASSTABLE_H

#include <cstdint>
#include <mutex>

#include "bridge/ClassRecord.h"
#include "bridge/FlatMap.h"

namespace bridge {

class ClassTable {
public:
    // Adds a class or replaces what was known of it (a class that was seen before it was
    // prepared has no methods yet). A method that another class had belongs to this one now.
    void put(ClassRecord::Pointer record);
    // Adds a class unless it is known. Answers whether it was added.
    bool putNew(ClassRecord::Pointer record);
    // Null for an unknown id.
    ClassRecord::Pointer find(uint32_t id) const;
    // Takes an unloaded class out; answers what was known, or null.
    ClassRecord::Pointer remove(uint32_t id);
    // The id of the class that declares a method, 0 for an unknown one.
    uint32_t classOf(jmethodID method) const;

    size_t classes() const;
    size_t methods() const;
    // What the table and its records occupy.
    size_t bytes() const;

private:
    void putLocked(ClassRecord::Pointer record);
    void dropMethods(const ClassRecord& record);

    mutable std::mutex mutex_;
    FlatMap<uint32_t, ClassRecord::Pointer> classes_;
    FlatMap<jmethodID, uint32_t> methods_;
    size_t recordBytes_ = 0;
};

} // namespace bridge

#endif
