// The fixture of the runtime model's tests: an agent whose events, clocks and VM are scripted.
#ifndef PRB_TESTS_VM_RUNTIME_RUNTIMETEST_H
#define PRB_TESTS_VM_RUNTIME_RUNTIMETEST_H

#include "core/PRBContext.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBMonitorContentionEvent.h"
#include "tests/vm/ScriptedVmTest.h"

#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <vector>

class RuntimeTest : public scripted::ScriptedVmTest {
protected:
    using ScriptedThread = scripted::ScriptedThread;
    using ScriptedClass = scripted::ScriptedClass;
    using Texts = scripted::Texts;

    RuntimeTest() { vm.setSystemThreads(scripted::SystemThreads::kRecord); }
    ~RuntimeTest() override { PRBClock::source = nullptr; }

    // Builds the agent; everything is monitored and one simulated sample is 1 ms.
    void startAgent(const char* options = nullptr) {
        wallUs = kStartUs;
        PRBClock::source = [] {
            const long long us = wallUs.load();
            return timeval{static_cast<time_t>(us / 1000000),
                           static_cast<suseconds_t>(us % 1000000)};
        };
        PRBMonitorGlobal::getMonitorGlobal(vm.jvmpi(), options, vm.javaVM());
        vm.jvmpi()->NotifyEvent = PRBMonitorGlobal::notify;
        PRBMaskLists::setClassMask("*");
        PRBMaskLists::setMethodMask("*");
        PRBContext::setCPUSamplingInterval(1);
    }
    void SetUp() override { startAgent(); }

    // A thread of the VM, and what the agent made of it.
    struct Threads {
        ScriptedThread& vm;
        PRBJavaThread& model;
    };
    Threads startThread(const std::string& name) {
        ScriptedThread& started =
            vm.addThread({.name = name, .group = "workers", .parent = "boss"});
        vm.send.threadStart(started);
        return {started, *static_cast<PRBJavaThread*>(started.localStorage())};
    }
    // A class with methods of the given names, all "()V"; the agent is told unless `load` is false.
    ScriptedClass& makeClass(const std::string& name, const std::vector<std::string>& methods,
                             bool load = true) {
        std::vector<scripted::MethodSpec> specs;
        for (const std::string& method : methods)
            specs.push_back({.name = method, .signature = "()V"});
        ScriptedClass& made = vm.addClass({.name = name, .source = "X.java", .methods = specs});
        if (load) vm.send.classLoad(vm.mainThread(), made);
        return made;
    }

    static PRBJavaMethod* findMethod(jmethodID id) {
        PRBJavaMethod key(id);
        return static_cast<PRBJavaMethod*>(PRBContext::getMethodTable()->find(&key));
    }
    static PRBJavaClass* findClass(jobjectID id) {
        PRBJavaClass key(id);
        return static_cast<PRBJavaClass*>(PRBContext::getClassTable()->find(&key));
    }
    // The record of a method, null when the thread has none.
    static PRBJavaThread::MethodFrequency* recordOf(PRBJavaThread& thread, jmethodID id) {
        PRBJavaThread::MethodFrequency key(id);
        return static_cast<PRBJavaThread::MethodFrequency*>(
            thread.getMethodFrequencyTable()->find(&key));
    }

    static void collect(unsigned bits) { PRBContext::setDataBeingCollected(bits); }
    static void passWall(long long us) { wallUs += us; }
    // Time in which the thread computes.
    static void compute(ScriptedThread& thread, long long us) {
        thread.advanceCpuTime(us * 1000);
        wallUs += us;
    }
    // Sampling counts as active while this is 0.
    static void setSamplerIdle(int idle) {
        samplerIdle = idle;
        PRBContext::samplerIdle = &samplerIdle;
    }

    static constexpr long long kStartUs = 1000000000LL * 1000000;
    static inline std::atomic<long long> wallUs{kStartUs};
    static inline std::atomic<int> samplerIdle{1};
};

#endif
