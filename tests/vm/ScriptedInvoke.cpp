// The JavaVM of the scripted VM.
#include "tests/vm/ScriptedWorld.h"

#include <cstdlib>

namespace scripted {

namespace {

struct OwnedVm {
    ScriptedVm& vm;
    World& world;
};

OwnedVm owner(JavaVM* javaVm) {
    // The JavaVM is a member of its World.
    const ScriptedThread* playing = hostState().thread;
    if (playing != nullptr && playing->vm().javaVM() == javaVm)
        return {playing->vm(), playing->vm().world()};
    ScriptedVm& vm = ScriptedVm::current();
    if (vm.javaVM() != javaVm) vm.recorder().violation("a JavaVM that is gone");
    return {vm, vm.world()};
}

jint getEnv(JavaVM* javaVm, void** out, jint version) {
    InsideVm inside;
    OwnedVm own = owner(javaVm);
    const auto text = [&] {
        char number[16];
        std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(version));
        return std::string("GetEnv(") + number + ")";
    };
    const Verdict verdict = own.vm.call(kJni, "GetEnv", text, true);
    *out = nullptr;
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(JNI_EVERSION));
    if (version == JVMPI_VERSION_1) {
        if (own.world.jvmpiRefusal != 0) return own.world.jvmpiRefusal;
        *out = &own.world.jvmpi;
        return JNI_OK;
    }
    if (version < JNI_VERSION_1_1 || version > 0x00200000) return JNI_EVERSION;
    JNIEnv* env = own.vm.currentThread().env();
    if (env == nullptr) return JNI_EDETACHED;
    *out = env;
    return JNI_OK;
}

jint attach(JavaVM* javaVm, void** out, const char* name) {
    InsideVm inside;
    OwnedVm own = owner(javaVm);
    const Verdict verdict = own.vm.call(
        kJni, name, [&] { return std::string(name) + "()"; }, true);
    *out = nullptr;
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(JNI_ERR));
    ScriptedThread& self = own.vm.currentThread();
    if (&self == own.world.collector) {
        own.vm.recorder().violation(std::string(name) + " on the collecting thread");
        return JNI_ERR;
    }
    if (self.env() == nullptr) {
        {
            std::lock_guard lock(own.world.mutex);
            own.world.attachLocked(self, nullptr);
        }
        if (own.vm.enabled(JVMPI_EVENT_THREAD_START)) own.vm.send.threadStart(self);
    }
    *out = self.env();
    return JNI_OK;
}

jint attachCurrentThread(JavaVM* javaVm, void** out, void*) {
    return attach(javaVm, out, "AttachCurrentThread");
}

jint attachCurrentThreadAsDaemon(JavaVM* javaVm, void** out, void*) {
    return attach(javaVm, out, "AttachCurrentThreadAsDaemon");
}

jint detachCurrentThread(JavaVM* javaVm) {
    InsideVm inside;
    OwnedVm own = owner(javaVm);
    own.vm.call(
        kJni, "DetachCurrentThread", [] { return std::string("DetachCurrentThread()"); }, false);
    ScriptedThread& self = own.vm.currentThread();
    if (self.env() == nullptr) return JNI_EDETACHED;
    own.vm.endThread(self);
    // The pthread is nobody now; what it does next it does as a new, unattached thread.
    if (hostState().thread == &self) hostState().thread = nullptr;
    return JNI_OK;
}

[[noreturn]] jint destroyJavaVm(JavaVM*) {
    std::fprintf(stderr, "scripted VM: DestroyJavaVM is not scripted\n");
    std::abort();
}

} // namespace

void fillInvokeTable(JNIInvokeInterface_& table) {
    table.DestroyJavaVM = destroyJavaVm;
    table.AttachCurrentThread = attachCurrentThread;
    table.AttachCurrentThreadAsDaemon = attachCurrentThreadAsDaemon;
    table.DetachCurrentThread = detachCurrentThread;
    table.GetEnv = getEnv;
}

} // namespace scripted
