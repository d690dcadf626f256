// What an agent may rely on in any VM that offers JVMPI, on the scripted one: threads, their
// stops, traces and clocks.
#include "tests/vm/conformance/JvmpiTest.h"

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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

} // namespace
