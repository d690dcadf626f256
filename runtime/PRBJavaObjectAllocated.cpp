#include "runtime/PRBJavaObjectAllocated.h"

#include "core/PRBArena.h"
#include "core/PRBRecordPool.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaClass.h"

namespace {

// Guarded by the object registry; never destroyed, as threads of the host outlive statics.
constinit PRBRecordPool pool(sizeof(PRBJavaObjectAllocated));

} // namespace

void* PRBJavaObjectAllocated::operator new(std::size_t size) noexcept {
    // A class derived from this one has another size.
    if (size != sizeof(PRBJavaObjectAllocated)) return PRBMemoryManager::operator new(size);
    void* p = pool.take();
    if (p == nullptr) PRBTrace::writeToLog("Storage allocation failed");
    PRBMemoryManager::count(size);
    return p;
}

void PRBJavaObjectAllocated::operator delete(void* p, std::size_t size) noexcept {
    if (size != sizeof(PRBJavaObjectAllocated)) return PRBMemoryManager::operator delete(p, size);
    if (p == nullptr) return;
    pool.give(p);
    PRBMemoryManager::uncount(size);
}

PRBJavaObjectAllocated::PRBJavaObjectAllocated(const PRBArena* inArena, PRBJavaClass* ofClass,
                                               int array, int bytes, jobjectID id, JNIEnv* env)
    : arena(inArena), cls(ofClass), isArray(array), size(bytes), objectId(id), thread(env) {
    if (cls != nullptr) cls->lendToObject();
}

bool PRBJavaObjectAllocated::isEqual(const PRBCollectable* other) const {
    return other != nullptr && other->isA() == isA() &&
           static_cast<const PRBJavaObjectAllocated*>(other)->objectId == objectId;
}

int PRBJavaObjectAllocated::shouldBeMonitored() {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kObjectAllocated,
                        "PRBJavaObjectAllocated::shouldBeMonitored");
    return trace.returns(cls == nullptr ? PRBMonitored::kUndecided : cls->shouldBeMonitored());
}

int PRBJavaObjectAllocated::getArenaId() const {
    return arena == nullptr ? 0 : arena->getArenaId();
}

void PRBJavaObjectAllocated::update(const PRBArena* a, PRBJavaClass* c, int array, int bytes,
                                    JNIEnv* env) {
    arena = a;
    cls = c;
    if (cls != nullptr) cls->lendToObject();
    isArray = array;
    size = bytes;
    thread = env;
}
