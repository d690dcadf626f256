#include "prb/Report.h"
#include "prb/Signature.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>

namespace prb {

namespace {

__attribute__((format(printf, 1, 2))) std::string text(const char* format, ...) {
    char buffer[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

// The columns that a UTF-8 text takes, one a character.
std::size_t columns(const std::string& s) {
    std::size_t n = 0;
    for (char c : s) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return n;
}

// Cut in the middle, so that both ends of a long name can be read.
std::string fitted(const std::string& s, std::size_t width) {
    if (columns(s) <= width || width < 8) return s;
    std::vector<std::string> characters;
    for (char c : s) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) characters.emplace_back();
        if (!characters.empty()) characters.back() += c;
    }
    const std::size_t head = (width - 2) / 2, tail = width - 2 - head;
    std::string result;
    for (std::size_t i = 0; i < head; i++) result += characters[i];
    result += "..";
    for (std::size_t i = characters.size() - tail; i < characters.size(); i++) {
        result += characters[i];
    }
    return result;
}

std::string padded(const std::string& s, std::size_t width) {
    const std::size_t n = columns(s);
    return n >= width ? s : s + std::string(width - n, ' ');
}

std::string milliseconds(double ms) {
    if (ms >= 100000) return text("%.0f s", ms / 1000);
    if (ms >= 10000) return text("%.1f s", ms / 1000);
    return text("%.0f ms", ms);
}

std::string bytes(long long n) {
    if (n < 0) return "?";
    if (n >= 10 * 1024 * 1024) return text("%.0f MB", static_cast<double>(n) / (1024 * 1024));
    if (n >= 1024 * 1024) return text("%.1f MB", static_cast<double>(n) / (1024 * 1024));
    return text("%.0f KB", static_cast<double>(n) / 1024);
}

class TextReport {
public:
    TextReport(const RunModel& run, const ReportOptions& options) : run_(run), options_(options) {}

    std::string write(const std::string& captureName) {
        aboutTheRun(captureName);
        threads();
        methods();
        classes();
        return out_;
    }

private:
    std::string bold(const std::string& s) const {
        return options_.colour ? "\033[1m" + s + "\033[0m" : s;
    }
    std::string yellow(const std::string& s) const {
        return options_.colour ? "\033[33m" + s + "\033[0m" : s;
    }
    // Ten columns for 100 %.
    std::string bar(double share) const {
        const auto cells =
            std::min<std::size_t>(10, static_cast<std::size_t>(std::lround(share / 10)));
        std::string result;
        for (std::size_t i = 0; i < cells; i++) result += options_.unicode ? "\u2588" : "#";
        return padded(result, 10);
    }
    std::string ms(long long samples) const {
        return milliseconds(static_cast<double>(samples) * run_.sampleMs());
    }
    void line(const std::string& s) { out_ += s + "\n"; }

    void aboutTheRun(const std::string& captureName) {
        const RunFacts& f = run_.facts();
        line(bold("Run") + "      " + printable(f.server.empty() ? f.command : f.server) +
             text("  (process %lld, %s)", f.processId, printable(captureName).c_str()));
        line("JVM      " + printable(f.jvm) + " " + printable(f.jvmVersion) +
             text(", %lld bit, %lld processors", f.bits, f.processors));
        line(text("Time     %.1f s, %lld cycles of %.2f ms, %lld polls, %lld records",
                  run_.elapsedMs() / 1000, run_.cycles(), run_.meanCycleMs(), run_.polls(),
                  run_.records()));
        std::string cpu = f.nanoseconds
                              ? "Timed    " + ms(run_.busySamples()) +
                                    " of processor time in the methods chosen, call by call"
                              : "Samples  " + text("%lld busy = ", run_.busySamples()) +
                                    ms(run_.busySamples()) + " of processor time";
        if (run_.processCpuMs() >= 0) {
            cpu += "; the whole process used " +
                   milliseconds(static_cast<double>(run_.processCpuMs()));
        }
        line(cpu);
        std::string agent =
            "Agent    " + milliseconds(static_cast<double>(run_.samplerCpuUs()) / 1000) +
            " in the sampler, " + milliseconds(static_cast<double>(f.pollNs) / 1e6) + " in polls";
        if (run_.agentBytesHigh() >= 0) agent += ", at most " + bytes(run_.agentBytesHigh());
        line(agent);
        for (const std::string& warning : run_.warnings()) {
            line(yellow("Note     " + printable(warning)));
        }
        for (const auto& [code, message] : run_.errors()) {
            line(yellow(text("Error    code %lld: ", code) + printable(message)));
        }
        if (run_.cycles() == 0) {
            line(yellow("Note     there are no samples: the run was shorter than one poll, or "
                        "threads and methods were not asked for"));
        }
    }

    // Threads of one name and group are one row: pools would fill the page.
    struct Row {
        ThreadUse use;
        std::size_t count = 0;
    };

