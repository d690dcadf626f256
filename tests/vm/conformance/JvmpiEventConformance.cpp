// What an agent may rely on in any VM that offers JVMPI, on the scripted one: the interface and
// its events.
#include "tests/vm/conformance/JvmpiTest.h"

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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

} // namespace
