#include "prb/Report.h"
#include "prb/Signature.h"

#include <cstdio>

namespace prb {

namespace {

// RFC 4180: quoted when it must be, quotes doubled. A leading '=', '+', '-' or '@' would be a
// formula to a spreadsheet, so such a text gets a blank in front.
std::string cell(const std::string& text) {
    std::string value = printable(text);
    if (!value.empty() && std::string("=+-@").find(value.front()) != std::string::npos) {
        value.insert(0, " ");
    }
    if (value.find_first_of("\",\r\n") == std::string::npos) return value;
    std::string quoted = "\"";
    for (char c : value) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

} // namespace

std::string writeCsvReport(const RunModel& run, const ReportOptions& options) {
    const double cycle = run.sampleMs();
    const auto ms = [cycle](long long n) { return number(static_cast<double>(n) * cycle); };
    std::string out = "kind,name,group_or_class,parameters,samples,share,ms,total_samples,"
                      "total_share,total_ms,blocked_samples,waiting_samples,own_of_profiler,"
                      "allocated_objects,allocated_bytes,freed_objects,live_objects,live_bytes\n";
    for (const ThreadUse& t : run.threads()) {
        out += "thread," + cell(t.name) + "," + cell(t.group) + ",," + std::to_string(t.busy) +
               "," + number(t.own ? 0 : percent(t.busy, run.busySamples())) + "," + ms(t.busy) +
               ",,,," + std::to_string(t.blocked) + "," + std::to_string(t.waiting) + "," +
               (t.own ? "1" : "0") + "," + std::to_string(t.allocatedObjects) + "," +
               std::to_string(t.allocatedBytes) + ",,,\n";
    }
    for (const MethodUse& m : chosenMethods(run, options)) {
        out += "method," + cell(m.name) + "," + cell(readableClass(m.className)) + "," +
               cell(readableSignature(m.signature)) + "," + std::to_string(m.own) + "," +
               number(percent(m.own, run.busySamples())) + "," + ms(m.own) + "," +
               std::to_string(m.total) + "," + number(percent(m.total, run.busySamples())) + "," +
               ms(m.total) + ",,,,,,,,\n";
    }
    for (const ClassUse& c : chosenClasses(run, options)) {
        out += "class," + cell(readableClass(c.name)) + ",,,,,,,,,,,," +
               std::to_string(c.allocated) + ",," + std::to_string(c.freed) + "," +
               std::to_string(c.liveObjects) + "," + std::to_string(c.liveBytes) + "\n";
    }
    return out;
}

} // namespace prb
