// Who receives a heap dump that the agent has requested.
#ifndef PRB_COLLECTOR_PRBHEAPDUMPHANDLER_H
#define PRB_COLLECTOR_PRBHEAPDUMPHANDLER_H

#include "jvmpi/jvmpi.h"

// Registered with PRBMonitorGlobal for the time of one request; called by its notify, on the
// requesting thread, before RequestEvent returns. The dump's bytes are valid during the call.
class PRBHeapDumpHandler {
public:
    virtual void handleHeapDump(JVMPI_Event* event) = 0;

protected:
    ~PRBHeapDumpHandler() = default; // never deleted through the interface
};

#endif
