// The commands of the tool, one function each. They print to the streams given, so that tests
// can read them, and answer the exit code.
#ifndef PRB_PRB_COMMANDS_H
#define PRB_PRB_COMMANDS_H

#include "prb/LaunchPlan.h"
#include "prb/Report.h"

#include <cstdio>
#include <string>
#include <vector>

namespace prb {

// Exit codes of the tool itself; `run` answers the command's own.
constexpr int kOk = 0;
constexpr int kFailed = 1; // the file or the machine is not as it must be
constexpr int kBadUsage = 2;

// Colour, blocks and width for what `out` is: a terminal or not.
void fitToOutput(ReportOptions& options, std::FILE* out);

// Profiles the command, then reports each capture to `reportFile`, or to standard error.
int runCommand(const RunOptions& options, const ReportOptions& report,
               const std::string& reportFile, const std::vector<std::string>& command);

// Profiles a JVM that runs: until it ends, until Ctrl-C, or for so many seconds (0: no limit).
int attachCommand(int pid, const RunOptions& options, double seconds, const ReportOptions& report,
                  const std::string& reportFile);
// Ends the profile of a JVM; the JVM goes on.
int detachCommand(int pid);

int reportCommand(const std::string& file, ReportOptions options, std::FILE* out, std::FILE* err);

// Every record as one line of JSON, key by key; what is unknown is shown by number.
int decodeCommand(const std::string& file, std::FILE* out, std::FILE* err);

// What works on this machine: the libraries, and each JVM tried with them.
int doctorCommand(const std::vector<std::string>& javaHomes, std::FILE* out);

} // namespace prb

#endif
