// The JNI environments of the scripted VM, and the checks of their use: threads, arrays, monitors
// and ready-made objects.
#include "tests/vm/conformance/JniTest.h"

#include <thread>

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(Jni, anEnvironmentServesItsOwnThreadOnly) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.run([&] { env->ExceptionCheck(); });
    EXPECT_THAT(violations(),
                ElementsAre("ExceptionCheck: the environment of main on thread worker"));
    worker.run([&] { worker.env()->ExceptionCheck(); });
    vm.endThread(worker);
    worker.run([&] { worker.env()->ExceptionCheck(); });
    EXPECT_THAT(violations(), ElementsAre("ExceptionCheck: the environment of an ended thread"));
}

TEST_F(Jni, threadsAttachAndDetach) {
    vm.setEnabled(JVMPI_EVENT_THREAD_START, true);
    static std::vector<jint> events;
    events.clear();
    vm.jvmpi()->NotifyEvent = [](JVMPI_Event* event) { events.push_back(event->event_type); };
    std::thread([&] {
        void* out = nullptr;
        EXPECT_EQ(vm.javaVM()->GetEnv(&out, JNI_VERSION_1_2), JNI_EDETACHED);
        EXPECT_EQ(vm.javaVM()->AttachCurrentThread(&out, nullptr), JNI_OK);
        void* again = nullptr;
        EXPECT_EQ(vm.javaVM()->GetEnv(&again, JNI_VERSION_1_2), JNI_OK);
        EXPECT_EQ(again, out);
        static_cast<JNIEnv*>(out)->ExceptionCheck();
        EXPECT_EQ(vm.javaVM()->DetachCurrentThread(), JNI_OK);
        EXPECT_EQ(vm.javaVM()->GetEnv(&again, JNI_VERSION_1_2), JNI_EDETACHED);
        EXPECT_EQ(vm.javaVM()->DetachCurrentThread(), JNI_EDETACHED);
    }).join();
    EXPECT_THAT(events, ElementsAre(JVMPI_EVENT_THREAD_START));
    vm.jvmpi()->NotifyEvent = nullptr;
}

TEST_F(Jni, getEnvKnowsItsVersions) {
    void* out = nullptr;
    EXPECT_EQ(vm.javaVM()->GetEnv(&out, JNI_VERSION_1_2), JNI_OK);
    EXPECT_EQ(out, env);
    EXPECT_EQ(vm.javaVM()->GetEnv(&out, 0x30000000), JNI_EVERSION);
    EXPECT_EQ(out, nullptr);
    vm.recorder().failNext("GetEnv", JNI_ERR);
    EXPECT_EQ(vm.javaVM()->GetEnv(&out, JNI_VERSION_1_2), JNI_ERR);
    EXPECT_EQ(vm.recorder().count("GetEnv(0x00010002)"), 2U);
    JavaVM* found = nullptr;
    EXPECT_EQ(env->GetJavaVM(&found), JNI_OK);
    EXPECT_EQ(found, vm.javaVM());
}

TEST_F(Jni, byteArraysKeepTheirBytes) {
    vm.callNative([&] {
        const jbyteArray array = env->NewByteArray(4);
        const jbyte in[3] = {1, 2, 3};
        env->SetByteArrayRegion(array, 1, 3, in);
        EXPECT_EQ(env->GetArrayLength(array), 4);
        EXPECT_THAT(vm.resolve(array)->bytes, ElementsAre(0, 1, 2, 3));
        jbyte out[2] = {};
        env->GetByteArrayRegion(array, 2, 2, out);
        EXPECT_EQ(out[1], 3);
        jbyte* elements = env->GetByteArrayElements(array, nullptr);
        elements[0] = 9;
        env->ReleaseByteArrayElements(array, elements, JNI_ABORT);
        EXPECT_EQ(vm.resolve(array)->bytes[0], 0);
        elements = env->GetByteArrayElements(array, nullptr);
        elements[0] = 9;
        env->ReleaseByteArrayElements(array, elements, 0);
        EXPECT_EQ(vm.resolve(array)->bytes[0], 9);
        env->GetByteArrayRegion(array, 3, 2, out);
    });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/ArrayIndexOutOfBoundsException: 3, 2");
}

