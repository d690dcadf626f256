#include "tests/vm/core/CoreTest.h"

#include <atomic>
#include <vector>

using namespace scripted;

namespace {

class JavaVersion : public CoreTest {
protected:
    std::string property(const char* name) {
        std::string value;
        vm.callNative([&] { value = monitor.getJavaProperty(vm.env(), name, rc); });
        return value;
    }
    std::string version() {
        std::string value;
        vm.callNative([&] { value = monitor.getJavaVersion(vm.env()); });
        return value;
    }
    std::size_t frames(const char* name) { return vm.recorder().count(name); }
    PRBMonitorGlobal& monitor = start();
    PRBReturnCode rc;
};

} // namespace

TEST_F(JavaVersion, aPropertyIsAskedInAFrameOfItsOwn) {
    vm.systemProperties()["com.x"] = "a value";
    EXPECT_EQ(property("com.x"), "a value");
    EXPECT_TRUE(rc.OK());
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1u);
    EXPECT_EQ(frames("PopLocalFrame"), 1u);
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(JavaVersion, everyFailureHasItsCodeAndPopsTheFrame) {
    struct {
        const char* failing;
        unsigned code;
    } const cases[] = {
        {"FindClass", 67},    {"GetStaticMethodID", 68}, {"CallStaticObjectMethod", 73},
        {"NewStringUTF", 73}, {"GetStringUTFChars", 69}, {nullptr, 69},
    };
    vm.systemProperties()["com.x"] = "a value";
    for (const auto& c : cases) {
        vm.recorder().clear();
        if (c.failing != nullptr) vm.recorder().failNext(c.failing);
        EXPECT_EQ(property(c.failing == nullptr ? "no.such.property" : "com.x"), "");
        EXPECT_EQ(static_cast<unsigned>(rc), c.code) << (c.failing ? c.failing : "absent");
        EXPECT_EQ(frames("PopLocalFrame"), 1u);
        EXPECT_EQ(vm.exceptionLeft(), "");
        if (c.code == 73) {
            EXPECT_EQ(frames("ExceptionDescribe"), 1u);
        }
    }
}

TEST_F(JavaVersion, isAskedOnceAndCached) {
    vm.systemProperties()["java.vm.version"] = "17.0.1+12";
    EXPECT_EQ(version(), "17.0.1+12");
    vm.systemProperties()["java.vm.version"] = "99";
    EXPECT_EQ(version(), "17.0.1+12");
    EXPECT_EQ(frames("FindClass"), 1u);
}

TEST_F(JavaVersion, aFailedLookUpIsABlankForGood) {
    vm.recorder().failNext("FindClass");
    EXPECT_EQ(version(), " ");
    EXPECT_EQ(version(), " ");
    EXPECT_EQ(frames("FindClass"), 1u);
}

TEST_F(JavaVersion, isToldWhenDebugIsOn) {
    PRBTrace::level.store(0x200);
    vm.systemProperties()["java.vm.version"] = "17.0.1+12";
    vm.callNative([&] { EXPECT_TRUE(monitor.determineJavaVersion(vm.env()).OK()); });
    PRBTrace::level.store(0);
    EXPECT_TRUE(logged("Detected Java version is 17.0.1+12"));
}

TEST_F(JavaVersion, aLaterAnswerReplacesTheEarlier) {
    vm.recorder().failNext("FindClass");
    EXPECT_EQ(version(), " ");
    vm.systemProperties()["java.vm.version"] = "17.0.1+12";
    for (int i = 0; i < 2; ++i) // the same answer twice
        vm.callNative([&] { EXPECT_TRUE(monitor.determineJavaVersion(vm.env()).OK()); });
    EXPECT_EQ(version(), "17.0.1+12");
}

TEST_F(JavaVersion, mayBeAskedByManyThreads) {
    vm.systemProperties()["java.vm.version"] = "17.0.1+12";
    std::vector<ScriptedThread*> threads;
    for (const char* name : {"a", "b", "c"}) {
        threads.push_back(&vm.addThread({.name = name}));
        threads.back()->startReal();
    }
    std::atomic<int> right{0};
    for (ScriptedThread* thread : threads) {
        thread->post([&, thread] {
            vm.callNative(*thread, [&] {
                for (int i = 0; i < 50; ++i) {
                    if (i % 10 == 0) monitor.determineJavaVersion(thread->env());
                    right += monitor.getJavaVersion(thread->env()) == "17.0.1+12" ? 1 : 0;
                }
            });
        });
    }
    for (ScriptedThread* thread : threads) {
        thread->waitIdle();
        thread->stopReal();
    }
    EXPECT_EQ(right, 150);
}
