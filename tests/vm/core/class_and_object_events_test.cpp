#include "collector/PRBHeapDumpHandler.h"
#include "collector/PRBHeapDumpReplay.h"
#include "core/PRBArena.h"
#include "core/PRBEventDispatcher.h"
#include "core/PRBObjectRecords.h"
#include "runtime/PRBReclaimer.h"
#include "tests/vm/core/CoreTest.h"

#include <algorithm>
#include <cstring>

using namespace scripted;

namespace {

class Events : public OrderTest {
protected:
    static PRBArena* findArena(int id) {
        PRBArena probe(id, nullptr);
        return static_cast<PRBArena*>(PRBContext::getArenaTable()->find(&probe));
    }
    std::uint32_t counter(jint type) {
        std::size_t rows = 0;
        const PRBEventDispatcher::Row* table = PRBEventDispatcher::table(rows);
        const auto taken = PRBEventDispatcher::metrics().take();
        for (std::size_t i = 0; i < rows; ++i)
            if (table[i].event == type) return taken[i];
        return taken[PRBEventMetrics::kOther];
    }
};

} // namespace

TEST_F(Events, theTableHasTwentyRowsInOrder) {
    std::size_t rows = 0;
    const PRBEventDispatcher::Row* table = PRBEventDispatcher::table(rows);
    std::vector<jint> events;
    for (std::size_t i = 0; i < rows; ++i) events.push_back(table[i].event);
    EXPECT_EQ(events, (std::vector<jint>{1,  2,  3,  4,  5,  6,  33, 34, 37, 42,
                                         43, 47, 48, 49, 54, 55, 57, 58, 60, 61}));
}

TEST_F(Events, areCountedByRowAndOthersTogether) {
    PRBEventDispatcher::metrics().take();
    vm.send.arenaNew(worker, 3, "heap");
    EXPECT_EQ(counter(JVMPI_EVENT_ARENA_NEW), 1u);
    vm.send.bare(worker, JVMPI_EVENT_CLASS_LOAD_HOOK);
    vm.send.bare(worker, 12345);
    vm.send.bare(worker, -1);
    EXPECT_EQ(counter(-1), 3u);
}

TEST_F(Events, nullAndForeignEventsDoNothing) {
    vm.mainThread().run([] { PRBMonitorGlobal::notify(nullptr); });
    for (jint type = 0; type < 70; ++type) {
        if (type == JVMPI_EVENT_GC_START || type == JVMPI_EVENT_GC_FINISH) continue;
        vm.send.bare(worker, type, true);
    }
}

TEST_F(Events, aClassLoadMakesTheClassAndItsMethods) {
    vm.send.classLoad(worker, order);
    PRBJavaClass* cls = findClass(order.id());
    ASSERT_NE(cls, nullptr);
    EXPECT_STREQ(cls->getClassName(), "com/x/Order");
    EXPECT_STREQ(cls->getSourceName(), "Order.java");
    EXPECT_EQ(cls->getNumStaticFields(), 1);
    EXPECT_EQ(cls->getStaticField(0)->getLength(), 8);
    EXPECT_EQ(cls->getNumInstanceFields(), 1);
    EXPECT_EQ(cls->getInstanceField(0)->getLength(), 4);
    PRBJavaMethod* price = findMethod(order.methodId("price"));
    ASSERT_NE(price, nullptr);
    EXPECT_STREQ(price->peekMethodName(), "price");
    EXPECT_STREQ(price->peekMethodSignature(), "()I");
    EXPECT_EQ(price->peekClass(), cls);
    ASSERT_NE(findMethod(order.methodId("pay")), nullptr);
}

TEST_F(Events, aRequestedClassLoadIsLikeAPlainOne) {
    vm.send.classLoad(worker, order, true);
    EXPECT_NE(findClass(order.id()), nullptr);
}

