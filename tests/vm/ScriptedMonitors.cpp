#include "tests/vm/ScriptedMonitors.h"

#include "tests/vm/ScriptedVm.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace scripted {

namespace {

constexpr std::chrono::seconds kStuck{60};

void removeLast(std::vector<ScriptedMonitor*>& held, const ScriptedMonitor* monitor) {
    for (std::size_t i = held.size(); i-- > 0;)
        if (held[i] == monitor) {
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(i));
            return;
        }
}

} // namespace

// ---- for tests ------------------------------------------------------------------------------

std::vector<std::string> MonitorWorld::created() const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& monitor : monitors_) names.push_back(monitor->name());
    return names;
}

ScriptedMonitor* MonitorWorld::find(const std::string& name) const {
    std::lock_guard lock(mutex_);
    for (const auto& monitor : monitors_)
        if (monitor->name() == name && !monitor->destroyed()) return monitor.get();
    return nullptr;
}

std::vector<std::string> MonitorWorld::heldNow() const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    std::vector<std::string> held;
    for (const auto& monitor : monitors_)
        if (const ScriptedThread* owner = monitor->owner())
            held.push_back(monitor->name() + " by " + owner->name());
    return held;
}

void MonitorWorld::setRanks(const std::vector<std::string>& outermostFirst) {
    std::lock_guard lock(mutex_);
    ranks_.clear();
    for (std::size_t i = 0; i < outermostFirst.size(); ++i) ranks_[outermostFirst[i]] = i;
}

void MonitorWorld::forbidVmCallsHolding(const std::vector<std::string>& names) {
    std::lock_guard lock(mutex_);
    forbidden_ = std::set<std::string>(names.begin(), names.end());
}

void MonitorWorld::setWaitHook(WaitHook hook) {
    std::lock_guard lock(mutex_);
    waitHook_ = std::move(hook);
}

void MonitorWorld::wakeSpuriously(const std::string& name) {
    std::lock_guard lock(mutex_);
    for (const auto& monitor : monitors_)
        if (monitor->name() == name) {
            std::lock_guard inner(monitor->mutex_);
            ++monitor->generation_;
            monitor->notified_.notify_all();
        }
}

void MonitorWorld::forgetOwners() {
    std::lock_guard lock(mutex_);
    for (const auto& monitor : monitors_)
        if (monitor->destroyed()) monitor->owner_.store(nullptr);
}

// ---- checks -----------------------------------------------------------------------------------

std::string MonitorWorld::checkVmCall(const ScriptedThread& thread, const std::string& call) const {
    if (thread.held_.empty() || !checking_.load(std::memory_order_relaxed)) return {};
    std::lock_guard lock(mutex_);
    for (const ScriptedMonitor* held : thread.held_)
        if (forbidden_.count(held->name()) != 0)
            return call + " by " + thread.name() + " while holding " + held->name();
    return {};
}

bool MonitorWorld::reaches(const std::string& from, const std::string& to,
                           std::set<std::string>& seen, std::string& path) const {
    if (from == to) {
        path = to;
        return true;
    }
    if (!seen.insert(from).second) return false;
    auto found = after_.find(from);
    if (found == after_.end()) return false;
    for (const std::string& next : found->second)
        if (reaches(next, to, seen, path)) {
            path = from + " -> " + path;
            return true;
        }
    return false;
}

void MonitorWorld::checkOrder(const ScriptedMonitor& monitor, const ScriptedThread& self) {
    std::lock_guard lock(mutex_);
    const auto rank = ranks_.find(monitor.name());
    for (const ScriptedMonitor* held : self.held_) {
        if (held == &monitor) return; // entered again: no new order
    }
    for (const ScriptedMonitor* held : self.held_) {
        if (rank != ranks_.end()) {
            const auto other = ranks_.find(held->name());
            if (other != ranks_.end() && other->second > rank->second)
                vm_.recorder().violation(monitor.name() + " entered by " + self.name() +
                                         " while holding " + held->name() +
                                         ", which ranks after it");
        }
        if (after_[held->name()].count(monitor.name()) != 0) continue;
        std::set<std::string> seen;
        std::string path;
        if (reaches(monitor.name(), held->name(), seen, path))
            vm_.recorder().violation("lock cycle: " + held->name() + " -> " + path + " (by " +
                                     self.name() + ")");
        after_[held->name()].insert(monitor.name());
    }
}

