// The VM's classes: keeps the class table in step with the VM and delivers CLASS_LOAD and
// CLASS_UNLOAD.
//
// Every class is read as it is prepared, and those that exist at VMInit then. Reading creates
// the class's jmethodIDs, without which call traces would name no method. Classes that the VM
// never prepares (arrays, primitives) get their record when somebody asks for their id.
#ifndef PRB_BRIDGE_CLASSEVENTS_H
#define PRB_BRIDGE_CLASSEVENTS_H

#include <cstddef>
#include <cstdint>

#include <jvmti.h>

#include "bridge/ClassTable.h"
#include "jvmpi/jvmpi.h"

namespace bridge {

class ClassEvents {
public:
    // Takes in the classes that exist already; those that are not prepared come later.
    static void addExisting(JNIEnv* jni);

    // Gives an id to every class that has none yet: those that are never prepared. Answers how
    // many there were.
    static size_t giveIds(JNIEnv* jni);

    // What the VM has prepared and freed.
    static void prepared(JNIEnv* jni, jclass mirror);
    static void unloaded(uint32_t id);

    // A class object that got its id without being prepared.
    static void firstSight(JNIEnv* jni, jclass mirror, uint32_t id);

    // Row of the event table.
    static jint request(void* classId);

    static jobjectID classOf(jmethodID method);
};

// The process's classes.
ClassTable& classes();

} // namespace bridge

#endif
