#include "prb/LaunchPlan.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace prb {

namespace {

std::string escaped(const std::string& value) {
    std::string result;
    for (char c : value) {
        if (c == ',' || c == '\\') result += '\\';
        result += c;
    }
    return result;
}

std::string joined(const std::vector<std::string>& items) {
    std::string result;
    for (const std::string& item : items) result += (result.empty() ? "" : "+") + item;
    return result;
}

// 1.5 as "1.5", 2 as "2": no exponent, no trailing zeros.
std::string decimal(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", value);
    std::string result = text;
    while (result.back() == '0') result.pop_back();
    if (result.back() == '.') result.pop_back();
    return result;
}

// In JAVA_TOOL_OPTIONS blanks separate options unless they are quoted.
std::string quotedForToolOptions(const std::string& option) {
    if (option.find_first_of(" \t\n") == std::string::npos) return option;
    const char quote = option.find('"') == std::string::npos ? '"' : '\'';
    return quote + option + quote;
}

// Puts "-%p" before the extension of a name that several JVMs would otherwise share.
std::string perProcess(const std::string& name) {
    if (name.find("%p") != std::string::npos) return name;
    const fs::path path(name);
    return (path.parent_path() / (path.stem().string() + "-%p" + path.extension().string()))
        .string();
}

} // namespace

std::string bridgeOptions(const RunOptions& options, const std::string& capturePattern) {
    std::string text = "file=" + escaped(capturePattern);
    const auto add = [&text](const std::string& key, const std::string& value) {
        if (!value.empty()) text += "," + key + "=" + escaped(value);
    };
    add("name", options.name);
    add("data", joined(options.data));
    if (options.intervalMs) add("interval", std::to_string(*options.intervalMs));
    if (options.pollSeconds) add("poll", decimal(*options.pollSeconds));
    add("classes", joined(options.classes));
    add("methods", joined(options.methods));
    add("exact", joined(options.exact));
    if (options.quiet) add("quiet", "yes");
    for (const std::string& option : options.agent) {
        const std::size_t equals = option.find('=');
        add("agent." + option.substr(0, equals),
            equals == std::string::npos ? "" : option.substr(equals + 1));
    }
    for (const std::string& option : options.bridge) {
        const std::size_t equals = option.find('=');
        add(option.substr(0, equals), equals == std::string::npos ? "" : option.substr(equals + 1));
    }
    return text;
}

LaunchPlan planLaunch(const RunOptions& options, const std::vector<std::string>& command,
                      const std::string& folder, const std::string& workingFolder) {
    LaunchPlan plan;
    plan.argv = command;
    const std::string base = fs::path(command.front()).filename().string();
    const bool isJava = base == "java" || base == "javac";
    if (isJava && !options.javaHome.empty()) {
        plan.argv.front() = options.javaHome + "/bin/" + base;
    }
    plan.oneJvm = isJava;
    plan.jvm = isJava ? inspectJvm(plan.argv.front()) : likelyJvm(options.javaHome);

    std::string out = options.out.empty() ? "prb-%p.prb" : options.out;
    if (!plan.oneJvm) out = perProcess(out);
    plan.capturePattern = (fs::path(workingFolder) / out).lexically_normal().string();

    plan.problem = plan.jvm.problem();
    if (!plan.problem.empty()) return plan;
    plan.libraries = findLibraries(plan.jvm.bits, folder);
    plan.problem = plan.libraries.problem;
    if (!plan.problem.empty()) return plan;

    const std::string option =
        "-agentpath:" + plan.libraries.bridge + "=" + bridgeOptions(options, plan.capturePattern);
    if (base == "java") {
        plan.argv.insert(plan.argv.begin() + 1, option);
    } else if (base == "javac") {
        plan.argv.insert(plan.argv.begin() + 1, "-J" + option);
    } else {
        const char* present = std::getenv("JAVA_TOOL_OPTIONS"); // NOLINT(concurrency-mt-unsafe)
        plan.toolOptions = present == nullptr || *present == '\0' ? "" : std::string(present) + " ";
        plan.toolOptions += quotedForToolOptions(option);
    }
    return plan;
}

} // namespace prb
