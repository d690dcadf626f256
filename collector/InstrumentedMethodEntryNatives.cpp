// InstrumentedMethodEntry: its one native is for z/OS.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"

PRB_NATIVE(jlong, InstrumentedMethodEntry, getMVSTCBAddress)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(InstrumentedMethodEntry, getMVSTCBAddress), jlong{0},
                               [] { return jlong{0}; });
}
