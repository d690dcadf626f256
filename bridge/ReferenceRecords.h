// The records of a dump of level 1: references only.
//
// Counts are big-endian, ids are 4 bytes as the machine stores them. A reference to an object that
// the profiler has no id of is written as 0, as a null is. Each record follows its tag:
//
//   instance      id, class, bytes (4); the references in the order of FieldSlots
//   object array  id, length (4), class of the elements; the elements
//   primitives    id, length (4), type (1), three bytes; the elements as they lie in memory
//   class         id, superclass, loader, signers, protection domain, 0, 0, 0; its direct
//                 interfaces; the number of constants (2) and of each its index (2), a type (1)
//                 and id; the static references in the order of declaration
//
// A class object has an instance record too, with its static references. The classes come last:
// a reader steps over them by what it was told of the class, and one that was told something else
// has then read everything before.
#ifndef PRB_BRIDGE_REFERENCERECORDS_H
#define PRB_BRIDGE_REFERENCERECORDS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>

#include "bridge/ClassRecord.h"
#include "bridge/FieldSlots.h"
#include "bridge/FlatMap.h"
#include "bridge/ReferenceWalk.h"

namespace bridge {

class ReferenceRecords {
public:
    using Object = ReferenceWalk::Object;
    using Reference = ReferenceWalk::Reference;

    // What the walk does not tell.
    struct Source {
        // Null for a class that is not known (any more).
        std::function<ClassRecord::Pointer(uint32_t classId)> record;
        // The class of an array class's elements, 0 if it cannot be had.
        std::function<uint32_t(uint32_t arrayClassId)> elementClass;
        // Copies the elements of a primitive array; they stay 0 if it has gone.
        std::function<void(uint32_t id, char* to, size_t bytes)> elements;
    };

    explicit ReferenceRecords(Source source) : source_(std::move(source)), slots_(ties_) {}
    ReferenceRecords(const ReferenceRecords&) = delete;
    ReferenceRecords& operator=(const ReferenceRecords&) = delete;

    // REQUIRES: the references are sorted by the object that they are in.
    std::string write(std::span<const Object> objects, std::span<const Reference> references);

    // Bytes of an element of a type, 0 for a type that is none of primitives.
    static size_t elementSize(jint type);

private:
    using References = std::span<const Reference>;
    void learnTies(const Object& object, References references);
    void writeInstance(const Object& object, References references, const FieldSlots::Row& row,
                       jvmtiHeapReferenceKind kind);
    void writeArray(const Object& object, References references);
    void writeClass(const ClassRecord& record, References references);
    void putByte(unsigned value) { out_ += static_cast<char>(value); }
    void putId(uint32_t id);
    // Room for so many ids, all 0; answers where it begins.
    size_t putNulls(size_t ids);
    void setId(size_t begin, size_t index, uint32_t id);

    Source source_;
    FlatMap<uint32_t, ClassTies> ties_;
    FieldSlots slots_;
    uint32_t rootClass_ = 0; // java.lang.Object
    std::string out_;
};

} // namespace bridge

#endif