TEST_F(Events, aReplayedClassLoadReplacesNothing) {
    auto* early = new PRBJavaMethod(order.methodId("price")); // seen before its class
    PRBContext::getMethodTable()->insert(early);
    vm.send.classLoad(worker, order);
    PRBJavaClass* cls = findClass(order.id());
    EXPECT_EQ(findMethod(order.methodId("price")), early);
    EXPECT_EQ(early->peekClass(), cls);
    EXPECT_STREQ(early->peekMethodName(), "price");
    order.spec.name = "com/x/Renamed";
    order.spec.methods[0].name = "renamed";
    order.spec.methods[0].signature = "()J";
    vm.send.classLoad(worker, order, true);
    EXPECT_STREQ(early->peekMethodName(), "price");
    EXPECT_STREQ(early->peekMethodSignature(), "()I");
    EXPECT_EQ(findClass(order.id()), cls);
    EXPECT_STREQ(cls->getClassName(), "com/x/Order");
    EXPECT_EQ(PRBContext::getMethodTable()->entries(), 2u);
}

TEST_F(Events, absurdClassLoadsAreTaken) {
    JVMPI_Event event;
    std::memset(&event, 0, sizeof event);
    event.event_type = JVMPI_EVENT_CLASS_LOAD;
    event.env_id = worker.env();
    event.u.class_load.num_methods = 5; // and no methods
    event.u.class_load.num_static_fields = 7;
    event.u.class_load.num_instance_fields = -7;
    vm.notify(worker, event);
    EXPECT_EQ(PRBContext::getClassTable()->entries(), 0u); // no id, no class
    event.u.class_load.class_id = objectId(77);
    vm.notify(worker, event);
    PRBJavaClass* cls = findClass(objectId(77));
    ASSERT_NE(cls, nullptr);
    EXPECT_STREQ(cls->getClassName(), "");
    EXPECT_EQ(cls->getNumStaticFields(), 0);
    JVMPI_Method methods[2] = {};
    methods[1].method_id = reinterpret_cast<jmethodID>(std::uintptr_t{5});
    event.u.class_load.methods = methods;
    event.u.class_load.num_methods = 2;
    vm.notify(worker, event);
    EXPECT_EQ(PRBContext::getMethodTable()->entries(), 1u);
    event.u.class_load.num_methods = -2;
    vm.notify(worker, event);
    EXPECT_EQ(PRBContext::getMethodTable()->entries(), 1u);
}

TEST_F(Events, classesThatComeAndGoLeaveNothingBehindWhereNobodyPolls) {
    vm.recorder().setRecording(false);
    std::uint32_t pending = 0; // at most
    for (int i = 0; i < 300; ++i) {
        vm.send.classLoad(worker, order);
        vm.send.classUnload(worker, order.id());
        pending = std::max(pending, PRBReclaimer::pending());
    }
    EXPECT_LE(pending, 80u);
}

TEST_F(Events, anAllocationIsRecordedAndCounted) {
    vm.send.arenaNew(worker, 1, "young");
    vm.send.classLoad(worker, order);
    auto& object = vm.allocate(worker, order, 48);
    vm.send.objectAlloc(worker, object);
    PRBJavaObjectAllocated* record = findObject(object.id);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->getClass(), findClass(order.id()));
    EXPECT_EQ(record->getArena(), findArena(1));
    EXPECT_EQ(record->getSize(), 48);
    EXPECT_EQ(record->getAllocatingThread(), worker.env());
    EXPECT_EQ(record->getClass()->getNumAllocations(), 1);
    EXPECT_EQ(record->getClass()->getNumBytes(), 48);
    EXPECT_EQ(threadOf(worker)->getCounters().bytesAllocated, 48);
    EXPECT_EQ(threadOf(worker)->getCounters().allocationCount, 1);
}

TEST_F(Events, anAllocationOfAnUnknownClassAsksForTheClass) {
    vm.send.objectAlloc(worker, 1, order.id(), 0, 16, objectId(5));
    ASSERT_NE(findObject(objectId(5)), nullptr);
    ASSERT_NE(findClass(order.id()), nullptr);
    EXPECT_EQ(findObject(objectId(5))->getClass(), findClass(order.id()));
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1u);
    EXPECT_EQ(findClass(order.id())->getNumObjects(), 1);
}

