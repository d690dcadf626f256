// What an agent may rely on in any VM that offers JVMPI, on the scripted one.
#include "tests/vm/ScriptedVmTest.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// One event as the agent saw it. Texts are copied while they are valid.
struct Seen {
    jint type = 0;
    JNIEnv* env = nullptr;
    ScriptedThread* thread = nullptr;
    std::string text;
    JVMPI_Event event{};
};

std::vector<Seen> seen;
std::function<void(JVMPI_Event*)> react;

void notified(JVMPI_Event* event) {
    Seen one;
    one.type = event->event_type;
    one.env = event->env_id;
    one.thread = &ScriptedVm::current().currentThread();
    one.event = *event;
    switch (event->event_type & ~JVMPI_REQUESTED_EVENT) {
    case JVMPI_EVENT_THREAD_START:
        one.text = event->u.thread_start.thread_name;
        break;
    case JVMPI_EVENT_CLASS_LOAD:
        one.text = event->u.class_load.class_name;
        break;
    default:
        break;
    }
    seen.push_back(one);
    if (react) react(event);
}

class Jvmpi : public ScriptedVmTest {
protected:
    Jvmpi() : table(*vm.jvmpi()) {
        seen.clear();
        react = nullptr;
        table.NotifyEvent = notified;
    }
    ~Jvmpi() override { react = nullptr; }
    std::vector<jint> types() const {
        std::vector<jint> all;
        for (const Seen& one : seen) all.push_back(one.type);
        return all;
    }
    JVMPI_Interface& table;
};

// ---- events -------------------------------------------------------------------------------------

TEST_F(Jvmpi, getEnvAnswersTheTableOfTheVersion) {
    void* out = nullptr;
    EXPECT_EQ(vm.javaVM()->GetEnv(&out, JVMPI_VERSION_1), JNI_OK);
    EXPECT_EQ(out, &table);
    EXPECT_EQ(table.version, 0x10000001);
}

TEST_F(Jvmpi, getEnvCanRefuseTheInterface) {
    vm.refuseJvmpi(JNI_EVERSION);
    void* out = &table;
    EXPECT_EQ(vm.javaVM()->GetEnv(&out, JVMPI_VERSION_1), JNI_EVERSION);
    EXPECT_EQ(out, nullptr);
}

TEST_F(Jvmpi, onlyEnabledEventsAreDelivered) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    vm.loadClass(cls);
    EXPECT_THAT(types(), IsEmpty());
    EXPECT_EQ(table.EnableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr), JVMPI_SUCCESS);
    vm.loadClass(cls);
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_CLASS_LOAD));
    EXPECT_EQ(table.DisableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr), JVMPI_SUCCESS);
    vm.loadClass(cls);
    EXPECT_EQ(seen.size(), 1U);
}

TEST_F(Jvmpi, unknownAndUnsupportedEventsAreNotAvailable) {
    for (const jint type : {0, 9, 32, 36, 62, -1, 1000, JVMPI_EVENT_CLASS_LOAD_HOOK}) {
        EXPECT_EQ(table.EnableEvent(type, nullptr), JVMPI_NOT_AVAILABLE) << type;
        EXPECT_EQ(table.DisableEvent(type, nullptr), JVMPI_NOT_AVAILABLE) << type;
        EXPECT_EQ(table.RequestEvent(type, nullptr), JVMPI_NOT_AVAILABLE) << type;
    }
    vm.setUnsupported(JVMPI_EVENT_OBJECT_MOVE);
    EXPECT_EQ(table.EnableEvent(JVMPI_EVENT_OBJECT_MOVE, nullptr), JVMPI_NOT_AVAILABLE);
}

TEST_F(Jvmpi, withoutACallbackNothingIsDelivered) {
    table.NotifyEvent = nullptr;
    EXPECT_FALSE(vm.send.jvmShutDown(vm.mainThread()));
    EXPECT_THAT(types(), IsEmpty());
}

