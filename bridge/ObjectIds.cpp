#include "bridge/ObjectIds.h"

#include "bridge/Jvmti.h"

namespace bridge {

bool ObjectIds::init(jvmtiEnv* jvmti, NewClassFn newClass) {
    jvmti_ = jvmti;
    newClass_ = newClass;
    return jvmti->CreateRawMonitor("prbprof object ids", &turn_) == JVMTI_ERROR_NONE;
}

bool ObjectIds::start(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> found(jni, jni->FindClass("java/lang/Class"));
    if (found) classClass_ = static_cast<jclass>(jni->NewGlobalRef(found.get()));
    return classClass_ != nullptr;
}

uint32_t ObjectIds::of(JNIEnv* jni, jobject object) {
    if (!object || !classClass_) return 0;
    jlong tag = 0;
    if (jvmti_->GetTag(object, &tag) != JVMTI_ERROR_NONE) return 0;
    if (const uint32_t known = idOfTag(tag)) return known;
    const bool isClass = jni->IsInstanceOf(object, classClass_) == JNI_TRUE;
    bool isNew = false;
    const uint32_t id = give(jni, object, isClass, isNew);
    if (isNew && isClass && newClass_) newClass_(jni, static_cast<jclass>(object), id);
    return id;
}

uint32_t ObjectIds::ofClass(JNIEnv* jni, jclass mirror, bool& isNew) {
    return give(jni, mirror, true, isNew);
}

uint32_t ObjectIds::give(JNIEnv* jni, jobject object, bool isClass, bool& isNew) {
    isNew = false;
    // NewWeakGlobalRef may throw; under the monitor there must be nothing to unwind.
    ExceptionShelter shelter(jni);
    const jweak reference = jni->NewWeakGlobalRef(object);
    if (!reference) return 0;
    if (jvmti_->RawMonitorEnter(turn_) != JVMTI_ERROR_NONE) {
        jni->DeleteWeakGlobalRef(reference);
        return 0;
    }
    jlong tag = 0;
    uint32_t id = 0;
    if (jvmti_->GetTag(object, &tag) == JVMTI_ERROR_NONE) {
        id = idOfTag(tag);
        if (id == 0) {
            id = isClass ? table_.addClass(reference) : table_.addObject(reference);
            if (id != 0) {
                isNew = jvmti_->SetTag(object, jlong{id}) == JVMTI_ERROR_NONE;
                if (!isNew) {
                    table_.remove(id); // deletes the reference in time
                    jvmti_->RawMonitorExit(turn_);
                    return 0;
                }
            }
        }
    }
    jvmti_->RawMonitorExit(turn_);
    if (!isNew) jni->DeleteWeakGlobalRef(reference);
    return id;
}

jobject ObjectIds::object(JNIEnv* jni, uint32_t id) {
    if (id == 0) return nullptr;
    IdTable::Use use(table_, id);
    if (!use.reference()) return nullptr;
    ExceptionShelter shelter(jni);
    return jni->NewLocalRef(use.reference());
}

void ObjectIds::sweep(JNIEnv* jni) {
    for (jweak reference : table_.takeDead()) jni->DeleteWeakGlobalRef(reference);
}

ObjectIds& objectIds() {
    static ObjectIds& ids = *new ObjectIds;
    return ids;
}

} // namespace bridge
