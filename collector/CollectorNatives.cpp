// Collector: garbage collection figures, and the Java side's own trace table.
#include "collector/NativeTraceTable.h"
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"
#include "collector/PRBWorkloadCollector.h"

namespace {

// A figure of the collector, -1 without one.
template <typename Query> jlong figure(JNIEnv* env, Query query) {
    auto* collector = PRBWorkloadCollector::getWorkloadCollector(env, nullptr, 0);
    return collector == nullptr ? jlong{-1} : static_cast<jlong>((collector->*query)());
}

} // namespace

PRB_NATIVE(jlong, Collector, getNumBytesFreeAtLastGC)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Collector, getNumBytesFreeAtLastGC), jlong{-1}, [&] {
        return figure(env, &PRBWorkloadCollector::getNumBytesCurrentlyFreeAtLastGC);
    });
}

// Traced under its neighbour's name, which the readers of the log know.
PRB_NATIVE(jlong, Collector, getTotalBytesAtLastGC)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Collector, getNumBytesFreeAtLastGC), jlong{-1}, [&] {
        return figure(env, &PRBWorkloadCollector::getNumBytesTotalAtLastGC);
    });
}

PRB_NATIVE(jlong, Collector, getProfGCCPU)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Collector, getProfGCCPU), jlong{-1},
                               [&] { return figure(env, &PRBWorkloadCollector::getGCCPUTime); });
}

PRB_NATIVE(jlong, Collector, initializeInternalTrace)
(JNIEnv*, jclass, jint entrySize, jint entries) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Collector, initializeInternalTrace), jlong{0}, [&] {
        const NativeTraceTable* table = NativeTraceTable::create(entrySize, entries);
        return table == nullptr ? jlong{0} : static_cast<jlong>(table->toHandle());
    });
}

PRB_NATIVE(void, Collector, writeToInternalTraceNative)
(JNIEnv* env, jclass, jlong handle, jstring text) {
    PRBNativeGuard::run(PRB_NATIVE_NAME(Collector, writeToInternalTraceNative), [&] {
        NativeTraceTable* table = NativeTraceTable::fromHandle(handle);
        if (table == nullptr) return;
        PRBJni::UtfChars chars(env, text);
        table->write(chars.get());
    });
}
