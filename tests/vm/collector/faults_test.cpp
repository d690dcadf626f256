// Every call of the VM that a pass makes fails in turn: the sampler runs on, no monitor and no
// frame is kept, nothing is leaked, and the next pass is whole.
#include "tests/vm/collector/CollectorTest.h"

#include "data/PRBProfilerError.h"

using ::testing::IsEmpty;

namespace {

struct Kind {
    int type;
    int sample;
};
constexpr Kind kKinds[] = {{0x200, 10},  {0x400, 11},   {0x800, 12},  {0x1000, 13},
                           {0x2000, 14}, {0x40000, 17}, {0x80000, 18}};

class Faults : public CollectorTest {
public:
    Faults()
        : order(vm.addClass(
              {.name = "com/x/Order", .methods = {{.name = "price", .signature = "()V"}}})) {}

    void beginSampling(int type) {
        runSamplerThread();
        ASSERT_NE(init(), 0);
        vm.mainThread().setStatus(JVMPI_THREAD_CONDVAR_WAIT);
        ASSERT_EQ(start(type, "com.x.*"), 0);
        waitForSamplerState(0);
        worker = &startWorker("worker", order.methodId("price"));
        vm.loadClass(order);
        for (int i = 0; i < 4; ++i) vm.allocate(*worker, order, 24);
    }
    // Something of every kind to tell.
    void work() {
        scripted::ScriptedObject& lock = vm.newObject(order);
        vm.send.monitorContendedEnter(*worker, lock.id);
        advanceClock(20);
        vm.send.monitorContendedEntered(*worker, lock.id);
        runCycle();
        monitor().newProfilerErrorSample(new PRBProfilerError(PRBReturnCode(74), "text"));
    }
    std::vector<int> kinds() {
        work();
        std::vector<int> types = typesOf(poll());
        types.erase(std::unique(types.begin(), types.end()), types.end());
        return types;
    }
    // A poll that leaves an exception for Java answers nothing, any other is framed to its end.
    void wholeOrNothing(scripted::ScriptedObject* request) {
        const auto bytes = pollBytes(request);
        EXPECT_FALSE(bytes.has_value() && !vm.exceptionLeft().empty()) << vm.exceptionLeft();
        EXPECT_FALSE(bytes.has_value() && PollReader(*bytes).records().empty());
    }
    void expectSound(std::size_t n) {
        EXPECT_EQ(sampler().getCurrentState(), 0) << n;
        EXPECT_EQ(sampler().isInactive(), 0) << n;
        EXPECT_THAT(vm.mainThread().heldMonitors(), IsEmpty()) << n;
        EXPECT_EQ(vm.gcDisableDepth(), 0) << n;
        EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr) << n;
    }

    scripted::ScriptedClass& order;
    scripted::ScriptedThread* worker = nullptr;
};

TEST_F(Faults, everyCallOfAPassFailsInTurn) {
    beginSampling(0xC3E00);
    const std::vector<int> all = {10, 11, 12, 13, 14, 17, 18};
    ASSERT_EQ(kinds(), all);
    std::size_t n = 0;
    std::uint32_t settled = 0;
    for (bool fired = true; fired;) {
        ++n;
        work();
        vm.recorder().failNth(n);
        pollBytes();
        fired = vm.recorder().faultFired();
        vm.recorder().clearFaults();
        expectSound(n);
        ASSERT_EQ(kinds(), all) << "after fault " << n;
        if (n == 3) settled = PRBMemoryManager::getCurrentAllocation();
        ASSERT_LT(n, 2000U);
    }
    EXPECT_GT(n, 8U) << "a pass makes many calls";
    // Only what the run itself adds: monitor objects and contention records of the worker.
    EXPECT_LT(PRBMemoryManager::getCurrentAllocation(), settled + n * 1000);
}

TEST_F(Faults, everyCallOfAPassWithARequestFailsInTurn) {
    beginSampling(0x200);
    auto& request = scripted::makeRequest(vm, 0xC3E00, 0);
    bool fired = true;
    for (std::size_t n = 1; fired; ++n) {
        work();
        vm.recorder().failNth(n);
        pollBytes(&request);
        fired = vm.recorder().faultFired();
        vm.recorder().clearFaults();
        expectSound(n);
        ASSERT_LT(n, 2000U);
    }
}

TEST_F(Faults, everyCallOfAPassOfEachKindFailsInTurn) {
    beginSampling(0xC3E00);
    for (const Kind& kind : kKinds) {
        auto& request = scripted::makeRequest(vm, kind.type, 0);
        bool fired = true;
        for (std::size_t n = 1; fired; ++n) {
            work();
            vm.recorder().failNth(n);
            wholeOrNothing(&request);
            fired = vm.recorder().faultFired();
            vm.recorder().clearFaults();
            expectSound(n);
            ASSERT_LT(n, 2000U);
        }
        work();
        const std::vector<int> types = typesOf(poll(&request));
        EXPECT_THAT(types, ::testing::Not(IsEmpty())) << kind.type;
        EXPECT_THAT(types, ::testing::Each(kind.sample)) << kind.type;
    }
}

