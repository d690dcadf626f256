// Heap data: live figures per class from level-0 dumps.
#include "collector/PRBHeapDumpWalk.h"
#include "tests/vm/collector/CollectorTest.h"

#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"

#include <unistd.h>

using scripted::DumpBuilder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kHeap = 13;

class HeapData : public CollectorTest {
public:
    HeapData()
        : order(vm.addClass({.name = "com/x/Order"})), line(vm.addClass({.name = "com/x/Line"})) {}

    // An agent that knows the two classes and collects the type.
    void begin(int type, const std::string& masks = "com.x.*", const char* options = "") {
        ASSERT_NE(init(options), 0);
        vm.loadClass(order);
        vm.loadClass(line);
        ASSERT_EQ(start(type, masks), 0);
    }
    // The heap records of a poll by class name.
    std::map<std::string, Record> heap() {
        std::map<std::string, Record> byName;
        for (const Record& r : pollOf(kHeap)) byName[r.text(10)] = r;
        return byName;
    }
    PRBJavaClass* classOf(const scripted::ScriptedClass& cls) {
        return monitor().getClassForClassID(cls.id());
    }
    // The record of an object, without asking the VM.
    static PRBJavaObjectAllocated* known(const scripted::ScriptedObject& object) {
        PRBJavaObjectAllocated probe(object.id);
        return static_cast<PRBJavaObjectAllocated*>(PRBContext::getObjectTable()->find(&probe));
    }
    void deliver(const DumpBuilder& dump) {
        JVMPI_Event event{};
        std::vector<char> copy(dump.bytes());
        copy.shrink_to_fit();
        event.u.heap_dump.begin = copy.data();
        event.u.heap_dump.end = copy.data() + copy.size();
        collector().handleHeapDump(&event);
    }

    static jobjectID asId(std::uintptr_t number) { return reinterpret_cast<jobjectID>(number); }

    scripted::ScriptedClass& order;
    scripted::ScriptedClass& line;
};

TEST_F(HeapData, aPollForcesACollectionAndRequestsADumpOfLevelZero) {
    begin(0x1000);
    PRBHeapDumpHandler* during = nullptr;
    vm.setDumpHook([&] {
        during = monitor().registerHeapDumpHandler(nullptr);
        monitor().registerHeapDumpHandler(during);
    });
    vm.recorder().clear();
    heap();
    const Texts calls = vm.recorder().textsOf({"RunGC", "RequestEvent"});
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls[0], "RunGC()");
    EXPECT_EQ(calls[1], "RequestEvent(37, level 0)");
    EXPECT_EQ(during, &collector());
    EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
}

TEST_F(HeapData, liveFiguresAreThoseOfTheDumpWithoutAllocationTracking) {
    begin(0x1000);
    for (int i = 0; i < 1000; ++i) vm.allocate(vm.mainThread(), order, 24);
    vm.allocate(vm.mainThread(), line, 40);
    for (int poll = 0; poll < 3; ++poll) {
        auto records = heap();
        EXPECT_EQ(records["com/x/Order"].number(340), 1000) << poll;
        EXPECT_EQ(records["com/x/Order"].number(309), 24000) << poll;
        EXPECT_EQ(records["com/x/Line"].number(340), 1) << poll;
        EXPECT_EQ(records["com/x/Line"].number(309), 40) << poll;
        EXPECT_EQ(records["com/x/Order"].number(4), getpid());
        EXPECT_EQ(records["com/x/Order"].keys, (std::vector<int>{20, 21, 4, 340, 309, 10}));
    }
}

