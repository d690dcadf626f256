// What an agent may rely on in any VM that offers JVMPI, on the scripted one: collections and
// heap dumps.
#include "tests/vm/conformance/JvmpiTest.h"

#include <cstring>

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(Jvmpi, aCollectionDeliversItsEventsOnAThreadWithoutEnvironment) {
    for (const jint type : {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH, JVMPI_EVENT_OBJECT_FREE,
                            JVMPI_EVENT_OBJECT_MOVE, JVMPI_EVENT_ARENA_DELETE})
        vm.setEnabled(type, true);
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedObject& dead = vm.allocate(vm.mainThread(), cls, 16);
    ScriptedObject& moved = vm.allocate(vm.mainThread(), cls, 40, 1);
    const jobjectID deadId = dead.id;
    const jobjectID movedId = moved.id;
    vm.setHeapSize(1000);
    vm.planCollection(
        {.frees = {&dead}, .moves = {&moved}, .moveTo = 2, .arenasDeleted = {5}, .cpu = 77});
    table.RunGC();
    EXPECT_THAT(types(), ElementsAre(60, 5, 6, 49, 61));
    for (const Seen& one : seen) {
        EXPECT_EQ(one.env, nullptr);
        EXPECT_EQ(one.thread, &vm.vmThread());
    }
    EXPECT_EQ(seen[1].event.u.obj_free.obj_id, deadId);
    EXPECT_EQ(seen[2].event.u.obj_move.obj_id, movedId);
    EXPECT_EQ(seen[2].event.u.obj_move.arena_id, 1);
    EXPECT_EQ(seen[2].event.u.obj_move.new_arena_id, 2);
    EXPECT_EQ(seen[2].event.u.obj_move.new_obj_id, moved.id);
    EXPECT_NE(moved.id, movedId);
    EXPECT_EQ(seen[4].event.u.gc_info.used_objects, 1);
    EXPECT_EQ(seen[4].event.u.gc_info.used_object_space, 40);
    EXPECT_EQ(seen[4].event.u.gc_info.total_object_space, 1000);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, movedId), JVMPI_FAIL);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, moved.id), JVMPI_SUCCESS);
    vm.vmThread().run([&] { EXPECT_EQ(table.GetCurrentThreadCpuTime(), 77); });
}

TEST_F(Jvmpi, onlyMonitorsAndTheClockMayBeUsedDuringACollection) {
    JVMPI_RawMonitor monitor = table.RawMonitorCreate(const_cast<char*>("_Table"));
    react = [&](JVMPI_Event* event) {
        if (event->event_type == JVMPI_EVENT_GC_START) {
            table.RawMonitorEnter(monitor);
            table.GetCurrentThreadCpuTime();
        } else {
            table.RawMonitorExit(monitor);
            table.GetThreadLocalStorage(vm.env());
        }
    };
    vm.send.gcStart();
    EXPECT_THAT(vm.monitors().heldNow(), ElementsAre("_Table by VM Thread"));
    // Other threads go on meanwhile.
    EXPECT_EQ(table.GetThreadLocalStorage(vm.env()), nullptr);
    vm.send.gcFinish(1, 2, 3);
    EXPECT_THAT(vm.monitors().heldNow(), IsEmpty());
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("GetThreadLocalStorage(main) during a collection"));
}

TEST_F(Jvmpi, theRestrictedEnvironmentAnswersStaticLongCallsOnly) {
    vm.useRestrictedEnv(4711);
    std::vector<jlong> answers;
    react = [&](JVMPI_Event* event) {
        ASSERT_NE(event->env_id, nullptr);
        const jvalue none{};
        answers.push_back(event->env_id->CallStaticLongMethod(nullptr, nullptr));
        answers.push_back(event->env_id->CallStaticLongMethodA(nullptr, nullptr, &none));
        EXPECT_EQ(event->env_id->functions->CallStaticLongMethod(event->env_id, nullptr, nullptr),
                  4711);
        EXPECT_EQ(event->env_id->FindClass("java/lang/String"), nullptr);
    };
    vm.send.gcStart();
    react = nullptr;
    vm.send.gcFinish(0, 0, 0);
    EXPECT_THAT(answers, ElementsAre(4711, 4711));
    EXPECT_THAT(vm.recorder().takeViolations(), ElementsAre("FindClass during a collection"));
}

TEST_F(Jvmpi, aRealCollectingThreadLetsOthersWaitForTheEnd) {
    JVMPI_RawMonitor monitor = table.RawMonitorCreate(const_cast<char*>("_Table"));
    react = [&](JVMPI_Event* event) {
        if (event->event_type == JVMPI_EVENT_GC_START) table.RawMonitorEnter(monitor);
        if (event->event_type == JVMPI_EVENT_GC_FINISH) table.RawMonitorExit(monitor);
    };
    vm.vmThread().startReal();
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.startReal();
    vm.send.gcStart();
    std::atomic<bool> finishing{false};
    bool waited = false;
    worker.post([&] {
        table.RawMonitorEnter(monitor);
        waited = finishing.load();
        table.RawMonitorExit(monitor);
    });
    finishing.store(true);
    vm.send.gcFinish(0, 0, 0);
    worker.waitIdle();
    EXPECT_TRUE(waited);
}

