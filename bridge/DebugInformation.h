// Has compiled code keep its debug information between safepoints too: samples then show the line
// of code that really ran, also in inlined loops without a safepoint.
//
// The VM does so while its switch DebugNonSafepoints is on, and while an agent listens to compiled
// methods. The switch costs the compilers alone; the event costs the VM's service thread the
// decoding of all that debug information as well (1 % of a program that compiles much). So the
// switch is turned where it is found, and the event is listened to where it is not. Code that was
// compiled before keeps what it has.
#ifndef PRB_BRIDGE_DEBUGINFORMATION_H
#define PRB_BRIDGE_DEBUGINFORMATION_H

#include <jvmti.h>

#include "bridge/VmFlags.h"

namespace bridge {

class DebugInformation {
public:
    // REQUIRES: the capability for events of compiled methods, and a callback for them.
    // False if the VM offers neither way. May be called again; one thread at a time.
    bool begin(jvmtiEnv* jvmti, const VmFlags& flags);
    // Leaves the VM as it was found.
    void end(jvmtiEnv* jvmti, const VmFlags& flags);

private:
    enum class Way { kNone, kSwitch, kWasOn, kEvent };
    Way way_ = Way::kNone;
};

} // namespace bridge

#endif
