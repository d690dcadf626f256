#include "tests/vm/ScriptedThreads.h"

#include "tests/vm/ScriptedWorld.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <semaphore.h>

namespace scripted {

// The pthread of a scripted thread: takes functions from a queue until told to stop.
struct RealThread {
    explicit RealThread(ScriptedThread& thread);
    ~RealThread();
    void post(std::function<void()> function);
    void waitIdle();
    void loop(ScriptedThread& thread);

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool busy = false;
    bool stopping = false;
    // Real suspension: the signal's handler posts `stopped` and waits for `go`.
    sem_t stopped;
    sem_t go;
    std::thread pthread; // last: starts when all else is there
};

namespace {

thread_local RealThread* ownRealThread = nullptr;

void waitForGo() {
    while (sem_wait(&ownRealThread->go) != 0 && errno == EINTR) {
    }
}

#if !defined(__SANITIZE_THREAD__) // which delays signals

// Runs on the thread that is to stop. A thread inside the VM's own code stops when it leaves
// that code, as a thread in native code of a real VM would go on until it comes back.
void onStopSignal(int) {
    const int savedErrno = errno;
    RealThread* self = ownRealThread;
    if (self != nullptr) {
        HostState& host = hostState();
        if (host.insideVm > 0) {
            host.stopAtExit = true;
            sem_post(&self->stopped);
        } else {
            sem_post(&self->stopped);
            waitForGo();
        }
    }
    errno = savedErrno;
}

void installStopHandler() {
    static const bool installed = [] {
        struct sigaction action {};
        action.sa_handler = onStopSignal;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        return sigaction(SIGUSR2, &action, nullptr) == 0;
    }();
    static_cast<void>(installed);
}

#endif

} // namespace

HostState& hostState() {
    static thread_local HostState state;
    return state;
}

void InsideVm::leave() {
    HostState& host = hostState();
    if (--host.insideVm == 0 && host.stopAtExit) {
        host.stopAtExit = false;
        waitForGo();
    }
}

void noteAllocation() {
    HostState& host = hostState();
    if (host.insideVm != 0) return;
    ++host.allocations;
    if (host.suspending > 0 && host.thread != nullptr) {
        InsideVm inside;
        host.thread->vm().recorder().violation("memory allocated or released by " +
                                               host.thread->name() +
                                               " while it holds threads suspended");
    }
}

// ---- RealThread -------------------------------------------------------------------------------

RealThread::RealThread(ScriptedThread& thread) {
    sem_init(&stopped, 0, 0);
    sem_init(&go, 0, 0);
    pthread = std::thread([this, &thread] { loop(thread); });
}

RealThread::~RealThread() {
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    pthread.join();
    sem_destroy(&stopped);
    sem_destroy(&go);
}

void RealThread::loop(ScriptedThread& thread) {
    ownRealThread = this;
    hostState().insideVm = 1; // the queue is the VM's own code
    Playing playing(thread);
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [&] { return stopping || !queue.empty(); });
        if (queue.empty()) return;
        std::function<void()> next = std::move(queue.front());
        queue.pop_front();
        busy = true;
        lock.unlock();
        {
            OutsideVm outside;
            next();
        }
        next = nullptr;
        lock.lock();
        busy = false;
        changed.notify_all();
    }
}

void RealThread::post(std::function<void()> function) {
    {
        std::lock_guard lock(mutex);
        queue.push_back(std::move(function));
    }
    changed.notify_all();
}

void RealThread::waitIdle() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return queue.empty() && !busy; });
}

void stopPthread(ScriptedThread& thread) {
#if !defined(__SANITIZE_THREAD__)
    RealThread* real = thread.realThread();
    if (real == nullptr) return;
    installStopHandler();
    if (pthread_kill(real->pthread.native_handle(), SIGUSR2) != 0) return;
    while (sem_wait(&real->stopped) != 0 && errno == EINTR) {
    }
#else
    static_cast<void>(thread);
#endif
}

