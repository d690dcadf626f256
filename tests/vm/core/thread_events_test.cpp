#include "core/PRBErrorQueue.h"
#include "core/PRBKillRequest.h"
#include "core/PRBThreadRegistry.h"
#include "data/PRBProfilerError.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBThreadSnapshot.h"
#include "tests/vm/core/CoreTest.h"

#include <algorithm>
#include <cstring>
#include <pthread.h>

using namespace scripted;

namespace {

class ThreadEvents : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();

    std::size_t inThreadTable() { return PRBContext::getThreadTable()->entries(); }
    std::size_t inActiveTable() { return PRBContext::getActiveThreadTable()->entries(); }
};

} // namespace

TEST_F(ThreadEvents, aStartEntersBothTablesAndTheLocalStorage) {
    auto& worker = vm.startThread({.name = "worker", .group = "pool", .parent = "main"});
    PRBJavaThread* thread = threadOf(worker);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->getName(), "worker");
    EXPECT_EQ(thread->getGroupName(), "pool");
    EXPECT_EQ(thread->getParentName(), "main");
    EXPECT_EQ(thread->getThreadId(), worker.id());
    EXPECT_EQ(thread->getEnvId(), worker.env());
    EXPECT_EQ(thread->getThreadState(), kThreadRunning);
    EXPECT_EQ(thread->isThisBackgroundThread(), 0);
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), thread));
    EXPECT_TRUE(isIn(PRBContext::getActiveThreadTable(), thread));
    EXPECT_TRUE(PRBThreadSnapshot::Reader().contains(thread));
}

TEST_F(ThreadEvents, onlyTheSamplersOwnThreadIsBackground) {
    EXPECT_EQ(threadOf(vm.startThread({.name = "PRB_CPUSampler_Thread"}))->isThisBackgroundThread(),
              1);
    EXPECT_EQ(
        threadOf(vm.startThread({.name = "PRB_CPUSampler_Thread2"}))->isThisBackgroundThread(), 0);
    EXPECT_EQ(threadOf(vm.startThread({.name = "prb_cpusampler_thread"}))->isThisBackgroundThread(),
              0);
}

TEST_F(ThreadEvents, aStartWithoutAnEnvironmentBuildsNothing) {
    const std::size_t before = inThreadTable();
    JVMPI_Event event;
    std::memset(&event, 0, sizeof event);
    event.event_type = JVMPI_EVENT_THREAD_START;
    vm.notify(vm.mainThread(), event);
    EXPECT_EQ(inThreadTable(), before);
}

TEST_F(ThreadEvents, aStartWithoutNamesHasEmptyOnes) {
    auto& worker = vm.startThread({.name = "worker", .nullNames = true});
    ASSERT_NE(threadOf(worker), nullptr);
    EXPECT_EQ(threadOf(worker)->getName(), "");
}

TEST_F(ThreadEvents, aStartIsToldWhenDebugIsOn) {
    PRBTrace::level.store(0x200);
    vm.startThread({.name = "worker"});
    PRBTrace::level.store(0);
    bool found = false;
    for (const std::string& line : logTexts())
        found |= line.rfind("New PRBJavaThread created for envid ", 0) == 0 &&
                 line.find(" Thread name worker") != std::string::npos;
    EXPECT_TRUE(found);
}

TEST_F(ThreadEvents, aReplayedStartKeepsTheThread) {
    auto& worker = vm.startThread({.name = "worker"});
    PRBJavaThread* thread = threadOf(worker);
    const std::size_t before = inThreadTable();
    vm.send.threadStart(worker, true, &vm.mainThread());
    EXPECT_EQ(threadOf(worker), thread);
    EXPECT_EQ(inThreadTable(), before);
}

TEST_F(ThreadEvents, anEndLeavesTheActiveTableOnly) {
    auto& worker = vm.startThread({.name = "worker"});
    PRBJavaThread* thread = threadOf(worker);
    worker.run([&] { thread->getJavaThreadObject(kFindThreadObject); });
    const Texts before = vm.globalReferences();
    vm.recorder().clear();
    vm.endThread(worker);
    EXPECT_EQ(thread->getThreadState(), kThreadEnded);
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), thread));
    EXPECT_FALSE(isIn(PRBContext::getActiveThreadTable(), thread));
    EXPECT_EQ(worker.localStorage(), nullptr);
    EXPECT_EQ(vm.globalReferences().size(), before.size() - 1);
}