// ---- the table's functions --------------------------------------------------------------------

bool MonitorWorld::recordCall(const char* function, ScriptedMonitor* monitor,
                              const std::string& detail) {
    const auto text = [&] {
        return std::string(function) + "(" + (monitor != nullptr ? monitor->name() : "null") +
               detail + ")";
    };
    return vm_.call(kMonitor, function, text, false).fail;
}

ScriptedMonitor* MonitorWorld::usable(JVMPI_RawMonitor handle, const char* function) {
    auto* monitor = reinterpret_cast<ScriptedMonitor*>(handle);
    bool known = false;
    {
        std::lock_guard lock(mutex_);
        known = known_.count(monitor) != 0;
    }
    if (!known) {
        vm_.recorder().violation(std::string(function) + " of " +
                                 (handle == nullptr ? "null" : "what is no monitor"));
        return nullptr;
    }
    recordCall(function, monitor);
    if (monitor->destroyed()) {
        vm_.recorder().violation(std::string(function) + " of the destroyed " + monitor->name());
        return nullptr;
    }
    return monitor;
}

JVMPI_RawMonitor MonitorWorld::create(const char* name) {
    const std::string text = name != nullptr ? name : "null";
    const Verdict verdict = vm_.call(
        kMonitor, "RawMonitorCreate", [&] { return "RawMonitorCreate(" + text + ")"; }, true);
    if (verdict.fail) return nullptr;
    std::lock_guard lock(mutex_);
    monitors_.push_back(std::make_unique<ScriptedMonitor>(text));
    known_.insert(monitors_.back().get());
    return reinterpret_cast<JVMPI_RawMonitor>(monitors_.back().get());
}

void MonitorWorld::acquire(ScriptedMonitor& monitor, ScriptedThread& self) {
    std::unique_lock lock(monitor.mutex_);
    ScriptedThread* owner = monitor.owner_.load();
    if (owner == &self) {
        ++monitor.depth_;
        return;
    }
    if (owner != nullptr && owner->host_.load() == std::this_thread::get_id()) {
        vm_.recorder().violation("deadlock: " + self.name() + " enters " + monitor.name() +
                                 ", which " + owner->name() + " holds on the same pthread");
        monitor.lenders_.push_back(owner);
        monitor.owner_.store(&self);
        ++monitor.depth_;
        return;
    }
    const bool free =
        monitor.entry_.wait_for(lock, kStuck, [&] { return monitor.owner_.load() == nullptr; });
    if (!free) {
        owner = monitor.owner_.load();
        std::fprintf(stderr, "scripted VM: %s waits for ever for %s, held by %s\n",
                     self.name().c_str(), monitor.name().c_str(), owner->name().c_str());
        std::abort();
    }
    monitor.owner_.store(&self);
    monitor.depth_ = 1;
}

void MonitorWorld::enter(JVMPI_RawMonitor handle) {
    InsideVm inside;
    ScriptedMonitor* monitor = usable(handle, "RawMonitorEnter");
    if (monitor == nullptr) return;
    ScriptedThread& self = vm_.currentThread();
    if (!self.held_.empty() && checking_.load(std::memory_order_relaxed))
        checkOrder(*monitor, self);
    acquire(*monitor, self);
    self.held_.push_back(monitor);
}

