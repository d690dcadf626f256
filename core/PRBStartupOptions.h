// The agent's option text: "keyword=value" separated by commas.
//
//     port=<digits>                    kept and logged only
//     debug=<level>                    see the table in the source
//     filter=<name> | (<a>;<b>/<c>)    components that may trace; braces do as well
//     workanalysisconfig=<file>        the configuration file of the Java side
//
// Keywords and levels ignore case; commas and "=" cannot be part of a value.
#ifndef PRB_CORE_PRBSTARTUPOPTIONS_H
#define PRB_CORE_PRBSTARTUPOPTIONS_H

#include "core/PRBReturnCode.h"

#include <cstdint>
#include <string>

class PRBSlist;

namespace PRBStartupOptions {

constexpr int kInternalTrace = -1; // the trace level that asks for the internal trace table

// Where values go; the keyword of a null member is accepted and ignored.
struct Targets {
    std::uint16_t* port = nullptr;
    int* traceLevel = nullptr;
    PRBSlist** filter = nullptr; // a new list for the caller, also an empty one
    std::string* configFile = nullptr;
};

// Every option that is valid takes effect. Answers the last error (121 or 122) or OK; a bad port
// is only logged.
PRBReturnCode parse(const char* options, const Targets& targets);

// The text that JVM_OnLoad was given: copied; null keeps what is there.
void keep(const char* options);
// Its configuration file; empty when there is none.
std::string keptConfigFile();

} // namespace PRBStartupOptions

#endif