TEST_F(Jvmpi, disablingCollectionsNests) {
    vm.setEnabled(JVMPI_EVENT_GC_START, true);
    table.DisableGC();
    table.DisableGC();
    table.EnableGC();
    table.RunGC();
    EXPECT_THAT(types(), IsEmpty());
    table.EnableGC();
    table.RunGC();
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START));
    table.EnableGC();
    EXPECT_THAT(vm.recorder().takeViolations(), ElementsAre("EnableGC without DisableGC"));
    vm.send.gcFinish(0, 0, 0);
}

TEST_F(Jvmpi, levelZeroDumpsAreTypeAndIdOfEveryLiveObject) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedObject& plain = vm.allocate(vm.mainThread(), cls, 16);
    ScriptedObject& bytes = vm.allocateArray(vm.mainThread(), JVMPI_BYTE, 3, 24);
    ScriptedObject& dead = vm.allocate(vm.mainThread(), cls, 16);
    vm.collect({.frees = {&dead}});
    std::vector<char> dump;
    react = [&](JVMPI_Event* event) {
        EXPECT_EQ(event->u.heap_dump.dump_level, 0);
        dump.assign(event->u.heap_dump.begin, event->u.heap_dump.end);
    };
    JVMPI_HeapDumpArg arg{JVMPI_DUMP_LEVEL_0};
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_HEAP_DUMP, &arg), JVMPI_SUCCESS);
    EXPECT_EQ(dump, DumpBuilder().object(0, plain.id).object(8, bytes.id).bytes());
    ASSERT_EQ(dump.size(), 10U);
    std::uint32_t id = 0;
    std::memcpy(&id, &dump[1], 4);
    EXPECT_EQ(id, reinterpret_cast<std::uintptr_t>(plain.id));
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT));
    EXPECT_THAT(vm.jvmpiCalls(), ElementsAre("RequestEvent(37, level 0)"));
}

TEST_F(Jvmpi, levelOneDumpsHoldTaggedRecords) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedObject& target = vm.allocate(vm.mainThread(), cls, 16);
    ScriptedObject& source = vm.allocate(vm.mainThread(), cls, 16);
    source.references = {&target, nullptr};
    ScriptedObject& array = vm.allocateArray(vm.mainThread(), JVMPI_CLASS, 1, 24, &cls);
    array.elements[0] = &target;
    ScriptedObject& shorts = vm.allocateArray(vm.mainThread(), JVMPI_SHORT, 2, 24);
    const std::vector<char> objects = DumpBuilder()
                                          .instance(target.id, cls.id(), {})
                                          .instance(source.id, cls.id(), {target.id, nullptr})
                                          .objectArray(array.id, cls.id(), {target.id})
                                          .primitiveArray(shorts.id, JVMPI_SHORT, 2)
                                          .bytes();
    const std::vector<char> dump = vm.buildDump(1);
    ASSERT_GT(dump.size(), objects.size());
    EXPECT_EQ(dump[0], JVMPI_GC_CLASS_DUMP); // classes come first
    EXPECT_TRUE(std::equal(objects.rbegin(), objects.rend(), dump.rbegin()));
}

TEST_F(Jvmpi, dumpRecordsHaveTheLayoutOfTheInterface) {
    const auto id = [](std::uintptr_t n) { return reinterpret_cast<jobjectID>(n); };
    const auto size = [](DumpBuilder& dump) { return dump.bytes().size(); };
    DumpBuilder cls;
    cls.classDump(id(1), id(2), {id(3), id(4)}, 5, {id(6)});
    EXPECT_EQ(size(cls), 1U + 32 + 2 * 4 + 2 + 5 * 7 + 4);
    EXPECT_EQ(cls.bytes()[41], 0); // big-endian count of the constants
    EXPECT_EQ(cls.bytes()[42], 5);
    DumpBuilder roots;
    roots.rootJniGlobal(id(1), nullptr);
    EXPECT_EQ(size(roots), 9U);
    roots.rootJniLocal(id(1), nullptr, 1).rootJavaFrame(id(1), nullptr, 1);
    EXPECT_EQ(size(roots), 9U + 13 + 13);
    roots.rootNativeStack(id(1), nullptr).rootStickyClass(id(1));
    EXPECT_EQ(size(roots), 35U + 9 + 5);
    roots.rootThreadBlock(id(1), nullptr).rootMonitorUsed(id(1));
    EXPECT_EQ(size(roots), 49U + 9 + 5);
    DumpBuilder array;
    array.primitiveArray(id(1), JVMPI_LONG, 3);
    EXPECT_EQ(size(array), 1U + 12 + 24);
    EXPECT_EQ(array.bytes()[9], JVMPI_LONG);
    array.cutLast(30);
    EXPECT_EQ(size(array), 7U);
}

TEST_F(Jvmpi, aScriptedDumpAndItsHookReplaceTheBuiltOne) {
    vm.setDump(1, DumpBuilder().u1(0xff).bytes());
    int hooked = 0;
    vm.setDumpHook([&] { ++hooked; });
    std::ptrdiff_t length = -1;
    react = [&](JVMPI_Event* event) {
        length = event->u.heap_dump.end - event->u.heap_dump.begin;
        EXPECT_EQ(*event->u.heap_dump.begin, static_cast<char>(0xff));
    };
    JVMPI_HeapDumpArg arg{JVMPI_DUMP_LEVEL_1};
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_HEAP_DUMP, &arg), JVMPI_SUCCESS);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(hooked, 1);
    arg.heap_dump_level = JVMPI_DUMP_LEVEL_2;
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_HEAP_DUMP, &arg), JVMPI_NOT_AVAILABLE);
}

} // namespace
