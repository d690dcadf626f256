// What the native methods answer.
#include "tests/vm/collector/NativesTest.h"

#include "collector/NativeTraceTable.h"
#include "runtime/PRBJavaThread.h"

#include <cstdlib>
#include <functional>
#include <limits>
#include <pthread.h>
#include <unistd.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// ---- Profiler ----

TEST_F(Natives, initiateAnswersThePollsReturnCode) {
    ASSERT_NE(init(), 0);
    EXPECT_EQ(start(0x800), 0);
    EXPECT_EQ(stop(), 0);
}

TEST_F(Natives, workloadsAreCountedForTheCallingThreadUnderTheTable) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = vm.startThread({.name = "worker"});
    auto* thread = static_cast<PRBJavaThread*>(worker.localStorage());
    const auto set = [&](jboolean running) {
        vm.recorder().clear();
        vm.callNative(worker, [&] {
            NATIVE(Profiler, setWorkloadRunningOnCurrentThread)(worker.env(), nullptr, running);
        });
        EXPECT_EQ(vm.recorder().count("RawMonitorEnter(_ThreadTable)"), 1U);
        EXPECT_EQ(vm.recorder().count("RawMonitorExit(_ThreadTable)"), 1U);
        EXPECT_THAT(vm.recorder().callsHolding("_ThreadTable"), IsEmpty());
    };
    set(JNI_TRUE);
    set(JNI_TRUE);
    EXPECT_EQ(thread->getNumWorkloadsRunning(), 2);
    set(JNI_FALSE);
    EXPECT_EQ(thread->getNumWorkloadsRunning(), 1);
}

TEST_F(Natives, aThreadTheAgentDoesNotKnowHasNoWorkload) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& stranger = vm.addThread({.name = "stranger"});
    vm.recorder().failNext("RequestEvent");
    vm.callNative(stranger, [&] {
        NATIVE(Profiler, setWorkloadRunningOnCurrentThread)(stranger.env(), nullptr, JNI_TRUE);
    });
    EXPECT_EQ(stranger.localStorage(), nullptr);
}

TEST_F(Natives, instrumentedEntriesArePushedAndPoppedThroughEveryFormOfHandle) {
    ASSERT_NE(init(), 0);
    auto& entry = scripted::makeInstrumentedEntry(vm);
    auto* thread = static_cast<PRBJavaThread*>(vm.mainThread().localStorage());
    ASSERT_NE(thread, nullptr);
    vm.callNative([&] {
        const jlong registered =
            NATIVE(InstrumentedStack, registerWithProfilerNative)(vm.env(), nullptr);
        EXPECT_EQ(static_cast<std::uintptr_t>(registered),
                  static_cast<std::uintptr_t>(static_cast<jlong>(pthread_self())));
        jobject object = vm.newLocalRef(vm.mainThread(), &entry);
        for (jlong h : {registered, static_cast<jlong>(reinterpret_cast<std::intptr_t>(thread))}) {
            NATIVE(Profiler, createNewInstrumentedProfilingEntry)(vm.env(), nullptr, object, h);
            EXPECT_NE(thread->getTopMethodEntry(), nullptr);
            EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(vm.env(), nullptr, h), 1);
            NATIVE(Profiler, removeTopInstrumentedProfilingEntry)(vm.env(), nullptr, object, h);
            EXPECT_EQ(thread->getTopMethodEntry(), nullptr);
        }
    });
}

TEST_F(Natives, objectIdIsTheWordThatTheReferenceRefersTo) {
    std::uint32_t words[4] = {0x11223344, 0x55667788, 0, 0};
    for (std::uintptr_t tag : {0U, 1U, 2U, 3U}) {
        auto* ref = reinterpret_cast<jobject>(reinterpret_cast<std::uintptr_t>(words) | tag);
        EXPECT_EQ(NATIVE(Profiler, getObjectId)(nullptr, nullptr, ref), 0x11223344) << tag;
    }
    EXPECT_EQ(NATIVE(Profiler, getObjectId)(nullptr, nullptr, nullptr), 0);
}

TEST_F(Natives, objectSizeIsThatOfTheAgentsRecord) {
    ASSERT_NE(init(), 0);
    auto& cls = vm.addClass({.name = "com/x/Order"});
    auto& early = vm.allocate(vm.mainThread(), cls, 24);
    start(0x8000);
    auto& object = vm.allocate(vm.mainThread(), cls, 48);
    const auto sizeOf = [&](scripted::ScriptedObject* of) {
        jint size = -1;
        vm.callNative([&] {
            size = NATIVE(Profiler, getObjectSize)(vm.env(), nullptr,
                                                   vm.newLocalRef(vm.mainThread(), of));
        });
        return size;
    };
    EXPECT_EQ(sizeOf(&object), 48);
    EXPECT_EQ(sizeOf(nullptr), 0);
    vm.recorder().failNext("RequestEvent");
    EXPECT_EQ(sizeOf(&early), 0) << "unknown, and the VM does not tell";
    EXPECT_EQ(sizeOf(&early), 24) << "replayed";
}

