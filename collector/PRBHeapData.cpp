#include "collector/PRBHeapData.h"

#include "collector/PRBHeapDumpHandler.h"
#include "collector/PRBHeapDumpRequest.h"
#include "collector/PRBSampleList.h"
#include "collector/PRBSamplerPause.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBRegistryLocks.h"
#include "data/PRBHeapSample.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaObjectAllocated.h"

#include <cstring>
#include <vector>

namespace {

bool debugging() { return PRBTrace::isDebugEnabled(PRBComponent::kCollector); }

// The tables that a dump is matched with.
constexpr unsigned kHeapTables =
    PRBRegistryLocks::kClass | PRBRegistryLocks::kArena | PRBRegistryLocks::kObject;

// The matching of one dump with the object table.
class Walk {
public:
    Walk(PRBMonitorHashTable& classes, PRBMonitorHashTable& objects, unsigned generation)
        : classes_(classes), objects_(objects), generation_(generation) {}

    void records(const char* at, const char* end) {
        {
            PRBRegistryLocks locks(kHeapTables);
            forgetLiveFigures();
            for (; end - at >= kRecord; at += kRecord) {
                ++count_;
                std::uint32_t id;
                std::memcpy(&id, at + 1, sizeof id);
                if (id != 0 && !count(id)) unknown_.push_back(id);
            }
            if (unknown_.empty()) return finish();
        }
        replayUnknown();
        PRBRegistryLocks locks(kHeapTables);
        for (std::uint32_t id : unknown_) count(id);
        finish();
    }

private:
    static constexpr std::ptrdiff_t kRecord = 5; // a type and an id of 4 bytes

    static jobjectID toId(std::uint32_t id) {
        return reinterpret_cast<jobjectID>(static_cast<std::uintptr_t>(id));
    }

    void forgetLiveFigures() {
        PRBTableWalk walk(classes_);
        while (auto* cls = static_cast<PRBJavaClass*>(walk())) cls->resetLive();
    }

    // Once per object, however often the dump names it. False when the agent does not know it.
    bool count(std::uint32_t id) {
        PRBJavaObjectAllocated probe(toId(id));
        // The set's own find: the lock is held, and no object of a dump is asked for twice.
        auto* object = static_cast<PRBJavaObjectAllocated*>(objects_.PRBHashSet::find(&probe));
        if (object == nullptr) return false;
        if (object->getHeapScanCount() == generation_) return true;
        object->setHeapScanCount(generation_);
        if (object->shouldBeMonitored() == PRBMonitored::kMonitor && object->getClass() != nullptr)
            object->getClass()->objectFound(object->getSize());
        return true;
    }

    void replayUnknown() {
        PRBHeapDumpReplay replay;
        for (std::uint32_t id : unknown_) PRBLookup::getObject(toId(id));
    }

    void finish() {
        if (debugging()) PRBTrace::log("handleHeapDmp: iObjCount = %i", count_);
        PRBTableWalk walk(objects_);
        while (auto* object = static_cast<PRBJavaObjectAllocated*>(walk()))
            if (object->getHeapScanCount() != generation_) objects_.removeAndDestroy(object);
    }

    PRBMonitorHashTable& classes_;
    PRBMonitorHashTable& objects_;
    const unsigned generation_;
    int count_ = 0;
    std::vector<std::uint32_t> unknown_;
};

void logRequest(jint answer) {
    PRBTrace::log("Returned from requesting heap data");
    if (answer == JVMPI_SUCCESS) return;
    PRBTrace::log("returnHeapData RequestEvent JVMPI_EVENT_HEAP_DUMP returned %s",
                  answer == JVMPI_FAIL            ? "JVMPI_FAIL"
                  : answer == JVMPI_NOT_AVAILABLE ? "JVMPI_NOT_AVAILABLE"
                                                  : "Unknown Error");
}

// The classes as they are loaded now; their records are never deleted.
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
                                          PRBSlist& list) {
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    JVMPI_Interface* jvmpi = PRBContext::getInterface();
    if (monitor == nullptr || jvmpi == nullptr) return {};
    PRBSamplerPause pause(monitor->getCPUSampler());
    if (jvmpi->RunGC != nullptr) jvmpi->RunGC();
    if (debugging()) {
        PRBTrace::log("Requesting heap data");
        PRBMemoryManager::displayMemoryUse();
    }
    const jint answer = PRBHeapDumpRequest::run(handler, JVMPI_DUMP_LEVEL_0);
    if (debugging()) logRequest(answer);
    return answer == JVMPI_SUCCESS ? saveClasses(processId, list) : PRBReturnCode();
}

PRBReturnCode PRBHeapData::saveClasses(long long processId, PRBSlist& list) {
    const bool tracking = (PRBContext::getDataBeingCollected() & PRBCollect::kHeapAllocation) != 0;
    for (PRBJavaClass* cls : loadedClasses()) {
        if (cls->shouldBeMonitored() != PRBMonitored::kMonitor) continue;
        PRBHeapSample sample;
        sample.saveStringData(10, cls->getClassName());
        sample.saveNumericData(4, processId);
        sample.saveNumericData(340, cls->getNumObjects());
        sample.saveNumericData(309, cls->getNumBytes());
        if (tracking) {
            sample.saveNumericData(308, cls->getNumAllocations());
            sample.saveNumericData(341, cls->getNumFree());
            sample.saveNumericData(342, cls->getNumMove());
        }
        cls->resetStats();
        PRBSampleList::save(sample, list);
    }
    return {};
}

void PRBHeapData::handleHeapDump(const JVMPI_Event* event) {
    PRBMonitorHashTable* classes = PRBContext::getClassTable();
    PRBMonitorHashTable* objects = PRBContext::getObjectTable();
    if (event == nullptr || classes == nullptr || objects == nullptr) return;
    const char* begin = event->u.heap_dump.begin;
    const char* end = event->u.heap_dump.end;
    if (begin == nullptr || end == nullptr || begin > end) return;
    if (++generation_ == 0) generation_ = 1; // 0 marks objects that no dump has named
    Walk(*classes, *objects, generation_).records(begin, end);
}
