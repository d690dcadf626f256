// From objects to ids and back, through tags (object to id) and weak references (id to object).
// An object gets its id on first sight and keeps it for life; class objects have ids of a range
// of their own. A tag of an object is its id.
//
// Called on Java threads in the live phase; the threads that give ids take turns on a monitor of
// the VM, because a look at a tag and the setting of it must be one step and both enter the VM.
#ifndef PRB_BRIDGE_OBJECTIDS_H
#define PRB_BRIDGE_OBJECTIDS_H

#include <cstdint>

#include <jvmti.h>

#include "bridge/IdTable.h"
#include "jvmpi/jvmpi.h"

namespace bridge {

inline uint32_t numberOf(jobjectID id) {
    const auto bits = reinterpret_cast<uintptr_t>(id);
    return bits < IdTable::kEnd ? static_cast<uint32_t>(bits) : 0;
}
inline jobjectID idOf(uint32_t number) {
    return reinterpret_cast<jobjectID>(static_cast<uintptr_t>(number));
}

// A tag that is no id is a mark that is on an object for the time of a walk over the heap.
inline uint32_t idOfTag(jlong tag) {
    return tag > 0 && tag < jlong{IdTable::kEnd} ? static_cast<uint32_t>(tag) : 0;
}

class ObjectIds {
public:
    // What happens to a class object that nobody has seen before: its class gets a record.
    using NewClassFn = void (*)(JNIEnv* jni, jclass mirror, uint32_t id);

    // REQUIRES: the environment has the capability to tag objects.
    bool init(jvmtiEnv* jvmti, NewClassFn newClass);
    // Needs JNI. Answers false if java.lang.Class cannot be had.
    bool start(JNIEnv* jni);

    // The id of an object, given now if it has none; 0 for null and when the VM refuses.
    uint32_t of(JNIEnv* jni, jobject object);
    // The same for what is known to be a class object, without the callback. `isNew` tells
    // whether the id was given now.
    uint32_t ofClass(JNIEnv* jni, jclass mirror, bool& isNew);
    // A new local reference to the object, or null for unknown ids and dead objects.
    jobject object(JNIEnv* jni, uint32_t id);

    // Calls work(object) for each live object with an id for life, class objects included. The
    // local reference is deleted afterwards.
    template <class Work> void forEachLive(JNIEnv* jni, Work work) {
        const IdTable::Use use(table_, 0);
        for (jweak reference : table_.references()) {
            jobject object = jni->NewLocalRef(reference);
            if (!object) continue;
            work(object);
            jni->DeleteLocalRef(object);
        }
    }

    // Calls dead(id) for each id whose object the VM has freed, and forgets the id.
    template <class Dead> void reap(JNIEnv* jni, Dead dead) {
        constexpr size_t kStretch = 512; // of the table, between two holds of its lock
        IdTable::Entry entries[kStretch];
        size_t place = 0;
        do {
            const IdTable::Use use(table_, 0);
            const size_t count = table_.copy(place, entries, kStretch);
            for (size_t i = 0; i < count; i++) {
                if (!jni->IsSameObject(entries[i].reference, nullptr)) continue;
                dead(entries[i].id);
                table_.remove(entries[i].id);
            }
        } while (place != 0);
    }
    // Deletes references of freed objects; called now and then by threads that may use JNI.
    void sweep(JNIEnv* jni);

    size_t size() const { return table_.size(); }

private:
    uint32_t give(JNIEnv* jni, jobject object, bool isClass, bool& isNew);

    jvmtiEnv* jvmti_ = nullptr;
    jrawMonitorID turn_ = nullptr;
    NewClassFn newClass_ = nullptr;
    jclass classClass_ = nullptr; // java.lang.Class, a global reference
    IdTable table_;
};

ObjectIds& objectIds();

} // namespace bridge

#endif