TEST_F(Jvmpi, enablingThreadStartAnnouncesLiveThreadsOnTheEnablingThread) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    ScriptedThread& gone = vm.addThread({.name = "gone"});
    vm.endThread(gone);
    table.EnableEvent(JVMPI_EVENT_THREAD_START, nullptr);
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].text, "main");
    EXPECT_EQ(seen[1].text, "worker");
    EXPECT_EQ(seen[1].type, JVMPI_EVENT_THREAD_START);
    EXPECT_EQ(seen[1].env, vm.env());
    EXPECT_EQ(seen[1].thread, &vm.mainThread());
    EXPECT_EQ(seen[1].event.u.thread_start.thread_env_id, worker.env());
    EXPECT_EQ(seen[1].event.u.thread_start.thread_id, worker.id());
    table.EnableEvent(JVMPI_EVENT_THREAD_START, nullptr);
    EXPECT_EQ(seen.size(), 2U);
}

TEST_F(Jvmpi, aRequestedThreadStartNamesTheThreadAndArrivesOnTheRequester) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_THREAD_START, worker.id()), JVMPI_SUCCESS);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].type, JVMPI_EVENT_THREAD_START | JVMPI_REQUESTED_EVENT);
    EXPECT_EQ(seen[0].env, vm.env());
    EXPECT_EQ(seen[0].event.u.thread_start.thread_env_id, worker.env());
    vm.endThread(worker);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_THREAD_START, worker.id()), JVMPI_FAIL);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_THREAD_START, vm.unknownId()), JVMPI_FAIL);
    EXPECT_EQ(seen.size(), 1U);
}

TEST_F(Jvmpi, aRequestedClassLoadReportsTheClassAgain) {
    ScriptedClass& cls = vm.addClass({
        .name = "com/x/Order",
        .source = "Order.java",
        .methods = {{.name = "price", .signature = "()I", .startLine = 3, .endLine = 9}},
        .statics = {{.name = "count", .signature = "I"}},
        .instances = {{.name = "id", .signature = "J"}, {.name = "next", .signature = "LA;"}},
        .interfaces = {"java/lang/Runnable"},
    });
    bool checked = false;
    react = [&](JVMPI_Event* event) {
        const auto& load = event->u.class_load;
        EXPECT_STREQ(load.source_name, "Order.java");
        EXPECT_EQ(load.num_interfaces, 1);
        ASSERT_EQ(load.num_methods, 1);
        EXPECT_STREQ(load.methods[0].method_name, "price");
        EXPECT_STREQ(load.methods[0].method_signature, "()I");
        EXPECT_EQ(load.methods[0].start_lineno, 3);
        EXPECT_EQ(load.methods[0].end_lineno, 9);
        EXPECT_EQ(load.methods[0].method_id, cls.methodId("price"));
        ASSERT_EQ(load.num_static_fields, 1);
        EXPECT_STREQ(load.statics[0].field_name, "count");
        ASSERT_EQ(load.num_instance_fields, 2);
        EXPECT_STREQ(load.instances[1].field_signature, "LA;");
        EXPECT_EQ(load.class_id, cls.id());
        checked = true;
    };
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_CLASS_LOAD, cls.id()), JVMPI_SUCCESS);
    EXPECT_TRUE(checked);
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT));
    EXPECT_EQ(seen[0].text, "com/x/Order");
    vm.unloadClass(cls);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_CLASS_LOAD, cls.id()), JVMPI_FAIL);
}

TEST_F(Jvmpi, aRequestedAllocationDescribesTheObject) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedObject& object = vm.allocate(vm.mainThread(), cls, 24, 2);
    EXPECT_THAT(types(), IsEmpty());
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, object.id), JVMPI_SUCCESS);
    ASSERT_EQ(seen.size(), 1U);
    const auto& alloc = seen[0].event.u.obj_alloc;
    EXPECT_EQ(alloc.arena_id, 2);
    EXPECT_EQ(alloc.class_id, cls.id());
    EXPECT_EQ(alloc.is_array, JVMPI_NORMAL_OBJECT);
    EXPECT_EQ(alloc.size, 24);
    EXPECT_EQ(alloc.obj_id, object.id);
    EXPECT_EQ(table.RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, vm.unknownId()), JVMPI_FAIL);
}

