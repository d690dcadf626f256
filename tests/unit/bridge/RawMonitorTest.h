// Monitors on real threads, some of which are Java threads that the VM holds or lets go.
#pragma once

#include "bridge/RawMonitor.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace bridge {

// A Java thread as the monitors see it: an address, and whether the VM holds it.
struct LedThread {
    std::atomic<bool> inVm{false};
};
inline thread_local LedThread* selfAsJavaThread = nullptr;

class RawMonitorTest : public testing::Test {
protected:
    RawMonitorTest() {
        setMonitorVm({[]() -> void* { return selfAsJavaThread; },
                      [](void* thread) { return static_cast<LedThread*>(thread)->inVm.load(); }});
    }
    ~RawMonitorTest() override {
        for (RawMonitor* monitor : monitors) RawMonitor::destroy(monitor);
        setMonitorVm({});
    }
    RawMonitor& make() {
        monitors.push_back(RawMonitor::create("test"));
        return *monitors.back();
    }
    // Whether another thread could have the monitor now.
    static bool isFree(RawMonitor& monitor) {
        // The thread may come to the monitor long after this has returned.
        const auto got = std::make_shared<std::atomic<bool>>(false);
        std::thread other([&monitor, got] {
            monitor.enter();
            *got = true;
            monitor.exit();
        });
        for (int i = 0; i < 20 && !*got; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const bool free = *got;
        waiting.push_back(std::move(other));
        return free;
    }
    static void joinWaiting() {
        for (std::thread& thread : waiting) thread.join();
        waiting.clear();
    }

    std::vector<RawMonitor*> monitors;
    static inline std::vector<std::thread> waiting;
};

// A Java thread that a test leads by the hand.
class Actor {
public:
    Actor() : thread_([this] { live(); }) {}
    ~Actor() {
        begin(nullptr);
        thread_.join();
    }
    // Runs the work on the actor's thread and waits for its end.
    void does(std::function<void()> work) {
        begin(std::move(work));
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] { return idle_; });
    }
    // The same without waiting.
    void begin(std::function<void()> work) {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] { return idle_; });
        work_ = std::move(work);
        idle_ = false;
        changed_.notify_all();
    }
    LedThread java;

private:
    void live() {
        selfAsJavaThread = &java;
        for (;;) {
            std::function<void()> work;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                changed_.wait(guard, [&] { return !idle_; });
                work = work_;
            }
            if (!work) return;
            work();
            std::lock_guard<std::mutex> guard(mutex_);
            idle_ = true;
            changed_.notify_all();
        }
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool idle_ = true;
    std::function<void()> work_;
    std::thread thread_;
};

} // namespace bridge
