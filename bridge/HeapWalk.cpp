#include "bridge/HeapWalk.h"

#include <algorithm>

#include "bridge/ClassEvents.h"
#include "bridge/FlatMap.h"
#include "bridge/IdTable.h"
#include "bridge/ObjectEvents.h"

namespace bridge {
namespace {

// Until nameTypes() has looked at its class.
constexpr jint kSomeArray = static_cast<jint>(HeapCells::kTypeMask);
static_assert(kSomeArray > JVMPI_LONG);

// A class of arrays that is used for the first time while the walk is being prepared has no id:
// then the walk is done again. Twice is once more than has been seen.
constexpr int kMostWalks = 3;

jint typeOfClass(uint32_t id) {
    const ClassRecord::Pointer record = classes().find(id);
    return record ? ObjectEvents::typeOf(record->name()) : jint{JVMPI_NORMAL_OBJECT};
}

// The types of the classes that were asked for.
class Types {
public:
    jint of(uint32_t classId) {
        if (classId == lastId_) return lastType_;
        const jint* known = types_.find(classId);
        lastId_ = classId;
        lastType_ = known ? *known : typeOfClass(classId);
        if (!known && classId != 0) types_.put(classId, lastType_);
        return lastType_;
    }

private:
    FlatMap<uint32_t, jint> types_;
    uint32_t lastId_ = 0;
    jint lastType_ = JVMPI_NORMAL_OBJECT;
};

} // namespace

std::shared_ptr<DumpedHeap> HeapWalk::run(jvmtiEnv* jvmti, JNIEnv* jni) {
    auto heap = std::make_shared<DumpedHeap>();
    for (int walks = 1;; walks++) {
        ClassEvents::giveIds(jni);
        HeapWalk walk(*heap);
        if (!walk.walk(jvmti)) return nullptr;
        if (walk.strange_ && walks < kMostWalks && ClassEvents::giveIds(jni) != 0) {
            heap->cells.clear();
            heap->known.clear();
            continue;
        }
        walk.nameTypes();
        return heap;
    }
}

bool HeapWalk::walk(jvmtiEnv* jvmti) {
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_iteration_callback = visit;
    return jvmti->IterateThroughHeap(0, nullptr, &callbacks, this) == JVMTI_ERROR_NONE && complete_;
}

jint JNICALL HeapWalk::visit(jlong classTag, jlong size, jlong* tag, jint length, void* user) {
    auto& walk = *static_cast<HeapWalk*>(user);
    const HeapCells::Cell cell =
        HeapCells::pack(static_cast<uint32_t>(classTag), size, length < 0 ? 0 : kSomeArray);
    walk.strange_ |= cell.classId == 0;
    const bool isKnown = *tag > 0 && *tag < jlong{IdTable::kEnd};
    if (isKnown ? walk.addKnown(static_cast<uint32_t>(*tag), cell) : walk.heap_.cells.add(cell))
        return 0;
    walk.complete_ = false;
    return JVMTI_VISIT_ABORT;
}

bool HeapWalk::addKnown(uint32_t id, const HeapCells::Cell& cell) noexcept try {
    heap_.known.push_back({id, cell});
    return true;
} catch (...) {
    return false;
}

void HeapWalk::nameTypes() {
    Types types;
    heap_.count = static_cast<uint32_t>(heap_.cells.size());
    const auto name = [&types](HeapCells::Cell& cell) {
        if (cell.type() == kSomeArray) cell.setType(types.of(cell.classId));
    };
    for (uint32_t i = 0; i < heap_.count; i++) name(heap_.cells[i]);
    for (DumpedHeap::Known& known : heap_.known) name(known.cell);
    std::sort(heap_.known.begin(), heap_.known.end(),
              [](const auto& a, const auto& b) { return a.id < b.id; });
}

} // namespace bridge
