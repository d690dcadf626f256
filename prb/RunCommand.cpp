#include "prb/ChildProcess.h"
#include "prb/Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace prb {

namespace {

// The pid that stands in for %p in a file name of the pattern; empty when it does not match.
std::string pidOf(const std::string& name, const std::string& pattern) {
    const std::size_t at = pattern.find("%p");
    const std::string head = pattern.substr(0, at), tail = pattern.substr(at + 2);
    if (name.size() <= head.size() + tail.size() || name.rfind(head, 0) != 0 ||
        name.compare(name.size() - tail.size(), tail.size(), tail) != 0) {
        return {};
    }
    const std::string pid = name.substr(head.size(), name.size() - head.size() - tail.size());
    return pid.find_first_not_of("0123456789") == std::string::npos ? pid : std::string();
}

// The captures that the run wrote: the one file, or each file of the pattern that is no older
// than the start.
std::vector<std::string> captures(const LaunchPlan& plan, pid_t pid, fs::file_time_type start) {
    std::string pattern = plan.capturePattern;
    const std::size_t at = pattern.find("%p");
    std::error_code error;
    if (at == std::string::npos || plan.oneJvm) {
        if (at != std::string::npos) pattern.replace(at, 2, std::to_string(pid));
        const bool written =
            fs::exists(pattern, error) && fs::last_write_time(pattern, error) >= start;
        return written ? std::vector<std::string>{pattern} : std::vector<std::string>{};
    }
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(fs::path(pattern).parent_path(), error)) {
        const std::string name = entry.path().string();
        if (!pidOf(name, pattern).empty() && entry.last_write_time(error) >= start) {
            found.push_back(name);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

int runCommand(const RunOptions& options, const ReportOptions& report,
               const std::string& reportFile, const std::vector<std::string>& command) {
    std::error_code error;
    const LaunchPlan plan =
        planLaunch(options, command, programFolder(), fs::current_path(error).string());
    if (!plan.problem.empty()) {
        std::fprintf(stderr, "prb: %s; the command runs unprofiled\n", plan.problem.c_str());
    }
    std::FILE* out = stderr;
    if (!reportFile.empty()) {
        out = std::fopen(reportFile.c_str(), "we");
        if (out == nullptr) {
            std::fprintf(stderr, "prb: cannot write the report to %s: %s\n", reportFile.c_str(),
                         strerrordesc_np(errno));
            return kBadUsage;
        }
    }
    // A second of grace: file systems keep coarser times than the clock.
    const auto start = fs::file_time_type::clock::now() - std::chrono::seconds(1);
    const ChildResult child = runChild(plan.argv, plan.toolOptions);
    if (!child.problem.empty()) {
        std::fprintf(stderr, "prb: %s\n", child.problem.c_str());
    } else if (plan.problem.empty()) {
        const std::vector<std::string> files = captures(plan, child.pid, start);
        if (files.empty()) {
            std::fprintf(stderr,
                         "prb: no capture was written (%s): no JVM was started, or it ran "
                         "unprofiled for the reason it gave above\n",
                         plan.capturePattern.c_str());
        }
        for (const std::string& file : files) {
            if (options.quiet && reportFile.empty()) continue;
            reportCommand(file, report, out, stderr);
        }
    }
    if (out != stderr) std::fclose(out);
    return child.exitCode;
}

} // namespace prb
