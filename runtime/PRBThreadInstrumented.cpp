// The stack of instrumented Java code that a thread is in.
#include "core/PRBTrace.h"
#include "runtime/PRBGlobalReferences.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBJavaThread.h"

namespace {
constexpr const char* kName = PRBComponent::kThread;
} // namespace

void PRBJavaThread::createNewInstrumentedProfilingEntry(JNIEnv*, jobject first, jobject second) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::createNewInstrumentedProfilingEntry");
    // Late calls of finalisers may come on another thread, hence the lock.
    PRBMonitorGuard guard(*pendingQueueLock);
    InstrumentedMethodEntry* parent = getTopMethodEntry();
    InstrumentedMethodEntry* entry = nullptr;
    if (freeEntries.empty()) {
        entry = new InstrumentedMethodEntry(first, second, parent);
        if (entry == nullptr) return;
    } else {
        entry = freeEntries.back();
        freeEntries.pop_back();
        entry->reset(first, second, parent);
    }
    instrumentedStack.push(entry);
    topInstrumented.store(entry, std::memory_order_release);
}

void PRBJavaThread::removeTopInstrumentedProfilingEntry(JNIEnv* env, jobject first,
                                                        jobject javaEntry) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::removeTopInstrumentedProfilingEntry");
    InstrumentedMethodEntry* entry;
    {
        PRBMonitorGuard guard(*pendingQueueLock);
        entry = static_cast<InstrumentedMethodEntry*>(instrumentedStack.pop());
        if (entry == nullptr) return;
        topInstrumented.store(static_cast<InstrumentedMethodEntry*>(instrumentedStack.top()),
                              std::memory_order_release);
    }
    entry->updateJavaInstrumentedMethodEntry(env, first, javaEntry);
    PRBMonitorGuard guard(*pendingQueueLock);
    freeEntries.push_back(entry);
}

void PRBJavaThread::registerInstrumentedStackObject(JNIEnv* env, jobject object) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::registerInstrumentedStackObject");
    if (env == nullptr) return;
    jobject reference = object == nullptr ? nullptr : env->NewGlobalRef(object);
    jobject old = instrumentedStackObject.exchange(reference, std::memory_order_acq_rel);
    if (old != nullptr) env->DeleteGlobalRef(old);
}
