#include "tests/vm/ScriptedVm.h"

#include "tests/vm/ScriptedWorld.h"

#include <algorithm>
#include <cstring>

namespace scripted {

namespace {

std::atomic<ScriptedVm*> currentVm{nullptr};

// What may be called while the caller holds threads suspended.
bool allowedInStopWindow(CallKind kind, const char* name) {
    if (kind == kClock) return true;
    static constexpr const char* kAllowed[] = {"SuspendThread", "ResumeThread", "GetCallTrace",
                                               "ThreadHasRun", "GetThreadStatus"};
    return kind == kJvmpi && std::any_of(std::begin(kAllowed), std::end(kAllowed),
                                         [&](const char* a) { return std::strcmp(a, name) == 0; });
}

} // namespace

ScriptedVm::ScriptedVm()
    : monitors_(std::make_unique<MonitorWorld>(*this)), world_(std::make_unique<World>(*this)) {
    InsideVm inside;
    currentVm.store(this);
    addStandardClasses(*this);
    world_->main = &addThread({.name = "main", .group = "main", .parent = "system"});
    hostState().thread = world_->main;
    world_->main->setHost(std::this_thread::get_id());
    world_->threads.push_back(std::make_unique<ScriptedThread>(
        *this, ThreadSpec{.name = "VM Thread", .group = "system", .parent = ""}));
    world_->collector = world_->threads.back().get();
    world_->restricted.functions = &world_->restrictedJni;
    world_->restricted.restricted = true;
    world_->restricted.thread = world_->collector;
    world_->envOf[&world_->restricted] = &world_->restricted;
}

ScriptedVm::~ScriptedVm() {
    InsideVm inside;
    stopRealThreads();
    ScriptedThread* playing = hostState().thread;
    if (playing != nullptr && &playing->vm() == this) hostState().thread = nullptr;
    ScriptedVm* self = this;
    currentVm.compare_exchange_strong(self, nullptr);
}

ScriptedVm& ScriptedVm::create() {
    InsideVm inside;
    // Reachable to the end, for the leak checker and for threads of the agent.
    static auto* const kept = new std::vector<ScriptedVm*>();
    kept->push_back(new ScriptedVm());
    return *kept->back();
}

ScriptedVm& ScriptedVm::current() { return *currentVm.load(); }

void ScriptedVm::stopRealThreads() {
    std::vector<ScriptedThread*> all;
    {
        std::lock_guard lock(world_->mutex);
        for (const auto& thread : world_->threads) all.push_back(thread.get());
    }
    for (ScriptedThread* thread : all) thread->stopReal();
}

JavaVM* ScriptedVm::javaVM() { return &world_->javaVm; }
JVMPI_Interface* ScriptedVm::jvmpi() { return &world_->jvmpi; }
JNIEnv* ScriptedVm::env() { return world_->main->env(); }
JNINativeInterface_& ScriptedVm::jniTable() { return world_->jni; }
void ScriptedVm::refuseJvmpi(jint result) { world_->jvmpiRefusal = result; }
Recorder& ScriptedVm::recorder() { return recorder_; }
MonitorWorld& ScriptedVm::monitors() { return *monitors_; }
ScriptedThread& ScriptedVm::mainThread() { return *world_->main; }
ScriptedThread& ScriptedVm::vmThread() { return *world_->collector; }

Verdict ScriptedVm::call(CallKind kind, const char* name, TextRef text, bool failable) {
    InsideVm inside;
    ScriptedThread& self = currentThread();
    HostState& host = hostState();
    if (host.suspending > 0) {
        if (!allowedInStopWindow(kind, name))
            recorder_.violation(text() + " by " + self.name() +
                                " while it holds threads suspended");
        // A stopped pthread may hold the allocator's lock.
        else if (world_->realSuspension)
            return {};
    }
    if (kind == kJvmpi && self.collecting_.load(std::memory_order_relaxed))
        recorder_.violation(text() + " during a collection");
    if (kind == kJvmpi || kind == kJni) {
        const std::string problem = monitors_->checkVmCall(self, name);
        if (!problem.empty()) recorder_.violation(problem);
    }
    if (const std::function<void()> action = recorder_.takeAction(name)) {
        OutsideVm outside;
        action();
    }
    if (!recorder_.recording()) return failable ? recorder_.judge(name) : Verdict{};
    Call entry;
    entry.kind = kind;
    entry.name = name;
    entry.text = text();
    entry.thread = self.name();
    for (const ScriptedMonitor* held : self.held_) entry.held.push_back(held->name());
    return recorder_.record(std::move(entry), failable);
}

// ---- threads ----------------------------------------------------------------------------------

ScriptedThread& ScriptedVm::currentThread() {
    HostState& host = hostState();
    if (host.thread == nullptr) {
        InsideVm inside;
        std::lock_guard lock(world_->mutex);
        world_->threads.push_back(std::make_unique<ScriptedThread>(
            *this, ThreadSpec{.name = "native-" + std::to_string(world_->threads.size())}));
        host.thread = world_->threads.back().get();
        host.thread->setHost(std::this_thread::get_id());
    }
    return *host.thread;
}

std::vector<ScriptedThread*> ScriptedVm::threads() const {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    std::vector<ScriptedThread*> result;
    for (const auto& thread : world_->threads)
        if (thread->alive() && thread->object() != nullptr && thread->env_ != nullptr)
            result.push_back(thread.get());
    return result;
}

ScriptedThread* ScriptedVm::findThread(const std::string& name) const {
    std::lock_guard lock(world_->mutex);
    for (auto it = world_->threads.rbegin(); it != world_->threads.rend(); ++it)
        if ((*it)->name() == name) return it->get();
    return nullptr;
}

void World::attachLocked(ScriptedThread& thread, const ScriptedThread* reuseEnvOf) {
    Env* env = nullptr;
    if (reuseEnvOf != nullptr) {
        env = reuseEnvOf->env_;
    } else {
        envs.push_back(std::make_unique<Env>());
        env = envs.back().get();
        envOf[env] = env;
    }
    env->functions = &jni;
    env->thread = &thread;
    env->pending = nullptr;
    env->frames.clear();
    env->frames.emplace_back();
    env->frames.back().kind = LocalFrame::kBase;
    env->frames.back().capacity = 1 << 20;
    thread.env_ = env;
    if (thread.object_ == nullptr) {
        ScriptedObject& object =
            addObjectLocked(ScriptedObject::kPlain, classLocked("java/lang/Thread"));
        object.thread = &thread;
        thread.object_ = &object;
    }
}

ScriptedThread& ScriptedVm::addThread(ThreadSpec spec) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    const ScriptedThread* reuse = spec.reuseEnvOf;
    world_->threads.push_back(std::make_unique<ScriptedThread>(*this, std::move(spec)));
    ScriptedThread& thread = *world_->threads.back();
    world_->attachLocked(thread, reuse);
    return thread;
}

