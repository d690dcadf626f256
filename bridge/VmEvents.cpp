#include "bridge/VmEvents.h"

#include <mutex>

#include "bridge/Interface.h"

namespace bridge {
namespace {

// The VM's event is on while any of the profiler's is.
struct Row {
    VmEventGroup group;
    jvmtiEvent vm;
    jint wanted[4]; // 0: no more
};
// Of a collection the finish is switched on first and off last (see follow), so that no start
// comes without its finish.
constexpr Row kRows[] = {
    {VmEventGroup::kCollections,
     JVMTI_EVENT_GARBAGE_COLLECTION_FINISH,
     {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH, JVMPI_EVENT_OBJECT_ALLOC,
      JVMPI_EVENT_OBJECT_FREE}},
    {VmEventGroup::kCollections,
     JVMTI_EVENT_GARBAGE_COLLECTION_START,
     {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH, JVMPI_EVENT_OBJECT_ALLOC,
      JVMPI_EVENT_OBJECT_FREE}},
    {VmEventGroup::kMonitors,
     JVMTI_EVENT_MONITOR_CONTENDED_ENTERED,
     {JVMPI_EVENT_MONITOR_CONTENDED_ENTERED}},
    {VmEventGroup::kMonitors,
     JVMTI_EVENT_MONITOR_CONTENDED_ENTER,
     {JVMPI_EVENT_MONITOR_CONTENDED_ENTER}},
    {VmEventGroup::kMonitors, JVMTI_EVENT_MONITOR_WAITED, {JVMPI_EVENT_MONITOR_WAITED}},
    {VmEventGroup::kMonitors, JVMTI_EVENT_MONITOR_WAIT, {JVMPI_EVENT_MONITOR_WAIT}},
    {VmEventGroup::kAllocations, JVMTI_EVENT_SAMPLED_OBJECT_ALLOC, {JVMPI_EVENT_OBJECT_ALLOC}},
    // The exit is switched on first, so that no entry stays without it.
    {VmEventGroup::kMethods, JVMTI_EVENT_METHOD_EXIT, {JVMPI_EVENT_METHOD_EXIT}},
    {VmEventGroup::kMethods, JVMTI_EVENT_METHOD_ENTRY, {JVMPI_EVENT_METHOD_ENTRY}},
};
constexpr size_t kCount = sizeof kRows / sizeof kRows[0];

constexpr void (*kCapability[kVmEventGroups])(jvmtiCapabilities&) = {
    [](jvmtiCapabilities& wanted) { wanted.can_generate_garbage_collection_events = 1; },
    [](jvmtiCapabilities& wanted) { wanted.can_generate_monitor_events = 1; },
    [](jvmtiCapabilities& wanted) { wanted.can_generate_sampled_object_alloc_events = 1; },
    [](jvmtiCapabilities& wanted) {
        wanted.can_generate_method_entry_events = 1;
        wanted.can_generate_method_exit_events = 1;
    },
};
constexpr bool (*kHas[kVmEventGroups])(const jvmtiCapabilities&) = {
    [](const jvmtiCapabilities& all) { return all.can_generate_garbage_collection_events != 0; },
    [](const jvmtiCapabilities& all) { return all.can_generate_monitor_events != 0; },
    [](const jvmtiCapabilities& all) { return all.can_generate_sampled_object_alloc_events != 0; },
    [](const jvmtiCapabilities& all) {
        return all.can_generate_method_entry_events != 0 &&
               all.can_generate_method_exit_events != 0;
    },
};

jvmtiEnv* jvmti = nullptr;
bool possible[kVmEventGroups] = {};

// Guards the switches. Held over calls of the VM, by Java threads alone and never by the
// collecting one.
std::mutex& mutex() {
    static std::mutex& the = *new std::mutex;
    return the;
}
bool isTaken[kVmEventGroups] = {}; // the capability
bool isLate[kVmEventGroups] = {};  // taken in the live phase
bool on[kCount] = {};

// Events that the bridge itself wants, whatever the profiler has enabled.
bool wantedHere[kVmEventGroups] = {};

bool wanted(const Row& row) {
    if (wantedHere[static_cast<size_t>(row.group)]) return true;
    for (const jint type : row.wanted)
        if (type != 0 && events().isEnabled(type)) return true;
    return false;
}

// Threads take the distance between two samples over when they start, so it is set with the
// capability; while the event is off it costs nothing.
jvmtiError takeLocked(VmEventGroup group) {
    const auto index = static_cast<size_t>(group);
    if (isTaken[index]) return JVMTI_ERROR_NONE;
    jvmtiCapabilities needed{};
    kCapability[index](needed);
    jvmtiError error = jvmti->AddCapabilities(&needed);
    if (error == JVMTI_ERROR_NONE && group == VmEventGroup::kAllocations)
        error = jvmti->SetHeapSamplingInterval(0); // every object
    isTaken[index] = error == JVMTI_ERROR_NONE;
    jvmtiPhase phase = JVMTI_PHASE_LIVE;
    isLate[index] = jvmti->GetPhase(&phase) != JVMTI_ERROR_NONE || phase == JVMTI_PHASE_LIVE;
    return error;
}

jvmtiError change(size_t index, bool enable) {
    const Row& row = kRows[index];
    if (enable) {
        const jvmtiError error = takeLocked(row.group);
        if (error != JVMTI_ERROR_NONE) return error;
    }
    const jvmtiError error =
        jvmti->SetEventNotificationMode(enable ? JVMTI_ENABLE : JVMTI_DISABLE, row.vm, nullptr);
    if (error == JVMTI_ERROR_NONE) on[index] = enable;
    return error;
}

} // namespace

void VmEvents::begin(jvmtiEnv* env) {
    jvmti = env;
    jvmtiCapabilities potential{};
    if (env->GetPotentialCapabilities(&potential) != JVMTI_ERROR_NONE) return;
    for (size_t i = 0; i < kVmEventGroups; i++) possible[i] = kHas[i](potential);
}

void VmEvents::live() {
    // Method events are for agents that ask before the VM is up.
    const auto methods = static_cast<size_t>(VmEventGroup::kMethods);
    std::lock_guard<std::mutex> guard(mutex());
    possible[methods] = isTaken[methods];
}

void VmEvents::want(VmEventGroup group, bool yes) {
    {
        std::lock_guard<std::mutex> guard(mutex());
        wantedHere[static_cast<size_t>(group)] = yes;
    }
    follow(group);
}

bool VmEvents::available(VmEventGroup group) { return possible[static_cast<size_t>(group)]; }

bool VmEvents::take(VmEventGroup group) {
    if (!available(group)) return false;
    std::lock_guard<std::mutex> guard(mutex());
    return takeLocked(group) == JVMTI_ERROR_NONE;
}

bool VmEvents::takenLate(VmEventGroup group) {
    std::lock_guard<std::mutex> guard(mutex());
    return isTaken[static_cast<size_t>(group)] && isLate[static_cast<size_t>(group)];
}

jint VmEvents::follow(VmEventGroup group) {
    if (!available(group)) return JVMPI_NOT_AVAILABLE;
    std::lock_guard<std::mutex> guard(mutex());
    jvmtiError worst = JVMTI_ERROR_NONE;
    // On in the rows' order, off in the reverse one.
    for (size_t i = kCount; i-- > 0;)
        if (kRows[i].group == group && on[i] && !wanted(kRows[i])) change(i, false);
    for (size_t i = 0; i < kCount; i++) {
        if (kRows[i].group != group || on[i] || !wanted(kRows[i])) continue;
        const jvmtiError error = change(i, true);
        if (error != JVMTI_ERROR_NONE && error != JVMTI_ERROR_WRONG_PHASE) worst = error;
    }
    return worst == JVMTI_ERROR_NONE ? JVMPI_SUCCESS : JVMPI_NOT_AVAILABLE;
}

} // namespace bridge
