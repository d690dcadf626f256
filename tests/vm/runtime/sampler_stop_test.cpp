// The stretch in which threads are stopped: whatever they hold, the sampler gets through.
#include "tests/vm/runtime/SamplerTest.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <mutex>
#include <pthread.h>
#include <semaphore.h>
#include <thread>
#include <vector>

namespace {

// Debug lines are on: one that was written while threads are stopped would wait for the log.
class SamplerStop : public SamplerTest {
    void SetUp() override {
        startAgent("debug=PUBLIC,filter=PRBCCPUS");
        prepare();
    }
};

// Runs steps of two threads in turn.
class Turns {
public:
    void reach(int phase) {
        std::lock_guard lock(mutex_);
        phase_ = phase;
        changed_.notify_all();
    }
    void await(int phase) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return phase_ >= phase; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int phase_ = 0;
};

// Takes every lock when the sampler asks for its status, just before it is stopped, and lets them
// go only when it is resumed.
TEST_F(SamplerStop, aStoppedThreadMayOwnEveryLock) {
    enum { kAsked = 1, kHolding, kResumed };
    static Turns turns;
    static JNIEnv* env = nullptr;
    auto [scripted, model] = startRunning("owner");
    timeval start{};
    model.newContentionEvent(cls->id(), cls->methodId("run"), kContendedEnter, start);
    env = scripted.env();
    cycle(); // starts the sampler's thread and makes its buffers
    scripted.startReal();
    scripted.post([this] {
        turns.await(kAsked);
        std::vector<JVMPI_RawMonitor> held;
        for (const char* name :
             {"_HeapDumpRequest", "_StopBackgroundThread_COBT", "_BackgroundThreadIsStopped",
              "Thread Method Frequency Table", "_Contention_Table", "_ClassTable", "_MethodTable",
              "_ArenaTable", "_ObjectTable", "PendingMethodRemoveQueueLock", "_MaskList",
              "_ProfilerError", "_LogFile"}) {
            auto* monitor = vm.monitors().find(name);
            ASSERT_NE(monitor, nullptr) << name;
            held.push_back(reinterpret_cast<JVMPI_RawMonitor>(monitor));
            vm.jvmpi()->RawMonitorEnter(held.back());
        }
        flockfile(stdout);
        flockfile(stderr);
        turns.reach(kHolding);
        turns.await(kResumed);
        funlockfile(stderr);
        funlockfile(stdout);
        for (auto last = held.rbegin(); last != held.rend(); ++last)
            vm.jvmpi()->RawMonitorExit(*last);
    });
    static jint (*getStatus)(JNIEnv*) = nullptr;
    static void (*resume)(JNIEnv*) = nullptr;
    getStatus = vm.jvmpi()->GetThreadStatus;
    resume = vm.jvmpi()->ResumeThread;
    vm.jvmpi()->GetThreadStatus = [](JNIEnv* of) {
        if (of == env) {
            turns.reach(kAsked);
            turns.await(kHolding);
        }
        return getStatus(of);
    };
    vm.jvmpi()->ResumeThread = [](JNIEnv* of) {
        resume(of);
        if (of == env) turns.reach(kResumed);
    };
    cycle();
    scripted.waitIdle();
    EXPECT_EQ(scripted.timesResumed(), 2u);
    EXPECT_EQ(model.getCounters().cpuTime, 2);
}

// The thread sanitizer delivers signals at calls only, so nothing is stopped inside malloc there.
#if !defined(__SANITIZE_THREAD__)

// Threads of the system that a signal stops wherever they are. The VM's calls are replaced for
// them, as the scripted VM's own allocate.
struct Stoppable {
    JNIEnv* env;
    pthread_t thread;
    sem_t stopped, go;
    unsigned stops;
};
constexpr int kStoppables = 2;
Stoppable stoppables[kStoppables];

Stoppable& stoppable(JNIEnv* env) { return stoppables[env == stoppables[0].env ? 0 : 1]; }

void wait(sem_t& semaphore) {
    while (sem_wait(&semaphore) != 0) {
    }
}

void stopHere(int) {
    const int before = errno;
    for (Stoppable& one : stoppables)
        if (pthread_equal(one.thread, pthread_self())) {
            sem_post(&one.stopped);
            wait(one.go);
        }
    errno = before;
}

// Threads that are stopped inside malloc most of the time, whose lock they then own: a sampler
// that allocated meanwhile would stop for ever.
TEST_F(SamplerStop, threadsStoppedInsideMallocStopNobodyElse) {
    mallopt(M_ARENA_MAX, 1); // one lock for all threads
    vm.recorder().setRecording(false);
    struct sigaction action {};
    action.sa_handler = stopHere;
    sigaction(SIGUSR1, &action, nullptr);
    static std::atomic<bool> over{false};
    static JVMPI_CallFrame frame{};
    frame.method_id = cls->methodId("run");
    constexpr unsigned kCycles = 200;
    cycle(); // starts the sampler's thread and makes its buffers
    std::vector<PRBJavaThread*> models;
    std::vector<std::thread> threads;
    for (Stoppable& one : stoppables) {
        auto [scripted, model] = startRunning("busy");
        models.push_back(&model);
        one.env = scripted.env();
        sem_init(&one.stopped, 0, 0);
        sem_init(&one.go, 0, 0);
        threads.emplace_back([] {
            // Too large for the threads' own caches.
            for (std::size_t size = 2000; !over.load(); size = 2000 + (size + 977) % 60000) {
                void* volatile block = std::malloc(size);
                std::free(block);
            }
        });
        one.thread = threads.back().native_handle();
    }
    JVMPI_Interface& table = *vm.jvmpi();
    table.GetThreadStatus = [](JNIEnv*) -> jint { return JVMPI_THREAD_RUNNABLE; };
    table.SuspendThread = [](JNIEnv* env) {
        Stoppable& one = stoppable(env);
        ++one.stops;
        pthread_kill(one.thread, SIGUSR1);
        wait(one.stopped);
    };
    table.ThreadHasRun = [](JNIEnv*) -> jboolean { return JNI_TRUE; };
    table.GetCallTrace = [](JVMPI_CallTrace* trace, jint) {
        trace->frames[0] = frame;
        trace->num_frames = 1;
    };
    table.ResumeThread = [](JNIEnv* env) { sem_post(&stoppable(env).go); };
    for (unsigned i = 0; i < kCycles; ++i) cycle();
    over = true;
    for (std::thread& thread : threads) thread.join();
    for (const Stoppable& one : stoppables) EXPECT_EQ(one.stops, kCycles);
    for (PRBJavaThread* model : models)
        EXPECT_EQ(model->getCounters().cpuTime, static_cast<long long>(kCycles));
}
#endif

} // namespace
