// BackgroundThread: the process that the Java side runs in. Address spaces and their start
// parameters exist on z/OS only; here their natives answer nothing.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"

#include <unistd.h>

PRB_NATIVE(jint, BackgroundThread, getCurrentProcessIdNative)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(BackgroundThread, getCurrentProcessIdNative),
                               jint{0}, [] { return static_cast<jint>(getpid()); });
}

PRB_NATIVE(jint, BackgroundThread, getCurrentASIDNative)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(BackgroundThread, getCurrentASID), jint{0},
                               [] { return jint{0}; });
}

PRB_NATIVE(jstring, BackgroundThread, getStartParms)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(BackgroundThread, getStartParms), jstring{},
                               [] { return jstring{}; });
}

PRB_NATIVE(jstring, BackgroundThread, getCommandPromptParms)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(BackgroundThread, getCommandPromptParms), jstring{},
                               [] { return jstring{}; });
}

PRB_NATIVE(jstring, BackgroundThread, getCurrentAddressSpaceName)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(BackgroundThread, getCurrentAddressSpaceName),
                               jstring{}, [] { return jstring{}; });
}

PRB_NATIVE(jbyteArray, BackgroundThread, getCurrentAddressSpaceStartSTCKValue)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(
        PRB_NATIVE_NAME(BackgroundThread, getCurrentAddressSpaceStartSTCKValue), jbyteArray{},
        [] { return jbyteArray{}; });
}
