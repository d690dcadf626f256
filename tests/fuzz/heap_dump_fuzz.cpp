// Any bytes, walked as a heap dump: the first byte chooses the level, the rest is the dump. The
// VM behind it knows objects and classes of small ids, so that inputs find their way to them.
#include "collector/PRBWorkloadCollector.h"
#include "collector/ReferenceFinderHeapDumpHandler.h"
#include "core/PRBContext.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBJavaClass.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

constexpr std::uintptr_t kClasses = 64;  // ids 1 to 64 are classes
constexpr std::uintptr_t kObjects = 256; // and those to 256 objects

template <class Id> Id asId(std::uintptr_t number) { return reinterpret_cast<Id>(number); }

// A class with one interface for each bit 0 and 1 of its id and statics of every type.
void tellClass(std::uintptr_t id) {
    char name[] = "com/x/Fuzzed", source[] = "Fuzzed.java", field[] = "field";
    char number[] = "J", object[] = "Ljava/lang/Object;", array[] = "[I";
    JVMPI_Field statics[] = {{field, number}, {field, object}, {field, array}};
    JVMPI_Event load{};
    load.event_type = JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT;
    load.u.class_load.class_name = name;
    load.u.class_load.source_name = source;
    load.u.class_load.num_interfaces = static_cast<jint>(id & 3U);
    load.u.class_load.num_static_fields = static_cast<jint>(id % 4U);
    load.u.class_load.statics = statics;
    load.u.class_load.class_id = asId<jobjectID>(id);
    PRBMonitorGlobal::notify(&load);
}

jint requestEvent(jint type, void* argument) {
    const auto id = reinterpret_cast<std::uintptr_t>(argument);
    if (type == JVMPI_EVENT_CLASS_LOAD && id >= 1 && id <= kClasses) {
        tellClass(id);
        return JVMPI_SUCCESS;
    }
    if (type != JVMPI_EVENT_OBJECT_ALLOC || id == 0 || id > kObjects) return JVMPI_FAIL;
    JVMPI_Event alloc{};
    alloc.event_type = JVMPI_EVENT_OBJECT_ALLOC | JVMPI_REQUESTED_EVENT;
    alloc.u.obj_alloc.class_id = asId<jobjectID>(id % 80); // some are no classes
    alloc.u.obj_alloc.size = 16;
    alloc.u.obj_alloc.obj_id = asId<jobjectID>(id);
    PRBMonitorGlobal::notify(&alloc);
    return JVMPI_SUCCESS;
}

PRBWorkloadCollector& agent() {
    static PRBWorkloadCollector& made = []() -> PRBWorkloadCollector& {
        static JVMPI_Interface vm{};
        vm.version = JVMPI_VERSION_1;
        vm.RequestEvent = requestEvent;
        char options[] = "debug=no";
        PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal(&vm, options, nullptr);
        auto& collector = *PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 1);
        collector.setJVMPIInterface(&vm);
        monitor->setPRBWorkloadCollector(&collector);
        monitor->setClassMask("*");
        return collector;
    }();
    return made;
}

long long liveObjects() {
    long long live = 0;
    PRBTableWalk walk(*PRBContext::getClassTable());
    while (auto* cls = static_cast<PRBJavaClass*>(walk())) {
        require(cls->getNumBytes() == 16 * cls->getNumObjects());
        live += cls->getNumObjects();
    }
    return live;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    PRBWorkloadCollector& collector = agent();
    // In a block of exactly its size, so that a read beyond its end is seen.
    std::vector<char> dump(data + 1, data + size);
    dump.shrink_to_fit();
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT;
    event.u.heap_dump.begin = dump.data();
    event.u.heap_dump.end = dump.data() + dump.size();

    if ((data[0] & 1U) == 0) {
        collector.handleHeapDump(&event);
        const std::size_t known = PRBContext::getObjectTable()->entries();
        require(known <= dump.size() / 5 && known <= kObjects);
        const long long live = liveObjects();
        require(live <= static_cast<long long>(known));
        collector.handleHeapDump(&event); // the same objects, all known now
        require(PRBContext::getObjectTable()->entries() == known && liveObjects() == live);
        return 0;
    }
    std::vector<jobjectID> targets;
    for (std::uintptr_t i = 0; i < data[0] >> 1U; ++i) targets.push_back(asId<jobjectID>(i + 1));
    PRBSlist found;
    PRBWorkloadCollector::ReferenceFinderHeapDumpHandler finder(
        nullptr, &collector, &found, targets.data(), static_cast<int>(targets.size()));
    finder.handleHeapDump(&event);
    require(found.entries() <= dump.size() / 17); // the least that an object with one hit takes
    require(!targets.empty() || found.entries() == 0);
    found.clearAndDestroy();
    return 0;
}