TEST_F(ThreadEvents, anEndLocksTheActiveTableThenAllThreads) {
    auto& worker = vm.startThread({.name = "worker"});
    vm.recorder().clear();
    vm.send.threadEnd(worker);
    const Texts calls = vm.monitorCalls();
    std::vector<std::string> outer; // the first entering and the last leaving of each
    const auto first = [&](const std::string& text) {
        return std::find(calls.begin(), calls.end(), text) - calls.begin();
    };
    const auto last = [&](const std::string& text) {
        return calls.rend() - std::find(calls.rbegin(), calls.rend(), text);
    };
    EXPECT_LT(first("RawMonitorEnter(_ActiveThreadTable)"), first("RawMonitorEnter(_ThreadTable)"));
    EXPECT_LT(last("RawMonitorExit(_ThreadTable)"), last("RawMonitorExit(_ActiveThreadTable)"));
}

TEST_F(ThreadEvents, aLateEventDoesNotBringAnEndedThreadBack) {
    auto& worker = vm.startThread({.name = "worker"});
    vm.send.threadEnd(worker);
    vm.recorder().clear();
    EXPECT_EQ(monitor.getThreadClass(worker.env()), nullptr);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u);
}

TEST_F(ThreadEvents, anEnvironmentThatComesToNewUseGetsANewThread) {
    auto& first = vm.startThread({.name = "first"});
    PRBJavaThread* ended = threadOf(first);
    vm.endThread(first);
    auto& second = vm.startThread({.name = "second", .reuseEnvOf = &first});
    ASSERT_EQ(second.env(), first.env());
    PRBJavaThread* thread = threadOf(second);
    ASSERT_NE(thread, ended);
    EXPECT_EQ(thread->getName(), "second");
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), thread));
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), ended));
    EXPECT_EQ(PRBThreadSnapshot::Reader().findLive(second.env()), thread);
    monitor.purgeEndedThreads();
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), thread));
    EXPECT_FALSE(isIn(PRBContext::getThreadTable(), ended));
}

TEST_F(ThreadEvents, thePurgeTakesEndedThreadsOnly) {
    auto& a = vm.startThread({.name = "a"});
    auto& b = vm.startThread({.name = "b"});
    PRBJavaThread* kept = threadOf(b);
    const std::size_t before = inThreadTable();
    vm.endThread(a);
    monitor.purgeEndedThreads();
    EXPECT_EQ(inThreadTable(), before - 1);
    EXPECT_TRUE(isIn(PRBContext::getThreadTable(), kept));
    for (int state = 0; state < kThreadEnded; ++state) {
        kept->setThreadState(static_cast<decltype(kept->getThreadState())>(state));
        monitor.purgeEndedThreads();
        EXPECT_TRUE(isIn(PRBContext::getThreadTable(), kept)) << state;
    }
    vm.endThread(b);
    for (ScriptedThread* thread : vm.threads())
        if (thread->localStorage() != nullptr) vm.send.threadEnd(*thread);
    monitor.purgeEndedThreads();
    EXPECT_EQ(inThreadTable(), 0u);
    EXPECT_EQ(inActiveTable(), 0u);
    EXPECT_EQ(PRBThreadSnapshot::Reader().size(), 0u);
}

TEST_F(ThreadEvents, aPurgedThreadLivesAsLongAsSomebodyReads) {
    auto& worker = vm.startThread({.name = "worker"});
    PRBJavaThread* thread = threadOf(worker);
    vm.endThread(worker);
    {
        PRBThreadSnapshot::Reader reader;
        ASSERT_TRUE(reader.contains(thread));
        monitor.purgeEndedThreads();
        EXPECT_EQ(thread->getName(), "worker"); // a sanitizer tells if it is gone
        EXPECT_FALSE(PRBThreadSnapshot::isLive(thread));
    }
}

