// Heap dumps and collections of the scripted VM.
#ifndef PRB_TESTS_VM_SCRIPTEDHEAP_H
#define PRB_TESTS_VM_SCRIPTEDHEAP_H

#include "tests/vm/ScriptedJava.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace scripted {

// Builds the bytes of a dump, record by record. Object ids are 4 bytes in host order, counts
// are big-endian. Every call answers the builder, so that calls can be chained.
class DumpBuilder {
public:
    // Level 0: one byte of object type, then the id.
    DumpBuilder& object(jint type, jobjectID id);

    // Level 1: one tag byte, then the record.
    DumpBuilder& rootJniGlobal(jobjectID id, jobject ref);
    DumpBuilder& rootJniLocal(jobjectID id, JNIEnv* env, jint frame);
    DumpBuilder& rootJavaFrame(jobjectID id, JNIEnv* env, jint frame);
    DumpBuilder& rootNativeStack(jobjectID id, JNIEnv* env);
    DumpBuilder& rootStickyClass(jobjectID id);
    DumpBuilder& rootThreadBlock(jobjectID id, JNIEnv* env);
    DumpBuilder& rootMonitorUsed(jobjectID id);
    // 32 bytes of ids, then the interfaces, the constants (7 bytes each, zero) and the static
    // references.
    DumpBuilder& classDump(jobjectID cls, jobjectID super, const std::vector<jobjectID>& interfaces,
                           jint constants, const std::vector<jobjectID>& staticReferences);
    DumpBuilder& instance(jobjectID id, jobjectID cls, const std::vector<jobjectID>& references);
    DumpBuilder& objectArray(jobjectID id, jobjectID elementClass,
                             const std::vector<jobjectID>& elements);
    // The elements are zero bytes.
    DumpBuilder& primitiveArray(jobjectID id, jint elementType, jint count);

    // Anything else, for broken dumps.
    DumpBuilder& u1(unsigned value);
    DumpBuilder& u2(unsigned value);      // big-endian
    DumpBuilder& u4(std::uint32_t value); // big-endian
    DumpBuilder& id(const void* value);   // low 32 bits, host order
    DumpBuilder& zeros(std::size_t count);
    DumpBuilder& cutLast(std::size_t count); // drops bytes from the end

    const std::vector<char>& bytes() const { return bytes_; }

private:
    std::vector<char> bytes_;
};

// Bytes of one element of a primitive array; 0 for a type outside 4 to 11.
std::size_t elementSize(jint elementType);

// One collection. Events are delivered only if they are enabled.
struct GcPlan {
    std::vector<ScriptedObject*> frees = {};
    std::vector<ScriptedObject*> moves = {}; // each gets a new id
    jint moveTo = 0;                         // arena of the moved objects; 0: their own
    std::vector<jint> arenasDeleted = {};
    jlong cpu = 0; // nanoseconds that the collection adds to the collecting thread's clock
    // The figures of GC_FINISH; -1: taken from the scripted heap.
    jlong usedObjects = -1;
    jlong usedSpace = -1;
    jlong totalSpace = -1;
    // Runs on the collecting thread after the frees and moves, before GC_FINISH.
    std::function<void()> during = nullptr;
};

} // namespace scripted

#endif
