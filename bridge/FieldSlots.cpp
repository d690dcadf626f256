#include "bridge/FieldSlots.h"

#include <algorithm>

namespace bridge {

const ClassTies& FieldSlots::ties(uint32_t classId) const {
    static const ClassTies& none = *new ClassTies;
    const ClassTies* known = ties_.find(classId);
    return known ? *known : none;
}

FieldSlots::Ids FieldSlots::chain(uint32_t classId) const {
    Ids classes;
    // A chain that comes back to itself would be the walk's error; it ends there.
    for (uint32_t at = classId; at != 0 && std::ranges::count(classes, at) == 0;
         at = ties(at).superClass)
        classes.push_back(at);
    std::reverse(classes.begin(), classes.end());
    return classes;
}

void FieldSlots::addInterfaces(uint32_t classId, Ids& found) const {
    for (const uint32_t interface : ties(classId).interfaces) {
        if (std::ranges::count(found, interface) != 0) continue;
        found.push_back(interface);
        addInterfaces(interface, found);
    }
}

size_t FieldSlots::interfaceFields(uint32_t classId) const {
    Ids interfaces;
    for (const uint32_t at : chain(classId)) addInterfaces(at, interfaces);
    size_t fields = 0;
    for (const uint32_t interface : interfaces) fields += ties(interface).fields.size();
    return fields;
}

const FieldSlots::Row& FieldSlots::instance(uint32_t classId) {
    if (const Row* known = instances_.find(classId)) return *known;
    Row row;
    row.slots.assign(interfaceFields(classId), -1);
    for (const uint32_t at : chain(classId))
        for (const char kind : ties(at).fields)
            row.slots.push_back(kind == kReference ? static_cast<int32_t>(row.references++) : -1);
    instances_.put(classId, std::move(row));
    return *instances_.find(classId);
}

FieldSlots::Row FieldSlots::statics(uint32_t classId) const {
    size_t before = interfaceFields(classId);
    for (const uint32_t at : chain(classId))
        if (at != classId) before += ties(at).fields.size();
    Row row;
    row.slots.assign(before, -1);
    for (const char kind : ties(classId).fields)
        row.slots.push_back(kind == kStaticReference ? static_cast<int32_t>(row.references++) : -1);
    return row;
}

} // namespace bridge
