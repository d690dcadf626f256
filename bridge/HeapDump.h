// HEAP_DUMP, which is only had on request: delivered on the requesting thread, outside any
// safepoint, from memory of its own that is valid during the callback.
//
// Level 0 names every object: its type in a byte, its id in four. An object without an id gets
// one that holds until the profiler empties its registry; it is not tagged. What the profiler
// then asks about the objects of a dump is answered from the walk (DumpedObjects).
//
// Level 1 names the classes, the objects that have an id for life, and those that refer to one of
// these (ReferenceWalk), with their references (ReferenceRecords). What had no id is found under
// the dump's for a while (FoundObjects).
#ifndef PRB_BRIDGE_HEAPDUMP_H
#define PRB_BRIDGE_HEAPDUMP_H

#include "jvmpi/jvmpi.h"

namespace bridge {

class HeapDump {
public:
    // Row of the event table. The argument is a JVMPI_HeapDumpArg.
    static jint request(void* argument);

    // Delivers OBJECT_ALLOC if a dump names the object. False if none does. The first asks
    // without any lock the dump that is being delivered on this thread.
    static bool answerDelivered(void* objectId);
    static bool answerKept(void* objectId);

    // Gives back what is not needed any more; called now and then by threads that may use JNI.
    static void sweep(JNIEnv* jni);
};

} // namespace bridge

#endif
