// From an event of the VM to its handler.
#ifndef PRB_CORE_PRBEVENTDISPATCHER_H
#define PRB_CORE_PRBEVENTDISPATCHER_H

#include "core/PRBEventMetrics.h"
#include "jvmpi/jvmpi.h"

#include <cstddef>

namespace PRBEventDispatcher {

struct Row {
    jint event;
    void (*handler)(JVMPI_Event* event);
};
// In order; the row's number is the index of its event counter.
const Row* table(std::size_t& rows);

// Counts the event and calls its handler, on the calling thread. The bit of requested events is
// without meaning; types that are not in the table and null events are ignored.
void dispatch(JVMPI_Event* event);

PRBEventMetrics& metrics();

} // namespace PRBEventDispatcher

#endif