TEST_F(Faults, passesOfEveryKindInWhichEveryNthCallFailsLeaveTheNextWhole) {
    beginSampling(0xC3E00);
    std::vector<scripted::ScriptedObject*> requests = {nullptr};
    for (const Kind& kind : kKinds) requests.push_back(&scripted::makeRequest(vm, kind.type, 0));
    std::size_t n = 0;
    for (bool fired = true; fired;) {
        ++n;
        fired = false;
        for (scripted::ScriptedObject* request : requests) {
            work();
            vm.recorder().failEvery(n);
            wholeOrNothing(request);
            fired = vm.recorder().faultFired() || fired;
            vm.recorder().clearFaults();
            expectSound(n);
        }
        ASSERT_EQ(kinds(), (std::vector<int>{10, 11, 12, 13, 14, 17, 18})) << n;
        ASSERT_LT(n, 2000U);
    }
    EXPECT_GT(n, 8U) << "a pass makes many calls";
}

TEST_F(Faults, everyCallOfStartAndStopFailsInTurn) {
    ASSERT_NE(init(), 0);
    bool fired = true;
    for (std::size_t n = 1; fired; ++n) {
        vm.recorder().failNth(n);
        start(0x8E00);
        stop();
        fired = vm.recorder().faultFired();
        vm.recorder().clearFaults();
        EXPECT_THAT(vm.mainThread().heldMonitors(), IsEmpty()) << n;
        ASSERT_EQ(start(0x8E00), 0);
        ASSERT_EQ(stop(), 0);
        ASSERT_LT(n, 500U);
    }
}

TEST_F(Faults, everyCallOfAReferenceSearchFailsInTurn) {
    ASSERT_NE(init(), 0);
    vm.loadClass(order);
    auto& target = vm.newObject(order);
    auto& holder = vm.newObject(order);
    scripted::DumpBuilder dump;
    dump.instance(holder.id, order.id(), {target.id});
    vm.setDump(1, dump.bytes());
    const auto search = [&] {
        std::size_t found = 0;
        vm.callNative([&] {
            auto array =
                vm.local<jobjectArray>(vm.mainThread(), &vm.newObjectArray({&target, &holder}));
            auto cls = static_cast<jclass>(vm.newLocalRef(vm.mainThread(), order.mirror));
            jobject answer = NATIVE(Profiler, getReferencesToObjectsNative)(vm.env(), nullptr,
                                                                            handle, array, cls);
            if (answer != nullptr) found = vm.resolve(answer)->elements.size();
        });
        return found;
    };
    bool fired = true;
    for (std::size_t n = 1; fired; ++n) {
        vm.recorder().failNth(n);
        search();
        fired = vm.recorder().faultFired();
        vm.recorder().clearFaults();
        EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr) << n;
        EXPECT_EQ(search(), 1U) << n;
        ASSERT_LT(n, 500U);
    }
}

TEST_F(Faults, everyCallOfInitialisationFailsInTurn) {
    bool fired = true;
    for (std::size_t n = 1; fired; ++n) {
        JNI_OnLoad(vm.javaVM(), nullptr);
        vm.recorder().failNth(n);
        init("debug=no");
        fired = vm.recorder().faultFired();
        vm.recorder().clearFaults();
        ASSERT_LT(n, 500U);
    }
    EXPECT_NE(init(), 0);
}

TEST_F(Faults, everyCallOfTheTextNativesFailsInTurn) {
    bool fired = true;
    for (std::size_t n = 1; fired; ++n) {
        vm.callNative([&] {
            jbyteArray data = vm.local<jbyteArray>(vm.mainThread(), &vm.newBytes({1, 2, 3}));
            jstring title = text("title");
            vm.recorder().failNth(n);
            NATIVE(AgentConnection, createHexDumpString)(vm.env(), nullptr, data, title);
            fired = vm.recorder().faultFired();
        });
        vm.recorder().clearFaults();
        vm.callNative([&] {
            vm.recorder().failNth(n);
            NATIVE(StaticConfigDataSampleSource, getEnvVars)(vm.env(), nullptr);
            fired = vm.recorder().faultFired() || fired;
        });
        vm.recorder().clearFaults();
        ASSERT_LT(n, 5000U);
    }
}

TEST_F(Faults, aJavaSideThatThrowsEverywhereIsSurvived) {
    beginSampling(0xC3E00);
    java.script->throws = "java/lang/Error";
    work();
    EXPECT_TRUE(pollBytes().has_value());
    EXPECT_EQ(vm.exceptionLeft(), "");
    expectSound(0);
}

TEST_F(Faults, aPartialVmIsSurvived) {
    ASSERT_NE(init(), 0);
    start(0xC3E00);
    JVMPI_Interface& table = *vm.jvmpi();
    const JVMPI_Interface whole = table;
    table.RequestEvent = nullptr;
    table.RunGC = nullptr;
    table.EnableEvent = nullptr;
    table.DisableEvent = nullptr;
    table.jobject2jobjectID = nullptr;
    table.jobjectID2jobject = nullptr;
    EXPECT_TRUE(pollBytes().has_value());
    EXPECT_EQ(start(0x800), 0);
    EXPECT_EQ(stop(), 0);
    vm.callNative([&] {
        jobject object = vm.newLocalRef(vm.mainThread(), &vm.newObject(order));
        EXPECT_EQ(NATIVE(Profiler, getObjectSize)(vm.env(), nullptr, object), 0);
        auto array = vm.local<jobjectArray>(vm.mainThread(), &vm.newObjectArray({}));
        auto cls = static_cast<jclass>(vm.newLocalRef(vm.mainThread(), order.mirror));
        EXPECT_EQ(
            NATIVE(Profiler, getReferencesToObjectsNative)(vm.env(), nullptr, handle, array, cls),
            nullptr);
    });
    table = whole;
}

} // namespace