TEST_F(Jvmpi, everySenderFillsItsEvent) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    ScriptedClass& cls = vm.addClass({.name = "A", .methods = {{.name = "m", .signature = "()V"}}});
    ScriptedObject& object = vm.newObject(cls);
    const jmethodID method = cls.methodId("m");
    vm.send.methodEntry(worker, method);
    EXPECT_EQ(seen.back().event.u.method.method_id, method);
    vm.send.methodEntry2(worker, method, &object);
    EXPECT_EQ(seen.back().event.u.method_entry2.obj_id, object.id);
    vm.send.methodExit(worker, method);
    vm.send.objectFree(worker, object.id);
    EXPECT_EQ(seen.back().event.u.obj_free.obj_id, object.id);
    vm.send.objectMove(worker, 1, object.id, 2, vm.unknownId());
    EXPECT_EQ(seen.back().event.u.obj_move.new_arena_id, 2);
    vm.send.classUnload(worker, cls.id());
    vm.send.arenaNew(worker, 3, "eden");
    EXPECT_EQ(seen.back().event.u.new_arena.arena_id, 3);
    vm.send.arenaDelete(worker, 3);
    vm.send.monitorContendedEnter(worker, object.id);
    EXPECT_EQ(seen.back().event.u.monitor.object, object.id);
    vm.send.monitorContendedEntered(worker, object.id);
    vm.send.monitorContendedExit(worker, object.id);
    vm.send.monitorWait(worker, object.id, 250);
    EXPECT_EQ(seen.back().event.u.monitor_wait.timeout, 250);
    vm.send.monitorWaited(worker, nullptr, 0);
    EXPECT_EQ(seen.back().event.u.monitor_wait.object, nullptr);
    vm.send.jvmInitDone(worker);
    vm.send.threadEnd(worker);
    vm.send.jvmShutDown(worker);
    EXPECT_THAT(types(), ElementsAre(1, 2, 3, 5, 6, 43, 48, 49, 54, 55, 56, 57, 58, 46, 34, 47));
    for (const Seen& one : seen) {
        EXPECT_EQ(one.env, worker.env());
        EXPECT_EQ(one.thread, &worker);
    }
    vm.send.bare(worker, JVMPI_EVENT_THREAD_END, true);
    EXPECT_EQ(seen.back().env, nullptr);
}

TEST_F(Jvmpi, eventsInsideEventsArriveAtOnce) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    std::vector<std::string> order;
    react = [&](JVMPI_Event* event) {
        if (event->event_type == JVMPI_EVENT_THREAD_END) {
            order.push_back("end begins");
            table.RequestEvent(JVMPI_EVENT_CLASS_LOAD, cls.id());
            order.push_back("end ends");
        } else {
            order.push_back("load");
        }
    };
    vm.send.threadEnd(vm.mainThread());
    EXPECT_THAT(order, ElementsAre("end begins", "load", "end ends"));
}

TEST_F(Jvmpi, localReferencesLeftByAnEventAreViolations) {
    react = [&](JVMPI_Event* event) { event->env_id->FindClass("java/lang/String"); };
    vm.send.threadEnd(vm.mainThread());
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre(HasSubstr("Event(34) on main left 1 local references")));
    react = [&](JVMPI_Event* event) { event->env_id->PushLocalFrame(16); };
    vm.send.threadEnd(vm.mainThread());
    EXPECT_THAT(vm.recorder().takeViolations(), ElementsAre(HasSubstr("and 1 frames")));
}

// ---- threads ------------------------------------------------------------------------------------

TEST_F(Jvmpi, threadLocalStorageIsOnePointerPerThread) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    int one = 1;
    int two = 2;
    EXPECT_EQ(table.GetThreadLocalStorage(worker.env()), nullptr);
    table.SetThreadLocalStorage(worker.env(), &one);
    table.SetThreadLocalStorage(vm.env(), &two);
    EXPECT_EQ(table.GetThreadLocalStorage(worker.env()), &one);
    EXPECT_EQ(table.GetThreadLocalStorage(vm.env()), &two);
    worker.startReal();
    worker.run([&] { EXPECT_EQ(table.GetThreadLocalStorage(vm.env()), &two); });
    vm.endThread(worker);
    EXPECT_EQ(table.GetThreadLocalStorage(worker.env()), nullptr);
}

TEST_F(Jvmpi, aReusedEnvironmentStartsWithoutStorage) {
    ScriptedThread& old = vm.addThread({.name = "old"});
    int one = 1;
    table.SetThreadLocalStorage(old.env(), &one);
    vm.endThread(old);
    ScriptedThread& fresh = vm.addThread({.name = "new", .reuseEnvOf = &old});
    EXPECT_EQ(fresh.env(), old.env());
    EXPECT_NE(fresh.id(), old.id());
    EXPECT_EQ(table.GetThreadLocalStorage(fresh.env()), nullptr);
    EXPECT_EQ(table.GetThreadObject(fresh.env()), fresh.id());
}