TEST_F(Events, aRefusedClassLeavesTheObjectWithoutOne) {
    vm.send.objectAlloc(worker, 1, objectId(4321), 0, 16, objectId(5));
    ASSERT_NE(findObject(objectId(5)), nullptr);
    EXPECT_EQ(findObject(objectId(5))->getClass(), nullptr);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1u);
    EXPECT_EQ(threadOf(worker)->getCounters().bytesAllocated, 16);
}

TEST_F(Events, arraysOfPrimitivesHaveNoClassAndAskForNone) {
    vm.send.objectAlloc(worker, 1, nullptr, JVMPI_INT, 24, objectId(6));
    EXPECT_EQ(findObject(objectId(6))->getClass(), nullptr);
    EXPECT_EQ(findObject(objectId(6))->getIsArray(), JVMPI_INT);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u);
}

TEST_F(Events, aSecondAllocationOfAnIdUpdatesWithoutCounting) {
    vm.send.classLoad(worker, order);
    vm.send.objectAlloc(worker, 1, order.id(), 0, 16, objectId(5));
    PRBJavaObjectAllocated* record = findObject(objectId(5));
    vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 32, objectId(5));
    EXPECT_EQ(findObject(objectId(5)), record);
    EXPECT_EQ(record->getSize(), 32);
    EXPECT_EQ(record->getAllocatingThread(), vm.env());
    EXPECT_EQ(findClass(order.id())->getNumAllocations(), 1);
    EXPECT_EQ(threadOf(worker)->getCounters().bytesAllocated, 16);
}

TEST_F(Events, allocationsWithoutAnIdAreIgnored) {
    vm.send.objectAlloc(worker, 1, order.id(), 0, 16, nullptr);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 0u);
}

TEST_F(Events, allocationsThatAWalkOfTheHeapAsksForGoToTheWalkOnly) {
    vm.send.classLoad(worker, order);
    std::vector<PRBHeapDumpReplay::Object> told;
    {
        PRBHeapDumpReplay replay(told);
        vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 16, objectId(5));
    }
    EXPECT_EQ(told.size(), 1u);
    EXPECT_EQ(findObject(objectId(5)), nullptr);
    EXPECT_EQ(findClass(order.id())->getNumAllocations(), 0);
    EXPECT_EQ(findClass(order.id())->getNumObjects(), 0);
}

TEST_F(Events, allocationsAboveTheBoundAreCountedWithoutARecord) {
    EXPECT_EQ(PRBObjectRecords::most.load(), 4000000u);
    PRBObjectRecords::most = 3;
    vm.send.classLoad(worker, order);
    for (std::uintptr_t i = 1; i <= 5; ++i)
        vm.send.objectAlloc(worker, 1, order.id(), 0, 16, objectId(i));
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 3u);
    EXPECT_NE(findObject(objectId(3)), nullptr);
    EXPECT_EQ(findObject(objectId(4)), nullptr);
    EXPECT_EQ(findClass(order.id())->getNumAllocations(), 5);
    EXPECT_EQ(threadOf(worker)->getCounters().bytesAllocated, 80);
    EXPECT_EQ(threadOf(worker)->getCounters().allocationCount, 5);
    EXPECT_EQ(logTexts(), Texts{"Allocation records have reached 3, further allocations are "
                                "counted without a record"}); // once
    vm.send.objectAlloc(worker, 1, order.id(), 0, 32, objectId(2));
    EXPECT_EQ(findObject(objectId(2))->getSize(), 32); // what has a record is updated
    // A collection makes room.
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0);
    vm.send.objectAlloc(worker, 1, order.id(), 0, 16, objectId(10));
    EXPECT_NE(findObject(objectId(10)), nullptr);
    PRBObjectRecords::most = PRBObjectRecords::kMost;
}