TEST_F(Jni, objectAndLongArraysKeepTheirElements) {
    vm.callNative([&] {
        const jclass string = env->FindClass("java/lang/String");
        const jobject filler = env->NewStringUTF("f");
        const jobjectArray array = env->NewObjectArray(2, string, filler);
        env->SetObjectArrayElement(array, 1, nullptr);
        EXPECT_EQ(vm.resolve(env->GetObjectArrayElement(array, 0)), vm.resolve(filler));
        EXPECT_EQ(env->GetObjectArrayElement(array, 1), nullptr);
        EXPECT_EQ(vm.resolve(array)->cls->name(), "[Ljava/lang/String;");
        const jlongArray longs = env->NewLongArray(1);
        const jlong value = 1LL << 40;
        env->SetLongArrayRegion(longs, 0, 1, &value);
        EXPECT_EQ(vm.resolve(longs)->longs[0], value);
        env->GetObjectArrayElement(array, 2);
    });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/ArrayIndexOutOfBoundsException: 2");
}

TEST_F(Jni, whatIsNotReleasedIsListed) {
    const jstring text = vm.local<jstring>(vm.mainThread(), &vm.newString("x"));
    const char* chars = env->GetStringUTFChars(text, nullptr);
    EXPECT_THAT(vm.unreleased(), ElementsAre("characters of \"x\""));
    env->ReleaseStringUTFChars(text, chars);
    EXPECT_THAT(vm.unreleased(), IsEmpty());
    env->ReleaseStringUTFChars(text, "foreign");
    EXPECT_THAT(violations(), ElementsAre("ReleaseStringUTFChars: nothing that was got"));
}

TEST_F(Jni, javaMonitorsAreCounted) {
    ScriptedObject& object = vm.newString("x");
    const jobject ref = vm.newLocalRef(vm.mainThread(), &object);
    EXPECT_EQ(env->MonitorEnter(ref), 0);
    EXPECT_EQ(vm.monitorDepth(object), 1);
    EXPECT_EQ(env->MonitorExit(ref), 0);
    EXPECT_NE(env->MonitorExit(ref), 0);
    EXPECT_THAT(violations(), ElementsAre(HasSubstr("not locked by this thread")));
}

TEST_F(Jni, registerNativesIsLogged) {
    const JNINativeMethod methods[] = {{const_cast<char*>("f"), const_cast<char*>("()V"), nullptr}};
    vm.callNative([&] {
        EXPECT_EQ(env->RegisterNatives(env->FindClass("java/lang/Object"), methods, 1), 0);
    });
    EXPECT_EQ(vm.recorder().count("RegisterNatives(f)"), 1U);
}

