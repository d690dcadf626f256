// A running process that somebody wants to attach to: whether it is a JVM that prbprof works in,
// and how to reach it. Everything is read from /proc; nothing is asked of the process.
#ifndef PRB_PRB_TARGET_H
#define PRB_PRB_TARGET_H

#include "prb/Jvm.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace prb {

struct Target {
    pid_t pid = 0;
    pid_t innerPid = 0; // the same in the process's own name space
    uid_t uid = 0;      // effective
    gid_t gid = 0;
    std::string proc;       // its folder, as /proc/123
    std::string root;       // its root folder as we see it: proc + "/root", or ""
    bool contained = false; // it sees other files than we do
    std::vector<std::string> arguments;
    Jvm jvm;                     // by the libjvm.so that it has loaded
    std::string bridge;          // the libprbbridge.so that it has loaded; empty: none
    bool bridgeReplaced = false; // that file has been deleted or replaced since
    std::string problem;         // why it cannot be attached to, in one line; empty: it can

    // What to call it: main class or jar.
    std::string name() const;
};

// `proc` is where the processes' folders are, and `self` the caller's effective user.
Target inspectTarget(pid_t pid, uid_t self, const std::string& proc = "/proc");

} // namespace prb

#endif
