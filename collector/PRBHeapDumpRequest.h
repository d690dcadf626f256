// The one way in which the agent asks the VM for a heap dump.
#ifndef PRB_COLLECTOR_PRBHEAPDUMPREQUEST_H
#define PRB_COLLECTOR_PRBHEAPDUMPREQUEST_H

#include "jvmpi/jvmpi.h"

class PRBHeapDumpHandler;

namespace PRBHeapDumpRequest {

// Registers the handler, requests a dump of the level, and takes the handler away again, under
// the monitor of heap dump requests, so that two requests cannot mix. The dump reaches the
// handler on this thread before the call returns. Answers what RequestEvent answers, and
// JVMPI_NOT_AVAILABLE without a monitor object or interface.
jint run(PRBHeapDumpHandler& handler, jint level);

} // namespace PRBHeapDumpRequest

#endif
