#include "prb/Report.h"
#include "prb/Signature.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace prb {

namespace {

using nlohmann::ordered_json;

double rounded(double value) { return std::round(value * 1000) / 1000; }

ordered_json runObject(const RunModel& run, const std::string& captureName) {
    const RunFacts& facts = run.facts();
    ordered_json counters = ordered_json::object();
    for (const auto& [name, value] : facts.counters) counters[printable(name)] = value;
    ordered_json byType = ordered_json::object();
    for (const auto& [type, count] : run.recordsByType()) byType[std::to_string(type)] = count;
    ordered_json errors = ordered_json::array();
    for (const auto& [code, text] : run.errors()) {
        errors.push_back({{"code", code}, {"text", printable(text)}});
    }
    ordered_json warnings = ordered_json::array();
    for (const std::string& warning : run.warnings()) warnings.push_back(printable(warning));
    return {
        {"capture", printable(captureName)},
        {"server", printable(facts.server)},
        {"process_id", facts.processId},
        {"command", printable(facts.command)},
        {"jvm", printable(facts.jvm)},
        {"jvm_version", printable(facts.jvmVersion)},
        {"java_version", printable(facts.javaVersion)},
        {"bits", facts.bits},
        {"system", printable(facts.system)},
        {"processors", facts.processors},
        {"start_ms", facts.startMs},
        {"elapsed_ms", rounded(run.elapsedMs())},
        {"interval_ms", facts.intervalMs},
        {"poll_ms", facts.pollMs},
        {"data", printable(facts.dataGiven)},
        {"values_are", facts.nanoseconds ? "nanoseconds" : "samples"},
        {"records", run.records()},
        {"records_by_type", byType},
        {"polls", run.polls()},
        {"cycles", run.cycles()},
        {"mean_cycle_ms", rounded(run.meanCycleMs())},
        {"sample_ms", rounded(run.sampleMs())},
        {"busy_samples", run.busySamples()},
        {"process_cpu_ms", run.processCpuMs()},
        {"complete", run.complete()},
        {"agent",
         {{"build_level", facts.agentLevel},
          {"bridge_version", printable(facts.bridgeVersion)},
          {"sampler_cpu_ms", rounded(static_cast<double>(run.samplerCpuUs()) / 1000)},
          {"poll_ms", rounded(static_cast<double>(facts.pollNs) / 1e6)},
          {"memory_bytes", run.agentBytes()},
          {"memory_high_bytes", run.agentBytesHigh()},
          {"capture_bytes", facts.bytesWritten},
          {"counters", counters}}},
        {"errors", errors},
        {"warnings", warnings},
    };
}

} // namespace

std::string writeJsonReport(const RunModel& run, const std::string& captureName,
                            const ReportOptions& options) {
    const double cycle = run.sampleMs();
    const auto ms = [cycle](long long samples) {
        return rounded(static_cast<double>(samples) * cycle);
    };
    ordered_json threads = ordered_json::array();
    for (const ThreadUse& t : run.threads()) {
        threads.push_back({{"id", t.id},
                           {"name", printable(t.name)},
                           {"group", printable(t.group)},
                           {"own", t.own},
                           {"samples", t.busy},
                           {"share", t.own ? 0 : rounded(percent(t.busy, run.busySamples()))},
                           {"ms", ms(t.busy)},
                           {"cycles", t.cycles},
                           {"blocked_samples", t.blocked},
                           {"blocked_share", rounded(percent(t.blocked, t.cycles))},
                           {"waiting_samples", t.waiting},
                           {"waiting_share", rounded(percent(t.waiting, t.cycles))},
                           {"allocated_objects", t.allocatedObjects},
                           {"allocated_bytes", t.allocatedBytes}});
    }
    ordered_json methods = ordered_json::array();
    for (const MethodUse& m : chosenMethods(run, options)) {
        methods.push_back({{"class", printable(readableClass(m.className))},
                           {"method", printable(m.name)},
                           {"parameters", printable(readableSignature(m.signature))},
                           {"descriptor", printable(m.signature)},
                           {"own_samples", m.own},
                           {"own_share", rounded(percent(m.own, run.busySamples()))},
                           {"own_ms", ms(m.own)},
                           {"total_samples", m.total},
                           {"total_share", rounded(percent(m.total, run.busySamples()))},
                           {"total_ms", ms(m.total)}});
        if (run.facts().nanoseconds) {
            methods.back()["calls"] = m.calls;
            methods.back()["elapsed_ms"] = rounded(static_cast<double>(m.elapsedNs) * 1e-6);
        }
    }
    ordered_json classes = ordered_json::array();
    for (const ClassUse& c : chosenClasses(run, options)) {
        classes.push_back({{"class", printable(readableClass(c.name))},
                           {"allocated_objects", c.allocated},
                           {"freed_objects", c.freed},
                           {"live_objects", c.liveObjects},
                           {"live_bytes", c.liveBytes}});
    }
    const ordered_json report = {{"run", runObject(run, captureName)},
                                 {"threads", threads},
                                 {"methods", methods},
                                 {"classes", classes}};
    return report.dump(2) + "\n";
}

} // namespace prb