TEST_F(HeapData, trackedFiguresEqualWhatHappenedAndLiveFiguresTheDump) {
    begin(0x9000);
    auto* thread = static_cast<void*>(vm.mainThread().localStorage());
    ASSERT_NE(thread, nullptr);
    auto& early = vm.allocate(vm.mainThread(), order, 24);
    vm.allocate(vm.mainThread(), order, 24);
    auto records = heap();
    Record r = records["com/x/Order"];
    EXPECT_EQ(r.keys, (std::vector<int>{20, 21, 4, 340, 309, 308, 341, 342, 10}));
    EXPECT_EQ(r.number(340), 2);
    EXPECT_EQ(r.number(309), 48);
    EXPECT_EQ(r.number(308), 2);
    EXPECT_EQ(r.number(341), 0);
    EXPECT_EQ(r.number(342), 0);

    // What the walk replayed is no allocation; statistics start anew.
    r = heap()["com/x/Order"];
    EXPECT_EQ(r.number(340), 2);
    EXPECT_EQ(r.number(308), 0);

    vm.allocate(vm.mainThread(), order, 24);
    scripted::GcPlan plan;
    plan.frees = {&early};
    vm.collect(plan);
    r = heap()["com/x/Order"];
    EXPECT_EQ(r.number(340), 2);
    EXPECT_EQ(r.number(309), 48);
    EXPECT_EQ(r.number(308), 1);
    EXPECT_EQ(r.number(341), 1);
}

TEST_F(HeapData, replayedObjectsAreNoAllocationsOfAnyThread) {
    begin(0x1000);
    for (int i = 0; i < 10; ++i) vm.allocate(vm.mainThread(), order, 24);
    heap();
    const auto counters =
        static_cast<PRBJavaThread*>(vm.mainThread().localStorage())->getCounters();
    EXPECT_EQ(counters.allocationCount, 0);
    EXPECT_EQ(counters.bytesAllocated, 0);
    EXPECT_EQ(counters.liveBytes, 0);
    EXPECT_EQ(classOf(order)->getNumAllocations(), 0);
}

TEST_F(HeapData, onlyMonitoredClassesAreReported) {
    begin(0x1000, "com.x.Order");
    vm.allocate(vm.mainThread(), order, 24);
    vm.allocate(vm.mainThread(), line, 24);
    const auto records = heap();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records.begin()->first, "com/x/Order");
    EXPECT_EQ(classOf(line)->getNumObjects(), 0);
}

TEST_F(HeapData, aRefusedDumpGivesNoSamplesAndLeavesTheRestOfThePoll) {
    begin(0x81000, "*", "debug=PUBLIC");
    const std::pair<std::intptr_t, const char*> answers[] = {
        {-1, "JVMPI_FAIL"}, {1, "JVMPI_NOT_AVAILABLE"}, {7, "Unknown Error"}};
    for (auto [answer, text] : answers) {
        vm.recorder().failNext("RequestEvent", answer);
        EXPECT_EQ(typesOf(poll()), (std::vector<int>{18})) << text;
        EXPECT_EQ(logCount(std::string("returnHeapData RequestEvent JVMPI_EVENT_HEAP_DUMP "
                                       "returned ") +
                           text),
                  1U);
    }
    EXPECT_EQ(logCount("Requesting heap data"), 3U);
    EXPECT_EQ(logCount("Returned from requesting heap data"), 3U);
    EXPECT_EQ(logCount("Sent HeapData sample to agent: RC = 0"), 3U);
    EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
}

TEST_F(HeapData, recordsOfFiveBytesAreCountedAndUnknownObjectsChangeNothing) {
    begin(0x9000, "*", "debug=PUBLIC");
    auto& object = vm.allocate(vm.mainThread(), order, 24);
    vm.setUnsupported(JVMPI_EVENT_OBJECT_ALLOC);
    DumpBuilder dump;
    dump.object(0, object.id).object(0, nullptr).object(2, vm.unknownId()).object(0, object.id);
    deliver(dump);
    EXPECT_EQ(logCount("handleHeapDmp: iObjCount = 4"), 1U);
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
    EXPECT_EQ(classOf(order)->getNumBytes(), 24);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 1U);
}

