#include "collector/PRBHeapDumpRequest.h"

#include "collector/PRBHeapDumpHandler.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBVm.h"

namespace {

class Registration {
public:
    Registration(PRBMonitorGlobal& monitor, PRBHeapDumpHandler& handler) : monitor_(monitor) {
        monitor_.registerHeapDumpHandler(&handler);
    }
    ~Registration() { monitor_.deregisterHeapDumpHandler(); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    PRBMonitorGlobal& monitor_;
};

} // namespace

jint PRBHeapDumpRequest::run(PRBHeapDumpHandler& handler, jint level) {
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    if (monitor == nullptr) return JVMPI_NOT_AVAILABLE;
    PRBMonitorGuard requests(monitor->getHeapDumpRequestMonitor());
    Registration registration(*monitor, handler);
    JVMPI_HeapDumpArg argument{level};
    return PRBVm::requestEvent(JVMPI_EVENT_HEAP_DUMP, &argument);
}
