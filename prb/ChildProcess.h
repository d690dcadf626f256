// Starts the user's command and stays out of its way: its own terminal, input, output and
// signals, and an exit code that can be handed on.
#ifndef PRB_PRB_CHILDPROCESS_H
#define PRB_PRB_CHILDPROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace prb {

struct ChildResult {
    pid_t pid = 0;
    // The command's own exit code; 128 plus the signal that ended it; 127 when it could not be
    // started because it was not found, 126 for any other reason (`problem` says which).
    int exitCode = 0;
    std::string problem;
};

// Runs the command to its end. SIGTERM, SIGHUP and SIGUSR1/2 sent to this process are passed
// on; SIGINT and SIGQUIT come from the terminal to both and are left to the command.
// `toolOptions`, when not empty, is the command's JAVA_TOOL_OPTIONS.
ChildResult runChild(const std::vector<std::string>& argv, const std::string& toolOptions);

// Runs a command quietly, its output and errors collected, for at most `seconds`.
struct Captured {
    int exitCode = -1; // -1: could not be started, or took too long and was killed
    std::string out;
    std::string err;
};
Captured runCaptured(const std::vector<std::string>& argv, int seconds);

} // namespace prb

#endif
