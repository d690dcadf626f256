#include "bridge/HeapFigures.h"

#include "bridge/BridgeLink.h"
#include "bridge/Context.h"
#include "bridge/Jvmti.h"
#include "bridge/VmMemory.h"

namespace bridge {
namespace {

enum class Way {
    kEnd,    // the figure, or the pointer to the space
    kInside, // the next field lies in this one
    kFollow, // the next field lies behind this pointer
};
// A field under the name that any of the supported VMs gives it: "Type::field|Type::field". The
// first step of a path starts at the heap's object, unless the field is a static one.
struct Step {
    const char* fields = nullptr;
    Way way = Way::kEnd;
};
constexpr int kSteps = 3;
constexpr int kTerms = 3;
struct Path {
    Step steps[kSteps];
};
struct Layout {
    const char* collector;
    const char* flag;
    Path spaces[kTerms];
    const char* bounds[3]; // bottom, top, end
    Path used[kTerms];
    Path total[kTerms];
    // A static size_t: the bytes of a region, where the figures are counted by regions; null: they
    // are exact. G1's "used" lacks the region in which threads allocate at the moment.
    const char* slack;
};

#define PRB_YOUNG "GenCollectedHeap::_young_gen|SerialHeap::_young_gen"
#define PRB_OLD "GenCollectedHeap::_old_gen|SerialHeap::_old_gen"
#define PRB_G1 "G1CollectedHeap::_g1mm|G1CollectedHeap::_monitoring_support"
// The second survivor space is not part of the heap's size, as in Runtime.totalMemory().
constexpr Layout kLayouts[] = {
    {"Serial",
     "UseSerialGC",
     {{{{PRB_YOUNG, Way::kFollow}, {"DefNewGeneration::_eden_space"}}},
      {{{PRB_YOUNG, Way::kFollow}, {"DefNewGeneration::_from_space"}}},
      {{{PRB_OLD, Way::kFollow}, {"TenuredGeneration::_the_space"}}}},
     {"Space::_bottom|ContiguousSpace::_bottom", "ContiguousSpace::_top",
      "Space::_end|ContiguousSpace::_end"},
     {},
     {},
     nullptr},
    {"Parallel",
     "UseParallelGC",
     {{{{"ParallelScavengeHeap::_young_gen", Way::kFollow}, {"PSYoungGen::_eden_space"}}},
      {{{"ParallelScavengeHeap::_young_gen", Way::kFollow}, {"PSYoungGen::_from_space"}}},
      {{{"ParallelScavengeHeap::_old_gen", Way::kFollow}, {"PSOldGen::_object_space"}}}},
     {"MutableSpace::_bottom", "MutableSpace::_top", "MutableSpace::_end"},
     {},
     {},
     nullptr},
    {"G1",
     "UseG1GC",
     {},
     {},
     {{{{"G1CollectedHeap::_summary_bytes_used"}}}},
     {{{{PRB_G1, Way::kFollow}, {"G1MonitoringSupport::_eden_space_committed"}}},
      {{{PRB_G1, Way::kFollow}, {"G1MonitoringSupport::_survivor_space_committed"}}},
      {{{PRB_G1, Way::kFollow}, {"G1MonitoringSupport::_old_gen_committed"}}}},
     "HeapRegion::GrainBytes|G1HeapRegion::GrainBytes"},
    {"Shenandoah",
     "UseShenandoahGC",
     {},
     {},
     {{{{"ShenandoahHeap::_used"}}}},
     {{{{"ShenandoahHeap::_committed"}}}},
     nullptr},
    {"Shenandoah", // with generations (JDK 25)
     "UseShenandoahGC",
     {},
     {},
     {{{{"ShenandoahHeap::_global_generation", Way::kFollow}, {"ShenandoahGeneration::_used"}}}},
     {{{{"ShenandoahHeap::_committed"}}}},
     nullptr},
    {"Z",
     "UseZGC",
     {},
     {},
     {{{{"ZCollectedHeap::_heap", Way::kInside},
        {"ZHeap::_page_allocator", Way::kInside},
        {"ZPageAllocator::_used"}}}},
     {{{{"ZCollectedHeap::_heap", Way::kInside},
        {"ZHeap::_page_allocator", Way::kInside},
        {"ZPageAllocator::_capacity"}}}},
     nullptr},
};
#undef PRB_YOUNG
#undef PRB_OLD
#undef PRB_G1

// What Runtime is asked with.
struct RuntimeCalls {
    JNIEnv* jni;
    jobject runtime;
    jmethodID total;
    jmethodID free;
};

HeapSpace askRuntime(void* context) {
    const auto& calls = *static_cast<RuntimeCalls*>(context);
    const jlong total = calls.jni->CallLongMethod(calls.runtime, calls.total);
    if (calls.jni->ExceptionCheck()) return {};
    const jlong free = calls.jni->CallLongMethod(calls.runtime, calls.free);
    if (calls.jni->ExceptionCheck()) return {};
    return {total - free, total};
}

bool verifyWithRuntime(JNIEnv* jni, HeapFigures& figures) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> type(jni, jni->FindClass("java/lang/Runtime"));
    if (!type) return false;
    const jmethodID get = jni->GetStaticMethodID(type.get(), "getRuntime", "()Ljava/lang/Runtime;");
    if (!get) return false;
    LocalRef<jobject> runtime(jni, jni->CallStaticObjectMethod(type.get(), get));
    if (jni->ExceptionCheck() || !runtime) return false;
    RuntimeCalls calls{jni, runtime.get(), jni->GetMethodID(type.get(), "totalMemory", "()J"),
                       jni->GetMethodID(type.get(), "freeMemory", "()J")};
    return calls.total && calls.free && figures.verify(askRuntime, &calls);
}

// One of the fields that a step names.
struct Field {
    bool found = false;
    const char* address = nullptr; // of a static one
    std::size_t offset = 0;
};

Field fieldOf(const VmStructs& vm, const char* fields) {
    std::string names = fields;
    while (!names.empty()) {
        const std::size_t bar = names.find('|');
        const std::string name = names.substr(0, bar);
        names = bar == std::string::npos ? std::string() : names.substr(bar + 1);
        const std::size_t colons = name.find("::");
        const std::string type = name.substr(0, colons);
        const std::string field = name.substr(colons + 2);
        if (const void* address = vm.staticAddress(type.c_str(), field.c_str()))
            return {true, static_cast<const char*>(address), 0};
        if (const auto offset = vm.fieldOffset(type.c_str(), field.c_str()))
            return {true, nullptr, *offset};
    }
    return {};
}

// Where a path ends, or null.
const char* walk(const VmStructs& vm, const char* heap, const Path& path) {
    const char* at = heap;
    for (const Step& step : path.steps) {
        if (!step.fields) return nullptr;
        const Field field = fieldOf(vm, step.fields);
        if (!field.found) return nullptr;
        at = field.address ? field.address : at + field.offset;
        if (step.way == Way::kEnd) return at;
        if (step.way == Way::kFollow) at = loadAt<const char*>(at);
        if (!at) return nullptr;
    }
    return nullptr;
}

bool walkAll(const VmStructs& vm, const char* heap, const Path (&paths)[kTerms],
             std::vector<const char*>& found) {
    found.clear();
    for (const Path& path : paths) {
        if (!path.steps[0].fields) continue;
        const char* end = walk(vm, heap, path);
        if (!end) return false;
        found.push_back(end);
    }
    return true;
}

// False for a bound that is named and not found.
bool boundOf(const VmStructs& vm, const char* fields, std::size_t& offset) {
    if (!fields) return true;
    const Field field = fieldOf(vm, fields);
    offset = field.offset;
    return field.found && !field.address;
}

} // namespace