TEST_F(HeapData, objectsThatTheDumpDoesNotNameLeaveTheTable) {
    begin(0x9000);
    auto& kept = vm.allocate(vm.mainThread(), order, 24);
    auto& missing = vm.allocate(vm.mainThread(), order, 24);
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    deliver(DumpBuilder().object(0, kept.id));
    EXPECT_NE(known(kept), nullptr);
    EXPECT_EQ(known(missing), nullptr);
    EXPECT_EQ(before - PRBMemoryManager::getCurrentAllocation(), sizeof(PRBJavaObjectAllocated))
        << "deleted, not only removed";
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
}

TEST_F(HeapData, everyDumpHasAGenerationOfItsOwn) {
    begin(0x9000);
    auto& object = vm.allocate(vm.mainThread(), order, 24);
    EXPECT_EQ(known(object)->getHeapScanCount(), 0U);
    deliver(DumpBuilder().object(0, object.id));
    EXPECT_EQ(known(object)->getHeapScanCount(), 1U);
    deliver(DumpBuilder().object(0, object.id));
    EXPECT_EQ(known(object)->getHeapScanCount(), 2U);
    EXPECT_EQ(collector().getHeapData().getGeneration(), 2U);
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
}

// A dump tells of the moment at which it was taken; what is allocated between its request and
// its walk is younger.
TEST_F(HeapData, objectsYoungerThanTheDumpKeepTheirRecordAndChangeNoFigureOfIt) {
    begin(0x9000);
    auto& old = vm.allocate(vm.mainThread(), order, 24);
    auto& gone = vm.allocate(vm.mainThread(), order, 24);
    static std::function<void()> beforeTheDump;
    static jint (*request)(jint, void*) = nullptr;
    request = vm.jvmpi()->RequestEvent;
    vm.jvmpi()->RequestEvent = [](jint type, void* argument) {
        if (type == JVMPI_EVENT_HEAP_DUMP) {
            beforeTheDump();
            return static_cast<jint>(JVMPI_SUCCESS);
        }
        return request(type, argument);
    };
    beforeTheDump = [&] {
        vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 24, old.id);
        vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 24, gone.id);
        deliver(DumpBuilder().object(0, old.id));
    };
    // The forced collection has emptied the table, so both are as young as the request.
    const auto first = heap();
    EXPECT_EQ(first.at("com/x/Order").number(340), 1);
    EXPECT_EQ(first.at("com/x/Order").number(309), 24);
    EXPECT_NE(known(old), nullptr);
    ASSERT_NE(known(gone), nullptr) << "it may be younger than the dump";
    vm.send.objectFree(vm.mainThread(), gone.id);
    EXPECT_EQ(classOf(order)->getNumFree(), 1);
    // The next dump finds it old.
    vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 24, gone.id);
    deliver(DumpBuilder().object(0, old.id));
    EXPECT_EQ(known(gone), nullptr);
    EXPECT_NE(known(old), nullptr);
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
    vm.jvmpi()->RequestEvent = request;
}

TEST_F(HeapData, allocationsAndFreesDuringTheWalkDoNotChangeWhatTheDumpTells) {
    begin(0x9000);
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, false);
    auto& object = vm.allocate(vm.mainThread(), order, 24);
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, true);
    static std::function<void()> atReplay;
    static jint (*request)(jint, void*) = nullptr;
    request = vm.jvmpi()->RequestEvent;
    vm.jvmpi()->RequestEvent = [](jint type, void* argument) {
        if (type == JVMPI_EVENT_OBJECT_ALLOC) atReplay();
        return request(type, argument);
    };
    auto& other = vm.startThread({.name = "other"}, true);
    atReplay = [&] {
        other.run([&] {
            vm.send.objectAlloc(other, 1, order.id(), 0, 40, asId(0x7000001));
            vm.send.objectAlloc(other, 1, order.id(), 0, 40, asId(0x7000002));
            vm.send.objectFree(other, asId(0x7000002));
        });
    };
    deliver(DumpBuilder().object(0, object.id));
    vm.jvmpi()->RequestEvent = request;
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
    EXPECT_EQ(classOf(order)->getNumBytes(), 24);
    EXPECT_EQ(classOf(order)->getNumAllocations(), 2);
    EXPECT_EQ(classOf(order)->getNumFree(), 1);
}