// ---- Collector ----

TEST_F(Natives, collectionFiguresAreTheCollectors) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        EXPECT_EQ(NATIVE(Collector, getNumBytesFreeAtLastGC)(vm.env(), nullptr), -1);
        EXPECT_EQ(NATIVE(Collector, getTotalBytesAtLastGC)(vm.env(), nullptr), -1);
        EXPECT_EQ(NATIVE(Collector, getProfGCCPU)(vm.env(), nullptr), 0);
        collector().showProfilerGCStats(vm.env(), 10, 20, 30);
        EXPECT_EQ(NATIVE(Collector, getNumBytesFreeAtLastGC)(vm.env(), nullptr), 20);
        EXPECT_EQ(NATIVE(Collector, getTotalBytesAtLastGC)(vm.env(), nullptr), 30);
    });
    scripted::GcPlan plan;
    plan.cpu = 7000000;
    vm.collect(plan);
    vm.callNative([&] { EXPECT_EQ(NATIVE(Collector, getProfGCCPU)(vm.env(), nullptr), 7000000); });
}

TEST_F(Natives, theInternalTraceCutsClearsAndWraps) {
    vm.callNative([&] {
        const jlong h = NATIVE(Collector, initializeInternalTrace)(vm.env(), nullptr, 4, 2);
        const NativeTraceTable* table = NativeTraceTable::fromHandle(h);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->next(), table->start());
        const auto write = [&](const char* line) {
            NATIVE(Collector, writeToInternalTraceNative)(vm.env(), nullptr, h, text(line));
        };
        write("abcdef");
        write("gh");
        EXPECT_EQ(std::string(table->start(), 8), std::string("abcdgh\0\0", 8));
        write("i");
        EXPECT_EQ(std::string(table->start(), 8), std::string("i\0\0\0gh\0\0", 8));
        NATIVE(Collector, writeToInternalTraceNative)(vm.env(), nullptr, h, nullptr);
        EXPECT_EQ(table->next(), table->start() + 4);
        for (auto [size, entries] : {std::pair<jint, jint>{0, 1}, {1, 0}, {-1, -1}, {65536, 65536}})
            EXPECT_EQ(NATIVE(Collector, initializeInternalTrace)(vm.env(), nullptr, size, entries),
                      0);
    });
}

// ---- Globals and BackgroundThread ----

TEST_F(Natives, theOldestCompatibleJavaBuildLevelIs1203318) {
    for (auto [level, answer] : {std::pair<jint, jboolean>{1203317, JNI_FALSE},
                                 {1203318, JNI_TRUE},
                                 {1203319, JNI_TRUE},
                                 {0, JNI_FALSE},
                                 {-1, JNI_FALSE},
                                 {std::numeric_limits<jint>::max(), JNI_TRUE}})
        EXPECT_EQ(NATIVE(Globals, testJavaCompatibleBuildLevel)(vm.env(), nullptr, level), answer)
            << level;
}

TEST_F(Natives, theProfilerIsPresentOnceInitialised) {
    EXPECT_EQ(NATIVE(Globals, determineIfProfilerPresent)(vm.env(), nullptr), JNI_FALSE);
    init();
    EXPECT_EQ(NATIVE(Globals, determineIfProfilerPresent)(vm.env(), nullptr), JNI_TRUE);
}

TEST_F(Natives, theConfigurationFileComesFromTheStartupOptions) {
    const auto name = [&] {
        return call([&]() -> jobject {
            return NATIVE(Globals, getWorkloadConfigurationFileNameFromProfiler)(vm.env(), nullptr);
        });
    };
    EXPECT_EQ(name(), nullptr);
    PRBMonitorGlobal::setStartupOptions("port=9,workanalysisconfig=/x/y.xml");
    ASSERT_NE(name(), nullptr);
    EXPECT_EQ(name()->text, "/x/y.xml");
    PRBMonitorGlobal::setStartupOptions("workanalysisconfig=");
    EXPECT_EQ(name(), nullptr);
}

TEST_F(Natives, theWorkingDirectoryIsGivenUpTo511Bytes) {
    const auto directory = [&] {
        const auto* answer = call([&]() -> jobject {
            return NATIVE(Globals, getCurrentWorkingDirectoryNative)(vm.env(), nullptr);
        });
        return answer == nullptr ? std::string("(null)") : answer->text;
    };
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(directory(), here);
    const std::string part(100, 'd');
    std::vector<std::string> made;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(std::system(("mkdir " + part).c_str()), 0);
        ASSERT_EQ(chdir(part.c_str()), 0);
    }
    EXPECT_EQ(directory(), "");
    ASSERT_EQ(chdir(here), 0);
    ASSERT_EQ(std::system(("rm -r " + part).c_str()), 0);
}

TEST_F(Natives, processAndThreadIdsAreTheSystems) {
    EXPECT_EQ(NATIVE(BackgroundThread, getCurrentProcessIdNative)(vm.env(), nullptr), getpid());
}

