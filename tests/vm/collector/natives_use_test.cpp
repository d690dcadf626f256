// How the native methods may be called: before initialisation, with garbage, by strangers, and what
// they trace.
#include "tests/vm/collector/NativesTest.h"

#include "collector/NativeTraceTable.h"
#include "runtime/PRBJavaThread.h"

#include <limits>
#include <pthread.h>
#include <thread>
#include <unistd.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// ---- before initialisation ----

TEST_F(Natives, beforeInitialisationEachAnswersItsNeutralValue) {
    vm.callNative([&] {
        JNIEnv* env = vm.env();
        callAllWith(0);
        EXPECT_EQ(NATIVE(Collector, getNumBytesFreeAtLastGC)(env, nullptr), -1);
        EXPECT_EQ(NATIVE(Collector, getTotalBytesAtLastGC)(env, nullptr), -1);
        EXPECT_EQ(NATIVE(Collector, getProfGCCPU)(env, nullptr), -1);
        EXPECT_EQ(NATIVE(Globals, determineIfProfilerPresent)(env, nullptr), JNI_FALSE);
        EXPECT_EQ(NATIVE(Globals, getNativeLibraryBuildLevel)(env, nullptr), 1204019);
        jobject object = vm.newLocalRef(vm.mainThread(), &vm.newObject("java/lang/Object"));
        EXPECT_EQ(NATIVE(Profiler, getObjectSize)(env, nullptr, object), 0);
        EXPECT_GE(NATIVE(InstrumentedStack, getCurrentThreadCPUTimeNative)(env, nullptr, 0), 0);
    });
    expectNeutral(0);
    EXPECT_THAT(folder.files(), IsEmpty()) << "nothing is logged";
}

TEST_F(Natives, withoutAProfilerInterfaceEachAnswersItsNeutralValue) {
    vm.refuseJvmpi(JNI_EVERSION);
    ASSERT_EQ(init(), 0);
    vm.callNative([&] { callAllWith(0); });
    expectNeutral(0);
}

// ---- handles ----

TEST_F(Natives, garbageHandlesGiveNeutralAnswers) {
    ASSERT_NE(init(), 0);
    static int innocent;
    const jlong handles[] = {0,
                             1,
                             -1,
                             0x7F7F7F7F7F7F7F7FLL,
                             std::numeric_limits<jlong>::min(),
                             std::numeric_limits<jlong>::max(),
                             handle + 4,
                             handle - 4,
                             handle | 1,
                             reinterpret_cast<std::intptr_t>(&innocent)};
    vm.recorder().clear();
    for (jlong h : handles) expectNeutral(h);
    EXPECT_THAT(vm.recorder().textsOf({"EnableEvent"}), IsEmpty());
    EXPECT_EQ(collector().getCollectionType(), 0U);
}

TEST_F(Natives, handlesOfOneKindAreNoHandlesOfAnother) {
    ASSERT_NE(init(), 0);
    jlong table = 0;
    vm.callNative([&] {
        table = NATIVE(Collector, initializeInternalTrace)(vm.env(), nullptr, 4, 2);
        EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(vm.env(), nullptr, handle), 0);
        NATIVE(Collector, writeToInternalTraceNative)(vm.env(), nullptr, handle, text("text"));
    });
    expectNeutral(table - 1);
    EXPECT_EQ(NativeTraceTable::fromHandle(table)->next(),
              NativeTraceTable::fromHandle(table)->start());
}

TEST_F(Natives, aHandleOfAPurgedThreadIsStale) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = vm.startThread({.name = "worker"});
    const auto thread = static_cast<jlong>(reinterpret_cast<std::intptr_t>(worker.localStorage()));
    ASSERT_NE(thread, 0);
    vm.callNative([&] {
        EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(vm.env(), nullptr, thread), 1);
    });
    vm.endThread(worker);
    vm.callNative([&] {
        EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(vm.env(), nullptr, thread), 4);
    });
    start(0x200);
    pollBytes();
    expectNeutral(thread);
}

// ---- trace ----

