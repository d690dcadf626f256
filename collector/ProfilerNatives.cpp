// Profiler: steering of the agent.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBReclaimer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

constexpr jint kControlFrame = 16;
constexpr jint kDataFrame = 256;

// The two low bits of a reference tag its kind.
constexpr std::uintptr_t kReferenceTagBits = 3;

// The profiler interface of the VM that loaded the library; null when it has none.
JVMPI_Interface* profilerInterface(JavaVM* vm) {
    void* found = nullptr;
    if (vm == nullptr || vm->GetEnv(&found, JVMPI_VERSION_1) != JNI_OK) return nullptr;
    return static_cast<JVMPI_Interface*>(found);
}

// Masks name packages with full stops, the VM names them with slashes.
std::string maskText(JNIEnv* env, jstring mask) {
    std::string text = PRBWorkloadCollector::createString(env, mask);
    std::replace(text.begin(), text.end(), '.', '/');
    return text;
}

jlong initProfiler(JNIEnv* env, jstring options, jobject javaCollector) {
    JVMPI_Interface* jvmpi = profilerInterface(pJavaVM);
    if (jvmpi == nullptr) return 0;
    PRBjvmpi_interface = jvmpi;
    PRBWorkloadCollector* collector =
        PRBWorkloadCollector::getWorkloadCollector(env, javaCollector, 1);
    if (collector == nullptr) return 0;
    collector->setJVMPIInterface(jvmpi);
    collector->setProcessId(getpid());
    const std::string text = PRBWorkloadCollector::createString(env, options);
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal(jvmpi, text.c_str(), pJavaVM);
    if (monitor == nullptr) return 0;
    monitor->setPRBWorkloadCollector(collector);
    jvmpi->NotifyEvent = PRBMonitorGlobal::notify;
    monitor->completeInit();
    return collector->toHandle();
}

// A record may go with the next collection, so its size is read under the table's lock.
jint sizeOfKnownObject(jobjectID id) {
    if (PRBLookup::getObject(id) == nullptr) return 0;
    PRBMonitorHashTable* objects = PRBContext::getObjectTable();
    if (objects == nullptr) return 0;
    PRBJavaObjectAllocated probe(id);
    PRBTableLock lock(*objects);
    auto* object = static_cast<PRBJavaObjectAllocated*>(objects->find(&probe));
    return object == nullptr ? 0 : object->getSize();
}

} // namespace

PRB_NATIVE(jlong, Profiler, InitProfiler)
(JNIEnv* env, jclass, jstring options, jobject collector) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, InitProfiler), jlong{0},
                               [&] { return initProfiler(env, options, collector); });
}

PRB_NATIVE(jlong, Profiler, handleInitiateCollection)
(JNIEnv* env, jclass, jlong handle, jint type, jint pollingFrequency, jint samplingInterval,
 jstring classMasks, jstring methodMasks) {
    return PRBNativeGuard::runInFrame(
        PRB_NATIVE_NAME(Profiler, handleInitiateCollection), env, kControlFrame, jlong{0}, [&] {
            PRBWorkloadCollector* collector = PRBWorkloadCollector::fromHandle(handle);
            if (collector == nullptr) return jlong{0};
            const std::string classes = maskText(env, classMasks);
            const std::string methods = maskText(env, methodMasks);
            return static_cast<jlong>(collector->processInitiateCollection(
                env, type, pollingFrequency, samplingInterval, classes.c_str(), methods.c_str()));
        });
}

PRB_NATIVE(jlong, Profiler, handleStopCollection)(JNIEnv* env, jclass, jlong handle) {
    return PRBNativeGuard::runInFrame(
        PRB_NATIVE_NAME(Profiler, handleStopCollection), env, kControlFrame, jlong{0}, [&] {
            PRBWorkloadCollector* collector = PRBWorkloadCollector::fromHandle(handle);
            return collector == nullptr ? jlong{0}
                                        : static_cast<jlong>(collector->processStopCollection(env));
        });
}

PRB_NATIVE(jbyteArray, Profiler, getProfilerData)
(JNIEnv* env, jclass, jlong handle, jint extra, jobject request) {
    return PRBNativeGuard::runInFrame(
        PRB_NATIVE_NAME(Profiler, getProfilerData), env, kDataFrame, jbyteArray{}, [&] {
            PRBWorkloadCollector* collector = PRBWorkloadCollector::fromHandle(handle);
            return collector == nullptr ? jbyteArray{}
                                        : collector->sendBackData(env, extra, request);
        });
}

PRB_NATIVE(void, Profiler, setWorkloadRunningOnCurrentThread)
(JNIEnv* env, jclass, jboolean running) {
    PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, setWorkloadRunningOnCurrentThread), [&] {
        // Found before the lock: looking may ask the VM to replay the thread's start.
        PRBJavaThread* thread = PRBLookup::getThreadClass(env);
        PRBMonitorHashTable* threads = PRBContext::getThreadTable();
        if (thread == nullptr || threads == nullptr) return;
        PRBTableLock lock(*threads);
        if (running == JNI_TRUE)
            thread->workloadRunning();
        else
            thread->workloadDone();
    });
}

PRB_NATIVE(void, Profiler, createNewInstrumentedProfilingEntry)
(JNIEnv* env, jclass self, jobject entry, jlong handle) {
    PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, createNewInstrumentedProfilingEntry), [&] {
        PRBReclaimer::Reader keep;
        PRBJavaThread* thread = PRBMonitorGlobal::resolveThreadHandle(env, handle);
        if (thread != nullptr) thread->createNewInstrumentedProfilingEntry(env, self, entry);
    });
}

PRB_NATIVE(void, Profiler, removeTopInstrumentedProfilingEntry)
(JNIEnv* env, jclass self, jobject entry, jlong handle) {
    PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, removeTopInstrumentedProfilingEntry), [&] {
        PRBReclaimer::Reader keep;
        PRBJavaThread* thread = PRBMonitorGlobal::resolveThreadHandle(env, handle);
        if (thread != nullptr) thread->removeTopInstrumentedProfilingEntry(env, self, entry);
    });
}

PRB_NATIVE(jobject, Profiler, getReferencesToObjectsNative)
(JNIEnv* env, jclass, jlong handle, jobjectArray targets, jclass type) {
    return PRBNativeGuard::runInFrame(
        PRB_NATIVE_NAME(Profiler, getReferencesToObjects), env, kControlFrame, jobject{}, [&] {
            PRBWorkloadCollector* collector = PRBWorkloadCollector::fromHandle(handle);
            return collector == nullptr
                       ? jobject{}
                       : collector->getReferencesToTargetObjects(env, targets, type);
        });
}

PRB_NATIVE(jint, Profiler, getObjectId)(JNIEnv*, jclass, jobject object) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, getObjectId), jint{0}, [&] {
        if (object == nullptr) return jint{0};
        const auto slot = reinterpret_cast<std::uintptr_t>(object) & ~kReferenceTagBits;
        jint word = 0;
        std::memcpy(&word, reinterpret_cast<const void*>(slot), sizeof word);
        return word;
    });
}

PRB_NATIVE(jint, Profiler, getObjectSize)(JNIEnv*, jclass, jobject object) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, getObjectSize), jint{0}, [&] {
        JVMPI_Interface* jvmpi = PRBContext::getInterface();
        if (object == nullptr || jvmpi == nullptr || jvmpi->jobject2jobjectID == nullptr)
            return jint{0};
        return sizeOfKnownObject(jvmpi->jobject2jobjectID(object));
    });
}