TEST_F(HeapData, theTablesAreTakenInOrderAndGivenBackInReverse) {
    begin(0x9000);
    auto& object = vm.allocate(vm.mainThread(), order, 24);
    DumpBuilder dump;
    dump.object(0, object.id);
    // First enter and last exit of each table.
    std::vector<std::string> entered, exited;
    vm.recorder().clear();
    deliver(dump);
    for (const std::string& call : vm.recorder().texts(scripted::kMonitor)) {
        for (const char* table : {"_ClassTable", "_ArenaTable", "_ObjectTable"}) {
            if (call == std::string("RawMonitorEnter(") + table + ")" &&
                std::find(entered.begin(), entered.end(), table) == entered.end())
                entered.emplace_back(table);
            if (call == std::string("RawMonitorExit(") + table + ")") {
                std::erase(exited, table);
                exited.emplace_back(table);
            }
        }
    }
    EXPECT_THAT(entered, ElementsAre("_ClassTable", "_ArenaTable", "_ObjectTable"));
    EXPECT_THAT(exited, ElementsAre("_ObjectTable", "_ArenaTable", "_ClassTable"));
}

TEST_F(HeapData, noTableIsHeldWhileTheVmIsAsked) {
    begin(0x1000);
    for (int i = 0; i < 5; ++i) vm.allocate(vm.mainThread(), order, 24);
    for (const char* table : {"_ClassTable", "_ArenaTable", "_ObjectTable"}) {
        vm.recorder().clear();
        heap();
        EXPECT_THAT(vm.recorder().callsHolding(table), IsEmpty()) << table;
    }
}

TEST_F(HeapData, brokenDumpsGiveWhatTheirWholeRecordsTell) {
    begin(0x9000);
    auto& a = vm.allocate(vm.mainThread(), order, 24);
    auto& b = vm.allocate(vm.mainThread(), order, 24);
    DumpBuilder dump;
    dump.object(0, a.id).object(0, b.id).cutLast(1);
    deliver(dump);
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
    deliver(DumpBuilder().u1(0).u1(1).u1(2).u1(3));
    EXPECT_EQ(classOf(order)->getNumObjects(), 0);
    const unsigned generation = collector().getHeapData().getGeneration();
    collector().handleHeapDump(nullptr);
    JVMPI_Event event{};
    collector().handleHeapDump(&event);
    char byte = 0;
    event.u.heap_dump.begin = &byte + 1;
    event.u.heap_dump.end = &byte;
    collector().handleHeapDump(&event);
    EXPECT_EQ(collector().getHeapData().getGeneration(), generation) << "no walk";
}

TEST_F(HeapData, aCollectionWhileObjectsAreReplayedDoesNoHarm) {
    begin(0x1000);
    for (int i = 0; i < 5; ++i) vm.allocate(vm.mainThread(), order, 24);
    int requests = 0;
    static std::function<void()> atRequest;
    static jint (*request)(jint, void*) = nullptr;
    request = vm.jvmpi()->RequestEvent;
    atRequest = [&] {
        if (++requests == 3) vm.collect();
    };
    vm.jvmpi()->RequestEvent = [](jint type, void* argument) {
        const jint answer = request(type, argument);
        if (type == JVMPI_EVENT_OBJECT_ALLOC) atRequest();
        return answer;
    };
    const auto records = heap();
    EXPECT_GE(requests, 3);
    // The collection emptied the table; what was counted stays counted.
    EXPECT_EQ(records.at("com/x/Order").number(340), 5);
    EXPECT_EQ(records.at("com/x/Order").number(309), 120);
    vm.jvmpi()->RequestEvent = request;
    EXPECT_EQ(heap()["com/x/Order"].number(340), 5);
}