ScriptedThread& ScriptedVm::startThread(ThreadSpec spec, bool real) {
    InsideVm inside;
    ScriptedThread& thread = addThread(std::move(spec));
    if (real) thread.startReal();
    if (enabled(JVMPI_EVENT_THREAD_START)) send.threadStart(thread);
    return thread;
}

void ScriptedVm::endThread(ScriptedThread& thread) {
    InsideVm inside;
    if (enabled(JVMPI_EVENT_THREAD_END)) send.threadEnd(thread);
    if (!thread.held_.empty())
        recorder_.violation("thread " + thread.name() + " ended holding " +
                            thread.held_.back()->name());
    thread.alive_.store(false);
}

void ScriptedVm::setSystemThreads(SystemThreads mode) { world_->systemMode = mode; }

void ScriptedVm::setRealSuspension(bool on) { world_->realSuspension = on; }
void ScriptedVm::setRealCpuClock(bool on) { world_->realCpuClock.store(on); }

std::vector<SystemThread> ScriptedVm::systemThreads() const {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    return world_->systemThreads;
}

ScriptedThread& ScriptedVm::systemThread(std::size_t index) {
    InsideVm inside;
    std::string name;
    {
        std::lock_guard lock(world_->mutex);
        SystemThread& entry = world_->systemThreads.at(index);
        if (entry.thread != nullptr) return *entry.thread;
        name = entry.name;
    }
    ScriptedThread& thread = addThread({.name = name, .group = "system", .parent = "system"});
    std::lock_guard lock(world_->mutex);
    world_->systemThreads[index].thread = &thread;
    return thread;
}

void World::playSystemThread(std::size_t index) {
    ScriptedThread& thread = vm.systemThread(index);
    void (*body)(void*) = nullptr;
    {
        std::lock_guard lock(mutex);
        body = systemThreads[index].body;
    }
    if (vm.enabled(JVMPI_EVENT_THREAD_START)) vm.send.threadStart(thread);
    thread.run([&] {
        InsideVm inside;
        Env& env = *thread.env_;
        std::size_t depth = env.frames.size();
        pushFrame(env, LocalFrame::kNative, 16);
        {
            OutsideVm outside;
            body(nullptr);
        }
        std::size_t live = 0;
        std::size_t extra = 0;
        dropFrames(env, depth, live, extra);
        if (live + extra != 0)
            vm.recorder().violation("system thread " + thread.name() + " left " +
                                    std::to_string(live) + " local references and " +
                                    std::to_string(extra) + " frames");
    });
    vm.endThread(thread);
    std::lock_guard lock(mutex);
    systemThreads[index].ran = true;
    systemThreadEnded.notify_all();
}