void MonitorWorld::exit(JVMPI_RawMonitor handle) {
    InsideVm inside;
    ScriptedMonitor* monitor = usable(handle, "RawMonitorExit");
    if (monitor == nullptr) return;
    ScriptedThread& self = vm_.currentThread();
    std::lock_guard lock(monitor->mutex_);
    if (monitor->owner_.load() != &self) {
        vm_.recorder().violation("RawMonitorExit of " + monitor->name() + " by " + self.name() +
                                 ", which does not hold it");
        return;
    }
    removeLast(self.held_, monitor);
    --monitor->depth_;
    if (!monitor->lenders_.empty()) {
        monitor->owner_.store(monitor->lenders_.back());
        monitor->lenders_.pop_back();
        return;
    }
    if (monitor->depth_ == 0) {
        monitor->owner_.store(nullptr);
        monitor->entry_.notify_one();
    }
}

void MonitorWorld::wait(JVMPI_RawMonitor handle, jlong milliseconds) {
    InsideVm inside;
    auto* monitor = reinterpret_cast<ScriptedMonitor*>(handle);
    WaitHook hook;
    bool known = false;
    {
        std::lock_guard lock(mutex_);
        known = known_.count(monitor) != 0;
        hook = waitHook_;
    }
    if (!known || monitor->destroyed()) {
        vm_.recorder().violation("RawMonitorWait on no monitor");
        return;
    }
    recordCall("RawMonitorWait", monitor, ", " + std::to_string(milliseconds));
    ScriptedThread& self = vm_.currentThread();
    if (monitor->owner_.load() != &self) {
        vm_.recorder().violation("RawMonitorWait on " + monitor->name() + " by " + self.name() +
                                 ", which does not hold it");
        return;
    }
    if (hook && hook(monitor->name(), milliseconds)) return;
    std::unique_lock lock(monitor->mutex_);
    const int depth = monitor->depth_;
    const unsigned long long seen = monitor->generation_;
    for (int i = 0; i < depth; ++i) removeLast(self.held_, monitor);
    monitor->depth_ = 0;
    monitor->owner_.store(nullptr);
    ++monitor->waiters_;
    monitor->entry_.notify_one();
    const auto woken = [&] { return monitor->generation_ != seen; };
    if (milliseconds <= 0)
        monitor->notified_.wait(lock, woken);
    else
        monitor->notified_.wait_for(lock, std::chrono::milliseconds(milliseconds), woken);
    --monitor->waiters_;
    monitor->entry_.wait(lock, [&] { return monitor->owner_.load() == nullptr; });
    monitor->owner_.store(&self);
    monitor->depth_ = depth;
    for (int i = 0; i < depth; ++i) self.held_.push_back(monitor);
}

void MonitorWorld::notifyAll(JVMPI_RawMonitor handle) {
    InsideVm inside;
    ScriptedMonitor* monitor = usable(handle, "RawMonitorNotifyAll");
    if (monitor == nullptr) return;
    ScriptedThread& self = vm_.currentThread();
    std::lock_guard lock(monitor->mutex_);
    if (monitor->owner_.load() != &self) {
        vm_.recorder().violation("RawMonitorNotifyAll on " + monitor->name() + " by " +
                                 self.name() + ", which does not hold it");
        return;
    }
    ++monitor->generation_;
    monitor->notified_.notify_all();
}

void MonitorWorld::destroy(JVMPI_RawMonitor handle) {
    InsideVm inside;
    ScriptedMonitor* monitor = usable(handle, "RawMonitorDestroy");
    if (monitor == nullptr) return;
    std::lock_guard lock(monitor->mutex_);
    if (const ScriptedThread* owner = monitor->owner_.load())
        vm_.recorder().violation("RawMonitorDestroy of " + monitor->name() + ", held by " +
                                 owner->name());
    if (monitor->waiters_.load() != 0)
        vm_.recorder().violation("RawMonitorDestroy of " + monitor->name() +
                                 ", which a thread waits on");
    monitor->destroyed_.store(true);
}

} // namespace scripted
