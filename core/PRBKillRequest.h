// The one pending request to end a Java thread; carried out at the thread's next method entry.
#ifndef PRB_CORE_PRBKILLREQUEST_H
#define PRB_CORE_PRBKILLREQUEST_H

#include "jvmpi/jvmpi.h"

#include <atomic>

class PRBJavaThread;

namespace PRBKillRequest {

// 0, or 76 (no id), 71 (another request is pending), 72 (no active thread has the id). Method
// entry events have to be enabled by who asks.
unsigned request(jobjectID threadId);

// The thread object to kill; null: none. Tested on every method entry.
extern std::atomic<jobjectID> pending;
// REQUIRES: on this thread itself. A failure is queued as an error sample.
void carryOut(PRBJavaThread& thread);

} // namespace PRBKillRequest

#endif
