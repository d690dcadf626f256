#include "bridge/Loader.h"

#include <algorithm>
#include <cstdlib>

#include "bridge/AgentLibrary.h"
#include "bridge/ClassEvents.h"
#include "bridge/Context.h"
#include "bridge/GetEnvHook.h"
#include "bridge/Jvmti.h"
#include "bridge/MonitorEvents.h"
#include "bridge/ObjectIds.h"
#include "bridge/Report.h"
#include "bridge/ThreadTable.h"
#include "bridge/VmCallbacks.h"

namespace bridge {
namespace {

constexpr int kOldestJava = 17;

void ownTrace(JVMPI_CallTrace* trace, jint depth) {
    constexpr jint kMost = 512;
    jvmtiFrameInfo frames[kMost + MonitorEvents::kMostSkipped];
    jint count = 0;
    depth = std::min(depth, kMost);
    const jint extra = MonitorEvents::inCallback() ? MonitorEvents::kMostSkipped : 0;
    if (context().jvmti->GetStackTrace(nullptr, 0, depth + extra, frames, &count) !=
        JVMTI_ERROR_NONE)
        count = 0;
    const jint skipped = MonitorEvents::framesToSkip(frames, count);
    trace->num_frames = std::min(count - skipped, depth);
    for (jint i = 0; i < trace->num_frames; i++) {
        const jvmtiFrameInfo& frame = frames[skipped + i];
        trace->frames[i] = {static_cast<jint>(frame.location), frame.method};
    }
}

std::string checkVersion(jvmtiEnv* jvmti) {
    JvmtiText version(jvmti);
    if (jvmti->GetSystemProperty("java.vm.specification.version", version.out()) !=
        JVMTI_ERROR_NONE)
        return {}; // the checks of the VM's insides decide
    const int java = atoi(version.get());
    if (java >= kOldestJava) return {};
    return std::string("this JVM is Java ") + version.get() + ": use HotSpot 17 or newer";
}

// Set when the VM has been changed: what fails from then on has failed for good.
bool touched = false;
bool jarAdded = false;

// Everything that can be found wrong before the VM is touched. Answers an empty text or why not.
std::string prepare(const char* optionText) {
    Context& the = context();
    the.options = Options();
    if (std::string problem = the.options.parse(optionText); !problem.empty()) return problem;
    setQuiet(the.options.quiet());
    if (const std::string other = AgentLibrary::otherBridge(the.vm); !other.empty())
        return "another copy of the bridge is at work in this JVM: " + other;
    void* env = nullptr;
    if (the.vm->GetEnv(&env, JVMTI_VERSION_11) != JNI_OK)
        return "this JVM does not offer the tool interface of Java 11: use HotSpot 17 or newer";
    the.jvmti = static_cast<jvmtiEnv*>(env);
    if (std::string problem = checkVersion(the.jvmti); !problem.empty()) return problem;
    if (!the.vmStructs.resolve()) return the.vmStructs.problem();
    return {};
}

std::string loadAgent(bool attaching) {
    Context& the = context();
    if (!attaching && AgentLibrary::loadedByVm(the.vmStructs)) return {};
    const std::string path = AgentLibrary::locate(the.options.lib(), AgentLibrary::kLibrary);
    if (std::string problem = AgentLibrary::checkLibrary(path); !problem.empty()) return problem;
    return AgentLibrary::load(path);
}

std::string addJar() {
    Context& the = context();
    if (!the.options.driver() || jarAdded) return {};
    const std::string path = AgentLibrary::locate(the.options.jar(), AgentLibrary::kJar);
    if (std::string problem = AgentLibrary::checkJar(path); !problem.empty()) return problem;
    if (the.jvmti->AddToBootstrapClassLoaderSearch(path.c_str()) != JVMTI_ERROR_NONE)
        return "this JVM does not take " + path + ": check that it is a jar of this release";
    jarAdded = true;
    return {};
}

std::string loadParts(const char* optionText, bool attaching) {
    Context& the = context();
    if (std::string problem = prepare(optionText); !problem.empty()) return problem;
    if (std::string problem = loadAgent(attaching); !problem.empty()) return problem;
    if (std::string problem = addJar(); !problem.empty()) return problem;
    touched = true;
    if (!objectIds().init(the.jvmti, ClassEvents::firstSight))
        return "this JVM gives no monitors to agents: use HotSpot 17 or newer";
    the.sampler = new StackSampler(threads(), the.vmStructs, ownTrace);
    if (std::string problem = installCallbacks(the.jvmti); !problem.empty()) return problem;
    the.phase.store(Phase::kLoading, std::memory_order_release);
    installGetEnvHook(the.vm);
    // Without a library of our own the VM calls JVM_OnLoad for -Xrun later.
    return AgentLibrary::isLoaded() ? AgentLibrary::callOnLoad(the.vm, the.options.agentText())
                                    : std::string();
}

void decline(const std::string& problem) {
    Context& the = context();
    the.phase.store(Phase::kOff, std::memory_order_release);
    dropDebugInformation();
    if (the.jvmti) the.jvmti->DisposeEnvironment();
    the.jvmti = nullptr;
    report("%s; the program runs unprofiled", problem.c_str());
}

} // namespace

bool Loader::load(JavaVM* vm, const char* optionText, bool attaching) {
    context().vm = vm;
    const std::string problem = loadParts(optionText, attaching);
    if (!problem.empty()) decline(problem);
    return problem.empty();
}

bool Loader::touchedVm() { return touched; }

bool Loader::needJar() {
    const std::string problem = addJar();
    if (!problem.empty()) report("%s; the program runs unprofiled", problem.c_str());
    return problem.empty();
}

} // namespace bridge