TEST_F(ThreadEvents, aPurgeThatMeetsTheEndOfAThreadWaitsForIt) {
    auto& worker = vm.startThread({.name = "worker"});
    PRBJavaThread* thread = threadOf(worker);
    worker.run([&] { thread->getJavaThreadObject(kFindThreadObject); });
    std::uint32_t pending = 0;
    vm.recorder().duringNext("DeleteGlobalRef", [&] {
        monitor.purgeEndedThreads();
        for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
        pending = PRBReclaimer::pending();
        EXPECT_FALSE(PRBThreadSnapshot::isLive(thread));
    });
    vm.endThread(worker);
    EXPECT_GT(pending, 0u); // the thread, still in use by its own end
    EXPECT_EQ(worker.localStorage(), nullptr);
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

TEST_F(ThreadEvents, endedThreadsThatNobodyPollsAreBounded) {
    vm.recorder().setRecording(false);
    vm.monitors().setChecking(false);
    constexpr std::size_t kMost = PRBThreadRegistry::kMostEnded;
    const std::size_t before = inThreadTable();
    std::uint32_t pending = 0; // at most
    for (std::size_t i = 0; i < kMost + 200; ++i) {
        auto* thread = new PRBJavaThread("t", nullptr, nullptr, nullptr,
                                         reinterpret_cast<JNIEnv*>(0x100000 + i * 64), 0);
        ASSERT_EQ(PRBThreadRegistry::enter(thread), thread);
        PRBThreadRegistry::end(thread);
        pending = std::max(pending, PRBReclaimer::pending());
    }
    EXPECT_LE(inThreadTable(), before + kMost + 1);
    EXPECT_GE(inThreadTable(), kMost);
    // Nor does what each of them leaves behind pile up, although nothing samples or polls.
    EXPECT_LE(pending, 200u);
}

TEST_F(ThreadEvents, whatThreadsLeaveBehindGoesAfterALongDataReturn) {
    vm.recorder().setRecording(false);
    vm.monitors().setChecking(false);
    const auto comeAndGo = [](std::uintptr_t n) {
        auto* thread = new PRBJavaThread("t", nullptr, nullptr, nullptr,
                                         reinterpret_cast<JNIEnv*>(0x100000 + n * 64), 0);
        PRBThreadRegistry::enter(thread);
        PRBThreadRegistry::end(thread);
    };
    {
        PRBReclaimer::Reader dataReturn;
        for (std::uintptr_t i = 0; i < 500; ++i) comeAndGo(i);
        EXPECT_GE(PRBReclaimer::pending(), 490u); // the data return may look at any of them
    }
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim(); // as the data return does at its end
    std::uint32_t pending = 0;                           // at most
    for (std::uintptr_t i = 500; i < 800; ++i) {
        comeAndGo(i);
        pending = std::max(pending, PRBReclaimer::pending());
    }
    EXPECT_LE(pending, 200u) << "what once could not go raises no bound for ever";
}

TEST_F(ThreadEvents, handlesAreAddressesOrNotedPosixIds) {
    auto& worker = vm.startThread({.name = "worker"});
    PRBJavaThread* thread = threadOf(worker);
    const auto address = static_cast<jlong>(reinterpret_cast<std::intptr_t>(thread));
    JNIEnv* env = vm.env();
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, 0), nullptr);
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, 12345), nullptr);
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, address), thread);
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, address + 8), nullptr);

    worker.startReal();
    std::atomic<jlong> noted{0};
    worker.run([&] {
        noted = PRBMonitorGlobal::registerThreadHandle(worker.env());
        const auto self = static_cast<jlong>(
            static_cast<std::intptr_t>(static_cast<std::uintptr_t>(pthread_self())));
        EXPECT_EQ(noted.load(), self);
        EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(worker.env(), self), thread);
    });
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, noted), thread);
    vm.endThread(worker);
    worker.stopReal();
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, noted), nullptr);
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, address), thread); // until the purge
    monitor.purgeEndedThreads();
    EXPECT_EQ(PRBMonitorGlobal::resolveThreadHandle(env, address), nullptr);
}

