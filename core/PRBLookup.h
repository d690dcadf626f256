// From an identifier of the VM to the record of the model, asking the VM to replay the missing
// event when the record is not there yet.
//
// None of these holds a registry while it calls the VM: look, release, ask, look again. All
// answer null (or 0) for a null identifier, for one that the VM refuses, and before
// initialisation. Records stay valid as the record classes say.
#ifndef PRB_CORE_PRBLOOKUP_H
#define PRB_CORE_PRBLOOKUP_H

#include "jvmpi/jvmpi.h"

class PRBJavaClass;
class PRBJavaMethod;
class PRBJavaObjectAllocated;
class PRBJavaThread;

namespace PRBLookup {

PRBJavaClass* getClassForClassID(jobjectID classId);
PRBJavaObjectAllocated* getObject(jobjectID objectId);
PRBJavaClass* getClassForObject(jobjectID objectId);
jobjectID getClassIDForObject(jobjectID objectId);
PRBJavaClass* getClassForMethod(jmethodID method);
jobjectID getClassIDForMethod(jmethodID method);

// The thread of an environment, from thread-local storage; requested when it is not there. An
// environment that the VM refused is not asked for again until some thread starts or ends.
PRBJavaThread* getThreadClass(JNIEnv* env);
// The same without asking the VM to replay anything.
PRBJavaThread* peekThreadClass(JNIEnv* env);

// getThreadClass remembers the last answer of each thread; called when the thread of some
// environment may have changed, after the thread-local storage has.
void threadsChanged();

// Logs a refused RequestEvent under trace class 0x1: "<operation> RequestEvent <event> returned
// JVMPI_FAIL" or "... JVMPI_NOT_AVAILABLE".
void logRequestFailure(const char* operation, const char* event, jint result);

} // namespace PRBLookup

#endif
