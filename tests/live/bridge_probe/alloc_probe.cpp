// Stands in for the profiling agent, for the objects that the program allocates and that
// collections free.
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "tests/live/bridge_probe/Probe.h"

namespace probe {
namespace {

struct Object {
    jobjectID type;
    jint size;
};
struct Count {
    jlong allocated = 0;
    jlong freed = 0;
    jint isArray = -1;
    std::map<jint, jlong> arenas; // by id
};

// Held for a few instructions and never over a call of the VM, so that collections may wait.
std::mutex mutex;
auto& classNames = *new std::map<jobjectID, std::string>;
auto& objects = *new std::map<jobjectID, Object>;                // known since the last collection
auto& counts = *new std::map<std::pair<jobjectID, jint>, Count>; // by class and size
auto& arenas = *new std::map<jint, std::string>;
bool collecting = false; // between start and finish
jlong starts = 0;
jlong strangers = 0; // frees of objects that are not known

// Entered in GC_START and left in GC_FINISH, as agents do, and by every event of an object.
JVMPI_RawMonitor registry = nullptr;
class RegistryLock {
public:
    RegistryLock() { jvmpi->RawMonitorEnter(registry); }
    ~RegistryLock() { jvmpi->RawMonitorExit(registry); }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;
};

thread_local bool inHandler = false;
thread_local bool allocateInHandler = false;
thread_local bool ownsRegistry = false;

void onAllocation(const JVMPI_Event& event) {
    const auto& alloc = event.u.obj_alloc;
    check(!inHandler, "an allocation is told inside the handler");
    check(!ownsRegistry, "an allocation is told to a thread that owns a monitor");
    inHandler = true;
    check(event.env_id == self(), "an allocation on another thread");
    check(alloc.size > 0, "an object of %d bytes", alloc.size);
    const auto id = reinterpret_cast<uintptr_t>(alloc.obj_id);
    check(id >= 0x50000000 && id <= 0x7ffffffe, "object id %zx", static_cast<size_t>(id));
    if (allocateInHandler) event.env_id->DeleteLocalRef(event.env_id->NewStringUTF("nested"));
    bool known = false;
    {
        const std::lock_guard<std::mutex> guard(mutex);
        known = classNames.count(alloc.class_id) != 0;
    }
    if (!known)
        check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, alloc.class_id) == JVMPI_SUCCESS,
              "the class of an object is not known");
    {
        const RegistryLock lock;
        const std::lock_guard<std::mutex> guard(mutex);
        check(arenas.count(alloc.arena_id) == 1, "arena %d was never told", alloc.arena_id);
        check(classNames[alloc.class_id] != "java/lang/Class", "a class object is told");
        Count& count = counts[{alloc.class_id, alloc.size}];
        count.allocated++;
        count.arenas[alloc.arena_id]++;
        count.isArray = alloc.is_array;
        check(objects.emplace(alloc.obj_id, Object{alloc.class_id, alloc.size}).second,
              "object id %zx is given twice", static_cast<size_t>(id));
    }
    inHandler = false;
}

void onFree(const JVMPI_Event& event) {
    const std::lock_guard<std::mutex> guard(mutex);
    check(collecting, "a free outside of a collection");
    check(self() == nullptr, "a free on a thread with JNI");
    const auto known = objects.find(event.u.obj_free.obj_id);
    if (known == objects.end()) {
        strangers++; // its event waited for the last collection to end
        return;
    }
    counts[{known->second.type, known->second.size}].freed++;
    objects.erase(known);
}

void onCollection(bool start) {
    if (start) jvmpi->RawMonitorEnter(registry);
    {
        const std::lock_guard<std::mutex> guard(mutex);
        check(collecting != start, "starts and finishes do not alternate");
        collecting = start;
        starts += start ? 1 : 0;
        if (!start) objects.clear();
    }
    if (!start) jvmpi->RawMonitorExit(registry);
}

void notify(JVMPI_Event* event) {
    switch (event->event_type & ~JVMPI_REQUESTED_EVENT) {
    case JVMPI_EVENT_CLASS_LOAD: {
        const std::lock_guard<std::mutex> guard(mutex);
        classNames[event->u.class_load.class_id] = event->u.class_load.class_name;
        return;
    }
    case JVMPI_EVENT_GC_START:
        return onCollection(true);
    case JVMPI_EVENT_GC_FINISH:
        return onCollection(false);
    case JVMPI_EVENT_OBJECT_ALLOC:
        return onAllocation(*event);
    case JVMPI_EVENT_OBJECT_FREE:
        return onFree(*event);
    case JVMPI_EVENT_ARENA_NEW: {
        const std::lock_guard<std::mutex> guard(mutex);
        arenas[event->u.new_arena.arena_id] = event->u.new_arena.arena_name;
        return;
    }
    default:
        check(false, "event %x was never asked for", static_cast<unsigned>(event->event_type));
    }
}

// ---- Called from Java -------------------------------------------------------------------------

