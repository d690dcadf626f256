// The two thread tables and what belongs to them: entering and leaving, the purge of ended
// threads, and the handles by which the Java side names a thread.
#ifndef PRB_CORE_PRBTHREADREGISTRY_H
#define PRB_CORE_PRBTHREADREGISTRY_H

#include "jvmpi/jvmpi.h"

#include <cstddef>

class PRBJavaThread;

// Changes are made under "_ActiveThreadTable" and "_ThreadTable", neither of which is ever wanted
// inside a collection. What comes or is purged is published in a new PRBThreadSnapshot.
namespace PRBThreadRegistry {

// Ended threads that nobody polls are kept up to this number; then the oldest goes.
constexpr std::size_t kMostEnded = 10000;

// Takes ownership. Answers the thread that is in the tables afterwards: when one with the same
// environment lives already (a replayed start), that one, and the argument is deleted.
PRBJavaThread* enter(PRBJavaThread* thread);
// Leaves the active table only, in state ended.
void end(PRBJavaThread* thread);
// Takes the ended threads out of "_ThreadTable"; they are deleted when no reader can see them.
void purgeEnded();

// Has a thread with this environment ended and not been purged, and does none live with it?
bool hasOnlyEnded(JNIEnv* env);

// Notes the calling thread's POSIX id for resolve(); answers the id as the handle.
jlong noteHandle(JNIEnv* env);
// From a handle of the Java side: an address of a thread of the model, the caller's own POSIX
// id, or one that was noted. Null for anything else. The thread stays valid inside a
// PRBReclaimer::Reader.
PRBJavaThread* resolveHandle(JNIEnv* env, jlong handle);

} // namespace PRBThreadRegistry

#endif
