#include "bridge/DebugInformation.h"

namespace bridge {
namespace {

constexpr const char* kSwitch = "DebugNonSafepoints";

bool listen(jvmtiEnv* jvmti, jvmtiEventMode mode) {
    return jvmti->SetEventNotificationMode(mode, JVMTI_EVENT_COMPILED_METHOD_LOAD, nullptr) ==
           JVMTI_ERROR_NONE;
}

} // namespace

bool DebugInformation::begin(jvmtiEnv* jvmti, const VmFlags& flags) {
    if (way_ != Way::kNone) return true;
    if (flags.isOn(kSwitch) == true)
        way_ = Way::kWasOn;
    else if (flags.turn(kSwitch, true))
        way_ = Way::kSwitch;
    else if (listen(jvmti, JVMTI_ENABLE))
        way_ = Way::kEvent;
    return way_ != Way::kNone;
}

void DebugInformation::end(jvmtiEnv* jvmti, const VmFlags& flags) {
    if (way_ == Way::kSwitch) flags.turn(kSwitch, false);
    if (way_ == Way::kEvent) listen(jvmti, JVMTI_DISABLE);
    way_ = Way::kNone;
}

} // namespace bridge