TEST_F(Events, threadsAreToldOfAllocationsWithNoRegistryHeld) {
    vm.send.classLoad(worker, order);
    monitor.setDataBeingCollected(PRBCollect::kMethods | PRBCollect::kHeapAllocation);
    worker.setFrames({{1, order.methodId("price")}});
    vm.send.objectAlloc(worker, 1, order.id(), 0, 16, objectId(5));
    for (const Call& call : vm.recorder().calls(kMonitor)) {
        if (call.text != "RawMonitorEnter(Thread Method Frequency Table)") continue;
        for (const char* registry : {"_ClassTable", "_MethodTable", "_ArenaTable", "_ObjectTable"})
            EXPECT_EQ(std::count(call.held.begin(), call.held.end(), registry), 0) << registry;
    }
}

TEST_F(Events, aFreeGoesToTheThreadAndTheClass) {
    vm.send.classLoad(worker, order);
    vm.send.objectAlloc(worker, 1, order.id(), 0, 48, objectId(5));
    vm.send.objectFree(vm.mainThread(), objectId(5));
    EXPECT_EQ(findObject(objectId(5)), nullptr);
    EXPECT_EQ(findClass(order.id())->getNumFree(), 1);
    EXPECT_EQ(findClass(order.id())->getNumObjects(), 0);
    EXPECT_EQ(threadOf(worker)->getCounters().netObjects, 0);
    EXPECT_EQ(threadOf(worker)->getCounters().liveBytes, 0);
    vm.send.objectFree(vm.mainThread(), objectId(5)); // matches nothing
    EXPECT_EQ(findClass(order.id())->getNumFree(), 1);
}

TEST_F(Events, anAllocationEntersEachRegistryOnceAndAFreeOnlyThatOfObjects) {
    vm.send.arenaNew(worker, 1, "young");
    vm.send.classLoad(worker, order);
    vm.recorder().clear();
    vm.send.objectAlloc(worker, 1, order.id(), 0, 48, objectId(5));
    EXPECT_EQ(vm.recorder().texts(kMonitor),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorEnter(_ArenaTable)",
                     "RawMonitorEnter(_ObjectTable)", "RawMonitorExit(_ObjectTable)",
                     "RawMonitorExit(_ArenaTable)", "RawMonitorExit(_ClassTable)"}));
    vm.recorder().clear();
    vm.send.objectFree(worker, objectId(5));
    EXPECT_EQ(vm.recorder().texts(kMonitor),
              (Texts{"RawMonitorEnter(_ObjectTable)", "RawMonitorExit(_ObjectTable)"}));
    EXPECT_EQ(findClass(order.id())->getNumFree(), 1);
}

TEST_F(Events, aFreeOfAnObjectOfAnEndedThreadTellsNoThread) {
    vm.send.objectAlloc(worker, 1, nullptr, JVMPI_INT, 48, objectId(5));
    PRBJavaThread* thread = threadOf(worker);
    vm.endThread(worker);
    vm.recorder().clear();
    vm.send.objectFree(vm.mainThread(), objectId(5));
    EXPECT_EQ(thread->getCounters().liveBytes, 48);
    EXPECT_EQ(vm.recorder().count("GetThreadLocalStorage"), 0u);
}

TEST_F(Events, aMovedObjectIsFoundUnderItsNewIdOnly) {
    vm.send.arenaNew(worker, 2, "old");
    vm.send.classLoad(worker, order);
    vm.send.objectAlloc(worker, 1, order.id(), 0, 48, objectId(5));
    vm.send.objectAlloc(worker, 1, order.id(), 0, 48, objectId(9)); // in the way
    PRBJavaObjectAllocated* record = findObject(objectId(5));
    vm.send.objectMove(worker, 1, objectId(5), 2, objectId(9));
    EXPECT_EQ(findObject(objectId(5)), nullptr);
    EXPECT_EQ(findObject(objectId(9)), record);
    EXPECT_EQ(record->getArenaId(), 2);
    EXPECT_EQ(findClass(order.id())->getNumMove(), 1);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 1u);
    vm.send.objectMove(worker, 1, objectId(5), 2, objectId(10)); // unknown
    EXPECT_EQ(findObject(objectId(10)), nullptr);
}

