// Turns "profile this command" into the command that is really started: which JVM it will be,
// which libraries go with it, where the option goes and which captures to expect.
#ifndef PRB_PRB_LAUNCHPLAN_H
#define PRB_PRB_LAUNCHPLAN_H

#include "prb/Jvm.h"
#include "prb/Libraries.h"

#include <optional>
#include <string>
#include <vector>

namespace prb {

// What the user asked for. Empty texts mean the driver's own defaults.
struct RunOptions {
    std::optional<int> intervalMs;
    std::optional<double> pollSeconds;
    std::vector<std::string> data;    // threads, methods, ...
    std::vector<std::string> classes; // masks
    std::vector<std::string> methods; // masks
    std::vector<std::string> exact;   // masks of CLASS or CLASS:METHOD
    std::string out;                  // capture file; %p is the process id
    std::string name;                 // the server name in the capture
    std::string javaHome;
    std::vector<std::string> agent;  // KEY=VALUE options of the agent itself
    std::vector<std::string> bridge; // KEY=VALUE options of the bridge itself
    bool quiet = false;
};

struct LaunchPlan {
    std::vector<std::string> argv; // what to start
    std::string toolOptions;       // JAVA_TOOL_OPTIONS to set; empty to leave it alone
    std::string capturePattern;    // absolute; %p stands for the process id
    bool oneJvm = true;            // the started process is itself the JVM
    Jvm jvm;
    Libraries libraries;
    std::string problem; // why the command would run unprofiled; empty when it will not
};

// The option text of the bridge; commas and backslashes in values are escaped.
std::string bridgeOptions(const RunOptions& options, const std::string& capturePattern);

// `folder` is where the libraries are looked for, `workingFolder` what a relative capture name
// is relative to. With a problem, `argv` is the command as it was given.
LaunchPlan planLaunch(const RunOptions& options, const std::vector<std::string>& command,
                      const std::string& folder, const std::string& workingFolder);

} // namespace prb

#endif
