#include "core/PRBEventHandlers.h"
#include "core/PRBKillRequest.h"
#include "core/PRBLookup.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaThread.h"

namespace {

constexpr int kTrace = PRBTraceClass::kFrequent;
constexpr const char* kName = PRBComponent::kMonitorGlobal;

} // namespace

void PRBEventHandlers::HandleMethodEntry(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleMethodEntry");
    PRBJavaThread* thread = PRBLookup::getThreadClass(event->env_id);
    if (thread == nullptr) return;
    jobjectID toKill = PRBKillRequest::pending.load(std::memory_order_relaxed);
    if (toKill != nullptr && toKill == thread->getThreadId()) PRBKillRequest::carryOut(*thread);
    thread->methodEntry(event->u.method.method_id, nullptr);
}

void PRBEventHandlers::HandleMethodEntry2(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleMethodEntry2");
    if (PRBJavaThread* thread = PRBLookup::getThreadClass(event->env_id))
        thread->methodEntry(event->u.method_entry2.method_id, event->u.method_entry2.obj_id);
}

void PRBEventHandlers::HandleMethodExit(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleMethodExit");
    if (PRBJavaThread* thread = PRBLookup::getThreadClass(event->env_id))
        thread->methodExit(event->u.method.method_id);
}
