// Starts, stops, polls and searches by several Java threads at once, beside a sampler that runs.
#include "tests/vm/collector/DataReturnTest.h"

#include <mutex>

using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

namespace {

class Concurrent : public DataReturn {
public:
    // An agent with a worker to sample and some objects; nothing is recorded.
    void begin() {
        PRBClock::source.store(nullptr);
        runSamplerThread();
        ASSERT_NE(init(), 0);
        vm.recorder().setRecording(false);
        worker = &startWorker("worker", order.methodId("price"));
        vm.loadClass(order);
        for (int i = 0; i < 4; ++i) objects.push_back(&vm.allocate(*worker, order, 24));
        start(0x8E00, "*", "*", 1);
        stop();
        idle = enabledEvents();
    }
    std::vector<jint> enabledEvents() const {
        std::vector<jint> types;
        for (jint type = 0; type < 64; ++type)
            if (vm.enabled(type)) types.push_back(type);
        return types;
    }
    // The natives, on the thread that runs.
    void startOn(scripted::ScriptedThread& on, int type) {
        vm.callNative(on, [&] {
            EXPECT_EQ(NATIVE(Profiler, handleInitiateCollection)(on.env(), nullptr, handle, type, 0,
                                                                 1, text("*"), text("*")),
                      0);
        });
    }
    void stopOn(scripted::ScriptedThread& on) {
        vm.callNative(on, [&] {
            EXPECT_EQ(NATIVE(Profiler, handleStopCollection)(on.env(), nullptr, handle), 0);
        });
    }
    std::vector<Record> pollOn(scripted::ScriptedThread& on, scripted::ScriptedObject* request) {
        std::vector<Record> records;
        vm.callNative(on, [&] {
            jbyteArray array = NATIVE(Profiler, getProfilerData)(on.env(), nullptr, handle, 0,
                                                                 vm.newLocalRef(on, request));
            if (array == nullptr) return;
            const std::vector<jbyte> bytes = vm.resolve(array)->bytes;
            records = PollReader(bytes).records();
        });
        return records;
    }
    void searchOn(scripted::ScriptedThread& on) {
        vm.callNative(on, [&] {
            auto targets = vm.local<jobjectArray>(on, &vm.newObjectArray({objects[0]}));
            auto cls = static_cast<jclass>(vm.newLocalRef(on, order.mirror));
            EXPECT_NE(NATIVE(Profiler, getReferencesToObjectsNative)(on.env(), nullptr, handle,
                                                                     targets, cls),
                      nullptr);
        });
    }
    void keepErrors(const std::vector<Record>& records) {
        std::lock_guard lock(mutex);
        for (const Record& r : records)
            if (r.sampleType == kError) errors.push_back(r.text(361));
    }

    scripted::ScriptedThread* worker = nullptr;
    std::vector<scripted::ScriptedObject*> objects;
    std::vector<jint> idle; // events that are enabled after a stop
    std::mutex mutex;
    std::vector<std::string> errors; // that some poll answered
};

TEST_F(Concurrent, startsStopsPollsAndSearchesAtOnceLeaveAWholeAgentAndSendEachErrorOnce) {
    begin();
    constexpr int kErrors = 300;
    constexpr int kRounds = 60;
    for (int i = 0; i < kErrors; ++i) queueError(74, std::to_string(i).c_str());
    auto& onlyErrors = scripted::makeRequest(vm, 0x40000, 0);
    auto& everything = scripted::makeRequest(vm, 0xCBE00, 0);

    using Turn = std::function<void(scripted::ScriptedThread&, int)>;
    const Turn starting = [&](scripted::ScriptedThread& on, int i) {
        constexpr int kTypes[] = {0xC3E00, 0x800, 0x9200, 0, 0x80000, 0xCBE00};
        startOn(on, kTypes[i % 6]);
        if (i % 2 == 0) stopOn(on);
    };
    const Turn polling = [&](scripted::ScriptedThread& on, int i) {
        scripted::ScriptedObject* requests[] = {nullptr, &everything, &onlyErrors};
        keepErrors(pollOn(on, requests[i % 3]));
    };
    const Turn searching = [&](scripted::ScriptedThread& on, int) { searchOn(on); };
    std::vector<scripted::ScriptedThread*> callers;
    for (const Turn& turn : {starting, starting, polling, polling, polling, searching}) {
        callers.push_back(&vm.startThread({.name = "caller"}, true));
        callers.back()->post([turn, on = callers.back()] {
            for (int i = 0; i < kRounds; ++i) turn(*on, i);
        });
    }
    for (scripted::ScriptedThread* caller : callers) caller->waitIdle();

    stop();
    waitForSamplerState(1);
    EXPECT_EQ(enabledEvents(), idle);
    EXPECT_THAT(vm.monitors().heldNow(), IsEmpty());
    EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
    keepErrors(poll(&onlyErrors));
    EXPECT_EQ(errors.size(), static_cast<std::size_t>(kErrors));
    std::sort(errors.begin(), errors.end());
    EXPECT_EQ(std::unique(errors.begin(), errors.end()), errors.end());

    start(0xC3E00, "*", "*", 1);
    std::vector<int> types;
    for (int i = 0; i < 20000; ++i) {
        types = typesOf(poll());
        if (std::find(types.begin(), types.end(), kMethod) != types.end()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_THAT(types, IsSupersetOf({kThread, kMethod, kHeap, kGc, kResource}));
    stop();
    waitForSamplerState(1);
    for (scripted::ScriptedThread* caller : callers) caller->stopReal();
}

TEST_F(Concurrent, tenThousandStartsAndStopsOfOneSamplerEndAsTheLastOfThemSays) {
    begin();
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    const std::size_t references = vm.globalReferences().size();
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(start(i % 2 == 0 ? 0x8E00 : 0x200, "*", "*", 1), 0);
        ASSERT_EQ(sampler().isInactive(), 0) << i;
        ASSERT_EQ(stop(), 0);
    }
    waitForSamplerState(1);
    EXPECT_EQ(enabledEvents(), idle);
    EXPECT_EQ(vm.systemThreads().size(), 1U);
    EXPECT_EQ(vm.globalReferences().size(), references);
    // The sampler's own buffers, and less than 2 bytes a start.
    EXPECT_LE(PRBMemoryManager::getCurrentAllocation(), before + 30000 + 20000);
    EXPECT_EQ(start(0x200, "*", "*", 1), 0);
    waitForSamplerState(0);
    EXPECT_EQ(sampler().isInactive(), 0);
    stop();
    waitForSamplerState(1);
}

} // namespace
