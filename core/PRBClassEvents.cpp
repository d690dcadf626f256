#include "core/PRBEventHandlers.h"
#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBThreadSnapshot.h"
#include "runtime/PRBUnloadedRecords.h"

#include <vector>

namespace {

using Locks = PRBRegistryLocks;
constexpr int kTrace = PRBTraceClass::kMain;
constexpr const char* kName = PRBComponent::kMonitorGlobal;

// A record that is there is kept, as pointers to it are cached in many places; it only learns
// what it does not know yet.
PRBJavaClass* learnClass(PRBMonitorHashTable& classes, JVMPI_Event* event) {
    PRBJavaClass probe(event->u.class_load.class_id);
    if (auto* known = static_cast<PRBJavaClass*>(classes.find(&probe))) {
        known->learnNames(event->u.class_load.class_name, event->u.class_load.source_name);
        known->learnShape(event);
        return known;
    }
    auto* cls = new PRBJavaClass(event);
    if (cls == nullptr || classes.insert(cls) == cls) return cls;
    delete cls;
    return nullptr;
}

void learnMethod(PRBMonitorHashTable& methods, PRBJavaClass* cls, const JVMPI_Method& told) {
    if (told.method_id == nullptr) return;
    PRBJavaMethod probe(told.method_id);
    auto* method = static_cast<PRBJavaMethod*>(methods.find(&probe));
    if (method == nullptr) {
        method = new PRBJavaMethod(told.method_id);
        if (method == nullptr) return;
        if (methods.insert(method) != method) {
            delete method;
            return;
        }
    }
    if (*method->peekMethodName() == '\0') method->setMethodName(told.method_name);
    if (*method->peekMethodSignature() == '\0') method->setMethodSignature(told.method_signature);
    if (method->peekClass() == nullptr) {
        method->setClass(cls);
        cls->addMethod(method);
    }
}

} // namespace

void PRBEventHandlers::HandleClassLoad(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleClassLoad");
    PRBMonitorHashTable* classes = PRBContext::getClassTable();
    PRBMonitorHashTable* methods = PRBContext::getMethodTable();
    const auto& load = event->u.class_load;
    if (classes == nullptr || methods == nullptr || load.class_id == nullptr) return;
    {
        Locks locks(Locks::kClass | Locks::kMethod);
        PRBJavaClass* cls = learnClass(*classes, event);
        const jint count = cls == nullptr || load.methods == nullptr ? 0 : load.num_methods;
        for (jint i = 0; i < count; ++i) learnMethod(*methods, cls, load.methods[i]);
    }
    // Classes that were unloaded.
    PRBUnloadedRecords::release();
    PRBReclaimer::reclaimIfMany();
}

// Threads are told with no registry held: each takes a lock of its own that others hold while
// they look classes and methods up.
void PRBEventHandlers::HandleClassUnload(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleClassUnload");
    PRBMonitorHashTable* classes = PRBContext::getClassTable();
    PRBMonitorHashTable* methods = PRBContext::getMethodTable();
    if (classes == nullptr || methods == nullptr) return;
    PRBJavaClass probe(event->u.class_unload.class_id);
    std::vector<jmethodID> ids;
    {
        Locks locks(Locks::kClass | Locks::kMethod);
        auto* cls = static_cast<PRBJavaClass*>(classes->find(&probe));
        if (cls == nullptr) return;
        for (PRBJavaMethod* m = cls->firstMethod(); m != nullptr; m = m->nextOfClass())
            ids.push_back(m->getMethodId());
    }
    if (!ids.empty()) {
        PRBThreadSnapshot::Reader threads;
        for (std::size_t i = 0; i < threads.size(); ++i)
            threads[i]->removeMethods(ids.data(), ids.size());
    }
    std::vector<PRBJavaMethod*> goneMethods;
    goneMethods.reserve(ids.size());
    Locks locks(Locks::kClass | Locks::kMethod);
    auto* cls = static_cast<PRBJavaClass*>(classes->remove(&probe));
    if (cls == nullptr) return;
    for (PRBJavaMethod* m = cls->firstMethod(); m != nullptr; m = m->nextOfClass())
        if (methods->remove(m) == m) goneMethods.push_back(m);
    PRBUnloadedRecords::retireClass(cls);
    locks.release();
    for (PRBJavaMethod* m : goneMethods) PRBUnloadedRecords::retireMethod(m);
}
