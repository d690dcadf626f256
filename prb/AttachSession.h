// One talk with the bridge in a running JVM: what was asked, and the answer it left in a file.
#ifndef PRB_PRB_ATTACHSESSION_H
#define PRB_PRB_ATTACHSESSION_H

#include "prb/Target.h"

#include <string>
#include <vector>

namespace prb {

// What the bridge answers; its file's lines are "key=value".
struct AttachAnswer {
    std::string state;             // started, busy, ended, idle, failed; empty without an answer
    std::string capture;           // as the process sees it
    std::vector<std::string> said; // lines for standard error, without their prefix

    static AttachAnswer parse(const std::string& text);
};

// Asks the bridge `library` (a path as the process sees it) in the process. `options` is the
// bridge's option text. The answer's `problem` is empty when there is one.
struct Asked {
    AttachAnswer answer;
    std::string problem;
};
Asked askBridge(const Target& target, const std::string& library, const std::string& options,
                int seconds);

} // namespace prb

#endif
