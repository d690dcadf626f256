#include "bridge/ReferenceRecords.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

#include "bridge/IdTable.h"
#include "bridge/ObjectEvents.h"

namespace bridge {
namespace {

constexpr size_t kId = 4;
constexpr unsigned kObjectConstant = JVMPI_CLASS; // the type of a constant that is an object
constexpr const char* kRootClass = "java/lang/Object";

template <class Number> void putBigEndian(std::string& out, Number value) {
    for (int shift = static_cast<int>(sizeof value) * 8 - 8; shift >= 0; shift -= 8)
        out += static_cast<char>(value >> shift & 0xFF);
}

// The references of each object in turn; both lists are in the objects' order.
template <class Work>
void forEach(std::span<const ReferenceRecords::Object> objects,
             std::span<const ReferenceRecords::Reference> references, Work work) {
    size_t at = 0;
    for (uint32_t i = 0; i < objects.size(); i++) {
        while (at < references.size() && references[at].from < i) at++;
        const size_t begin = at;
        while (at < references.size() && references[at].from == i) at++;
        if (objects[i].id != 0) work(objects[i], references.subspan(begin, at - begin));
    }
}

uint32_t firstOf(std::span<const ReferenceRecords::Reference> references,
                 jvmtiHeapReferenceKind kind) {
    for (const auto& reference : references)
        if (reference.kind == kind) return reference.to;
    return 0;
}

} // namespace

size_t ReferenceRecords::elementSize(jint type) {
    constexpr uint8_t kSizes[] = {0, 0, 0, 0, 1, 2, 4, 8, 1, 2, 4, 8};
    static_assert(std::size(kSizes) == JVMPI_LONG + 1);
    return type >= 0 && type <= JVMPI_LONG ? kSizes[type] : 0;
}

std::string ReferenceRecords::write(std::span<const Object> objects, References references) {
    forEach(objects, references,
            [this](const Object& object, References own) { learnTies(object, own); });
    forEach(objects, references, [this](const Object& object, References own) {
        if (IdTable::isClass(object.id)) {
            const FieldSlots::Row row = slots_.statics(object.id);
            if (row.references != 0)
                writeInstance(object, own, row, JVMTI_HEAP_REFERENCE_STATIC_FIELD);
        } else if (object.length >= 0) {
            writeArray(object, own);
        } else {
            writeInstance(object, own, slots_.instance(object.classId), JVMTI_HEAP_REFERENCE_FIELD);
        }
    });
    forEach(objects, references, [this](const Object& object, References own) {
        if (!IdTable::isClass(object.id)) return;
        const ClassRecord::Pointer record = source_.record(object.id);
        if (record && record->prepared()) writeClass(*record, own);
    });
    return std::move(out_);
}

void ReferenceRecords::learnTies(const Object& object, References references) {
    if (!IdTable::isClass(object.id)) return;
    const ClassRecord::Pointer record = source_.record(object.id);
    if (!record) return;
    ClassTies ties;
    ties.fields = record->fields();
    ties.superClass = firstOf(references, JVMTI_HEAP_REFERENCE_SUPERCLASS);
    for (const Reference& reference : references)
        if (reference.kind == JVMTI_HEAP_REFERENCE_INTERFACE)
            ties.interfaces.push_back(reference.to);
    if (strcmp(record->name(), kRootClass) == 0) rootClass_ = object.id;
    ties_.put(object.id, std::move(ties));
}

void ReferenceRecords::writeInstance(const Object& object, References references,
                                     const FieldSlots::Row& row, jvmtiHeapReferenceKind kind) {
    putByte(JVMPI_GC_INSTANCE_DUMP);
    putId(object.id);
    putId(object.classId);
    putBigEndian(out_, static_cast<uint32_t>(row.references * kId));
    const size_t begin = putNulls(row.references);
    for (const Reference& reference : references) {
        const int32_t slot = reference.kind == kind ? row.slotOf(reference.index) : -1;
        if (slot >= 0) setId(begin, static_cast<size_t>(slot), reference.to);
    }
}

void ReferenceRecords::writeArray(const Object& object, References references) {
    const ClassRecord::Pointer record = source_.record(object.classId);
    if (!record) return;
    const jint type = ObjectEvents::typeOf(record->name());
    const auto length = static_cast<uint32_t>(object.length);
    const size_t primitive = elementSize(type);
    putByte(primitive != 0 ? JVMPI_GC_PRIM_ARRAY_DUMP : JVMPI_GC_OBJ_ARRAY_DUMP);
    putId(object.id);
    putBigEndian(out_, length);
    if (primitive != 0) {
        putByte(static_cast<unsigned>(type));
        out_.append(3, '\0');
        const size_t begin = out_.size();
        out_.append(length * primitive, '\0');
        source_.elements(object.id, out_.data() + begin, length * primitive);
        return;
    }
    putId(source_.elementClass(object.classId));
    const size_t begin = putNulls(length);
    for (const Reference& reference : references)
        if (reference.kind == JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT && reference.index >= 0 &&
            reference.index < object.length)
            setId(begin, static_cast<size_t>(reference.index), reference.to);
}

void ReferenceRecords::writeClass(const ClassRecord& record, References references) {
    const ClassTies* ties = ties_.find(record.id());
    if (!ties) return;
    putByte(JVMPI_GC_CLASS_DUMP);
    putId(record.id());
    // The VM does not name the superclass of those that have no other.
    const bool isRoot = record.id() == rootClass_;
    putId(ties->superClass != 0 || isRoot ? ties->superClass : rootClass_);
    putId(firstOf(references, JVMTI_HEAP_REFERENCE_CLASS_LOADER));
    putId(firstOf(references, JVMTI_HEAP_REFERENCE_SIGNERS));
    putId(firstOf(references, JVMTI_HEAP_REFERENCE_PROTECTION_DOMAIN));
    putNulls(3); // the name as an object, a reserved word, the size of an instance
    const size_t interfaces = putNulls(static_cast<size_t>(record.interfaces()));
    for (size_t i = 0; i < ties->interfaces.size() && i < static_cast<size_t>(record.interfaces());
         i++)
        setId(interfaces, i, ties->interfaces[i]);

    const size_t countAt = out_.size();
    putBigEndian(out_, uint16_t{0});
    uint16_t constants = 0;
    for (const Reference& reference : references) {
        if (reference.kind != JVMTI_HEAP_REFERENCE_CONSTANT_POOL ||
            constants == std::numeric_limits<uint16_t>::max())
            continue;
        constants++;
        putBigEndian(out_, static_cast<uint16_t>(reference.index));
        putByte(kObjectConstant);
        putId(reference.to);
    }
    out_[countAt] = static_cast<char>(constants >> 8);
    out_[countAt + 1] = static_cast<char>(constants & 0xFF);

    const FieldSlots::Row row = slots_.statics(record.id());
    const size_t statics = putNulls(row.references);
    for (const Reference& reference : references) {
        const int32_t slot =
            reference.kind == JVMTI_HEAP_REFERENCE_STATIC_FIELD ? row.slotOf(reference.index) : -1;
        if (slot >= 0) setId(statics, static_cast<size_t>(slot), reference.to);
    }
}

void ReferenceRecords::putId(uint32_t id) {
    char bytes[kId];
    memcpy(bytes, &id, kId);
    out_.append(bytes, kId);
}

size_t ReferenceRecords::putNulls(size_t ids) {
    const size_t begin = out_.size();
    out_.append(ids * kId, '\0');
    return begin;
}

void ReferenceRecords::setId(size_t begin, size_t index, uint32_t id) {
    memcpy(out_.data() + begin + index * kId, &id, kId);
}

} // namespace bridge
