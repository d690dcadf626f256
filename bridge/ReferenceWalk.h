// The walks over references that a dump of level 1 is made of.
//
// What a profiler can ask about are objects whose id it has been given. So the dump names the
// objects that have an id for life (all classes are among them) and those that refer to one of
// these; every other object could not be told from any other by its reader.
//
// One walk over the whole heap marks the referrers that have no id, a second one, over the chosen
// objects alone, reports their references. The marks are tags that are no ids; they are gone when
// run() returns, so however many objects there are, no tag stays behind.
#ifndef PRB_BRIDGE_REFERENCEWALK_H
#define PRB_BRIDGE_REFERENCEWALK_H

#include <cstdint>
#include <vector>

#include <jvmti.h>

#include "bridge/FlatMap.h"

namespace bridge {

class ReferenceWalk {
public:
    // An object that the dump names.
    struct Object {
        uint32_t id = 0; // 0: it is in the list a second time, or has gone
        uint32_t classId = 0;
        jint length = -1; // of an array
    };
    // A reference to an object that the dump names or that has an id.
    struct Reference {
        uint32_t from; // index of the object
        jvmtiHeapReferenceKind kind;
        jint index; // of the field, element or constant; 0 where there is none
        uint32_t to;
    };

    ReferenceWalk(jvmtiEnv* jvmti, JNIEnv* jni) : jvmti_(jvmti), jni_(jni) {}
    ~ReferenceWalk();
    ReferenceWalk(const ReferenceWalk&) = delete;
    ReferenceWalk& operator=(const ReferenceWalk&) = delete;

    // False if the VM refuses or memory is short. One walk at a time in the process.
    // REQUIRES: a Java thread without a pending exception; every class has its id.
    bool run();

    const std::vector<Object>& objects() const { return objects_; }
    // Grouped by the object that they are in, in the order in which the VM tells them.
    const std::vector<Reference>& references() const { return references_; }

    // The objects that had no id: ids in a row from firstFound() on. The caller takes the
    // references over.
    uint32_t firstFound() const { return firstFound_; }
    std::vector<jweak> takeFound();

private:
    struct Callbacks; // what the VM calls while it walks
    friend struct Callbacks;

    bool markReferrers();
    bool gather();
    bool follow();
    void unmark();
    void choose(jint index, uint32_t classId, jint length, jlong* tag) noexcept;
    void add(jvmtiHeapReferenceKind kind, jint index, jlong from, jlong to) noexcept;
    uint32_t idOf(jlong tag) const;
    uint32_t indexOf(jlong tag) const;

    jvmtiEnv* jvmti_;
    JNIEnv* jni_;
    jobjectArray chosen_ = nullptr; // a local reference
    jint withId_ = 0;               // chosen ones from here on had no id
    uint32_t firstFound_ = 0;
    bool complete_ = true; // no memory was missing
    std::vector<jweak> found_;
    std::vector<Object> objects_;
    std::vector<Reference> references_;
    FlatMap<uint32_t, uint32_t> byId_; // index of the object
};

} // namespace bridge

#endif
