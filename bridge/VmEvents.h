// Switches the VM's own events on and off for those of the profiler interface that are had only
// on request: the VM's work for them, and the capabilities that it needs, are taken when the
// profiler enables them and not before.
#ifndef PRB_BRIDGE_VMEVENTS_H
#define PRB_BRIDGE_VMEVENTS_H

#include <jvmti.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

// Which capability a group of events needs.
enum class VmEventGroup { kCollections, kMonitors, kAllocations, kMethods };
constexpr int kVmEventGroups = 4;

class VmEvents {
public:
    // Asks what this VM can give. REQUIRES: called once, before the profiler is loaded.
    static void begin(jvmtiEnv* jvmti);
    // Whether this VM can give a group's events.
    static bool available(VmEventGroup group);
    // Takes a group's capability now, for what has to be so from the first thread on. False if
    // the VM refuses.
    static bool take(VmEventGroup group);
    // Whether the capability was taken in the live phase, when threads ran without it already.
    static bool takenLate(VmEventGroup group);

    // The VM is up: what could only be had before cannot be had any more.
    static void live();
    // Whether the bridge itself wants the group's events, beside those that the profiler enables.
    static void want(VmEventGroup group, bool yes);

    // Brings the VM's switches in line with what the profiler has enabled. Answers
    // JVMPI_SUCCESS, or JVMPI_NOT_AVAILABLE if the VM refuses. While the VM is between its start
    // and VMInit it takes no switches; beginLive() then calls this again.
    static jint follow(VmEventGroup group);

    // Rows of the event table.
    template <VmEventGroup kGroup> static bool isAvailable() { return available(kGroup); }
    template <VmEventGroup kGroup> static jint enable() { return follow(kGroup); }
    template <VmEventGroup kGroup> static void disable() { follow(kGroup); }
};

} // namespace bridge

#endif
