// The calls of the profiler interface that the core makes, tolerant of a VM that lacks some: a
// missing function answers "not available" or null and does nothing.
#ifndef PRB_CORE_PRBVM_H
#define PRB_CORE_PRBVM_H

#include "core/PRBContext.h"
#include "core/PRBLockRank.h"

namespace PRBVm {

// Blocks or delivers events: REQUIRES no registry held (asserted where lock ranks are).
inline jint requestEvent(jint type, void* argument) {
    PRBLockRank::checkVmCall("RequestEvent");
    JVMPI_Interface* vm = PRBContext::getInterface();
    return vm != nullptr && vm->RequestEvent != nullptr ? vm->RequestEvent(type, argument)
                                                        : JVMPI_NOT_AVAILABLE;
}

inline jobjectID getMethodClass(jmethodID method) {
    PRBLockRank::checkVmCall("GetMethodClass");
    JVMPI_Interface* vm = PRBContext::getInterface();
    return vm != nullptr && vm->GetMethodClass != nullptr ? vm->GetMethodClass(method) : nullptr;
}

inline jobjectID getThreadObject(JNIEnv* env) {
    PRBLockRank::checkVmCall("GetThreadObject");
    JVMPI_Interface* vm = PRBContext::getInterface();
    return vm != nullptr && vm->GetThreadObject != nullptr ? vm->GetThreadObject(env) : nullptr;
}

inline void* getThreadLocalStorage(JNIEnv* env) {
    JVMPI_Interface* vm = PRBContext::getInterface();
    return vm != nullptr && vm->GetThreadLocalStorage != nullptr ? vm->GetThreadLocalStorage(env)
                                                                 : nullptr;
}

inline void setThreadLocalStorage(JNIEnv* env, void* value) {
    JVMPI_Interface* vm = PRBContext::getInterface();
    if (vm != nullptr && vm->SetThreadLocalStorage != nullptr)
        vm->SetThreadLocalStorage(env, value);
}

// No collection starts during its life. Holds no monitor across it.
class GcDisabled {
public:
    GcDisabled() : vm_(PRBContext::getInterface()) {
        PRBLockRank::checkVmCall("DisableGC");
        if (vm_ != nullptr && vm_->DisableGC != nullptr) vm_->DisableGC();
    }
    ~GcDisabled() {
        if (vm_ != nullptr && vm_->EnableGC != nullptr) vm_->EnableGC();
    }
    GcDisabled(const GcDisabled&) = delete;
    GcDisabled& operator=(const GcDisabled&) = delete;

private:
    JVMPI_Interface* vm_;
};

} // namespace PRBVm

#endif
