// The native methods of the Java package com.tessel.prb.workanalysis, one group per Java class.
//
// All are static in Java and run on the calling Java thread. None throws, none dereferences a
// handle that it does not know, and each answers a neutral value (0, -1, null, nothing) when it
// cannot do its work: before InitProfiler, for a handle of 0 or a stale one, for null arguments.
// Exceptions of Java code that they call are described and cleared; the only exception that can
// be left pending is the VM's own OutOfMemoryError for an answer too large for it.
#ifndef PRB_COLLECTOR_PRBNATIVES_H
#define PRB_COLLECTOR_PRBNATIVES_H

#include <jni.h>

// The Java exception for a request that makes no sense. Known to the Java side by this name; the
// agent throws it nowhere.
constexpr const char* kInvalidRequestClass = "com.tessel.prb.workanalysis.InvalidRequest";

#define PRB_NATIVE(result, javaClass, method)                                                      \
    JNIEXPORT result JNICALL Java_com_tessel_prb_workanalysis_##javaClass##_##method

extern "C" {

// ---- Profiler: steering; collectors and threads are handles ----
PRB_NATIVE(jlong, Profiler, InitProfiler)(JNIEnv*, jclass, jstring options, jobject collector);
PRB_NATIVE(jlong, Profiler, handleInitiateCollection)
(JNIEnv*, jclass, jlong collector, jint type, jint pollingFrequency, jint samplingInterval,
 jstring classMasks, jstring methodMasks);
PRB_NATIVE(jlong, Profiler, handleStopCollection)(JNIEnv*, jclass, jlong collector);
PRB_NATIVE(jbyteArray, Profiler, getProfilerData)
(JNIEnv*, jclass, jlong collector, jint extra, jobject request);
PRB_NATIVE(void, Profiler, setWorkloadRunningOnCurrentThread)(JNIEnv*, jclass, jboolean running);
PRB_NATIVE(void, Profiler, createNewInstrumentedProfilingEntry)
(JNIEnv*, jclass, jobject entry, jlong thread);
PRB_NATIVE(void, Profiler, removeTopInstrumentedProfilingEntry)
(JNIEnv*, jclass, jobject entry, jlong thread);
PRB_NATIVE(jobject, Profiler, getReferencesToObjectsNative)
(JNIEnv*, jclass, jlong collector, jobjectArray targets, jclass type);
PRB_NATIVE(jint, Profiler, getObjectId)(JNIEnv*, jclass, jobject object);
PRB_NATIVE(jint, Profiler, getObjectSize)(JNIEnv*, jclass, jobject object);

// ---- Collector: garbage collection figures, and a trace table for the Java side ----
PRB_NATIVE(jlong, Collector, getNumBytesFreeAtLastGC)(JNIEnv*, jclass);
PRB_NATIVE(jlong, Collector, getTotalBytesAtLastGC)(JNIEnv*, jclass);
PRB_NATIVE(jlong, Collector, getProfGCCPU)(JNIEnv*, jclass);
PRB_NATIVE(jlong, Collector, initializeInternalTrace)
(JNIEnv*, jclass, jint entrySize, jint entries);
PRB_NATIVE(void, Collector, writeToInternalTraceNative)(JNIEnv*, jclass, jlong table, jstring text);

// ---- Globals: the library itself ----
PRB_NATIVE(jboolean, Globals, determineIfProfilerPresent)(JNIEnv*, jclass);
PRB_NATIVE(jint, Globals, getNativeLibraryBuildLevel)(JNIEnv*, jclass);
PRB_NATIVE(jboolean, Globals, testJavaCompatibleBuildLevel)(JNIEnv*, jclass, jint level);
PRB_NATIVE(jstring, Globals, getWorkloadConfigurationFileNameFromProfiler)(JNIEnv*, jclass);
PRB_NATIVE(jstring, Globals, getCurrentWorkingDirectoryNative)(JNIEnv*, jclass);
PRB_NATIVE(void, Globals, writeToMVSConsoleNative)(JNIEnv*, jclass, jstring text);

// ---- BackgroundThread: the process; what only z/OS has is neutral here ----
PRB_NATIVE(jint, BackgroundThread, getCurrentProcessIdNative)(JNIEnv*, jclass);
PRB_NATIVE(jint, BackgroundThread, getCurrentASIDNative)(JNIEnv*, jclass);
PRB_NATIVE(jstring, BackgroundThread, getStartParms)(JNIEnv*, jclass);
PRB_NATIVE(jstring, BackgroundThread, getCommandPromptParms)(JNIEnv*, jclass);
PRB_NATIVE(jstring, BackgroundThread, getCurrentAddressSpaceName)(JNIEnv*, jclass);
PRB_NATIVE(jbyteArray, BackgroundThread, getCurrentAddressSpaceStartSTCKValue)(JNIEnv*, jclass);

// ---- Instrumented code ----
PRB_NATIVE(jlong, InstrumentedMethodEntry, getMVSTCBAddress)(JNIEnv*, jclass);
PRB_NATIVE(jlong, InstrumentedStack, registerWithProfilerNative)(JNIEnv*, jclass);
PRB_NATIVE(jshort, InstrumentedStack, getStateNative)(JNIEnv*, jclass, jlong thread);
PRB_NATIVE(jlong, InstrumentedStack, getCurrentThreadCPUTimeNative)(JNIEnv*, jclass, jlong value);

// ---- Texts ----
PRB_NATIVE(jobjectArray, AgentConnection, createHexDumpString)
(JNIEnv*, jclass, jbyteArray data, jstring title);
PRB_NATIVE(jobject, TransportableData, convertText)(JNIEnv*, jclass, jobject text);
PRB_NATIVE(jobjectArray, StaticConfigDataSampleSource, getEnvVars)(JNIEnv*, jclass);

} // extern "C"

#endif
