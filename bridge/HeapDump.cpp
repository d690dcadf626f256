#include "bridge/HeapDump.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "bridge/ClassEvents.h"
#include "bridge/Clocks.h"
#include "bridge/Context.h"
#include "bridge/DumpedObjects.h"
#include "bridge/FlatMap.h"
#include "bridge/FoundObjects.h"
#include "bridge/HeapWalk.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectEvents.h"
#include "bridge/ObjectIds.h"
#include "bridge/ReferenceRecords.h"
#include "bridge/ReferenceWalk.h"
#include "bridge/TransientIds.h"

namespace bridge {
namespace {

constexpr size_t kRecord = 5; // of level 0

// Where a row of ids begins. A reader that keeps ids in an array by their low bits then has them
// side by side and clear of the small numbers that classes and objects with ids for life have:
// each of those that lay in the row would cost it a search to the row's end.
constexpr uint32_t kRowAlignment = 1U << 23;
constexpr uint32_t kRowOffset = 1U << 16;

struct Free {
    void operator()(char* memory) const { free(memory); }
};
using Bytes = std::unique_ptr<char, Free>;

char* put(char* at, jint type, uint32_t id) {
    *at = static_cast<char>(type);
    memcpy(at + 1, &id, sizeof id);
    return at + kRecord;
}

void deliver(JNIEnv* jni, jint level, char* begin, char* end) {
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT;
    event.env_id = jni;
    event.u.heap_dump.dump_level = level;
    event.u.heap_dump.begin = begin;
    event.u.heap_dump.end = end;
    events().deliver(event);
}

// Ids in a row. A profiler that has no registry to empty does not hear of collections either:
// nothing then says when ids may be used again, so that it is the next dump that does.
uint32_t takeIds(uint32_t count) {
    if (count == 0) return TransientIds::kFirst;
    if (!events().isEnabled(JVMPI_EVENT_GC_FINISH) && !events().isEnabled(JVMPI_EVENT_OBJECT_ALLOC))
        transientIds().forget();
    const uint32_t room = transientIds().take(count + kRowAlignment);
    if (room == 0) return transientIds().take(count);
    return (room - kRowOffset + kRowAlignment - 1) / kRowAlignment * kRowAlignment + kRowOffset;
}

jint dumpObjects(JNIEnv* jni) {
    const std::shared_ptr<DumpedHeap> heap = HeapWalk::run(context().jvmti, jni);
    if (!heap) return JVMPI_FAIL;
    heap->first = takeIds(heap->count);
    const Bytes dump(static_cast<char*>(malloc((heap->count + heap->known.size()) * kRecord + 1)));
    if (heap->first == 0 || !dump) return JVMPI_FAIL;
    char* end = dump.get();
    for (uint32_t i = 0; i < heap->count; i++) {
        const HeapCells::Cell& cell = heap->cells[i];
        if (cell.classId != 0) end = put(end, cell.type(), heap->first + i);
    }
    for (const DumpedHeap::Known& known : heap->known)
        if (known.cell.classId != 0) end = put(end, known.cell.type(), known.id);
    dumpedObjects().add(heap);
    const DumpedObjects::Delivery delivery(*heap, jni);
    deliver(jni, JVMPI_DUMP_LEVEL_0, dump.get(), end);
    return JVMPI_SUCCESS;
}

// ---- Level 1 ----------------------------------------------------------------------------------

uint32_t elementClassOf(JNIEnv* jni, uint32_t arrayClass) {
    const LocalRef<jclass> classClass(jni, jni->FindClass("java/lang/Class"));
    const jmethodID component =
        classClass ? jni->GetMethodID(classClass.get(), "getComponentType", "()Ljava/lang/Class;")
                   : nullptr;
    const LocalRef<jobject> mirror(jni, objectIds().object(jni, arrayClass));
    uint32_t id = 0;
    if (component && mirror) {
        const LocalRef<jobject> type(jni, jni->CallObjectMethod(mirror.get(), component));
        if (!jni->ExceptionCheck()) id = objectIds().of(jni, type.get());
    }
    jni->ExceptionClear();
    return id;
}

void copyElements(JNIEnv* jni, uint32_t id, char* to, size_t bytes) {
    const LocalRef<jobject> object(jni, objectIds().object(jni, id));
    const auto array = static_cast<jarray>(object.get());
    void* from = array && bytes != 0 ? jni->GetPrimitiveArrayCritical(array, nullptr) : nullptr;
    if (!from) return;
    memcpy(to, from, bytes);
    jni->ReleasePrimitiveArrayCritical(array, from, JNI_ABORT);
}

std::mutex& referenceTurn() {
    static std::mutex& the = *new std::mutex;
    return the;
}

jint dumpReferences(JNIEnv* jni) {
    std::string dump;
    {
        // Held over calls of the VM, and never taken by the collecting thread.
        std::lock_guard<std::mutex> turn(referenceTurn());
        ClassEvents::giveIds(jni);
        ReferenceWalk walk(context().jvmti, jni);
        if (!walk.run()) return JVMPI_FAIL;
        FlatMap<uint32_t, uint32_t> elementClasses;
        ReferenceRecords records({
            [](uint32_t id) { return classes().find(id); },
            [&](uint32_t id) {
                if (!elementClasses.find(id)) elementClasses.put(id, elementClassOf(jni, id));
                return *elementClasses.find(id);
            },
            [jni](uint32_t id, char* to, size_t bytes) { copyElements(jni, id, to, bytes); },
        });
        dump = records.write(walk.objects(), walk.references());
        foundObjects().add(jni, walk.firstFound(), walk.takeFound(), monotonicNs());
    }
    deliver(jni, JVMPI_DUMP_LEVEL_1, dump.data(), dump.data() + dump.size());
    return JVMPI_SUCCESS;
}

} // namespace

void HeapDump::sweep(JNIEnv* jni) {
    objectIds().sweep(jni);
    dumpedObjects().sweep();
    foundObjects().sweep(jni, monotonicNs());
}

jint HeapDump::request(void* argument) {
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    if (!jni || !argument) return JVMPI_FAIL;
    const jint level = static_cast<const JVMPI_HeapDumpArg*>(argument)->heap_dump_level;
    ExceptionShelter shelter(jni);
    sweep(jni);
    switch (level) {
    case JVMPI_DUMP_LEVEL_0:
        return dumpObjects(jni);
    case JVMPI_DUMP_LEVEL_1:
        return dumpReferences(jni);
    default: // values of primitive fields, which no agent of ours reads
        return JVMPI_NOT_AVAILABLE;
    }
}

bool HeapDump::answerDelivered(void* objectId) {
    const DumpedObjects::Delivery* delivery = DumpedObjects::Delivery::current();
    if (!delivery) return false;
    const uint32_t id = numberOf(static_cast<jobjectID>(objectId));
    const HeapCells::Cell* cell = delivery->heap().find(id);
    if (!cell) return false;
    ObjectEvents::deliverRequested(delivery->env(), id, cell->classId, cell->type(), cell->size());
    return true;
}

bool HeapDump::answerKept(void* objectId) {
    const uint32_t id = numberOf(static_cast<jobjectID>(objectId));
    HeapCells::Cell cell{};
    if (id == 0 || !dumpedObjects().find(id, cell)) return false;
    ObjectEvents::deliverRequested(currentEnv(), id, cell.classId, cell.type(), cell.size());
    return true;
}

} // namespace bridge
