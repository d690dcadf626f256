// The spaces of the Java heap as arenas: ARENA_NEW for each, with the name that the JVM's own
// memory pools have, and the arena in which an object is allocated. Spaces exist as long as the
// VM does, so no arena is ever deleted.
//
// Serial and Parallel: eden, survivors, old. G1: the same, an object of more than half a region
// being old from the start. Shenandoah, ZGC: one. Unknown collectors: one, "Java heap".
#ifndef PRB_BRIDGE_ARENAS_H
#define PRB_BRIDGE_ARENAS_H

#include <string>
#include <vector>

#include <jni.h>

namespace bridge {

class Arenas {
public:
    // Row of the event table: tells the arenas, on the enabling thread. Before the live phase
    // nothing is known; beginLive() then calls announce().
    static jint enable();
    static void announce(JNIEnv* jni);

    // The arena of an object that was just allocated. `object` may be null: its place is then
    // not looked at. Ids count from 1.
    static jint ofNew(jobject object, jlong size);

    // The names for a collector (HeapFigures::collector()); the ids are places plus one.
    static std::vector<const char*> namesFor(const std::string& collector);
};

} // namespace bridge

#endif
