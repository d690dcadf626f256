// Ready-made Java objects that the agent talks to.
#ifndef PRB_TESTS_VM_JAVAHELPERS_H
#define PRB_TESTS_VM_JAVAHELPERS_H

#include "tests/vm/ScriptedVm.h"

#include <memory>
#include <string>
#include <vector>

namespace scripted {

// What the Java collector answers; a test changes it at any time.
struct CollectorScript {
    jint buildLevel = 1203318;
    jlong freeBytes = 1000000;
    jlong totalBytes = 4000000;
    bool gcCollectionActive = false;
    std::vector<std::string> log = {}; // what writeToLog was given
    // Name of an exception class that every method throws instead; empty: none.
    std::string throws = "";
};

struct JavaCollector {
    ScriptedObject* object = nullptr;
    std::shared_ptr<CollectorScript> script;
};

// An object with getBuildLevel()I, getFreeBytes()J, getTotalBytes()J,
// writeToLog(Ljava/lang/String;)V (static) and isGCCollectionActive()Z. Methods named in
// `without` do not exist.
JavaCollector makeCollector(ScriptedVm& vm, const std::vector<std::string>& without = {},
                            const std::string& className = "com/tessel/prb/workanalysis/Collector");

// An object with getType()J and getThreadId()I.
ScriptedObject& makeRequest(ScriptedVm& vm, jlong type, jint threadId);

// An object with setNumCpuSamples(IIII)V; its calls are in ScriptedVm::javaCalls().
ScriptedObject& makeInstrumentedEntry(ScriptedVm& vm);

} // namespace scripted

#endif
