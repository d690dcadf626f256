#include "bridge/CompiledCode.h"

#include <cstdlib>

#include "bridge/Jvmti.h"

namespace bridge {

bool dropCompiledCode(jvmtiEnv* jvmti, jclass ours) {
    constexpr int kDropsAll = 17;
    JvmtiText version(jvmti);
    if (jvmti->GetSystemProperty("java.vm.specification.version", version.out()) !=
            JVMTI_ERROR_NONE ||
        atoi(version.get()) != kDropsAll)
        return false;
    jvmtiCapabilities needed{};
    needed.can_retransform_classes = 1;
    if (jvmti->AddCapabilities(&needed) != JVMTI_ERROR_NONE) return false;
    // The first redefinition of any class: ours, to what it is already.
    const bool done = jvmti->RetransformClasses(1, &ours) == JVMTI_ERROR_NONE;
    jvmti->RelinquishCapabilities(&needed);
    return done;
}

} // namespace bridge
