#include "core/PRBLookup.h"

#include "core/PRBRegistryLocks.h"
#include "core/PRBThreadRegistry.h"
#include "core/PRBTrace.h"
#include "core/PRBVm.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"

#include <atomic>

namespace {

using Locks = PRBRegistryLocks;
constexpr int kTrace = PRBTraceClass::kFrequent;
constexpr const char* kName = PRBComponent::kMonitorGlobal;

template <typename Record, typename Id> Record* peek(PRBMonitorHashTable* table, Id id) {
    if (table == nullptr) return nullptr;
    Record probe(id);
    return static_cast<Record*>(table->find(&probe));
}

// Whoever is given a class may keep it. REQUIRES: the registry held.
PRBJavaClass* lent(PRBJavaClass* cls) {
    if (cls != nullptr) cls->lend();
    return cls;
}

PRBJavaClass* peekClass(jobjectID id) {
    return lent(peek<PRBJavaClass>(PRBContext::getClassTable(), id));
}

PRBJavaObjectAllocated* peekObject(jobjectID id) {
    return peek<PRBJavaObjectAllocated>(PRBContext::getObjectTable(), id);
}

// The class of a known object, found and read in one go, as the record may be gone afterwards.
bool peekClassOfObject(jobjectID id, PRBJavaClass** cls) {
    Locks locks(Locks::kClass | Locks::kArena | Locks::kObject);
    PRBJavaObjectAllocated* object = peekObject(id);
    if (object == nullptr) return false;
    *cls = lent(object->getClass());
    return true;
}

PRBJavaClass* peekClassOfMethod(jmethodID id) {
    Locks locks(Locks::kClass | Locks::kMethod);
    PRBJavaMethod* method = peek<PRBJavaMethod>(PRBContext::getMethodTable(), id);
    return method == nullptr ? nullptr : lent(const_cast<PRBJavaClass*>(method->peekClass()));
}

bool requested(const char* operation, const char* event, jint type, void* argument) {
    jint result = PRBVm::requestEvent(type, argument);
    if (result != JVMPI_SUCCESS) PRBLookup::logRequestFailure(operation, event, result);
    return result == JVMPI_SUCCESS;
}

// Null when the VM refuses. A late event of an ended thread must not bring it back.
PRBJavaThread* requestThread(JNIEnv* env) {
    if (PRBThreadRegistry::hasOnlyEnded(env)) return nullptr;
    jobjectID threadObject;
    {
        PRBVm::GcDisabled gcDisabled;
        threadObject = PRBVm::getThreadObject(env);
    }
    if (threadObject == nullptr || !requested("getThreadClass", "JVMPI_EVENT_THREAD_START",
                                              JVMPI_EVENT_THREAD_START, threadObject))
        return nullptr;
    return PRBLookup::peekThreadClass(env);
}

// What a thread looked up last: itself, nearly always. Null is an answer too.
struct LastThread {
    JNIEnv* env;
    PRBJavaThread* thread;
    std::uint32_t epoch;
};
constinit thread_local LastThread lastThread{nullptr, nullptr, 0};
constinit std::atomic<std::uint32_t> threadEpoch{1};

} // namespace

void PRBLookup::logRequestFailure(const char* operation, const char* event, jint result) {
    if (!PRBTrace::isTraceEnabled(PRBTraceClass::kInternal, kName)) return;
    const char* text = result == JVMPI_FAIL            ? "JVMPI_FAIL"
                       : result == JVMPI_NOT_AVAILABLE ? "JVMPI_NOT_AVAILABLE"
                                                       : nullptr;
    if (text != nullptr) PRBTrace::log("%s RequestEvent %s returned %s", operation, event, text);
}

PRBJavaClass* PRBLookup::getClassForClassID(jobjectID classId) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getClassForClassID");
    if (classId == nullptr) return nullptr;
    {
        Locks locks(Locks::kClass);
        if (PRBJavaClass* known = peekClass(classId)) return known;
    }
    if (!requested("getClassForClassID", "JVMPI_EVENT_CLASS_LOAD", JVMPI_EVENT_CLASS_LOAD, classId))
        return nullptr;
    Locks locks(Locks::kClass);
    return peekClass(classId);
}

PRBJavaObjectAllocated* PRBLookup::getObject(jobjectID objectId) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getObject");
    if (objectId == nullptr) return nullptr;
    constexpr unsigned kLocks = Locks::kClass | Locks::kArena | Locks::kObject;
    {
        Locks locks(kLocks);
        if (PRBJavaObjectAllocated* known = peekObject(objectId)) return known;
    }
    PRBVm::GcDisabled gcDisabled;
    if (!requested("getObject", "JVMPI_EVENT_OBJECT_ALLOC", JVMPI_EVENT_OBJECT_ALLOC, objectId))
        return nullptr;
    Locks locks(kLocks);
    return peekObject(objectId);
}

PRBJavaClass* PRBLookup::getClassForObject(jobjectID objectId) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getClassForObject");
    PRBJavaClass* cls = nullptr;
    if (objectId == nullptr || peekClassOfObject(objectId, &cls)) return cls;
    if (getObject(objectId) != nullptr) peekClassOfObject(objectId, &cls);
    return cls;
}

jobjectID PRBLookup::getClassIDForObject(jobjectID objectId) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getClassIDForObject");
    PRBJavaClass* cls = getClassForObject(objectId);
    return cls == nullptr ? nullptr : cls->getClassId();
}

PRBJavaClass* PRBLookup::getClassForMethod(jmethodID method) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getClassForMethod");
    if (method == nullptr) return nullptr;
    if (PRBJavaClass* known = peekClassOfMethod(method)) return known;
    jobjectID classId = PRBVm::getMethodClass(method);
    if (classId == nullptr || getClassForClassID(classId) == nullptr) return nullptr;
    if (PRBJavaClass* known = peekClassOfMethod(method)) return known;
    // The class was known without this method: its replay brings the method.
    if (!requested("getClassForMethod", "JVMPI_EVENT_CLASS_LOAD", JVMPI_EVENT_CLASS_LOAD, classId))
        return nullptr;
    return peekClassOfMethod(method);
}

jobjectID PRBLookup::getClassIDForMethod(jmethodID method) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getClassIDForMethod");
    PRBJavaClass* cls = getClassForMethod(method);
    return cls == nullptr ? nullptr : cls->getClassId();
}

PRBJavaThread* PRBLookup::peekThreadClass(JNIEnv* env) {
    return env == nullptr ? nullptr
                          : static_cast<PRBJavaThread*>(PRBVm::getThreadLocalStorage(env));
}

void PRBLookup::threadsChanged() { threadEpoch.fetch_add(1, std::memory_order_acq_rel); }

PRBJavaThread* PRBLookup::getThreadClass(JNIEnv* env) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::getThreadClass");
    if (env == nullptr) return nullptr;
    const std::uint32_t epoch = threadEpoch.load(std::memory_order_acquire);
    LastThread& last = lastThread;
    if (last.env == env && last.epoch == epoch) return last.thread;
    PRBJavaThread* thread = peekThreadClass(env);
    if (thread == nullptr) thread = requestThread(env);
    // Read before the look-up: a change meanwhile makes the note worthless at once.
    last = LastThread{env, thread, epoch};
    return thread;
}
