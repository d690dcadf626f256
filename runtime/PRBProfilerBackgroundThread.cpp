#include "runtime/PRBProfilerBackgroundThread.h"

#include "core/PRBTrace.h"

PRBProfilerBackgroundThread::PRBProfilerBackgroundThread(JVMPI_Interface* interface)
    : jvmpi(interface),
      stopRequestMonitor("_StopBackgroundThread_COBT", interface),
      stoppedMonitor("_BackgroundThreadIsStopped", interface) {}

void PRBProfilerBackgroundThread::shutdown() {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCpuSampler,
                        "PRBProfilerBackgroundThread::shutdown");
    stopRequested.store(1, std::memory_order_release);
    {
        PRBMonitorGuard guard(stopRequestMonitor);
        stopRequestMonitor.post();
    }
    stoppedMonitor.wait(kStopTimeoutMs);
}