constexpr jint kEvents[] = {JVMPI_EVENT_ARENA_DELETE, JVMPI_EVENT_ARENA_NEW,
                            JVMPI_EVENT_OBJECT_ALLOC};

void switchEvents(bool on) {
    for (const jint type : kEvents)
        check((on ? jvmpi->EnableEvent : jvmpi->DisableEvent)(type, nullptr) == JVMPI_SUCCESS,
              "event %d is refused", type);
}

// Of all objects of a class and a size; a size of 0 stands for any.
Count sum(const std::string& className, jlong size) {
    const std::lock_guard<std::mutex> guard(mutex);
    Count result;
    for (const auto& [key, count] : counts) {
        if ((size != 0 && key.second != size) || classNames[key.first] != className) continue;
        result.allocated += count.allocated;
        result.freed += count.freed;
        result.isArray = count.isArray;
        for (const auto& [arena, n] : count.arenas) result.arenas[arena] += n;
    }
    return result;
}

// {class, size or 0}
struct Asked {
    std::string className;
    jlong size;
};
Asked askedBy(JNIEnv* jni, jobject argument) {
    const auto row = static_cast<jobjectArray>(argument);
    return {textOf(jni, jni->GetObjectArrayElement(row, 0)),
            longOf(jni, jni->GetObjectArrayElement(row, 1))};
}

void checkArenas(JNIEnv* jni, jobject argument) {
    std::string told;
    const std::lock_guard<std::mutex> guard(mutex);
    for (const auto& [id, name] : arenas)
        told += (told.empty() ? "" : ", ") + std::to_string(id) + " " + name;
    const std::string wanted = textOf(jni, argument);
    check(told == wanted, "the arenas are %s and not %s", told.c_str(), wanted.c_str());
}

// An object of the monitor's own thread, allocated while it owns a monitor of ours.
void allocateUnderMonitor(JNIEnv* jni, jobject) {
    const RegistryLock lock;
    ownsRegistry = true;
    jni->NewStringUTF("made under a monitor");
    ownsRegistry = false;
}

void driverStop(JNIEnv*, jobject) {
    switchEvents(false);
    note("driver stopped");
    noteEnd();
}

const NamedCheck kChecks[] = {
    {"driverStart", [](JNIEnv*, jobject) {}},
    {"facts", [](JNIEnv*, jobject) {}},
    {"counters", [](JNIEnv*, jobject) {}},
    {"driverStop", driverStop},
    {"on", [](JNIEnv*, jobject) { switchEvents(true); }},
    {"off", [](JNIEnv*, jobject) { switchEvents(false); }},
    {"frees refused",
     [](JNIEnv*, jobject) {
         check(jvmpi->EnableEvent(JVMPI_EVENT_OBJECT_FREE, nullptr) == JVMPI_NOT_AVAILABLE,
               "frees are promised");
     }},
    {"frees on",
     [](JNIEnv*, jobject) {
         check(jvmpi->EnableEvent(JVMPI_EVENT_OBJECT_FREE, nullptr) == JVMPI_SUCCESS,
               "frees are refused");
     }},
    {"frees off",
     [](JNIEnv*, jobject) {
         check(jvmpi->DisableEvent(JVMPI_EVENT_OBJECT_FREE, nullptr) == JVMPI_SUCCESS,
               "frees cannot be switched off");
     }},
    {"arenas", checkArenas},
    {"allocate in handler", [](JNIEnv*, jobject) { allocateInHandler = true; }},
    {"allocate under monitor", allocateUnderMonitor},
    {"fail", [](JNIEnv* jni, jobject text) { check(false, "%s", textOf(jni, text).c_str()); }},
};

struct NamedNumber {
    const char* name;
    jlong (*read)(const Asked& asked);
};
const NamedNumber kNumbers[] = {
    {"allocated", [](const Asked& a) { return sum(a.className, a.size).allocated; }},
    {"freed", [](const Asked& a) { return sum(a.className, a.size).freed; }},
    {"type", [](const Asked& a) { return jlong{sum(a.className, a.size).isArray}; }},
    {"old",
     [](const Asked& a) {
         Count count = sum(a.className, a.size);
         return count.arenas[3];
     }},
};

} // namespace

void loaded(const char*) {
    jvmpi->NotifyEvent = notify;
    char name[] = "registry";
    registry = jvmpi->RawMonitorCreate(name);
    for (const jint type : {JVMPI_EVENT_CLASS_LOAD, JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH})
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_SUCCESS, "event %d is refused", type);
}

void runCheck(JNIEnv* jni, const std::string& name, jobject argument) {
    runNamed(kChecks, jni, name, argument);
}

jlong answer(JNIEnv* jni, const std::string& name, jobject argument) {
    if (name == "starts") {
        const std::lock_guard<std::mutex> guard(mutex);
        return starts;
    }
    if (name == "runGC") {
        jvmpi->RunGC();
        return 0;
    }
    for (const NamedNumber& row : kNumbers)
        if (name == row.name) return row.read(askedBy(jni, argument));
    check(false, "no number %s", name.c_str());
    return -1;
}

} // namespace probe
