#include "bridge/ObjectEvents.h"

#include <algorithm>
#include <limits>

#include "bridge/ClassEvents.h"
#include "bridge/Context.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectIds.h"

namespace bridge {
namespace {

struct ElementRow {
    char signature; // JVMS 4.3.2
    jint type;
};
constexpr ElementRow kElements[] = {
    {'Z', JVMPI_BOOLEAN}, {'C', JVMPI_CHAR},  {'F', JVMPI_FLOAT}, {'D', JVMPI_DOUBLE},
    {'B', JVMPI_BYTE},    {'S', JVMPI_SHORT}, {'I', JVMPI_INT},   {'J', JVMPI_LONG},
    {'L', JVMPI_CLASS},   {'[', JVMPI_CLASS},
};

// No space of the heap is named: the VM moves objects between spaces without telling.
constexpr jint kNoArena = 0;

} // namespace

jint ObjectEvents::typeOf(const char* className) {
    if (className[0] != '[') return JVMPI_NORMAL_OBJECT;
    for (const ElementRow& row : kElements)
        if (row.signature == className[1]) return row.type;
    return JVMPI_NORMAL_OBJECT;
}

jint ObjectEvents::answerRequest(JNIEnv* jni, jobject object, uint32_t id) {
    LocalRef<jclass> type(jni, jni->GetObjectClass(object));
    if (!type) return JVMPI_FAIL;
    const uint32_t classId = objectIds().of(jni, type.get());
    const ClassRecord::Pointer record = classes().find(classId);
    jlong bytes = 0;
    if (!record || context().jvmti->GetObjectSize(object, &bytes) != JVMTI_ERROR_NONE)
        return JVMPI_FAIL;
    deliverRequested(jni, id, classId, typeOf(record->name()),
                     static_cast<jint>(std::min<jlong>(bytes, std::numeric_limits<jint>::max())));
    return JVMPI_SUCCESS;
}

void ObjectEvents::deliverRequested(JNIEnv* env, uint32_t id, uint32_t classId, jint type,
                                    jint size) {
    JVMPI_Event event; // a dump of millions of objects asks for each: only what is told is set
    event.event_type = JVMPI_EVENT_OBJECT_ALLOC | JVMPI_REQUESTED_EVENT;
    event.env_id = env;
    event.u.obj_alloc.arena_id = kNoArena;
    event.u.obj_alloc.class_id = idOf(classId);
    event.u.obj_alloc.is_array = type;
    event.u.obj_alloc.size = size;
    event.u.obj_alloc.obj_id = idOf(id);
    events().deliver(event);
}

} // namespace bridge
