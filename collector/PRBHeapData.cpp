#include "collector/PRBHeapData.h"

#include "collector/PRBHeapDumpHandler.h"
#include "collector/PRBHeapDumpRequest.h"
#include "collector/PRBHeapDumpWalk.h"
#include "collector/PRBSamplerPause.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBObjectRecords.h"
#include "data/PRBHeapSample.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBReclaimer.h"

#include <vector>

namespace {

bool debugging() { return PRBTrace::isDebugEnabled(PRBComponent::kCollector); }

void logRequest(jint answer) {
    PRBTrace::log("Returned from requesting heap data");
    if (answer == JVMPI_SUCCESS) return;
    PRBTrace::log("returnHeapData RequestEvent JVMPI_EVENT_HEAP_DUMP returned %s",
                  answer == JVMPI_FAIL            ? "JVMPI_FAIL"
                  : answer == JVMPI_NOT_AVAILABLE ? "JVMPI_NOT_AVAILABLE"
                                                  : "Unknown Error");
}

// The classes as they are loaded now. REQUIRES: a PRBReclaimer::Reader while they are used.
std::vector<PRBJavaClass*> loadedClasses() {
    std::vector<PRBJavaClass*> classes;
    PRBMonitorHashTable* table = PRBContext::getClassTable();
    if (table == nullptr) return classes;
    PRBTableWalk walk(*table);
    while (auto* cls = static_cast<PRBJavaClass*>(walk())) classes.push_back(cls);
    return classes;
}

} // namespace

PRBReturnCode PRBHeapData::returnHeapData(PRBHeapDumpHandler& handler, long long processId,
                                          PRBSampleList& list) {
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    JVMPI_Interface* jvmpi = PRBContext::getInterface();
    if (monitor == nullptr || jvmpi == nullptr) return {};
    PRBSamplerPause pause(monitor->getCPUSampler());
    if (jvmpi->RunGC != nullptr) jvmpi->RunGC();
    if (debugging()) {
        PRBTrace::log("Requesting heap data");
        PRBMemoryManager::displayMemoryUse();
    }
    asked_ = PRBObjectRecords::askForDump();
    const jint answer = PRBHeapDumpRequest::run(handler, JVMPI_DUMP_LEVEL_0);
    asked_ = 0;
    if (debugging()) logRequest(answer);
    return answer == JVMPI_SUCCESS ? saveClasses(processId, list) : PRBReturnCode();
}

PRBReturnCode PRBHeapData::saveClasses(long long processId, PRBSampleList& list) {
    PRBMonitorHashTable* objects = PRBContext::getObjectTable();
    if (objects == nullptr) return {};
    const bool tracking = (PRBContext::getDataBeingCollected() & PRBCollect::kHeapAllocation) != 0;
    PRBReclaimer::Reader hold;
    for (PRBJavaClass* cls : loadedClasses()) {
        if (cls->shouldBeMonitored() != PRBMonitored::kMonitor) continue;
        PRBHeapSample sample;
        sample.saveStringData(10, cls->getClassName());
        sample.saveNumericData(4, processId);
        // Nothing may be counted between the reading and the reset.
        PRBTableLock lock(*objects);
        sample.saveNumericData(340, cls->getNumObjects());
        sample.saveNumericData(309, cls->getNumBytes());
        if (tracking) {
            sample.saveNumericData(308, cls->getNumAllocations());
            sample.saveNumericData(341, cls->getNumFree());
            sample.saveNumericData(342, cls->getNumMove());
        }
        cls->resetStats();
        lock.release();
        list.save(sample);
    }
    return {};
}

void PRBHeapData::handleHeapDump(const JVMPI_Event* event) {
    PRBMonitorHashTable* classes = PRBContext::getClassTable();
    PRBMonitorHashTable* arenas = PRBContext::getArenaTable();
    PRBMonitorHashTable* objects = PRBContext::getObjectTable();
    if (event == nullptr || classes == nullptr || arenas == nullptr || objects == nullptr) return;
    const char* begin = event->u.heap_dump.begin;
    const char* end = event->u.heap_dump.end;
    if (begin == nullptr || end == nullptr || begin > end) return;
    generation_ = generationAfter(generation_);
    // One that nobody here has asked for is as old as its arrival.
    const std::uint32_t asked = asked_ != 0 ? asked_ : PRBObjectRecords::askForDump();
    PRBHeapDumpWalk(*classes, *arenas, *objects, generation_, asked).records(begin, end);
}