void ScriptedVm::runSystemThread(std::size_t index) {
    InsideVm inside;
    world_->playSystemThread(index);
}

void ScriptedVm::waitSystemThreads() {
    InsideVm inside;
    std::unique_lock lock(world_->mutex);
    world_->systemThreadEnded.wait(lock, [&] { return world_->systemThreadsRunning == 0; });
}

jint beginSystemThread(ScriptedVm& vm, const char* name, jint priority, void (*body)(void*)) {
    World& world = vm.world();
    std::size_t index = 0;
    {
        std::lock_guard lock(world.mutex);
        index = world.systemThreads.size();
        world.systemThreads.push_back({name, priority, body, nullptr, false});
        if (world.systemMode == SystemThreads::kRecord) return 0;
        ++world.systemThreadsRunning;
    }
    ScriptedThread& thread = vm.systemThread(index);
    std::thread([&world, &thread, index] {
        InsideVm inside;
        {
            Playing playing(thread);
            world.playSystemThread(index);
        }
        std::lock_guard lock(world.mutex);
        --world.systemThreadsRunning;
        world.systemThreadEnded.notify_all();
    }).detach();
    return 0;
}

// ---- native methods ---------------------------------------------------------------------------

void ScriptedVm::callNative(ScriptedThread& thread, const std::function<void()>& native) {
    thread.run([&] {
        InsideVm inside;
        Env& env = *thread.env_;
        const std::size_t depth = env.frames.size();
        world_->pushFrame(env, LocalFrame::kNative, 16);
        {
            OutsideVm outside;
            native();
        }
        std::size_t live = 0;
        std::size_t extra = 0;
        world_->dropFrames(env, depth, live, extra);
        if (extra != 0)
            recorder_.violation("a native method left " + std::to_string(extra) +
                                " local frames pushed");
        std::lock_guard lock(world_->mutex);
        world_->exceptionLeft.clear();
        if (env.pending != nullptr) {
            world_->exceptionLeft = env.pending->cls->name() + ": " + env.pending->text;
            env.pending = nullptr;
        }
    });
}

std::string ScriptedVm::exceptionLeft() const {
    std::lock_guard lock(world_->mutex);
    return world_->exceptionLeft;
}

void ScriptedVm::throwOn(ScriptedThread& thread, const std::string& cls,
                         const std::string& message) {
    InsideVm inside;
    ScriptedObject& exception = newObject(cls);
    exception.text = message;
    std::lock_guard lock(world_->mutex);
    thread.env_->pending = &exception;
}

const ScriptedObject* ScriptedVm::pendingException(ScriptedThread& thread) const {
    std::lock_guard lock(world_->mutex);
    return thread.env_->pending;
}

void ScriptedVm::clearException(ScriptedThread& thread) {
    std::lock_guard lock(world_->mutex);
    thread.env_->pending = nullptr;
}

// ---- references -------------------------------------------------------------------------------

jobject ScriptedVm::newLocalRef(ScriptedThread& thread, ScriptedObject* object) {
    if (object == nullptr) return nullptr;
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    Ref* ref = world_->newRefLocked(Ref::kLocal, object, &thread);
    ref->byTest = true;
    thread.env_->frames.back().refs.push_back(ref);
    return ref->handle();
}

ScriptedObject* ScriptedVm::resolve(jobject handle) {
    if (handle == nullptr) return nullptr;
    InsideVm inside;
    std::string problem;
    {
        std::lock_guard lock(world_->mutex);
        if (Ref* ref = world_->refLocked(handle, nullptr, problem)) return ref->object;
    }
    recorder_.violation("resolve: " + problem);
    return nullptr;
}

Texts ScriptedVm::globalReferences() const {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    Texts texts;
    for (const Ref* ref : world_->globals) texts.push_back(World::describe(ref->object));
    return texts;
}

void ScriptedVm::setCheckLocalCapacity(bool on) { world_->checkCapacity = on; }

Texts ScriptedVm::unreleased() const {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    Texts texts;
    for (const auto& entry : world_->borrowed) texts.push_back(entry.second);
    return texts;
}

int ScriptedVm::monitorDepth(const ScriptedObject& object) const {
    std::lock_guard lock(world_->mutex);
    auto found = world_->javaLocks.find(&object);
    return found != world_->javaLocks.end() ? found->second.depth : 0;
}

} // namespace scripted
