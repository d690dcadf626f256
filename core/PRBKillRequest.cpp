#include "core/PRBKillRequest.h"

#include "core/PRBContext.h"
#include "core/PRBErrorQueue.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBReturnCode.h"
#include "runtime/PRBJavaThread.h"

std::atomic<jobjectID> PRBKillRequest::pending{nullptr};

namespace {

constexpr unsigned kAnotherPending = 71;
constexpr unsigned kThreadNotFound = 72;
constexpr unsigned kIdMissing = 76;

bool isActive(jobjectID threadId) {
    PRBMonitorHashTable* active = PRBContext::getActiveThreadTable();
    if (active == nullptr) return false;
    PRBTableWalk walk(*active);
    while (PRBCollectable* item = walk())
        if (static_cast<PRBJavaThread*>(item)->getThreadId() == threadId) return true;
    return false;
}

} // namespace

unsigned PRBKillRequest::request(jobjectID threadId) {
    if (threadId == nullptr) return kIdMissing;
    if (pending.load() != nullptr) return kAnotherPending;
    if (!isActive(threadId)) return kThreadNotFound;
    jobjectID none = nullptr;
    return pending.compare_exchange_strong(none, threadId) ? 0 : kAnotherPending;
}

void PRBKillRequest::carryOut(PRBJavaThread& thread) {
    jobjectID id = thread.getThreadId();
    if (id == nullptr || !pending.compare_exchange_strong(id, nullptr)) return;
    // Without an environment the thread uses its own and leaves its death pending in it.
    PRBReturnCode rc = thread.killThread(nullptr);
    if (rc.bad()) PRBErrorQueue::report(rc, rc.getDescription());
}
