// Measures what it costs to be told of every allocation: CPU time per object of a program that
// does nothing but allocate, without an agent, with one that does nothing (the floor), and with
// ours without and with freed objects. The start of each is measured apart and taken off.
//
// Rounds of all of them in turn, because the machine's speed drifts; ratios within a round and
// their medians, because single runs are disturbed.
#include "bench/CommandRun.h"
#include "prb/LaunchPlan.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>

namespace {

struct Variant {
    const char* name;
    std::vector<std::string> options; // of java
    std::vector<double> nsPerObject;
    std::vector<double> timesFloor;
};

// CPU seconds; negative if the command fails.
double cpuOf(const std::string& java, const Variant& variant,
             const std::vector<std::string>& common, long objects, int threads) {
    std::vector<std::string> argv = {java};
    argv.insert(argv.end(), variant.options.begin(), variant.options.end());
    argv.insert(argv.end(), common.begin(), common.end());
    argv.push_back(std::to_string(objects / threads));
    argv.push_back(std::to_string(threads));
    const bench::Run run = bench::measure(argv);
    if (run.code == 0) return run.cpu;
    std::fprintf(stderr, "allocation: the program ended with code %d: %s\n", run.code,
                 variant.name);
    return -1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures allocation tracking."};
    prb::RunOptions options;
    options.data = {"alloc"};
    int rounds = 7;
    int threads = 1;
    long objects = 3000000;
    std::string folder = prb::programFolder() + "/..";
    std::string bare;
    std::string heap = "-Xmx1g";
    std::string collector = "-XX:+UseG1GC";
    app.add_option("--rounds", rounds, "rounds, after one that is not counted");
    app.add_option("--threads", threads, "threads that allocate")->check(CLI::PositiveNumber);
    app.add_option("--objects", objects, "objects of all threads")->check(CLI::PositiveNumber);
    app.add_option("--java-home", options.javaHome, "the JDK whose java is meant");
    app.add_option("--data", options.data, "what the agent collects")->delimiter(',');
    app.add_option("--products", folder, "the folder of the libraries");
    app.add_option("--bare", bare, "the agent that does nothing");
    app.add_option("--heap", heap, "the JVM's option for the heap's size");
    app.add_option("--collector", collector, "the JVM's option for the collector");
    CLI11_PARSE(app, argc, argv);
    if (bare.empty()) bare = prb::programFolder() + "/libbare_allocation_agent.so";

    char scratch[] = "/tmp/prb-bench-XXXXXX";
    if (mkdtemp(scratch) == nullptr) return 1;
    options.out = std::string(scratch) + "/bench.prb";
    const auto withAgent = [&](const char* frees) -> std::vector<std::string> {
        prb::RunOptions all = options;
        all.bridge.emplace_back(std::string("frees=") + frees);
        const prb::LaunchPlan plan = prb::planLaunch(all, {"java"}, folder, scratch);
        if (!plan.problem.empty() || plan.argv.size() < 2) {
            std::fprintf(stderr, "allocation: %s\n", plan.problem.c_str());
            return {};
        }
        return {plan.argv[1]};
    };
    const prb::LaunchPlan plan = prb::planLaunch(options, {"java"}, folder, scratch);
    if (plan.argv.empty()) return 1;
    const std::string java = plan.argv[0];
    Variant variants[] = {{"no agent", {}, {}, {}},
                          {"empty callback", {"-agentpath:" + bare}, {}, {}},
                          {"without frees", withAgent("no"), {}, {}},
                          {"with frees", withAgent("yes"), {}, {}}};
    constexpr std::size_t kFloor = 1;
    if (variants[2].options.empty()) return 1;
    const std::vector<std::string> common = {heap, collector, "-cp",
                                             prb::programFolder() + "/programs.jar",
                                             "com.tessel.prb.bench.AllocationRate"};
    for (int round = -1; round < rounds; round++) {
        double ns[std::size(variants)];
        for (std::size_t i = 0; i < std::size(variants); i++) {
            const double start = cpuOf(java, variants[i], common, threads, threads);
            const double all = cpuOf(java, variants[i], common, objects + threads, threads);
            if (start < 0 || all < 0) return 1;
            ns[i] = (all - start) * 1e9 / static_cast<double>(objects);
        }
        for (std::size_t i = 0; round >= 0 && i < std::size(variants); i++) {
            variants[i].nsPerObject.push_back(ns[i]);
            variants[i].timesFloor.push_back(ns[i] / ns[kFloor]);
        }
    }
    std::printf("%ld objects, %d threads, %s %s: CPU time per object, %d rounds\n", objects,
                threads, heap.c_str(), collector.c_str(), rounds);
    for (const Variant& variant : variants)
        std::printf("  %-15s %8.1f ns   %.2f times the empty callback\n", variant.name,
                    bench::median(variant.nsPerObject), bench::median(variant.timesFloor));
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
    return 0;
}