    void threads() {
        if (run_.threads().empty()) return;
        std::map<std::pair<std::string, std::string>, Row> byName;
        for (const ThreadUse& t : run_.threads()) {
            Row& row = byName[{t.name, t.group}];
            row.count++;
            row.use.name = t.name;
            row.use.group = t.group;
            row.use.own = t.own;
            row.use.busy += t.busy;
            row.use.blocked += t.blocked;
            row.use.waiting += t.waiting;
            row.use.cycles += t.cycles;
            row.use.allocatedObjects += t.allocatedObjects;
            row.use.allocatedBytes += t.allocatedBytes;
        }
        std::vector<Row> rows;
        rows.reserve(byName.size());
        for (auto& [name, row] : byName) rows.push_back(row);
        std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
            if (a.use.own != b.use.own) return b.use.own;
            return a.use.busy > b.use.busy;
        });
        const bool allocations = run_.countsAllocations();
        const std::size_t taken = allocations ? 76 : 56;
        const std::size_t nameWidth = options_.width > taken + 4 ? options_.width - taken : 24;
        line("");
        line(bold(padded("Threads", nameWidth) +
                  "   busy                     time blocked waiting" +
                  (allocations ? "   objects     bytes" : "")));
        std::size_t shown = 0;
        for (const Row& row : rows) {
            if (options_.top != 0 && shown == options_.top && !row.use.own) continue;
            if (!row.use.own) shown++;
            std::string name = printable(row.use.name);
            if (row.count > 1) name += text(" (x%zu)", row.count);
            if (!row.use.group.empty() && row.use.group != "main") {
                name += " [" + printable(row.use.group) + "]";
            }
            if (row.use.own) name += " (the profiler's)";
            const double share = percent(row.use.busy, run_.busySamples());
            line(padded(fitted(name, nameWidth), nameWidth) +
                 (row.use.own ? std::string("      -  ") + std::string(10, ' ')
                              : text(" %5.1f %% ", share) + bar(share)) +
                 text(" %9s %6.1f %% %6.1f %%", ms(row.use.busy).c_str(),
                      percent(row.use.blocked, row.use.cycles),
                      percent(row.use.waiting, row.use.cycles)) +
                 (allocations ? text(" %9lld %9s", row.use.allocatedObjects,
                                     bytes(row.use.allocatedBytes).c_str())
                              : std::string()));
        }
        more(rows.size(), shown, "threads");
    }

    void methods() {
        const std::vector<MethodUse> methods = chosenMethods(run_, options_);
        if (methods.empty()) return;
        line("");
        if (run_.facts().nanoseconds) {
            timedMethods(methods);
            return;
        }
        line(bold("    own                     time  with callees       time  Method"));
        for (const MethodUse& m : methods) {
            const double own = percent(m.own, run_.busySamples());
            const double total = percent(m.total, run_.busySamples());
            const std::string name = printable(readableClass(m.className)) + "." +
                                     printable(m.name) + printable(readableSignature(m.signature));
            const std::size_t left = options_.width > 90 ? options_.width - 58 : 60;
            line(text("%5.1f %% ", own) + bar(own) + text(" %9s", ms(m.own).c_str()) +
                 text("       %5.1f %%  %9s  ", total, ms(m.total).c_str()) + fitted(name, left));
        }
        more(run_.methods().size(), methods.size(), "methods");
    }

    // Processor time of the method itself and with what it calls; elapsed time of calls that are
    // not within another call of the same method.
    void timedMethods(const std::vector<MethodUse>& methods) {
        line(bold("       calls         own ms       total ms     elapsed ms  Method"));
        for (const MethodUse& m : methods) {
            const std::string name = printable(readableClass(m.className)) + "." +
                                     printable(m.name) + printable(readableSignature(m.signature));
            const std::size_t left = options_.width > 90 ? options_.width - 60 : 60;
            line(text("%12lld %14.3f %14.3f %14.3f  ", m.calls, static_cast<double>(m.own) * 1e-6,
                      static_cast<double>(m.total) * 1e-6,
                      static_cast<double>(m.elapsedNs) * 1e-6) +
                 fitted(name, left));
        }
        more(run_.methods().size(), methods.size(), "methods");
    }

    void classes() {
        const std::vector<ClassUse> classes = chosenClasses(run_, options_);
        if (classes.empty()) return;
        const bool allocations = run_.countsAllocations();
        line("");
        line(bold(std::string(allocations ? " allocated      freed       " : "      ") +
                  "live     bytes  Class"));
        const std::size_t left = options_.width > 90 ? options_.width - 44 : 60;
        for (const ClassUse& c : classes) {
            line((allocations ? text("%10lld %10lld ", c.allocated, c.freed) : std::string()) +
                 text("%10lld %9s  ", c.liveObjects, bytes(c.liveBytes).c_str()) +
                 fitted(printable(readableClass(c.name)), left));
        }
        more(run_.classes().size(), classes.size(), "classes");
    }

    void more(std::size_t all, std::size_t shown, const char* what) {
        if (all > shown) line(text("... and %zu more %s (--top 0 shows all)", all - shown, what));
    }

    const RunModel& run_;
    const ReportOptions& options_;
    std::string out_;
};

} // namespace

std::string writeTextReport(const RunModel& run, const std::string& captureName,
                            const ReportOptions& options) {
    return TextReport(run, options).write(captureName);
}

} // namespace prb
