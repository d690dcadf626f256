// The Java object of a thread, and stopping a thread through it.
#include "runtime/PRBGlobalReferences.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

class ThreadObject : public RuntimeTest {
protected:
    void SetUp() override {
        RuntimeTest::SetUp();
        worker = &startThread("worker").model;
        scripted = vm.findThread("worker");
        vm.recorder().clear();
    }
    jobject find(_FindJavaThreadObject mode = kFindThreadObject) {
        jobject found = nullptr;
        vm.callNative(*scripted, [&] { found = worker->getJavaThreadObject(mode); });
        return found;
    }
    // Thread.stop throws this when called.
    void stopThrows(const char* exception) {
        vm.findClass("java/lang/Thread")->method("stop").spec.body =
            [exception](scripted::JavaCall& call) {
                if (*exception != '\0') call.throwNew(exception);
                return scripted::JavaValue{};
            };
    }
    unsigned kill() {
        unsigned rc = 0;
        vm.callNative(*scripted, [&] { rc = worker->killThread(nullptr); });
        return rc;
    }

    PRBJavaThread* worker = nullptr;
    ScriptedThread* scripted = nullptr;
};

TEST_F(ThreadObject, isLookedUpOnceInAFrameOfSixteenAndCached) {
    EXPECT_EQ(find(kCachedThreadObject), nullptr);
    EXPECT_EQ(vm.recorder().count("FindClass"), 0u);
    jobject first = find();
    EXPECT_EQ(vm.resolve(first), scripted->object());
    EXPECT_EQ(find(), first);
    EXPECT_EQ(find(kCachedThreadObject), first);
    EXPECT_EQ(vm.recorder().count("CallStaticObjectMethod"), 1u);
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1u);
    EXPECT_EQ(vm.recorder().count("PopLocalFrame"), 1u);
    EXPECT_EQ(vm.recorder().count("NewGlobalRef"), 1u);
}

TEST_F(ThreadObject, isNotLookedUpOnAnotherThread) {
    vm.callNative([&] { EXPECT_EQ(worker->getJavaThreadObject(kFindThreadObject), nullptr); });
    EXPECT_EQ(vm.recorder().count("CallStaticObjectMethod"), 0u);
}

TEST_F(ThreadObject, anExceptionIsDescribedAndClearedAndNothingCached) {
    vm.findClass("java/lang/Thread")->method("currentThread").spec.body =
        [](scripted::JavaCall& call) {
            call.throwNew("java/lang/Error");
            return scripted::JavaValue{};
        };
    EXPECT_EQ(find(), nullptr);
    EXPECT_EQ(vm.recorder().count("ExceptionDescribe"), 1u);
    EXPECT_EQ(vm.recorder().count("ExceptionClear"), 1u);
    EXPECT_EQ(vm.exceptionLeft(), "");
    EXPECT_EQ(find(kCachedThreadObject), nullptr);
}

TEST_F(ThreadObject, isDeletedOnceThroughTheCallersEnvironment) {
    const auto before = vm.globalReferences().size();
    find();
    EXPECT_EQ(vm.globalReferences().size(), before + 1);
    vm.callNative([&] { // not the thread's own
        worker->destroyJavaThreadObject();
        worker->destroyJavaThreadObject();
    });
    EXPECT_EQ(vm.globalReferences().size(), before);
    EXPECT_EQ(vm.recorder().count("DeleteGlobalRef"), 1u);
    EXPECT_EQ(find(kCachedThreadObject), nullptr);
}

TEST_F(ThreadObject, withoutAnEnvironmentTheDeletionIsPutOff) {
    const auto before = vm.globalReferences().size();
    find();
    vm.vmThread().run([&] { worker->destroyJavaThreadObject(); });
    EXPECT_EQ(vm.globalReferences().size(), before + 1);
    EXPECT_EQ(PRBGlobalReferences::pending(), 1u);
    vm.callNative([&] { PRBGlobalReferences::drain(vm.env()); });
    EXPECT_EQ(vm.globalReferences().size(), before);
    EXPECT_EQ(PRBGlobalReferences::pending(), 0u);
}

TEST_F(ThreadObject, stoppingTheOwnThreadLeavesItsDeathPending) {
    stopThrows("java/lang/ThreadDeath");
    EXPECT_EQ(kill(), 0u);
    EXPECT_THAT(vm.exceptionLeft(), testing::StartsWith("java/lang/ThreadDeath"));
}

TEST_F(ThreadObject, aVmThatNoLongerStopsThreadsDoesNotHarmTheProgram) {
    stopThrows("java/lang/UnsupportedOperationException");
    EXPECT_EQ(kill(), 73u);
    EXPECT_EQ(vm.exceptionLeft(), "");
    EXPECT_EQ(vm.recorder().count("ExceptionDescribe"), 1u);
}

TEST_F(ThreadObject, stoppingSucceedsWithoutException) {
    stopThrows("");
    EXPECT_EQ(kill(), 0u);
    EXPECT_EQ(vm.recorder().count("java/lang/Thread.stop()"), 1u);
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(ThreadObject, anExceptionThroughAGivenEnvironmentIsCode73) {
    stopThrows("java/lang/ThreadDeath");
    find();
    unsigned rc = 0;
    vm.callNative([&] { rc = worker->killThread(vm.env()); });
    EXPECT_EQ(rc, 73u);
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(ThreadObject, aMissingClassIsCode74) {
    vm.hideClass("java/lang/Thread");
    EXPECT_EQ(kill(), 74u);
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(ThreadObject, aMissingMethodIsCode75) {
    vm.recorder().failNext("GetMethodID");
    EXPECT_EQ(kill(), 75u);
    EXPECT_EQ(vm.exceptionLeft(), "");
}

} // namespace
