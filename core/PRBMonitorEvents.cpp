#include "core/PRBEventHandlers.h"
#include "core/PRBLookup.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaThread.h"

namespace {

void forward(JVMPI_Event* event, jobjectID object, void (PRBJavaThread::*operation)(jobjectID),
             const char* name) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kMonitorGlobal, name);
    if (PRBJavaThread* thread = PRBLookup::getThreadClass(event->env_id))
        (thread->*operation)(object);
}

} // namespace

void PRBEventHandlers::HandleMonitorContendedEnter(JVMPI_Event* event) {
    forward(event, event->u.monitor.object, &PRBJavaThread::monitorEntry,
            "PRBMonitorGlobal::HandleMonitorContendedEnter");
}

void PRBEventHandlers::HandleMonitorContendedEntered(JVMPI_Event* event) {
    forward(event, event->u.monitor.object, &PRBJavaThread::monitorEntered,
            "PRBMonitorGlobal::HandleMonitorContendedEntered");
}

void PRBEventHandlers::HandleMonitorWait(JVMPI_Event* event) {
    forward(event, event->u.monitor_wait.object, &PRBJavaThread::monitorWait,
            "PRBMonitorGlobal::HandleMonitorWait");
}

void PRBEventHandlers::HandleMonitorWaited(JVMPI_Event* event) {
    forward(event, event->u.monitor_wait.object, &PRBJavaThread::monitorWaited,
            "PRBMonitorGlobal::HandleMonitorWaited");
}
