#include "core/PRBEventHandlers.h"
#include "core/PRBFormat.h"
#include "core/PRBLookup.h"
#include "core/PRBThreadRegistry.h"
#include "core/PRBTrace.h"
#include "core/PRBVm.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBReclaimer.h"

#include <cstring>

namespace {

constexpr int kTrace = PRBTraceClass::kMain;
constexpr const char* kName = PRBComponent::kMonitorGlobal;
constexpr const char* kSamplerThread = "PRB_CPUSampler_Thread";

} // namespace

void PRBEventHandlers::HandleThreadStart(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleThreadStart");
    const auto& start = event->u.thread_start;
    JNIEnv* env = start.thread_env_id;
    if (env == nullptr) return;
    const char* name = start.thread_name == nullptr ? "" : start.thread_name;
    const int isBackground = std::strcmp(name, kSamplerThread) == 0 ? 1 : 0;
    auto* thread = new PRBJavaThread(start.thread_name, start.group_name, start.parent_name,
                                     start.thread_id, env, isBackground);
    if (thread == nullptr) return;
    if (PRBTrace::isDebugEnabled(kName))
        PRBTrace::log("New PRBJavaThread created for envid " PRB_PTR " Thread name %s", prbPtr(env),
                      name);
    PRBVm::setThreadLocalStorage(env, PRBThreadRegistry::enter(thread));
    PRBLookup::threadsChanged();
}

void PRBEventHandlers::HandleThreadEnd(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleThreadEnd");
    JNIEnv* env = event->env_id;
    PRBReclaimer::Reader keep; // once ended, a purge on another thread may retire it
    PRBJavaThread* thread = PRBLookup::getThreadClass(env);
    if (thread == nullptr) return;
    PRBThreadRegistry::end(thread);
    PRBLookup::threadsChanged();
    if (thread->getEnvId() == env) thread->destroyJavaThreadObject();
    PRBVm::setThreadLocalStorage(env, nullptr);
    PRBLookup::threadsChanged();
}

void PRBEventHandlers::HandleJVMShutdown(JVMPI_Event*) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleJVMShutdown");
}
