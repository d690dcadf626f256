// Finds and loads the profiling agent, libprbprof.so, and finds the Java side's jar.
#ifndef PRB_BRIDGE_AGENTLIBRARY_H
#define PRB_BRIDGE_AGENTLIBRARY_H

#include <string>

#include <jni.h>

#include "bridge/VmStructs.h"

namespace bridge {

class AgentLibrary {
public:
    static constexpr char kLibrary[] = "libprbprof.so";
    static constexpr char kJar[] = "prbprof.jar";

    // The path of a file: as named by the option, or `file` in the folder of the bridge.
    static std::string locate(const std::string& named, const char* file);

    // Each answers an empty text, or what is wrong with the file and what to do.
    static std::string checkJar(const std::string& path);
    static std::string checkLibrary(const std::string& path);

    // Another copy of the bridge that is at work in this VM, or an empty text.
    static std::string otherBridge(JavaVM* vm);

    // Loads the library and keeps it for the life of the process. Answers a problem as above.
    static std::string load(const std::string& path);
    // Calls its JVM_OnLoad with the text. Answers a problem as above. REQUIRES: loaded.
    static std::string callOnLoad(JavaVM* vm, const std::string& text);

    static bool isLoaded();
    // The library's handle for dlsym; null if it is not loaded. What the VM has loaded for
    // -Xrun is found too.
    static void* handle();

    // Whether the command line names the agent by -Xrun, so that the VM loads it itself.
    static bool loadedByVm(const VmStructs& vm);
    // The same for one argument.
    static bool isRunOption(const char* argument);
};

} // namespace bridge

#endif
