// System properties of the Java side.
#ifndef PRB_CORE_PRBJAVAPROPERTY_H
#define PRB_CORE_PRBJAVAPROPERTY_H

#include "core/PRBReturnCode.h"

#include <jni.h>
#include <string>

// Calls System.getProperty. Empty with a code on failure: 67 no java/lang/System, 68 no
// getProperty, 69 no such property, 73 (shared with thread kill requests) a Java exception,
// which has then been described and cleared. Leaves no reference and no exception behind.
std::string PRBJavaProperty(JNIEnv* env, const char* name, PRBReturnCode& rc);

#endif