TEST_F(Natives, whatOnlyZosHasIsNeutral) {
    vm.callNative([&] {
        JNIEnv* env = vm.env();
        EXPECT_EQ(NATIVE(BackgroundThread, getCurrentASIDNative)(env, nullptr), 0);
        EXPECT_EQ(NATIVE(BackgroundThread, getStartParms)(env, nullptr), nullptr);
        EXPECT_EQ(NATIVE(BackgroundThread, getCommandPromptParms)(env, nullptr), nullptr);
        EXPECT_EQ(NATIVE(BackgroundThread, getCurrentAddressSpaceName)(env, nullptr), nullptr);
        EXPECT_EQ(NATIVE(BackgroundThread, getCurrentAddressSpaceStartSTCKValue)(env, nullptr),
                  nullptr);
        EXPECT_EQ(NATIVE(InstrumentedMethodEntry, getMVSTCBAddress)(env, nullptr), 0);
        vm.recorder().clear();
        NATIVE(Globals, writeToMVSConsoleNative)(env, nullptr, text("text"));
        EXPECT_THAT(vm.jniCalls(), IsEmpty());
    });
}

// ---- InstrumentedStack ----

TEST_F(Natives, theStateOfAThreadIsItsModels) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = vm.startThread({.name = "worker"});
    auto* thread = static_cast<PRBJavaThread*>(worker.localStorage());
    const auto h = static_cast<jlong>(reinterpret_cast<std::intptr_t>(thread));
    for (int state = 1; state <= 4; ++state) {
        thread->setThreadState(static_cast<_ThreadState>(state));
        vm.callNative([&] {
            EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(vm.env(), nullptr, h), state);
        });
    }
    thread->setThreadState(kThreadRunning);
}

TEST_F(Natives, threadCpuTimeIsInMicrosecondsWhateverTheArgument) {
    ASSERT_NE(init(), 0);
    vm.mainThread().setCpuTime(123456789);
    for (jlong argument : {jlong{0}, jlong{-1}, handle})
        EXPECT_EQ(
            NATIVE(InstrumentedStack, getCurrentThreadCPUTimeNative)(vm.env(), nullptr, argument),
            123456);
}

// ---- texts ----

TEST_F(Natives, aHexDumpIsOneStringALine) {
    std::vector<jbyte> data(17, 'A');
    data[16] = '%';
    const auto lines = hexDump(data, "The title");
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], ::testing::StartsWith("The title   @"));
    EXPECT_EQ(lines[1], "0000-41414141 41414141 41414141 41414141 *AAAAAAAAAAAAAAAA*");
    EXPECT_THAT(lines[2], ::testing::StartsWith("0010-25 "));
    EXPECT_THAT(lines[2], HasSubstr("*%%"));
}

TEST_F(Natives, aHexDumpOfNothingIsTheTitle) {
    EXPECT_THAT(hexDump(std::vector<jbyte>{}, "The title"), ElementsAre("The title"));
    EXPECT_THAT(hexDump(std::nullopt, "The title"), ElementsAre("The title"));
    EXPECT_THAT(hexDump(std::nullopt, std::nullopt), ElementsAre(""));
}

TEST_F(Natives, aHexDumpWithoutATitleHasDataLinesOnly) {
    const auto lines = hexDump(std::vector<jbyte>{1}, std::nullopt);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], ::testing::StartsWith("0000-01"));
    EXPECT_EQ(hexDump(std::vector<jbyte>{1}, ""), lines);
}

TEST_F(Natives, aHexDumpOfManyLinesFitsAnyFrame) {
    const auto lines = hexDump(std::vector<jbyte>(16 * 1000, 'x'), "t");
    EXPECT_EQ(lines.size(), 1001U);
    EXPECT_THAT(lines[1000], HasSubstr("*xxxxxxxxxxxxxxxx*"));
}

TEST_F(Natives, textsAreConvertedToThemselves) {
    vm.callNative([&] {
        jstring same = text("text");
        vm.recorder().clear();
        EXPECT_EQ(NATIVE(TransportableData, convertText)(vm.env(), nullptr, same), same);
        EXPECT_THAT(vm.jniCalls(), IsEmpty());
    });
}

TEST_F(Natives, environmentHasAnElementPerEntryAndTheLastIsNull) {
    char** const real = environ;
    char a[] = "A=1", b[] = "B=2", c[] = "C=3";
    char* three[] = {a, b, c, nullptr};
    char* one[] = {a, nullptr};
    char* none[] = {nullptr};
    const auto get = [&](char** entries) {
        environ = entries;
        const auto* array = call([&]() -> jobject {
            return NATIVE(StaticConfigDataSampleSource, getEnvVars)(vm.env(), nullptr);
        });
        environ = real;
        return elements(array);
    };
    EXPECT_THAT(get(three), ElementsAre("A=1", "B=2", "(null)"));
    EXPECT_THAT(get(one), ElementsAre("(null)"));
    EXPECT_THAT(get(none), ElementsAre("(null array)"));
    EXPECT_THAT(get(nullptr), ElementsAre("(null array)"));
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(3)"), 1U);
}

} // namespace