bool HeapFigures::find(const VmStructs& vm, const VmFlags& flags) {
    const void* place = vm.staticAddress("Universe", "_collectedHeap");
    if (!place) return false;
    const char* heap = loadAt<const char*>(place);
    if (!heap) return false;
    for (const Layout& layout : kLayouts) {
        if (flags.isOn(layout.flag) != true) continue;
        collector_ = layout.collector;
        if (!walkAll(vm, heap, layout.spaces, spaces_) || !walkAll(vm, heap, layout.used, used_) ||
            !walkAll(vm, heap, layout.total, total_) ||
            !boundOf(vm, layout.bounds[0], bounds_.bottom) ||
            !boundOf(vm, layout.bounds[1], bounds_.top) ||
            !boundOf(vm, layout.bounds[2], bounds_.end))
            continue;
        if (layout.slack) {
            const Field unit = fieldOf(vm, layout.slack);
            if (!unit.address) continue;
            slack_ = static_cast<jlong>(loadAt<std::size_t>(unit.address));
        }
        return true;
    }
    return false;
}

HeapSpace HeapFigures::readUnchecked() const {
    HeapSpace sum{0, 0};
    for (const char* cell : spaces_) {
        const char* space = loadAt<const char*>(cell);
        if (!space) return {};
        const char* bottom = loadAt<const char*>(space + bounds_.bottom);
        sum.used += loadAt<const char*>(space + bounds_.top) - bottom;
        sum.total += loadAt<const char*>(space + bounds_.end) - bottom;
    }
    for (const char* word : used_) sum.used += static_cast<jlong>(loadAt<std::size_t>(word));
    for (const char* word : total_) sum.total += static_cast<jlong>(loadAt<std::size_t>(word));
    return sum.used >= 0 && sum.used <= sum.total ? sum : HeapSpace{};
}