TEST_F(Jvmpi, statusKeepsItsMeaningWhileSuspended) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.setStatus(JVMPI_THREAD_CONDVAR_WAIT | JVMPI_THREAD_INTERRUPTED);
    EXPECT_EQ(table.GetThreadStatus(worker.env()), 0x4003);
    table.SuspendThread(worker.env());
    EXPECT_EQ(table.GetThreadStatus(worker.env()), 0xC003);
    table.ResumeThread(worker.env());
    EXPECT_EQ(table.GetThreadStatus(worker.env()), 0x4003);
    EXPECT_EQ(worker.timesSuspended(), 1U);
    EXPECT_EQ(worker.timesResumed(), 1U);
}

TEST_F(Jvmpi, callTracesNeedASuspendedOrOwnThread) {
    ScriptedClass& cls = vm.addClass({.name = "A",
                                      .methods = {{.name = "top", .signature = "()V"},
                                                  {.name = "mid", .signature = "()V"},
                                                  {.name = "low", .signature = "()V"}}});
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.setFrames(
        {{7, cls.methodId("top")}, {8, cls.methodId("mid")}, {9, cls.methodId("low")}});
    JVMPI_CallFrame frames[3] = {};
    JVMPI_CallTrace trace{worker.env(), -1, frames};
    table.GetCallTrace(&trace, 3);
    EXPECT_EQ(trace.num_frames, 0);
    table.SuspendThread(worker.env());
    table.GetCallTrace(&trace, 2);
    table.ResumeThread(worker.env());
    EXPECT_EQ(trace.num_frames, 2);
    EXPECT_EQ(frames[0].lineno, 7);
    EXPECT_EQ(frames[1].method_id, cls.methodId("mid"));
    EXPECT_EQ(frames[2].method_id, nullptr);
    worker.run([&] { table.GetCallTrace(&trace, 3); });
    EXPECT_EQ(trace.num_frames, 3);
}

TEST_F(Jvmpi, hasRunAndCpuTimeAreScripted) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    EXPECT_EQ(table.ThreadHasRun(worker.env()), JNI_TRUE);
    worker.setHasRun(false);
    EXPECT_EQ(table.ThreadHasRun(worker.env()), JNI_FALSE);
    worker.setCpuTime(1000);
    worker.advanceCpuTime(500);
    worker.run([&] { EXPECT_EQ(table.GetCurrentThreadCpuTime(), 1500); });
    EXPECT_EQ(table.GetCurrentThreadCpuTime(), 0);
    worker.scriptCpuTimes({10, 20});
    worker.run([&] {
        EXPECT_EQ(table.GetCurrentThreadCpuTime(), 10);
        EXPECT_EQ(table.GetCurrentThreadCpuTime(), 20);
        EXPECT_EQ(table.GetCurrentThreadCpuTime(), 20);
    });
    vm.setRealCpuClock(true);
    EXPECT_GT(table.GetCurrentThreadCpuTime(), 0);
}

TEST_F(Jvmpi, callsThatCouldBlockWhileThreadsAreSuspendedAreViolations) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    JVMPI_RawMonitor monitor = table.RawMonitorCreate(const_cast<char*>("_Table"));
    table.SuspendThread(worker.env());
    table.RawMonitorEnter(monitor);
    table.RawMonitorExit(monitor);
    table.GetThreadLocalStorage(vm.env());
    table.ResumeThread(worker.env());
    table.GetThreadLocalStorage(vm.env());
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre(HasSubstr("RawMonitorEnter(_Table) by main while it holds threads"),
                            HasSubstr("RawMonitorExit(_Table)"),
                            HasSubstr("GetThreadLocalStorage(main)")));
}

TEST_F(Jvmpi, unbalancedAndSelfSuspensionsAreViolations) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    table.ResumeThread(worker.env());
    table.SuspendThread(vm.env());
    vm.endThread(worker);
    table.SuspendThread(worker.env());
    table.GetThreadStatus(reinterpret_cast<JNIEnv*>(&worker));
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("thread worker is resumed but not suspended",
                            "thread main suspends itself",
                            "SuspendThread of the ended thread worker",
                            HasSubstr("which is no environment")));
}

