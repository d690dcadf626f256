// prb: profiles a Java program in one command and shows what the agent found.
#include "prb/Commands.h"

#include <CLI/CLI.hpp>
#include <cstring>

namespace {

const char* const kFooter =
    "Examples:\n"
    "  prb run -- java -jar server.jar            profile a program, then show the report\n"
    "  prb run --interval 5 --out a.prb -- java -cp app.jar com.example.Main\n"
    "  prb run --report build.txt -- mvn package  a command that starts several JVMs\n"
    "  prb attach 4711 --seconds 60               profile a JVM that is running\n"
    "  prb report a.prb --top 50 --sort total\n"
    "  prb report a.prb --format json\n"
    "  prb doctor                                 what works on this machine";

const std::map<std::string, prb::Format> kFormats = {
    {"text", prb::Format::kText}, {"json", prb::Format::kJson}, {"csv", prb::Format::kCsv}};
const std::map<std::string, prb::Sort> kSorts = {
    {"own", prb::Sort::kOwn}, {"total", prb::Sort::kTotal}, {"name", prb::Sort::kName}};
const std::vector<std::string> kData = {"threads", "methods", "contention", "heap",
                                        "gc",      "alloc",   "errors",     "self"};

void addReportOptions(CLI::App& app, prb::ReportOptions& options) {
    app.add_option("--format", options.format, "text, json or csv (text)")
        ->transform(CLI::CheckedTransformer(kFormats).description(""))
        ->type_name("FORMAT");
    app.add_option("--top", options.top, "rows of each table; 0 shows all (20)")
        ->type_name("N")
        ->each([&options](const std::string&) { options.topGiven = true; });
    app.add_option("--sort", options.sort, "methods by own, total or name (own)")
        ->transform(CLI::CheckedTransformer(kSorts).description(""))
        ->type_name("ORDER");
}

void addCollectionOptions(CLI::App& app, prb::RunOptions& options) {
    app.add_option("--interval", options.intervalMs, "milliseconds between looks (10)")
        ->check(CLI::Range(1, 10000).description(""))
        ->type_name("MS");
    app.add_option("--poll", options.pollSeconds, "seconds between polls (1)")
        ->check(CLI::Range(0.05, 3600.0).description(""))
        ->type_name("SECONDS");
    app.add_option("--data", options.data,
                   "what to collect, a list of: threads methods contention heap gc alloc errors "
                   "self (threads,methods,errors,self)")
        ->delimiter(',')
        ->check(CLI::IsMember(kData).description(""))
        ->type_name("LIST");
    app.add_option("--classes", options.classes, "classes to monitor: masks with * and ? (all)")
        ->delimiter(',')
        ->type_name("MASKS");
    app.add_option("--methods", options.methods,
                   "methods to monitor: masks of class?method, as com.x.A?run or *run (all)")
        ->delimiter(',')
        ->type_name("MASKS");
    app.add_option("--out,--output", options.out, "capture file; %p is the process id (prb-%p.prb)")
        ->type_name("FILE");
    app.add_option("--name", options.name, "the server's name in the capture (the main class)")
        ->type_name("NAME");
    app.add_option("--agent", options.agent, "options of the agent itself, as debug=yes")
        ->type_name("KEY=VALUE");
    app.add_option("--bridge", options.bridge, "options of the bridge itself, as fork=plain")
        ->type_name("KEY=VALUE");
    app.add_flag("--quiet", options.quiet, "no report at the end unless --report is given");
}

} // namespace

int main(int argc, char** argv) {
    // Everything behind the first -- is the user's command, whatever it looks like.
    std::vector<std::string> command;
    int ours = argc;
    bool separated = false;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--") == 0) {
            ours = i;
            separated = true;
            command.assign(argv + i + 1, argv + argc);
            break;
        }
    }

    CLI::App app{"Profiles Java programs: threads, methods, and what they wait for.", "prb"};
    app.set_version_flag("--version", "prb " PRB_VERSION);
    app.require_subcommand(1);
    app.footer(kFooter);

    prb::RunOptions run;
    prb::ReportOptions report;
    std::string reportFile, captureFile;
    std::vector<std::string> javaHomes;

    CLI::App* runApp = app.add_subcommand("run", "profile a command and report on it");
    runApp->footer("The command stands behind --. Its output, input and exit code stay its own; "
                   "the report\ngoes to standard error, or to a file with --report.");
    addCollectionOptions(*runApp, run);
    runApp->add_option("--report", reportFile, "write the report to a file")->type_name("FILE");
    runApp
        ->add_option("--exact", run.exact,
                     "methods to time call by call: masks of CLASS or CLASS:METHOD, as "
                     "com.x.Price:compute; the program runs interpreted and much slower")
        ->delimiter(',')
        ->type_name("MASKS");
    runApp->add_option("--java-home", run.javaHome, "the JDK whose java is meant")
        ->type_name("DIR");
    addReportOptions(*runApp, report);

    int pid = 0;
    double seconds = 0;
    bool recompile = false;
    CLI::App* attachApp = app.add_subcommand("attach", "profile a JVM that is running");
    attachApp->footer("Ctrl-C, --seconds or the program's end end the profile; the report follows "
                      "and the program goes on.");
    attachApp->add_option("PID", pid, "the process")->required()->check(CLI::PositiveNumber);
    attachApp->add_option("--seconds", seconds, "how long (until Ctrl-C)")
        ->check(CLI::Range(0.1, 1e7).description(""))
        ->type_name("N");
    attachApp->add_flag("--recompile", recompile,
                        "have code compiled before compiled again, so that inlined methods are "
                        "told apart (Java 17); the program is slower for some seconds");
    addCollectionOptions(*attachApp, run);
    attachApp->add_option("--report", reportFile, "write the report to a file")->type_name("FILE");
    addReportOptions(*attachApp, report);

    CLI::App* detachApp =
        app.add_subcommand("detach", "end the profile of a running JVM, which goes on");
    detachApp->add_option("PID", pid, "the process")->required()->check(CLI::PositiveNumber);

    CLI::App* reportApp = app.add_subcommand("report", "report on a capture file");
    reportApp->add_option("FILE", captureFile, "the capture")->required();
    addReportOptions(*reportApp, report);

    CLI::App* decodeApp =
        app.add_subcommand("decode", "print every record of a capture as a line of JSON");
    decodeApp->add_option("FILE", captureFile, "the capture")->required();

    CLI::App* doctorApp = app.add_subcommand(
        "doctor", "say what works on this machine, and what to do about the rest");
    doctorApp->add_option("--java-home", javaHomes, "a JDK to try (those found)")->type_name("DIR");

    try {
        app.parse(ours, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? prb::kOk : prb::kBadUsage;
    }

    if (runApp->parsed()) {
        if (command.empty()) {
            std::fprintf(stderr, "prb: give the command to profile behind --, as in: "
                                 "prb run -- java -jar server.jar\n");
            return prb::kBadUsage;
        }
        return prb::runCommand(run, report, reportFile, command);
    }
    if (separated) {
        std::fprintf(stderr, "prb: only 'prb run' takes a command behind --\n");
        return prb::kBadUsage;
    }
    if (recompile) run.bridge.emplace_back("recompile=yes");
    if (attachApp->parsed()) return prb::attachCommand(pid, run, seconds, report, reportFile);
    if (detachApp->parsed()) return prb::detachCommand(pid);
    if (reportApp->parsed()) return prb::reportCommand(captureFile, report, stdout, stderr);
    if (decodeApp->parsed()) return prb::decodeCommand(captureFile, stdout, stderr);
    return prb::doctorCommand(javaHomes, stdout);
}