// G1 brings its words up to date when it hands out a region and when it collects; right after the
// start they may lack regions, but always whole ones.
bool HeapFigures::sameTotal(jlong read, jlong known) const {
    if (slack_ == 0) return read == known;
    return read <= known && read % slack_ == 0 && read > known / 2;
}

bool HeapFigures::verify(AskRuntime ask, void* context) {
    // Other threads allocate and collect meanwhile; between two equal sizes "used" only grows,
    // unless a collection came.
    constexpr int kTries = 50;
    for (int i = 0; i < kTries; i++) {
        const HeapSpace before = ask(context);
        const HeapSpace read = readUnchecked();
        const HeapSpace after = ask(context);
        if (!before.known() || !after.known()) return false;
        if (before.total != after.total || before.used > after.used) continue;
        if (!sameTotal(read.total, before.total) || read.used < before.used - slack_ ||
            read.used > after.used)
            continue;
        verified_.store(true, std::memory_order_release);
        return true;
    }
    return false;
}

HeapSpace HeapFigures::read() const {
    return verified_.load(std::memory_order_acquire) ? readUnchecked() : HeapSpace{};
}

int HeapFigures::spaceOf(const void* address) const {
    if (!verified_.load(std::memory_order_acquire)) return -1;
    const char* at = static_cast<const char*>(address);
    for (std::size_t i = 0; i < spaces_.size(); i++) {
        const char* space = loadAt<const char*>(spaces_[i]);
        if (space && at >= loadAt<const char*>(space + bounds_.bottom) &&
            at < loadAt<const char*>(space + bounds_.end))
            return static_cast<int>(i);
    }
    return -1;
}

HeapFigures& heapFigures() {
    static HeapFigures& figures = *new HeapFigures;
    return figures;
}

void startHeapFigures(JNIEnv* jni) {
    const VmStructs& vm = context().vmStructs;
    HeapFigures& figures = heapFigures();
    VmFlags flags;
    if (flags.resolve(vm) && figures.find(vm, flags) && verifyWithRuntime(jni, figures)) return;
    const std::string whose = figures.collector().empty() ? "this" : "the " + figures.collector();
    noteLimit("heap sizes after collections are not known with " + whose + " collector");
}

} // namespace bridge