TEST_F(ThreadEvents, aThreadOfAnEnvironmentIsRequestedOnce) {
    auto& stranger = vm.addThread({.name = "stranger"});
    EXPECT_EQ(monitor.getThreadClass(nullptr), nullptr);
    PRBJavaThread* thread = monitor.getThreadClass(stranger.env());
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->getName(), "stranger");
    const Texts names = {"DisableGC", "GetThreadObject", "EnableGC", "RequestEvent",
                         "GetThreadLocalStorage"};
    Texts called;
    for (const Call& call : vm.recorder().calls(kJvmpi))
        if (std::find(names.begin(), names.end(), call.name) != names.end())
            called.push_back(call.name);
    EXPECT_EQ(called, (Texts{"GetThreadLocalStorage", "DisableGC", "GetThreadObject", "EnableGC",
                             "RequestEvent", "GetThreadLocalStorage"}));
    vm.recorder().clear();
    EXPECT_EQ(monitor.getThreadClass(stranger.env()), thread);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u);
}

TEST_F(ThreadEvents, aRefusedThreadIsNull) {
    auto& stranger = vm.addThread({.name = "stranger"});
    vm.recorder().failNext("RequestEvent");
    EXPECT_EQ(monitor.getThreadClass(stranger.env()), nullptr);
}

TEST_F(ThreadEvents, aKillRequestNamesOneActiveThread) {
    auto& worker = vm.startThread({.name = "worker"});
    EXPECT_EQ(monitor.requestKillThread(nullptr), 76u);
    EXPECT_EQ(monitor.requestKillThread(vm.unknownId()), 72u);
    EXPECT_EQ(monitor.requestKillThread(worker.id()), 0u);
    EXPECT_EQ(monitor.requestKillThread(worker.id()), 71u);
}

TEST_F(ThreadEvents, aKillRequestIsCarriedOutOnceAtAMethodEntry) {
    auto& worker = vm.startThread({.name = "worker"});
    auto& other = vm.startThread({.name = "other"});
    auto& cls = vm.addClass({.name = "com/x/A", .methods = {{.name = "run", .signature = "()V"}}});
    ASSERT_EQ(monitor.requestKillThread(worker.id()), 0u);
    vm.recorder().clear();
    vm.send.methodEntry(other, cls.methodId("run"));
    vm.send.methodEntry2(worker, cls.methodId("run"), nullptr);
    vm.send.methodExit(worker, cls.methodId("run"));
    EXPECT_EQ(vm.recorder().count("java/lang/Thread.stop()"), 0u);
    vm.send.methodEntry(worker, cls.methodId("run"));
    EXPECT_EQ(vm.recorder().count("java/lang/Thread.stop()"), 1u);
    vm.send.methodEntry(worker, cls.methodId("run"));
    EXPECT_EQ(vm.recorder().count("java/lang/Thread.stop()"), 1u);
    EXPECT_EQ(PRBKillRequest::pending.load(), nullptr);
    EXPECT_EQ(monitor.getNextProfilerErrorSample(), nullptr);
}

TEST_F(ThreadEvents, aKillThatFailsIsQueuedAsAnError) {
    auto& worker = vm.startThread({.name = "worker"});
    ASSERT_EQ(monitor.requestKillThread(worker.id()), 0u);
    vm.hideClass("java/lang/Thread");
    vm.send.methodEntry(worker, nullptr);
    std::unique_ptr<PRBProfilerError> error(monitor.getNextProfilerErrorSample());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getNumericData(360), 74);
}

TEST_F(ThreadEvents, aRefusedEnvironmentIsAskedForAgainOnlyAfterAThreadHasStarted) {
    auto& stranger = vm.addThread({.name = "stranger"});
    vm.recorder().failNext("RequestEvent");
    stranger.run([&] {
        EXPECT_EQ(monitor.getThreadClass(stranger.env()), nullptr);
        vm.recorder().clear();
        EXPECT_EQ(monitor.getThreadClass(stranger.env()), nullptr);
        EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u);
    });
    vm.startThread({.name = "new"});
    EXPECT_NE(monitor.getThreadClass(stranger.env()), nullptr);
}
