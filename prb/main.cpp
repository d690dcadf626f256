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
    runApp->add_option("--interval", run.intervalMs, "milliseconds between looks (10)")
        ->check(CLI::Range(1, 10000).description(""))
        ->type_name("MS");
    runApp->add_option("--poll", run.pollSeconds, "seconds between polls (1)")
        ->check(CLI::Range(0.05, 3600.0).description(""))
        ->type_name("SECONDS");
    runApp
        ->add_option("--data", run.data,
                     "what to collect, a list of: threads methods contention heap gc alloc errors "
                     "self (threads,methods,errors,self)")
        ->delimiter(',')
        ->check(CLI::IsMember(kData).description(""))
        ->type_name("LIST");
    runApp->add_option("--classes", run.classes, "classes to monitor: masks with * and ? (all)")
        ->delimiter(',')
        ->type_name("MASKS");
    runApp
        ->add_option("--methods", run.methods,
                     "methods to monitor: masks of class?method, as com.x.A?run or *run (all)")
        ->delimiter(',')
        ->type_name("MASKS");
    runApp->add_option("--out", run.out, "capture file; %p is the process id (prb-%p.prb)")
        ->type_name("FILE");
    runApp->add_option("--report", reportFile, "write the report to a file")->type_name("FILE");
    runApp->add_option("--name", run.name, "the server's name in the capture (the main class)")
        ->type_name("NAME");
    runApp->add_option("--java-home", run.javaHome, "the JDK whose java is meant")
        ->type_name("DIR");
    runApp->add_option("--agent", run.agent, "options of the agent itself, as debug=yes")
        ->type_name("KEY=VALUE");
    runApp->add_option("--bridge", run.bridge, "options of the bridge itself, as fork=plain")
        ->type_name("KEY=VALUE");
    runApp->add_flag("--quiet", run.quiet, "no report at the end unless --report is given");
    addReportOptions(*runApp, report);

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
    if (reportApp->parsed()) return prb::reportCommand(captureFile, report, stdout, stderr);
    if (decodeApp->parsed()) return prb::decodeCommand(captureFile, stdout, stderr);
    return prb::doctorCommand(javaHomes, stdout);
}