TEST_F(Jni, injectedFaultsLookLikeTheVmsOwn) {
    vm.recorder().failNext("FindClass");
    vm.callNative([&] { EXPECT_EQ(env->FindClass("java/lang/Object"), nullptr); });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/NoClassDefFoundError: injected fault");
    vm.recorder().failNext("NewByteArray");
    vm.callNative([&] { EXPECT_EQ(env->NewByteArray(1), nullptr); });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/OutOfMemoryError: injected fault");
    vm.recorder().failNext("PushLocalFrame");
    vm.callNative([&] { EXPECT_NE(env->PushLocalFrame(1), 0); });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/OutOfMemoryError: injected fault");
    vm.recorder().failNext("NewGlobalRef");
    vm.callNative([&] { EXPECT_EQ(env->NewGlobalRef(env->NewStringUTF("x")), nullptr); });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

using JniDeathTest = Jni;

TEST_F(JniDeathTest, aFunctionThatIsNotScriptedNamesItself) {
    EXPECT_DEATH(env->GetPrimitiveArrayCritical(nullptr, nullptr),
                 "the JNI function GetPrimitiveArrayCritical is not scripted");
    EXPECT_DEATH(env->DefineClass("A", nullptr, nullptr, 0),
                 "the JNI function DefineClass is not scripted");
}

TEST_F(Jni, membersOfTheTablesCanBeTakenAway) {
    vm.jniTable().GetVersion = nullptr;
    EXPECT_EQ(env->functions->GetVersion, nullptr);
    vm.jvmpi()->GetCurrentThreadCpuTime = nullptr;
    EXPECT_EQ(vm.jvmpi()->GetCurrentThreadCpuTime, nullptr);
}

TEST_F(Jni, theJavaCollectorAnswersItsScript) {
    JavaCollector collector = makeCollector(vm);
    collector.script->freeBytes = 1LL << 33;
    collector.script->gcCollectionActive = true;
    vm.callNative([&] {
        const jobject object = vm.newLocalRef(vm.mainThread(), collector.object);
        const jclass cls = env->GetObjectClass(object);
        EXPECT_EQ(
            env->CallStaticIntMethod(cls, env->GetStaticMethodID(cls, "getBuildLevel", "()I")),
            1203318);
        EXPECT_EQ(
            env->CallStaticLongMethod(cls, env->GetStaticMethodID(cls, "getFreeBytes", "()J")),
            1LL << 33);
        EXPECT_EQ(
            env->CallStaticLongMethod(cls, env->GetStaticMethodID(cls, "getTotalBytes", "()J")),
            4000000);
        env->CallStaticVoidMethod(
            cls, env->GetStaticMethodID(cls, "writeToLog", "(Ljava/lang/String;)V"),
            env->NewStringUTF("hello"));
        const jmethodID active = env->GetMethodID(cls, "isGCCollectionActive", "()Z");
        EXPECT_EQ(env->CallBooleanMethod(object, active), JNI_TRUE);
        collector.script->throws = "java/lang/RuntimeException";
        EXPECT_EQ(env->CallBooleanMethod(object, active), JNI_FALSE);
    });
    EXPECT_THAT(collector.script->log, ElementsAre("hello"));
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/RuntimeException: scripted");
}

TEST_F(Jni, aCollectorMayLackMethods) {
    JavaCollector collector = makeCollector(vm, {"getFreeBytes"});
    EXPECT_EQ(collector.object->cls->find("getFreeBytes", "()J", true), nullptr);
    EXPECT_NE(collector.object->cls->find("getTotalBytes", "()J", true), nullptr);
}

TEST_F(Jni, requestsAndEntriesAnswer) {
    ScriptedObject& request = makeRequest(vm, 0x100000200LL, 7);
    ScriptedObject& entry = makeInstrumentedEntry(vm);
    vm.callNative([&] {
        const jobject object = vm.newLocalRef(vm.mainThread(), &request);
        EXPECT_EQ(env->CallLongMethod(object, request.cls->methodId("getType")), 0x100000200LL);
        EXPECT_EQ(env->CallIntMethod(object, request.cls->methodId("getThreadId")), 7);
        env->CallVoidMethod(vm.newLocalRef(vm.mainThread(), &entry),
                            entry.cls->methodId("setNumCpuSamples"), 1, 2, 3, 4);
    });
    EXPECT_EQ(vm.javaCalls().back(),
              "com/tessel/prb/workanalysis/InstrumentedMethodEntry.setNumCpuSamples(1, 2, 3, 4)");
}

TEST_F(Jni, currentThreadAndClassNamesAreRight) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    vm.callNative(worker, [&] {
        JNIEnv* own = worker.env();
        const jclass thread = own->FindClass("java/lang/Thread");
        const jobject current = own->CallStaticObjectMethod(
            thread, own->GetStaticMethodID(thread, "currentThread", "()Ljava/lang/Thread;"));
        EXPECT_EQ(vm.resolve(current), worker.object());
        const jclass meta = own->GetObjectClass(thread);
        const jobject name = own->CallObjectMethod(
            thread, own->GetMethodID(meta, "getName", "()Ljava/lang/String;"));
        EXPECT_EQ(vm.resolve(name)->text, "java.lang.Thread");
    });
}

TEST_F(Jni, logTextsLeaveTheDateOut) {
    const std::string log = "Tue Nov  2 10:00:00 2021  first  text\r\n"
                            "11/02/21 10:00:00  second\r\n"
                            "plain\r\n";
    EXPECT_THAT(TestFolder::textsOfLog(log), ElementsAre("first  text", "second", "plain"));
    EXPECT_EQ(readLog(), "");
    EXPECT_THAT(folder.files(), IsEmpty());
}

} // namespace
