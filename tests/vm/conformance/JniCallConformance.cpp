// The JNI environments of the scripted VM, and the checks of their use: calls, exceptions and
// references.
#include "tests/vm/conformance/JniTest.h"

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(Jni, getPropertyAnswersTheScriptedText) {
    vm.systemProperties()["java.vm.version"] = "17.0.1";
    vm.callNative([&] {
        ASSERT_EQ(env->PushLocalFrame(16), 0);
        const jclass system = env->FindClass("java/lang/System");
        const jmethodID get =
            env->GetStaticMethodID(system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
        const jstring key = env->NewStringUTF("java.vm.version");
        const auto value = static_cast<jstring>(env->CallStaticObjectMethod(system, get, key));
        EXPECT_EQ(env->ExceptionCheck(), JNI_FALSE);
        EXPECT_EQ(env->GetStringUTFLength(value), 6);
        const char* text = env->GetStringUTFChars(value, nullptr);
        EXPECT_STREQ(text, "17.0.1");
        EXPECT_THAT(vm.unreleased(), ElementsAre("characters of \"17.0.1\""));
        env->ReleaseStringUTFChars(value, text);
        EXPECT_EQ(env->CallStaticObjectMethod(system, get, env->NewStringUTF("no.such")), nullptr);
        env->PopLocalFrame(nullptr);
    });
    EXPECT_THAT(vm.javaCalls(), ElementsAre("java/lang/System.getProperty(\"java.vm.version\")",
                                            "java/lang/System.getProperty(\"no.such\")"));
    EXPECT_EQ(vm.jniCalls().front(), "PushLocalFrame(16)");
    EXPECT_EQ(vm.recorder().count("CallStaticObjectMethod(java/lang/System.getProperty)"), 2U);
}

TEST_F(Jni, theThreeFormsOfArgumentsAreTheSame) {
    std::vector<std::string> got;
    ScriptedClass& cls =
        vm.addClass({.name = "A",
                     .methods = {{.name = "mix",
                                  .signature = "(IJZ[[ILjava/lang/String;BC)J",
                                  .body = [&](JavaCall& call) -> JavaValue {
                                      std::string text;
                                      for (const JavaValue& arg : call.args)
                                          text += std::to_string(arg.number) + " ";
                                      got.push_back(text + call.args[4].object->text);
                                      return call.args[1].number;
                                  }}}});
    ScriptedObject& object = vm.newObject(cls);
    vm.callNative([&] {
        const jobject self = vm.newLocalRef(vm.mainThread(), &object);
        const jstring text = env->NewStringUTF("x");
        const jmethodID id = cls.methodId("mix");
        const jlong big = 0x123456789abcLL;
        EXPECT_EQ(env->functions->CallLongMethod(env, self, id, jint{-1}, big, jboolean{1},
                                                 static_cast<jobject>(nullptr), text, jbyte{-2},
                                                 jchar{66}),
                  big);
        EXPECT_EQ(env->CallLongMethod(self, id, jint{-1}, big, jboolean{1},
                                      static_cast<jobject>(nullptr), text, jbyte{-2}, jchar{66}),
                  big);
        jvalue args[7] = {};
        args[0].i = -1;
        args[1].j = big;
        args[2].z = 1;
        args[4].l = text;
        args[5].b = -2;
        args[6].c = 66;
        EXPECT_EQ(env->CallLongMethodA(self, id, args), big);
    });
    ASSERT_EQ(got.size(), 3U);
    EXPECT_EQ(got[0], "-1 20015998343868 1 0 0 -2 66 x");
    EXPECT_EQ(got[1], got[0]);
    EXPECT_EQ(got[2], got[0]);
}

TEST_F(Jni, everyResultTypeComesBack) {
    ScriptedClass& cls = vm.addClass({
        .name = "A",
        .methods =
            {
                {.name = "v", .signature = "()V", .isStatic = true},
                {.name = "z",
                 .signature = "()Z",
                 .isStatic = true,
                 .body = [](JavaCall&) { return JavaValue(true); }},
                {.name = "i",
                 .signature = "()I",
                 .isStatic = true,
                 .body = [](JavaCall&) { return JavaValue(-7); }},
                {.name = "nv", .signature = "()V"},
                {.name = "nz",
                 .signature = "()Z",
                 .body = [](JavaCall&) { return JavaValue(true); }},
                {.name = "ni", .signature = "()I", .body = [](JavaCall&) { return JavaValue(-8); }},
                {.name = "no",
                 .signature = "()LA;",
                 .body = [](JavaCall& c) { return JavaValue(c.self); }},
            },
    });
    ScriptedObject& object = vm.newObject(cls);
    vm.callNative([&] {
        const auto mirror = vm.local<jclass>(vm.mainThread(), cls.mirror);
        const jobject self = vm.newLocalRef(vm.mainThread(), &object);
        env->CallStaticVoidMethod(mirror, cls.methodId("v"));
        EXPECT_EQ(env->CallStaticBooleanMethod(mirror, cls.methodId("z")), JNI_TRUE);
        EXPECT_EQ(env->CallStaticIntMethod(mirror, cls.methodId("i")), -7);
        env->CallVoidMethod(self, cls.methodId("nv"));
        EXPECT_EQ(env->CallBooleanMethod(self, cls.methodId("nz")), JNI_TRUE);
        EXPECT_EQ(env->CallIntMethod(self, cls.methodId("ni")), -8);
        EXPECT_EQ(vm.resolve(env->CallObjectMethod(self, cls.methodId("no"))), &object);
    });
}

TEST_F(Jni, wrongCallsAreViolations) {
    ScriptedClass& cls =
        vm.addClass({.name = "A",
                     .methods = {{.name = "s", .signature = "()I", .isStatic = true},
                                 {.name = "n", .signature = "()I"}}});
    ScriptedObject& string = vm.newString("x");
    vm.callNative([&] {
        const auto mirror = vm.local<jclass>(vm.mainThread(), cls.mirror);
        const jobject text = vm.newLocalRef(vm.mainThread(), &string);
        env->CallStaticLongMethod(mirror, cls.methodId("s"));
        env->CallIntMethod(text, cls.methodId("n"));
        env->CallIntMethod(nullptr, cls.methodId("n"));
        env->CallStaticIntMethod(mirror, cls.methodId("n"));
        env->CallStaticIntMethod(mirror, nullptr);
        env->CallStaticIntMethod(static_cast<jclass>(text), cls.methodId("s"));
    });
    EXPECT_THAT(violations(),
                ElementsAre(HasSubstr("A.s answers another type: ()I"),
                            HasSubstr("A.n of an object of class java/lang/String"),
                            HasSubstr("A.n of a null reference"), HasSubstr("A.n is not static"),
                            HasSubstr("is no method"), HasSubstr("a reference of the wrong type")));
}

TEST_F(Jni, lookUpsThatFailLeaveTheirErrorPending) {
    vm.hideClass("java/lang/System");
    vm.callNative([&] { EXPECT_EQ(env->FindClass("java/lang/System"), nullptr); });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/NoClassDefFoundError: java/lang/System");
    vm.callNative([&] {
        const jclass cls = env->FindClass("java/lang/Thread");
        EXPECT_NE(env->GetMethodID(cls, "stop", "()V"), nullptr);
        EXPECT_EQ(env->GetStaticMethodID(cls, "stop", "()V"), nullptr);
    });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/NoSuchMethodError: stop");
}

TEST_F(Jni, methodsAreInherited) {
    ScriptedClass& base =
        vm.addClass({.name = "B", .methods = {{.name = "m", .signature = "()V"}}});
    ScriptedClass& sub = vm.addClass({.name = "C", .superclass = "B"});
    vm.callNative([&] {
        const auto mirror = vm.local<jclass>(vm.mainThread(), sub.mirror);
        EXPECT_EQ(env->GetMethodID(mirror, "m", "()V"), base.methodId("m"));
        EXPECT_EQ(vm.resolve(env->GetSuperclass(mirror)), base.mirror);
        const jobject object = vm.newLocalRef(vm.mainThread(), &vm.newObject(sub));
        env->CallVoidMethod(object, base.methodId("m"));
        EXPECT_EQ(env->IsInstanceOf(object, vm.local<jclass>(vm.mainThread(), base.mirror)),
                  JNI_TRUE);
    });
}

TEST_F(Jni, anExceptionOfAMethodIsPendingUntilCleared) {
    ScriptedClass& cls = vm.addClass({.name = "A",
                                      .methods = {{.name = "m",
                                                   .signature = "()I",
                                                   .isStatic = true,
                                                   .body = [](JavaCall& call) -> JavaValue {
                                                       call.throwNew("java/lang/Error", "no");
                                                       return 5;
                                                   }}}});
    vm.callNative([&] {
        const auto mirror = vm.local<jclass>(vm.mainThread(), cls.mirror);
        EXPECT_EQ(env->CallStaticIntMethod(mirror, cls.methodId("m")), 0);
        EXPECT_EQ(env->ExceptionCheck(), JNI_TRUE);
        EXPECT_EQ(vm.resolve(env->ExceptionOccurred())->text, "no");
        env->ExceptionDescribe();
        EXPECT_THAT(violations(), IsEmpty());
        env->FindClass("java/lang/Object");
        EXPECT_THAT(violations(), ElementsAre("FindClass: called with java/lang/Error pending"));
        env->ExceptionClear();
        EXPECT_EQ(env->ExceptionOccurred(), nullptr);
        env->FindClass("java/lang/Object");
    });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(Jni, exceptionsAreThrown) {
    vm.callNative([&] {
        const jclass error = env->FindClass("java/lang/Error");
        EXPECT_EQ(env->ThrowNew(error, "first"), 0);
        const jthrowable thrown = env->ExceptionOccurred();
        env->ExceptionClear();
        EXPECT_EQ(env->Throw(thrown), 0);
    });
    EXPECT_EQ(vm.exceptionLeft(), "java/lang/Error: first");
    EXPECT_EQ(vm.pendingException(vm.mainThread()), nullptr);
    vm.throwOn(vm.mainThread(), "java/lang/ThreadDeath");
    EXPECT_NE(vm.pendingException(vm.mainThread()), nullptr);
    vm.clearException(vm.mainThread());
}

TEST_F(Jni, localReferencesDieWithTheirFrame) {
    vm.callNative([&] {
        env->PushLocalFrame(4);
        const jobject inner = env->NewStringUTF("inner");
        const jobject kept = env->PopLocalFrame(env->NewStringUTF("kept"));
        EXPECT_EQ(vm.resolve(kept)->text, "kept");
        env->GetObjectClass(inner);
    });
    EXPECT_THAT(violations(), ElementsAre(HasSubstr("GetObjectClass: the reference was deleted"),
                                          "GetObjectClass: a null reference"));
    jobject after = nullptr;
    vm.callNative([&] { after = env->NewStringUTF("x"); });
    EXPECT_EQ(vm.resolve(after), nullptr);
    EXPECT_EQ(violations().size(), 1U);
    EXPECT_EQ(vm.mainThread().localReferences(), 0U);
}

TEST_F(Jni, framesAreBalanced) {
    vm.callNative([&] { env->PushLocalFrame(4); });
    EXPECT_THAT(violations(), ElementsAre(HasSubstr("left 1 local frames pushed")));
    vm.callNative([&] { env->PopLocalFrame(nullptr); });
    EXPECT_THAT(violations(), ElementsAre("PopLocalFrame: no frame was pushed"));
}

TEST_F(Jni, aFrameHoldsWhatItWasMadeFor) {
    vm.callNative([&] {
        env->PushLocalFrame(2);
        const jobject first = env->NewStringUTF("1");
        env->NewStringUTF("2");
        env->DeleteLocalRef(first);
        env->NewStringUTF("2");
        EXPECT_THAT(violations(), IsEmpty());
        env->NewStringUTF("3");
        EXPECT_THAT(violations(), ElementsAre(HasSubstr("more than 2 local references")));
        EXPECT_EQ(env->EnsureLocalCapacity(10), 0);
        env->NewStringUTF("4");
        EXPECT_THAT(violations(), IsEmpty());
        env->PopLocalFrame(nullptr);
    });
}

TEST_F(Jni, globalReferencesOutliveTheCall) {
    jobject global = nullptr;
    vm.callNative([&] { global = env->NewGlobalRef(env->NewStringUTF("x")); });
    EXPECT_THAT(vm.globalReferences(), ElementsAre("\"x\""));
    vm.callNative([&] {
        EXPECT_EQ(env->GetObjectRefType(global), JNIGlobalRefType);
        EXPECT_EQ(env->IsSameObject(global, env->NewLocalRef(global)), JNI_TRUE);
    });
    env->DeleteGlobalRef(global);
    EXPECT_THAT(vm.globalReferences(), IsEmpty());
    env->DeleteGlobalRef(global);
    EXPECT_THAT(violations(), ElementsAre(HasSubstr("DeleteGlobalRef: the reference was deleted")));
}

TEST_F(Jni, aWeakReferenceAnswersNullOnceItsObjectIsFreed) {
    ScriptedObject& object = vm.allocate(vm.mainThread(), vm.addClass({.name = "A"}), 16);
    vm.callNative([&] {
        const jweak weak = env->NewWeakGlobalRef(vm.newLocalRef(vm.mainThread(), &object));
        EXPECT_NE(env->NewLocalRef(weak), nullptr);
        vm.collect({.frees = {&object}});
        EXPECT_EQ(env->NewLocalRef(weak), nullptr);
        env->DeleteWeakGlobalRef(weak);
    });
}

TEST_F(Jni, badReferencesAreViolations) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    int garbage = 0;
    vm.callNative([&] {
        const jobject local = env->NewStringUTF("x");
        env->NewLocalRef(reinterpret_cast<jobject>(&garbage));
        env->DeleteGlobalRef(local);
        env->DeleteLocalRef(local);
        env->DeleteLocalRef(local);
        env->NewLocalRef(vm.newLocalRef(worker, &vm.newString("y")));
        env->GetStringUTFLength(nullptr);
        env->GetStringUTFLength(
            static_cast<jstring>(static_cast<jobject>(env->FindClass("java/lang/Object"))));
    });
    EXPECT_THAT(violations(),
                ElementsAre(HasSubstr("is no reference"), HasSubstr("another kind of reference"),
                            HasSubstr("was deleted"),
                            HasSubstr("a local reference of thread worker"),
                            HasSubstr("a null reference"), HasSubstr("of the wrong type")));
}

} // namespace
