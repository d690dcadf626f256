// The walk over all objects of the heap that a dump of level 0 is made of.
//
// The program stands still while the VM walks, so the callback only notes class and size; types
// and the dump's records are worked out afterwards. No object is tagged: only class objects are,
// with their ids, by which the VM tells each object's class.
#ifndef PRB_BRIDGE_HEAPWALK_H
#define PRB_BRIDGE_HEAPWALK_H

#include <cstdint>
#include <memory>

#include <jvmti.h>

#include "bridge/DumpedObjects.h"

namespace bridge {

class HeapWalk {
public:
    // All objects of the heap, the unreachable ones that no collection has found yet included
    // (Serial, Parallel, G1). Ids are not given yet. Null if the VM refuses or memory is short.
    // REQUIRES: a Java thread without a pending exception.
    static std::shared_ptr<DumpedHeap> run(jvmtiEnv* jvmti, JNIEnv* jni);

private:
    explicit HeapWalk(DumpedHeap& heap) : heap_(heap) {}
    bool walk(jvmtiEnv* jvmti);
    void nameTypes();
    static jint JNICALL visit(jlong classTag, jlong size, jlong* tag, jint length, void* user);
    bool addKnown(uint32_t id, const HeapCells::Cell& cell) noexcept;

    DumpedHeap& heap_;
    bool complete_ = true; // no memory was missing
    bool strange_ = false; // some object's class had no id
};

} // namespace bridge

#endif
