// What the agent does at each event of the VM, by family; called by the dispatcher only, on the
// thread that the event happens on.
//
// Handlers take the registries they need and release them before they call the VM. Object moves
// and frees, and the two events of a collection, may arrive inside a collection pause, with a
// null environment or one that offers next to nothing: their handlers take no lock but those of
// the class, method, arena and object registries and of the log, and make no call but the one
// for the free bytes.
#ifndef PRB_CORE_PRBEVENTHANDLERS_H
#define PRB_CORE_PRBEVENTHANDLERS_H

#include "jvmpi/jvmpi.h"

namespace PRBEventHandlers {

// PRBMethodEvents.cpp
void HandleMethodEntry(JVMPI_Event* event);
void HandleMethodEntry2(JVMPI_Event* event);
void HandleMethodExit(JVMPI_Event* event);

// PRBObjectEvents.cpp
void HandleObjectAlloc(JVMPI_Event* event);
void HandleObjectFree(JVMPI_Event* event);
void HandleObjectMove(JVMPI_Event* event);
void HandleHeapDump(JVMPI_Event* event);
void HandleArenaNew(JVMPI_Event* event);
void HandleArenaDelete(JVMPI_Event* event);

// PRBThreadEvents.cpp
void HandleThreadStart(JVMPI_Event* event);
void HandleThreadEnd(JVMPI_Event* event);
void HandleJVMShutdown(JVMPI_Event* event);

// PRBClassEvents.cpp
void HandleClassLoad(JVMPI_Event* event);
void HandleClassUnload(JVMPI_Event* event);

// PRBMonitorEvents.cpp
void HandleMonitorContendedEnter(JVMPI_Event* event);
void HandleMonitorContendedEntered(JVMPI_Event* event);
void HandleMonitorWait(JVMPI_Event* event);
void HandleMonitorWaited(JVMPI_Event* event);

// PRBGarbageCollectionEvents.cpp
void HandleGCStart(JVMPI_Event* event);
void HandleGCFinish(JVMPI_Event* event);

} // namespace PRBEventHandlers

#endif
