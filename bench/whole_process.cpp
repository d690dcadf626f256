// Measures what the agent costs a whole process: runs a command with and without it in turn and
// compares the CPU time (user and system, of all threads and children), pair by pair.
//
// CPU time and not elapsed time, because elapsed times swing on shared machines; pairs in turn,
// because the machine's speed drifts; medians, because single runs are disturbed.
#include "bench/CommandRun.h"
#include "prb/LaunchPlan.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace {

using bench::measure;
using bench::median;
using bench::Run;

// The range that holds the true median in 95 of 100 cases, whatever the distribution: order
// statistics by the binomial distribution. With fewer than six values it is all of them.
std::pair<double, double> confidence(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    std::size_t outside = 0; // values left out on each side
    double term = std::pow(0.5, static_cast<double>(n)), below = 0;
    for (std::size_t k = 0; k < n / 2; k++) {
        below += term;
        if (below > 0.025) break;
        outside = k + 1;
        term *= static_cast<double>(n - k) / static_cast<double>(k + 1);
    }
    const std::size_t first = outside == 0 ? 0 : outside - 1;
    return {values[first], values[n - 1 - first]};
}

enum class Compare { kRatio, kDifference };

void row(const char* figure, const std::vector<double>& with, const std::vector<double>& without,
         Compare how, double lessWith = 0) {
    std::vector<double> compared;
    for (std::size_t i = 0; i < with.size(); i++)
        compared.push_back(how == Compare::kRatio ? (with[i] - lessWith) / without[i]
                                                  : with[i] - without[i]);
    const auto [low, high] = confidence(compared);
    std::printf("  %-10s without %8.3f   with %8.3f   %s median %7.4f [%.4f, %.4f]\n", figure,
                median(without), median(with), how == Compare::kRatio ? "ratio" : "more ",
                median(compared), low, high);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Compares a Java command with and without the agent."};
    prb::RunOptions options;
    int pairs = 7;
    std::string folder = prb::programFolder() + "/..";
    std::string title;
    double start = 0;
    std::vector<std::string> command;
    app.add_option("--pairs", pairs, "pairs to run, after one that is not counted")
        ->check(CLI::PositiveNumber);
    app.add_option("--title", title, "what to print above the figures");
    app.add_option("--less-start", start,
                   "CPU seconds that starting costs, taken off before the ratio");
    app.add_option("--interval", options.intervalMs, "the agent's sampling interval, ms");
    app.add_option("--java-home", options.javaHome, "the JDK whose java is meant");
    app.add_option("--data", options.data, "what the agent collects")->delimiter(',');
    app.add_option("--bridge", options.bridge, "further options of the bridge");
    app.add_option("--products", folder, "the folder of the libraries");
    app.add_option("command", command, "the command, a java or javac")->required();
    CLI11_PARSE(app, argc, argv);

    char scratch[] = "/tmp/prb-bench-XXXXXX";
    if (mkdtemp(scratch) == nullptr) return 1;
    options.out = std::string(scratch) + "/bench.prb";
    const prb::LaunchPlan plan = prb::planLaunch(options, command, folder, scratch);
    if (!plan.problem.empty() || !plan.oneJvm) {
        std::fprintf(stderr, "whole_process: %s\n",
                     plan.problem.empty() ? "the command must be java or javac"
                                          : plan.problem.c_str());
        return 1;
    }
    std::vector<std::string> bare = plan.argv;
    bare.erase(bare.begin() + 1);

    std::vector<double> cpu[2], wall[2], peak[2];
    for (int pair = -1; pair < pairs; pair++) {
        for (int turn : {0, 1}) {
            const int with = pair % 2 == 0 ? turn : 1 - turn; // each goes first in half of them
            const Run run = measure(with == 1 ? plan.argv : bare);
            if (run.code != 0) {
                std::fprintf(stderr, "whole_process: the command ended with code %d %s the agent\n",
                             run.code, with == 1 ? "under" : "without");
                return 1;
            }
            if (pair < 0) continue;
            cpu[with].push_back(run.cpu);
            wall[with].push_back(run.wall);
            peak[with].push_back(run.peak);
        }
        if (isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "\rpair %d of %d ", pair + 1, pairs);
    }
    if (isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "\r");
    std::printf("%s: %d pairs\n", title.empty() ? command.back().c_str() : title.c_str(), pairs);
    row("CPU s", cpu[1], cpu[0], Compare::kRatio, start);
    row("CPU s", cpu[1], cpu[0], Compare::kDifference);
    row("wall s", wall[1], wall[0], Compare::kRatio);
    row("peak MiB", peak[1], peak[0], Compare::kDifference);
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
    return 0;
}
