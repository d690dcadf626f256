#include "bridge/ClassEvents.h"

#include "bridge/ClassReader.h"
#include "bridge/Context.h"
#include "bridge/ExactMethods.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectIds.h"

namespace bridge {
namespace {

void deliverLoad(const ClassRecord& record, JNIEnv* env, jint requested) {
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_CLASS_LOAD | requested;
    event.env_id = env;
    record.report(event);
    events().deliver(event);
}

// Answers the record made now, or null if the class was known with all its methods already.
ClassRecord::Pointer add(JNIEnv* jni, jclass mirror) {
    bool isNew = false;
    const uint32_t id = objectIds().ofClass(jni, mirror, isNew);
    if (id == 0 || !IdTable::isClass(id)) return nullptr;
    if (!isNew) {
        const ClassRecord::Pointer known = classes().find(id);
        if (known && known->methodCount() != 0) return nullptr;
    }
    ClassReader reader(context().jvmti, jni);
    if (!reader.read(mirror)) return nullptr;
    if (ExactMethods::chosen()) ExactMethods::add(reader.description());
    ClassRecord::Pointer record = ClassRecord::make(id, reader.description());
    classes().put(record);
    return record;
}

template <class Work> void forEachLoaded(JNIEnv* jni, Work work) {
    jint count = 0;
    JvmtiMemory<jclass> loaded(context().jvmti);
    if (context().jvmti->GetLoadedClasses(&count, loaded.out()) != JVMTI_ERROR_NONE) return;
    roomForLocals(jni, count);
    for (jint i = 0; i < count; i++) {
        LocalRef<jclass> mirror(jni, loaded[i]);
        work(mirror.get());
    }
}

} // namespace

ClassTable& classes() {
    static ClassTable& table = *new ClassTable;
    return table;
}

void ClassEvents::addExisting(JNIEnv* jni) {
    forEachLoaded(jni, [jni](jclass mirror) {
        jint status = 0;
        if (context().jvmti->GetClassStatus(mirror, &status) == JVMTI_ERROR_NONE &&
            (status & JVMTI_CLASS_STATUS_PREPARED))
            add(jni, mirror);
    });
}

size_t ClassEvents::giveIds(JNIEnv* jni) {
    size_t given = 0;
    forEachLoaded(jni, [jni, &given](jclass mirror) {
        jlong tag = 0;
        if (context().jvmti->GetTag(mirror, &tag) == JVMTI_ERROR_NONE && tag == 0 &&
            objectIds().of(jni, mirror) != 0)
            given++;
    });
    return given;
}

void ClassEvents::prepared(JNIEnv* jni, jclass mirror) {
    const ClassRecord::Pointer record = add(jni, mirror);
    if (record && events().isEnabled(JVMPI_EVENT_CLASS_LOAD)) deliverLoad(*record, jni, 0);
}

void ClassEvents::unloaded(uint32_t id) {
    const ClassRecord::Pointer record = classes().remove(id);
    if (!record || !events().isEnabled(JVMPI_EVENT_CLASS_UNLOAD)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_CLASS_UNLOAD;
    event.env_id = currentEnv();
    event.u.class_unload.class_id = idOf(id);
    events().deliver(event);
}

void ClassEvents::firstSight(JNIEnv* jni, jclass mirror, uint32_t id) {
    ClassReader reader(context().jvmti, jni);
    // Meanwhile the class may have been prepared and be known with its methods.
    if (reader.read(mirror)) classes().putNew(ClassRecord::make(id, reader.description()));
}

jint ClassEvents::request(void* classId) {
    if (!isLive()) return JVMPI_FAIL;
    const ClassRecord::Pointer record = classes().find(numberOf(static_cast<jobjectID>(classId)));
    if (!record) return JVMPI_FAIL;
    deliverLoad(*record, currentEnv(), JVMPI_REQUESTED_EVENT);
    return JVMPI_SUCCESS;
}

jobjectID ClassEvents::classOf(jmethodID method) { return idOf(classes().classOf(method)); }

} // namespace bridge