TEST_F(Natives, eachIsTracedUnderItsName) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    vm.callNative([&] { callAllWith(0); });
    const std::string prefix = "Java_com_tessel_prb_workanalysis_";
    Texts entries, exits;
    for (const std::string& line : logTexts()) {
        if (line.find(prefix) != 0) continue;
        const std::size_t blank = line.find(' ');
        const std::string name = line.substr(prefix.size(), blank - prefix.size());
        const std::string rest = line.substr(blank);
        if (rest == " Entry")
            entries.push_back(name);
        else
            exits.push_back(name + rest);
    }
    entries.erase(entries.begin(),
                  std::find(entries.begin(), entries.end(), "Profiler_handleInitiateCollection"));
    EXPECT_EQ(
        entries,
        (Texts{"Profiler_handleInitiateCollection", "Profiler_handleStopCollection",
               "Profiler_getProfilerData", "Profiler_setWorkloadRunningOnCurrentThread",
               "Profiler_createNewInstrumentedProfilingEntry",
               "Profiler_removeTopInstrumentedProfilingEntry",
               "Profiler_getReferencesToObjects", // without its suffix
               "Profiler_getObjectId", "Profiler_getObjectSize",
               "Collector_getNumBytesFreeAtLastGC",
               "Collector_getNumBytesFreeAtLastGC", // the total's
               "Collector_getProfGCCPU", "Collector_initializeInternalTrace",
               "Collector_writeToInternalTraceNative", "Globals_determineIfProfilerPresent",
               // The build level is not traced.
               "Globals_testJavaCompatibleBuildLevel",
               "Globals_getWorkloadConfigurationFileNameFromProfiler",
               "Globals_getCurrentWorkingDirectoryNative",
               "Globals_writeToMVSConsole", // without its suffix
               "BackgroundThread_getCurrentProcessIdNative",
               "BackgroundThread_getCurrentASID", // without its suffix
               "BackgroundThread_getStartParms", "BackgroundThread_getCommandPromptParms",
               "BackgroundThread_getCurrentAddressSpaceName",
               "BackgroundThread_getCurrentAddressSpaceStartSTCKValue",
               "InstrumentedMethodEntry_getMVSTCBAddress",
               "InstrumentedStack_registerWithProfilerNative", "InstrumentedStack_getStateNative",
               "Profiler_getObjectSize", // the thread's CPU time's
               "AgentConnection_createHexDumpString", "TransportableData_convertText",
               "StaticConfigDataSampleSource_getEnvVars"}));
    EXPECT_THAT(exits, Contains("Profiler_handleStopCollection Exit with return value 0"));
    EXPECT_THAT(exits, Contains("Profiler_getProfilerData Exit"));
    EXPECT_THAT(exits, Contains("Profiler_setWorkloadRunningOnCurrentThread Exit"));
    EXPECT_THAT(exits, Contains("Globals_testJavaCompatibleBuildLevel Exit with return value 1"));
    EXPECT_THAT(exits, Contains("Collector_getNumBytesFreeAtLastGC Exit with return value -1"));
}

// ---- bad input ----

TEST_F(Natives, nullArgumentsAreTakenEverywhere) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] { callAllWith(handle); });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(Natives, aThreadThatTheAgentHasNeverSeenMayCallEverything) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& stranger = vm.addThread({.name = "stranger"});
    vm.setUnsupported(JVMPI_EVENT_THREAD_START);
    vm.callNative(stranger, [&] {
        EXPECT_EQ(NATIVE(Profiler, handleStopCollection)(stranger.env(), nullptr, handle), 0);
        NATIVE(Profiler, setWorkloadRunningOnCurrentThread)(stranger.env(), nullptr, JNI_FALSE);
        EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(stranger.env(), nullptr,
                                                            static_cast<jlong>(pthread_self())),
                  0);
    });
}

TEST_F(Natives, aThreadThatTheAgentHasNeverSeenMayCallEachWithEveryHandle) {
    ASSERT_NE(init(), 0);
    auto* known = static_cast<PRBJavaThread*>(vm.mainThread().localStorage());
    vm.setUnsupported(JVMPI_EVENT_THREAD_START);
    scripted::ScriptedThread& stranger = vm.startThread({.name = "stranger"}, true);
    scripted::ScriptedThread& foreign = vm.addThread({.name = "foreign"});
    for (scripted::ScriptedThread* caller : {&stranger, &foreign}) {
        for (jlong h : {handle, static_cast<jlong>(reinterpret_cast<std::intptr_t>(known))})
            vm.callNative(*caller, [&] { callAll(caller->env(), h); });
        EXPECT_EQ(vm.exceptionLeft(), "");
        EXPECT_THAT(caller->heldMonitors(), IsEmpty());
    }
    EXPECT_EQ(foreign.localStorage(), nullptr);
    EXPECT_EQ(known->getTopMethodEntry(), nullptr);
    start(0x80000);
    EXPECT_EQ(poll().size(), 1U);
    stranger.stopReal();
}