TEST_F(Events, aMovedClassIsFoundUnderItsNewIdOnly) {
    vm.send.classLoad(worker, order);
    PRBJavaClass* cls = findClass(order.id());
    vm.send.objectMove(worker, 1, order.id(), 1, objectId(4711));
    EXPECT_EQ(findClass(order.id()), nullptr);
    EXPECT_EQ(findClass(objectId(4711)), cls);
    EXPECT_EQ(cls->getClassId(), objectId(4711));
}

TEST_F(Events, arenasComeAndGo) {
    vm.send.arenaNew(worker, 3, "heap");
    vm.send.arenaNew(worker, 4, nullptr);
    ASSERT_NE(findArena(3), nullptr);
    EXPECT_EQ(findArena(3)->getName(), "heap");
    EXPECT_EQ(findArena(4)->getName(), "");
    vm.send.arenaNew(worker, 3, "again");
    EXPECT_EQ(findArena(3)->getName(), "heap");
    vm.send.objectAlloc(worker, 3, nullptr, JVMPI_INT, 16, objectId(5));
    vm.send.arenaDelete(worker, 3);
    EXPECT_EQ(findArena(3), nullptr);
    EXPECT_EQ(findObject(objectId(5))->getArenaId(), 0);
    vm.send.arenaDelete(worker, 3);
}

TEST_F(Events, methodAndMonitorEventsReachTheirThread) {
    monitor.setMethodMask("*");
    monitor.setDataBeingCollected(PRBCollect::kMethods | PRBCollect::kContention);
    vm.send.classLoad(worker, order);
    PRBJavaThread* thread = threadOf(worker);
    vm.send.methodEntry(worker, order.methodId("price"));
    EXPECT_EQ(thread->getStackDepth(), 1);
    vm.send.methodEntry2(worker, order.methodId("pay"), nullptr);
    EXPECT_EQ(thread->getStackDepth(), 2);
    vm.send.methodExit(worker, order.methodId("price"));
    EXPECT_EQ(thread->getStackDepth(), 0);
    vm.send.monitorContendedEnter(worker, nullptr);
    EXPECT_EQ(thread->getThreadState(), kThreadContended);
    vm.send.monitorContendedEntered(worker, nullptr);
    EXPECT_EQ(thread->getThreadState(), kThreadRunning);
    EXPECT_EQ(thread->getCounters().contentionCount, 1);
    vm.send.monitorWait(worker, nullptr, 10); // a sleep is a wait on nothing
    EXPECT_EQ(thread->getThreadState(), kThreadWaiting);
    vm.send.monitorWaited(worker, nullptr, 10);
    EXPECT_EQ(thread->getCounters().waitCount, 1);
    EXPECT_EQ(vm.recorder().count("RequestEvent(4)"), 0u);
}

namespace {

struct Handler : PRBHeapDumpHandler {
    void handleHeapDump(JVMPI_Event* event) override {
        ++dumps;
        level = event->u.heap_dump.dump_level;
    }
    int dumps = 0;
    int level = -1;
};

} // namespace

TEST_F(Events, aHeapDumpGoesToTheHandlerOnTheThreadThatRegisteredIt) {
    Handler handler, second;
    vm.send.heapDump(vm.mainThread(), 0, {});
    EXPECT_EQ(monitor.registerHeapDumpHandler(&handler), nullptr);
    vm.send.heapDump(vm.mainThread(), 1, {});
    EXPECT_EQ(handler.dumps, 1);
    EXPECT_EQ(handler.level, 1);
    worker.startReal();
    vm.send.heapDump(worker, 0, {});
    worker.stopReal();
    EXPECT_EQ(handler.dumps, 1);
    EXPECT_EQ(monitor.registerHeapDumpHandler(&second), &handler);
    monitor.deregisterHeapDumpHandler();
    vm.send.heapDump(vm.mainThread(), 1, {});
    EXPECT_EQ(handler.dumps + second.dumps, 1);
}
