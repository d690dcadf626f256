// Where the references of an object stand among those of its fields.
//
// The VM's walk names a field by its index: first come the fields of every interface that the
// class has, directly or not, each once; then those of its superclasses from the top down; then
// its own. Static ones and those of primitive types count too. A record of a dump holds the
// references alone, in the same order.
#ifndef PRB_BRIDGE_FIELDSLOTS_H
#define PRB_BRIDGE_FIELDSLOTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <jni.h>

#include "bridge/ClassRecord.h"
#include "bridge/FlatMap.h"

namespace bridge {

// What a walk told about the classes. Ids are those of the class table.
struct ClassTies {
    uint32_t superClass = 0; // 0: none but java.lang.Object, which has no fields
    std::vector<uint32_t> interfaces;
    std::string fields; // FieldKind of each, in the order of declaration
};

class FieldSlots {
public:
    // Slots of the references by the index that the VM gives; -1: none.
    struct Row {
        std::vector<int32_t> slots;
        uint32_t references = 0;
        int32_t slotOf(jint index) const {
            const auto at = static_cast<size_t>(index);
            return index >= 0 && at < slots.size() ? slots[at] : -1;
        }
    };

    // REQUIRES: `ties` outlives the object.
    explicit FieldSlots(const FlatMap<uint32_t, ClassTies>& ties) : ties_(ties) {}

    // Of the instances of a class: its own and inherited fields. Valid until the next call.
    const Row& instance(uint32_t classId);
    // Of a class object: the class's own static fields.
    Row statics(uint32_t classId) const;

private:
    using Ids = std::vector<uint32_t>;
    size_t interfaceFields(uint32_t classId) const;
    void addInterfaces(uint32_t classId, Ids& found) const;
    // The class and its superclasses from the top down.
    Ids chain(uint32_t classId) const;
    const ClassTies& ties(uint32_t classId) const;

    const FlatMap<uint32_t, ClassTies>& ties_;
    FlatMap<uint32_t, Row> instances_;
};

} // namespace bridge

#endif