void continuePthread(ScriptedThread& thread) {
#if !defined(__SANITIZE_THREAD__)
    if (RealThread* real = thread.realThread()) sem_post(&real->go);
#else
    static_cast<void>(thread);
#endif
}

// ---- Playing ----------------------------------------------------------------------------------

Playing::Playing(ScriptedThread& thread) : before_(hostState().thread) {
    hostState().thread = &thread;
    thread.setHost(std::this_thread::get_id());
}

Playing::~Playing() { hostState().thread = before_; }

// ---- ScriptedThread ---------------------------------------------------------------------------

ScriptedThread::ScriptedThread(ScriptedVm& vm, ThreadSpec spec) : vm_(vm), spec_(std::move(spec)) {}

ScriptedThread::~ScriptedThread() { stopReal(); }

JNIEnv* ScriptedThread::env() const { return env_; }

jobjectID ScriptedThread::id() const { return object_ != nullptr ? object_->id : nullptr; }

void ScriptedThread::setFrames(std::vector<JVMPI_CallFrame> frames) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    frames_ = std::move(frames);
}

jint ScriptedThread::copyFrames(JVMPI_CallFrame* out, jint depth) const {
    std::lock_guard lock(mutex_);
    const std::size_t wanted = depth > 0 ? static_cast<std::size_t>(depth) : 0;
    const std::size_t count = std::min(wanted, frames_.size());
    for (std::size_t i = 0; i < count; ++i) out[i] = frames_[i];
    return static_cast<jint>(count);
}

void ScriptedThread::scriptCpuTimes(std::vector<jlong> readings) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    cpuReadings_.assign(readings.begin(), readings.end());
    cpuScripted_.store(!cpuReadings_.empty());
}

jlong ScriptedThread::readCpuTime() {
    if (cpuScripted_.load()) {
        std::lock_guard lock(mutex_);
        if (!cpuReadings_.empty()) {
            cpuTime_.store(cpuReadings_.front());
            cpuReadings_.pop_front();
        }
        cpuScripted_.store(!cpuReadings_.empty());
    }
    return cpuTime_.load();
}

jint ScriptedThread::statusNow() const {
    const jint status = status_.load();
    return suspended_.load() > 0 ? status | JVMPI_THREAD_SUSPENDED : status;
}

void ScriptedThread::run(const std::function<void()>& function) {
    if (real_ == nullptr || hostState().thread == this) {
        Playing playing(*this);
        function();
        return;
    }
    InsideVm inside;
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    real_->post([&] {
        function();
        InsideVm again;
        std::lock_guard lock(mutex);
        done = true;
        finished.notify_one();
    });
    std::unique_lock lock(mutex);
    finished.wait(lock, [&] { return done; });
}

void ScriptedThread::startReal() {
    InsideVm inside;
    if (real_ == nullptr) real_ = std::make_unique<RealThread>(*this);
}

void ScriptedThread::stopReal() {
    InsideVm inside;
    real_.reset();
}

bool ScriptedThread::real() const { return real_ != nullptr; }

void ScriptedThread::post(std::function<void()> function) {
    InsideVm inside;
    real_->post(std::move(function));
}

void ScriptedThread::waitIdle() {
    InsideVm inside;
    if (real_ != nullptr) real_->waitIdle();
}

std::vector<std::string> ScriptedThread::heldMonitors() const {
    InsideVm inside;
    std::vector<std::string> names;
    const std::string suffix = " by " + name();
    for (const std::string& text : vm_.monitors().heldNow())
        if (text.size() > suffix.size() &&
            text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0)
            names.push_back(text.substr(0, text.size() - suffix.size()));
    return names;
}

std::size_t ScriptedThread::localReferences() const {
    World& world = vm_.world();
    std::lock_guard lock(world.mutex);
    std::size_t count = 0;
    if (env_ != nullptr)
        for (const LocalFrame& frame : env_->frames) count += frame.refs.size();
    return count;
}

} // namespace scripted