TEST_F(Natives, aThreadThatIsNotAttachedGetsNeutralAnswersAndChangesNothing) {
    std::thread([&] { callAll(nullptr, 0); }).join();
    ASSERT_NE(init(), 0);
    start(0x80000);
    auto* known = static_cast<PRBJavaThread*>(vm.mainThread().localStorage());
    const auto thread = static_cast<jlong>(reinterpret_cast<std::intptr_t>(known));
    jbyteArray data = vm.local<jbyteArray>(vm.mainThread(), &vm.newBytes({1, 2, 3}));
    std::thread([&] {
        for (jlong h : {jlong{0}, handle, thread, static_cast<jlong>(pthread_self())})
            callAll(nullptr, h);
        EXPECT_EQ(NATIVE(Profiler, InitProfiler)(nullptr, nullptr, nullptr, nullptr), handle);
        EXPECT_EQ(NATIVE(Profiler, handleInitiateCollection)(nullptr, nullptr, handle, 0x800, 0, 5,
                                                             nullptr, nullptr),
                  0);
        EXPECT_EQ(NATIVE(Profiler, getProfilerData)(nullptr, nullptr, handle, 0, nullptr), nullptr);
        EXPECT_EQ(NATIVE(AgentConnection, createHexDumpString)(nullptr, nullptr, data, nullptr),
                  nullptr);
        EXPECT_EQ(NATIVE(StaticConfigDataSampleSource, getEnvVars)(nullptr, nullptr), nullptr);
        EXPECT_EQ(NATIVE(Globals, getCurrentWorkingDirectoryNative)(nullptr, nullptr), nullptr);
        EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(nullptr, nullptr, thread), 1);
        EXPECT_EQ(NATIVE(InstrumentedStack, registerWithProfilerNative)(nullptr, nullptr),
                  static_cast<jlong>(static_cast<std::intptr_t>(pthread_self())));
        EXPECT_EQ(NATIVE(BackgroundThread, getCurrentProcessIdNative)(nullptr, nullptr), getpid());
    }).join();
    EXPECT_EQ(collector().getCollectionType(), 0x80000U);
    EXPECT_FALSE(vm.enabled(JVMPI_EVENT_MONITOR_CONTENDED_ENTER));
    EXPECT_EQ(poll().size(), 1U);
}

TEST_F(Natives, objectsOfAnyTypeAreTakenWhereverJavaAllowsThem) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    auto& cls = vm.addClass({.name = "com/x/Order"});
    auto* thread = static_cast<PRBJavaThread*>(vm.mainThread().localStorage());
    const auto h = static_cast<jlong>(reinterpret_cast<std::intptr_t>(thread));
    for (scripted::ScriptedObject* object :
         {&vm.newString("text"), &vm.newBytes({1, 2}), &vm.newObjectArray({nullptr}), cls.mirror,
          &vm.newObject(cls), vm.mainThread().object(), java.object}) {
        const auto records = poll(object);
        ASSERT_EQ(records.size(), 1U) << "as without a request";
        EXPECT_EQ(records[0].sampleType, 18);
        vm.callNative([&] {
            JNIEnv* env = vm.env();
            jobject ref = vm.newLocalRef(vm.mainThread(), object);
            EXPECT_EQ(NATIVE(Profiler, InitProfiler)(env, nullptr, nullptr, ref), handle);
            EXPECT_EQ(NATIVE(TransportableData, convertText)(env, nullptr, ref), ref);
            EXPECT_EQ(static_cast<std::uint32_t>(NATIVE(Profiler, getObjectId)(env, nullptr, ref)),
                      static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(object->id)));
            EXPECT_GE(NATIVE(Profiler, getObjectSize)(env, nullptr, ref), 0);
            NATIVE(Profiler, createNewInstrumentedProfilingEntry)(env, nullptr, ref, h);
            EXPECT_NE(thread->getTopMethodEntry(), nullptr);
            NATIVE(Profiler, removeTopInstrumentedProfilingEntry)(env, nullptr, ref, h);
            EXPECT_EQ(thread->getTopMethodEntry(), nullptr);
            auto targets =
                vm.local<jobjectArray>(vm.mainThread(), &vm.newObjectArray({object, nullptr}));
            auto type = static_cast<jclass>(vm.newLocalRef(vm.mainThread(), cls.mirror));
            EXPECT_NE(
                NATIVE(Profiler, getReferencesToObjectsNative)(env, nullptr, handle, targets, type),
                nullptr);
        });
        EXPECT_EQ(vm.exceptionLeft(), "");
    }
}

TEST_F(Natives, aRefusedFrameGivesTheNeutralAnswer) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    vm.recorder().failNext("PushLocalFrame");
    EXPECT_FALSE(pollBytes().has_value());
    EXPECT_EQ(vm.exceptionLeft(), "");
    vm.recorder().failNext("PushLocalFrame");
    EXPECT_EQ(start(0x800), 0);
    EXPECT_EQ(collector().getCollectionType(), 0x80000U);
    EXPECT_EQ(poll().size(), 1U);
}

} // namespace
