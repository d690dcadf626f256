#include "runtime/PRBJavaObjectAllocated.h"

#include "core/PRBArena.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaClass.h"

PRBJavaObjectAllocated::PRBJavaObjectAllocated(const PRBArena* inArena, PRBJavaClass* ofClass,
                                               int array, int bytes, jobjectID id, JNIEnv* env)
    : arena(inArena), cls(ofClass), isArray(array), size(bytes), objectId(id), thread(env) {}

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
    isArray = array;
    size = bytes;
    thread = env;
}
