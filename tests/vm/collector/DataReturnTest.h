// An agent that is polled: with a sampler that runs, threads that block, and errors that wait.
#ifndef PRB_TESTS_VM_COLLECTOR_DATARETURNTEST_H
#define PRB_TESTS_VM_COLLECTOR_DATARETURNTEST_H

#include "tests/vm/collector/CollectorTest.h"

#include "data/PRBProfilerError.h"
#include "runtime/PRBJavaThread.h"

enum Type : int {
    kThread = 10,
    kMethod = 11,
    kContention = 12,
    kHeap = 13,
    kGc = 14,
    kError = 17,
    kResource = 18
};

class DataReturn : public CollectorTest {
public:
    DataReturn()
        : order(vm.addClass({.name = "com/x/Order",
                             .methods = {{.name = "price", .signature = "()V"},
                                         {.name = "ship", .signature = "(I)I"}}})) {}

    // An agent whose sampler runs, with the worker as its only thread and one cycle of samples.
    scripted::ScriptedThread& startSampling(int type, const char* options = "") {
        runSamplerThread();
        EXPECT_NE(init(options), 0);
        vm.mainThread().setStatus(JVMPI_THREAD_CONDVAR_WAIT);
        EXPECT_EQ(start(type), 0);
        waitForSamplerState(0);
        scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
        vm.send.classLoad(worker, order);
        advanceClock(1000);
        runCycle();
        return worker;
    }
    // Blocks the worker on an object's monitor for a time.
    void block(scripted::ScriptedThread& worker, long ms) {
        worker.run([] {});
        scripted::ScriptedObject& lock = vm.newObject(order);
        vm.send.monitorContendedEnter(worker, lock.id);
        advanceClock(ms);
        vm.send.monitorContendedEntered(worker, lock.id);
    }
    // The records of a thread.
    static std::vector<Record> ofThread(const scripted::ScriptedThread& thread,
                                        std::vector<Record> records) {
        std::erase_if(records, [&](const Record& r) { return r.number(2) != idOf(thread); });
        return records;
    }
    static long long idOf(const scripted::ScriptedThread& thread) {
        return static_cast<long long>(reinterpret_cast<std::intptr_t>(thread.id()));
    }
    void queueError(unsigned code, const char* text) {
        monitor().newProfilerErrorSample(new PRBProfilerError(PRBReturnCode(code), text));
    }

    scripted::ScriptedClass& order;
};

#endif
