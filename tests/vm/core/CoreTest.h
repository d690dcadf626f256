// The fixture of the core's tests: the process-wide object, built the way InitProfiler does.
#ifndef PRB_TESTS_VM_CORE_CORETEST_H
#define PRB_TESTS_VM_CORE_CORETEST_H

#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"
#include "tests/vm/ScriptedVmTest.h"

#include <algorithm>
#include <cstdint>

namespace scripted {

inline jobjectID objectId(std::uintptr_t n) { return reinterpret_cast<jobjectID>(n); }

class CoreTest : public ScriptedVmTest {
protected:
    CoreTest() {
        vm.setSystemThreads(SystemThreads::kRecord);
        vm.monitors().forbidVmCallsHolding({"_ClassTable", "_MethodTable", "_ArenaTable",
                                            "_ObjectTable", "_MaskList", "_ProfilerError",
                                            "_LogFile", "_ActiveThreadTable"});
    }

    // Events flow as soon as this returns; nothing of the start-up is left in the recorder.
    PRBMonitorGlobal& start(const char* options = nullptr) {
        PRBMonitorGlobal& monitor = build(options);
        vm.jvmpi()->NotifyEvent = PRBMonitorGlobal::notify;
        monitor.completeInit();
        vm.recorder().clear();
        return monitor;
    }
    PRBMonitorGlobal& build(const char* options) {
        return *PRBMonitorGlobal::getMonitorGlobal(vm.jvmpi(), options, vm.javaVM());
    }

    static PRBJavaClass* findClass(jobjectID id) {
        PRBJavaClass probe(id);
        return static_cast<PRBJavaClass*>(PRBContext::getClassTable()->find(&probe));
    }
    static PRBJavaMethod* findMethod(jmethodID id) {
        PRBJavaMethod probe(id);
        return static_cast<PRBJavaMethod*>(PRBContext::getMethodTable()->find(&probe));
    }
    static PRBJavaObjectAllocated* findObject(jobjectID id) {
        PRBJavaObjectAllocated probe(id);
        return static_cast<PRBJavaObjectAllocated*>(PRBContext::getObjectTable()->find(&probe));
    }
    static PRBJavaThread* threadOf(const ScriptedThread& thread) {
        return static_cast<PRBJavaThread*>(thread.localStorage());
    }
    static bool isIn(PRBMonitorHashTable* table, const PRBJavaThread* thread) {
        PRBTableWalk walk(*table);
        while (PRBCollectable* item = walk())
            if (item == thread) return true;
        return false;
    }
    bool logged(const std::string& text) const { return logCount(text) == 1; }
};

// With a worker, and a class that its tests load.
class OrderTest : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();
    ScriptedThread& worker = vm.startThread({.name = "worker"});
    ScriptedClass& order =
        vm.addClass({.name = "com/x/Order",
                     .source = "Order.java",
                     .methods = {{.name = "price", .signature = "()I"},
                                 {.name = "pay", .signature = "(J)V", .isStatic = true}},
                     .statics = {{.name = "count", .signature = "J"}},
                     .instances = {{.name = "next", .signature = "Lcom/x/Order;"}}});
};

} // namespace scripted

#endif