int bodyRuns = 0;
ScriptedThread* bodyThread = nullptr;
void* bodyArgument = &bodyRuns;

void systemBody(void* argument) {
    ++bodyRuns;
    bodyArgument = argument;
    bodyThread = &ScriptedVm::current().currentThread();
}

TEST_F(Jvmpi, aSystemThreadIsAnnouncedRunsItsBodyAndEnds) {
    vm.setEnabled(JVMPI_EVENT_THREAD_START, true);
    vm.setEnabled(JVMPI_EVENT_THREAD_END, true);
    bodyRuns = 0;
    EXPECT_EQ(table.CreateSystemThread(const_cast<char*>("sampler"), 10, systemBody), 0);
    vm.waitSystemThreads();
    EXPECT_EQ(bodyRuns, 1);
    EXPECT_EQ(bodyArgument, nullptr);
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_THREAD_START, JVMPI_EVENT_THREAD_END));
    EXPECT_EQ(seen[0].text, "sampler");
    EXPECT_EQ(seen[0].thread, bodyThread);
    EXPECT_EQ(seen[0].env, bodyThread->env());
    EXPECT_EQ(seen[0].event.u.thread_start.thread_env_id, bodyThread->env());
    EXPECT_FALSE(bodyThread->alive());
    EXPECT_THAT(vm.jvmpiCalls(), ElementsAre("CreateSystemThread(sampler, 10)"));
}

TEST_F(Jvmpi, aRecordedSystemThreadRunsWhenTheTestSaysSo) {
    vm.setSystemThreads(SystemThreads::kRecord);
    vm.setEnabled(JVMPI_EVENT_THREAD_START, true);
    bodyRuns = 0;
    EXPECT_EQ(table.CreateSystemThread(const_cast<char*>("sampler"), 10, systemBody), 0);
    ASSERT_EQ(vm.systemThreads().size(), 1U);
    EXPECT_EQ(vm.systemThreads()[0].name, "sampler");
    EXPECT_EQ(vm.systemThreads()[0].priority, 10);
    EXPECT_EQ(bodyRuns, 0);
    vm.runSystemThread(0);
    EXPECT_EQ(bodyRuns, 1);
    EXPECT_TRUE(vm.systemThreads()[0].ran);
    EXPECT_EQ(bodyThread, &vm.systemThread(0));
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_THREAD_START));
    EXPECT_EQ(table.CreateSystemThread(nullptr, 10, systemBody), -1);
}

// ---- collections and heap -----------------------------------------------------------------------

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

// ---- ids ----------------------------------------------------------------------------------------

TEST_F(Jvmpi, idsAndReferencesConvertBothWays) {
    ScriptedObject& string = vm.newString("text");
    vm.callNative([&] {
        const jobject ref = table.jobjectID2jobject(string.id);
        EXPECT_EQ(vm.resolve(ref), &string);
        EXPECT_EQ(table.jobject2jobjectID(ref), string.id);
        EXPECT_EQ(table.jobjectID2jobject(vm.unknownId()), nullptr);
        EXPECT_EQ(table.jobject2jobjectID(nullptr), nullptr);
    });
}

TEST_F(Jvmpi, aReferenceIsAHandleWhoseWordIsTheId) {
    ScriptedObject& string = vm.newString("text");
    vm.callNative([&] {
        const jobject local = vm.newLocalRef(vm.mainThread(), &string);
        for (const jobject ref : {local, vm.env()->NewGlobalRef(local),
                                  static_cast<jobject>(vm.env()->NewWeakGlobalRef(local))}) {
            const auto bits = reinterpret_cast<std::uintptr_t>(ref) & ~std::uintptr_t{3};
            std::uint32_t word = 0;
            std::memcpy(&word, reinterpret_cast<const void*>(bits), sizeof word);
            EXPECT_EQ(word, reinterpret_cast<std::uintptr_t>(string.id));
        }
    });
}

TEST_F(Jvmpi, idsFitIntoFourBytes) {
    ScriptedClass& cls = vm.addClass({.name = "A", .methods = {{.name = "m", .signature = "()V"}}});
    for (const void* id :
         {static_cast<const void*>(cls.id()), static_cast<const void*>(vm.unknownId()),
          static_cast<const void*>(vm.mainThread().id()),
          reinterpret_cast<const void*>(cls.methodId("m"))})
        EXPECT_LE(reinterpret_cast<std::uintptr_t>(id), 0xffffffffU);
}

