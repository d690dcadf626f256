// TransportableData: code pages.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"

// There is one code page on this platform, so a text needs no conversion.
PRB_NATIVE(jobject, TransportableData, convertText)(JNIEnv*, jclass, jobject text) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(TransportableData, convertText), jobject{},
                               [&] { return text; });
}