TEST_F(HeapData, dumpsLongerThanABatchAreCountedWholeOnceAndAgain) {
    begin(0x9000);
    constexpr int kOrders = 10000; // more than two batches
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, false);
    DumpBuilder dump;
    for (int i = 0; i < kOrders; ++i) {
        dump.object(0, vm.allocate(vm.mainThread(), order, 24).id);
        if (i % 1000 == 0) dump.object(0, vm.allocate(vm.mainThread(), line, 40).id);
    }
    for (int times = 0; times < 2; ++times) { // unknown, then known
        deliver(dump);
        EXPECT_EQ(classOf(order)->getNumObjects(), kOrders) << times;
        EXPECT_EQ(classOf(order)->getNumBytes(), kOrders * 24) << times;
        EXPECT_EQ(classOf(line)->getNumObjects(), 10) << times;
        EXPECT_EQ(classOf(line)->getNumBytes(), 400) << times;
        EXPECT_EQ(classOf(order)->getNumAllocations(), 0) << times;
        EXPECT_EQ(PRBContext::getObjectTable()->entries(), kOrders + 10U) << times;
    }
}

TEST_F(HeapData, anObjectThatABatchNamesTwiceCountsOnce) {
    begin(0x9000);
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, false);
    auto& object = vm.allocate(vm.mainThread(), order, 24);
    deliver(DumpBuilder().object(0, object.id).object(0, object.id));
    EXPECT_EQ(classOf(order)->getNumObjects(), 1);
    EXPECT_EQ(classOf(order)->getNumBytes(), 24);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 1U);
}

TEST_F(HeapData, objectsBeyondTheBoundOfTheTableAreCountedWithoutARecord) {
    begin(0x9000);
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, false);
    DumpBuilder dump;
    for (int i = 0; i < 20; ++i) dump.object(0, vm.allocate(vm.mainThread(), order, 24).id);
    PRBHeapDumpWalk::mostRecords.store(5);
    for (int times = 0; times < 2; ++times) {
        deliver(dump);
        EXPECT_EQ(classOf(order)->getNumObjects(), 20) << times;
        EXPECT_EQ(classOf(order)->getNumBytes(), 480) << times;
        EXPECT_EQ(PRBContext::getObjectTable()->entries(), 5U) << times;
    }
    PRBHeapDumpWalk::mostRecords.store(PRBHeapDumpWalk::kMostRecords);
}

TEST_F(HeapData, classesThatAreNotKnownYetAreAskedForOnceABatch) {
    begin(0x1000, "*");
    auto& late = vm.addClass({.name = "com/x/Late"});
    for (int i = 0; i < 7; ++i) vm.allocate(vm.mainThread(), late, 16);
    vm.recorder().clear();
    const auto records = heap();
    EXPECT_EQ(records.at("com/x/Late").number(340), 7);
    EXPECT_EQ(records.at("com/x/Late").number(309), 112);
    std::size_t asked = 0;
    for (const std::string& call : vm.recorder().textsOf({"RequestEvent"}))
        asked += call.find("RequestEvent(42,") == 0 ? 1 : 0; // class load
    EXPECT_EQ(asked, 1U);
}

TEST_F(HeapData, aGenerationIsNeverZero) {
    static_assert(PRBHeapData::generationAfter(0) == 1);
    static_assert(PRBHeapData::generationAfter(7) == 8);
    EXPECT_EQ(PRBHeapData::generationAfter(0xFFFFFFFEU), 0xFFFFFFFFU);
    EXPECT_EQ(PRBHeapData::generationAfter(0xFFFFFFFFU), 1U);
}

} // namespace
