// Threads of native code that come to the VM and leave it again: NativeThreads.java's other half.
#include <atomic>
#include <thread>
#include <vector>

#include <jni.h>

namespace {

constexpr int kVisits = 2; // each thread attaches that often

// Attaches, calls Java, detaches. Every other thread is a daemon, every third has a name.
long long visit(JavaVM* vm, jclass owner, jmethodID called, int number) {
    JNIEnv* env = nullptr;
    char name[] = "native visitor";
    JavaVMAttachArgs args{JNI_VERSION_1_8, number % 3 == 0 ? name : nullptr, nullptr};
    void** out = reinterpret_cast<void**>(&env);
    const jint result = number % 2 == 0 ? vm->AttachCurrentThread(out, &args)
                                        : vm->AttachCurrentThreadAsDaemon(out, &args);
    if (result != JNI_OK) return 0;
    const jlong answer = env->CallStaticLongMethod(owner, called, number);
    vm->DetachCurrentThread();
    return answer;
}

} // namespace

extern "C" JNIEXPORT jlong JNICALL
Java_com_tessel_prb_live_programs_NativeThreads_wave(JNIEnv* env, jclass type, jint count) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const jmethodID called = env->GetStaticMethodID(type, "called", "(I)J");
    const auto owner = static_cast<jclass>(env->NewGlobalRef(type));
    std::atomic<unsigned long long> sum{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++)
        threads.emplace_back([=, &sum] {
            for (int n = 0; n < kVisits; n++)
                sum += static_cast<unsigned long long>(visit(vm, owner, called, i));
        });
    for (std::thread& thread : threads) thread.join();
    env->DeleteGlobalRef(owner);
    return static_cast<jlong>(sum.load());
}
