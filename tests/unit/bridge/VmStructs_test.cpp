#include "bridge/VmStructs.h"

#include <gtest/gtest.h>

#include "FakeVm.h"

namespace bridge {
namespace {

jlong eetop(const FakeJavaThread& thread) {
    return static_cast<jlong>(reinterpret_cast<std::uintptr_t>(&thread));
}

TEST(VmStructs, ReadsTheTableByTheLayoutThatTheVmExports) {
    FakeSymbols symbols;
    VmStructs vm;
    ASSERT_TRUE(vm.resolve(symbols.lookup())) << vm.problem();
    EXPECT_EQ(vm.problem(), "");
    EXPECT_FALSE(vm.ready());
    EXPECT_EQ(vm.fieldOffset("OSThread", "_state"), offsetof(FakeOsThread, state));
    EXPECT_EQ(vm.fieldOffset("OSThread", "_nothing"), std::nullopt);
    EXPECT_EQ(vm.fieldOffset("Universe", "_heap"), std::nullopt);
    EXPECT_EQ(vm.staticAddress("Universe", "_heap"), &symbols.heap);
    EXPECT_EQ(vm.staticAddress("OSThread", "_state"), nullptr);
    EXPECT_EQ(vm.asyncGetCallTrace(), &fakeWalk);
}

TEST(VmStructs, TheOsThreadMayBeListedUnderEitherType) {
    FakeSymbols symbols;
    symbols.remove("Thread", "_osthread");
    symbols.add("JavaThread", "_osthread", offsetof(FakeJavaThread, osThread));
    VmStructs vm;
    ASSERT_TRUE(vm.resolve(symbols.lookup())) << vm.problem();
    FakeJavaThread self;
    self.os.threadId = gettid();
    EXPECT_TRUE(vm.verify(self.env(), eetop(self))) << vm.problem();
}

TEST(VmStructs, TheBoundsOfTheCodeCacheAreWelcomeButNotNeeded) {
    FakeSymbols without;
    VmStructs vm;
    ASSERT_TRUE(vm.resolve(without.lookup()));
    EXPECT_FALSE(vm.codeRange().known());
    std::uintptr_t low = 100;
    std::uintptr_t high = 200;
    FakeSymbols with;
    with.add("CodeCache", "_low_bound", 0, &low);
    with.add("CodeCache", "_high_bound", 0, &high);
    VmStructs other;
    ASSERT_TRUE(other.resolve(with.lookup()));
    ASSERT_TRUE(other.codeRange().known());
    EXPECT_FALSE(other.codeRange().contains(99));
    EXPECT_TRUE(other.codeRange().contains(100));
    high = 300; // read at the time of the question
    EXPECT_TRUE(other.codeRange().contains(299));
    EXPECT_FALSE(other.codeRange().contains(300));
}

TEST(VmStructs, VerifiesAgainstTheCallingThread) {
    FakeSymbols symbols;
    VmStructs vm;
    ASSERT_TRUE(vm.resolve(symbols.lookup()));
    FakeJavaThread self;
    self.os.threadId = gettid();
    ASSERT_TRUE(vm.verify(self.env(), eetop(self))) << vm.problem();
    EXPECT_TRUE(vm.ready());

    FakeJavaThread other;
    other.os.threadId = 4711;
    other.os.state = 5;
    other.threadState = VmStructs::kBlocked;
    EXPECT_EQ(vm.javaThreadOf(other.env()), &other);
    EXPECT_EQ(vm.envOf(eetop(other)), other.env());
    EXPECT_TRUE(vm.sameFunctions(other.env()));
    EXPECT_EQ(vm.osThreadId(&other), 4711);
    EXPECT_EQ(vm.osThreadState(&other), 5);
    EXPECT_EQ(vm.threadState(&other), VmStructs::kBlocked);
    other.osThread = nullptr; // not started yet
    EXPECT_EQ(vm.osThreadId(&other), 0);
    EXPECT_EQ(vm.osThreadState(&other), -1);
    int elsewhere = 0;
    other.functions = &elsewhere;
    EXPECT_FALSE(vm.sameFunctions(other.env()));
}

TEST(VmStructs, SaysWhichSymbolIsMissing) {
    const std::pair<const char*, const char*> cases[] = {
        {"gHotSpotVMStructs", "the JVM does not export gHotSpotVMStructs: it is not HotSpot"},
        {"gHotSpotVMStructEntryArrayStride",
         "the JVM does not export gHotSpotVMStructEntryArrayStride"},
        {"AsyncGetCallTrace", "the JVM does not export AsyncGetCallTrace"},
    };
    for (const auto& [symbol, problem] : cases) {
        FakeSymbols symbols;
        symbols.missing = symbol;
        VmStructs vm;
        EXPECT_FALSE(vm.resolve(symbols.lookup()));
        EXPECT_EQ(vm.problem(), problem);
    }
}

TEST(VmStructs, SaysWhichFieldIsMissing) {
    const std::pair<const char*, const char*> cases[] = {{"Thread", "_osthread"},
                                                         {"OSThread", "_thread_id"},
                                                         {"OSThread", "_state"},
                                                         {"JavaThread", "_thread_state"}};
    for (const auto& [type, field] : cases) {
        FakeSymbols symbols;
        symbols.remove(type, field);
        VmStructs vm;
        EXPECT_FALSE(vm.resolve(symbols.lookup()));
        EXPECT_EQ(vm.problem(), std::string("the JVM's table gHotSpotVMStructs does not name ") +
                                    type + "::" + field);
        FakeJavaThread self;
        EXPECT_FALSE(vm.verify(self.env(), eetop(self)));
        EXPECT_FALSE(vm.ready());
    }
}

TEST(VmStructs, RefusesALayoutThatCannotBe) {
    for (const std::uint64_t stride : {std::uint64_t{0}, std::uint64_t{1} << 40}) {
        FakeSymbols symbols;
        symbols.set("gHotSpotVMStructEntryArrayStride", stride);
        VmStructs vm;
        EXPECT_FALSE(vm.resolve(symbols.lookup()));
        EXPECT_EQ(vm.problem(), "the JVM exports an impossible gHotSpotVMStructEntryArrayStride");
    }
}

TEST(VmStructs, RefusesWhatDisagreesWithTheCallingThread) {
    struct Case {
        void (*spoil)(FakeJavaThread&);
        const char* problem;
    };
    const Case cases[] = {
        {[](FakeJavaThread& thread) { thread.os.threadId++; },
         "OSThread::_thread_id is not the thread's id"},
        {[](FakeJavaThread& thread) { thread.os.state = 7; },
         "OSThread::_state of the running thread is 7 and not 2"},
        {[](FakeJavaThread& thread) { thread.threadState = VmStructs::kInJava; },
         "JavaThread::_thread_state of a thread in native code is 8 and not 4"},
    };
    for (const Case& item : cases) {
        FakeSymbols symbols;
        VmStructs vm;
        ASSERT_TRUE(vm.resolve(symbols.lookup()));
        FakeJavaThread self;
        self.os.threadId = gettid();
        item.spoil(self);
        EXPECT_FALSE(vm.verify(self.env(), eetop(self)));
        EXPECT_EQ(vm.problem(), item.problem);
        EXPECT_FALSE(vm.ready());
    }
    FakeSymbols symbols;
    VmStructs vm;
    ASSERT_TRUE(vm.resolve(symbols.lookup()));
    FakeJavaThread self;
    EXPECT_FALSE(vm.verify(self.env(), 0));
    EXPECT_EQ(vm.problem(), "Thread.eetop and the thread's JNIEnv do not belong together");
}

TEST(VmStructs, AProcessWithoutAJvmIsRefused) {
    VmStructs vm;
    EXPECT_FALSE(vm.resolve());
    EXPECT_EQ(vm.problem(), "this process has no libjvm.so: the JVM is not HotSpot");
}

} // namespace
} // namespace bridge