TEST_F(Jvmpi, methodsAndThreadsNameTheirObjects) {
    ScriptedClass& cls = vm.addClass({.name = "A", .methods = {{.name = "m", .signature = "()V"}}});
    EXPECT_EQ(table.GetMethodClass(cls.methodId("m")), cls.id());
    EXPECT_EQ(table.GetMethodClass(reinterpret_cast<jmethodID>(&cls)), nullptr);
    EXPECT_EQ(table.GetThreadObject(vm.env()), vm.mainThread().id());
    vm.unloadClass(cls);
    EXPECT_EQ(table.GetMethodClass(cls.methodId("m")), nullptr);
}

// ---- log and faults -----------------------------------------------------------------------------

TEST_F(Jvmpi, theLogHoldsEveryCallInOrder) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    JVMPI_RawMonitor monitor = table.RawMonitorCreate(const_cast<char*>("_Table"));
    vm.recorder().clear();
    table.EnableEvent(54, nullptr);
    table.RawMonitorEnter(monitor);
    table.RequestEvent(JVMPI_EVENT_CLASS_LOAD, cls.id());
    table.RawMonitorExit(monitor);
    worker.run([&] { table.GetCurrentThreadCpuTime(); });
    EXPECT_THAT(vm.recorder().texts(kAllKinds),
                ElementsAre("EnableEvent(54)", "RawMonitorEnter(_Table)",
                            "RequestEvent(42, class com/x/A)", "RequestedEvent(42)",
                            "RawMonitorExit(_Table)", "GetCurrentThreadCpuTime()"));
    EXPECT_EQ(vm.recorder().calls()[5].thread, "worker");
    EXPECT_THAT(vm.recorder().callsHolding("_Table"),
                ElementsAre("RequestEvent(42, class com/x/A)"));
    EXPECT_EQ(vm.recorder().count("EnableEvent"), 1U);
    EXPECT_EQ(vm.recorder().count("EnableEvent(54)"), 1U);
    EXPECT_EQ(vm.recorder().count("EnableEvent(55)"), 0U);
    EXPECT_THAT(vm.recorder().textsOf({"RawMonitorEnter", "RawMonitorExit"}),
                ElementsAre("RawMonitorEnter(_Table)", "RawMonitorExit(_Table)"));
    vm.recorder().setRecording(false);
    table.EnableEvent(55, nullptr);
    EXPECT_EQ(vm.recorder().count("EnableEvent(55)"), 0U);
}

TEST_F(Jvmpi, scriptedFailuresAreServedOnce) {
    vm.recorder().failNext("EnableEvent", JVMPI_NOT_AVAILABLE, 1);
    vm.recorder().failNext("EnableEvent");
    EXPECT_EQ(table.EnableEvent(54, nullptr), JVMPI_SUCCESS);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_NOT_AVAILABLE);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_FAIL);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_SUCCESS);
    vm.recorder().failNext("RawMonitorCreate");
    EXPECT_EQ(table.RawMonitorCreate(const_cast<char*>("m")), nullptr);
    vm.recorder().failNext("CreateSystemThread");
    EXPECT_EQ(table.CreateSystemThread(const_cast<char*>("t"), 5, systemBody), -1);
}

TEST_F(Jvmpi, theNthCallThatCanFailFails) {
    for (std::size_t n = 1; n <= 3; ++n) {
        vm.recorder().failNth(n);
        std::vector<bool> failed;
        failed.push_back(table.EnableEvent(54, nullptr) != JVMPI_SUCCESS);
        table.DisableGC(); // cannot fail
        failed.push_back(table.GetThreadObject(vm.env()) == nullptr);
        failed.push_back(table.DisableEvent(54, nullptr) != JVMPI_SUCCESS);
        table.EnableGC();
        EXPECT_THAT(failed, ElementsAre(n == 1, n == 2, n == 3));
        EXPECT_TRUE(vm.recorder().faultFired());
        EXPECT_EQ(vm.recorder().failableCalls(), 3U);
    }
    vm.recorder().failNth(4);
    EXPECT_EQ(table.EnableEvent(54, nullptr), JVMPI_SUCCESS);
    EXPECT_FALSE(vm.recorder().faultFired());
}

} // namespace
