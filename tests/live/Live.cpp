#include "tests/live/Live.h"

#include "prb/Jvm.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace live {

namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) result.push_back(line);
    }
    return result;
}

std::vector<std::string> fromEnvironmentScript(const char* function) {
    const std::string script =
        std::string(". " PRB_SOURCE_DIR "/tools/env.sh; ") + function + " || true";
    return lines(prb::runCaptured({"bash", "-c", script}, 30).out);
}

Jdk describe(const std::string& home, const std::string& nameIfAbsent) {
    const prb::Jvm jvm = prb::inspectJvm(home + "/bin/java");
    Jdk jdk;
    jdk.home = home;
    jdk.bits = jvm.bits == 0 ? 64 : jvm.bits;
    jdk.name = jvm.feature == 0
                   ? nameIfAbsent
                   : "jdk" + std::to_string(jvm.feature) + "_" + std::to_string(jdk.bits);
    return jdk;
}

std::vector<Jdk> findJdks() {
    std::vector<Jdk> result;
    const auto first = [](const std::vector<std::string>& found, const char* absent) {
        return found.empty() ? std::string(absent) : found.front();
    };
    result.push_back(
        describe(first(fromEnvironmentScript("prb_java64"), "/no/64-bit/jdk"), "missing_64"));
    result.push_back(
        describe(first(fromEnvironmentScript("prb_java32"), "/no/32-bit/jdk"), "missing_32"));
    for (const std::string& home : fromEnvironmentScript("prb_more_javas")) {
        Jdk jdk = describe(home, "unknown");
        int same = 1;
        for (const Jdk& other : result) same += other.name == jdk.name ? 1 : 0;
        if (same > 1) jdk.name += "_" + std::to_string(same);
        result.push_back(jdk);
    }
    return result;
}

} // namespace

const std::vector<Jdk>& jdks() {
    static const auto* found = new std::vector<Jdk>(findJdks());
    return *found;
}

const Jdk& javac17() { return jdks().front(); }

Folder::Folder() {
    char name[] = "/tmp/prb-live-XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("cannot make a folder in /tmp");
    path_ = name;
    before_ = fs::current_path().string();
    fs::current_path(path_);
}

Folder::~Folder() {
    for (const std::string& file : files(".log")) {
        if (fs::path(file).filename().string().rfind("hs_err", 0) == 0) {
            ADD_FAILURE() << "the JVM crashed: " << file << "\n" << slurp(file).substr(0, 4000);
        }
    }
    std::error_code ignored;
    fs::current_path(before_, ignored);
    if (!testing::Test::HasFailure()) fs::remove_all(path_, ignored);
}

std::vector<std::string> Folder::files(const std::string& extension) const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(path_)) {
        if (entry.path().extension() == extension) result.push_back(entry.path().string());
    }
    return result;
}

std::string product(const std::string& file) { return PRB_BUILD_DIR "/" + file; }
std::string prb() { return product("prb"); }

std::string bridge(const Jdk& jdk) {
    return jdk.bits == 32 ? PRB_BUILD_DIR "/../release-i386/libprbbridge.so"
                          : product("libprbbridge.so");
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

prb::Captured run(const std::vector<std::string>& argv, int seconds) {
    return prb::runCaptured(argv, seconds);
}

Profiled profile(const Jdk& jdk, const std::vector<std::string>& options,
                 const std::vector<std::string>& java, int seconds) {
    Profiled result;
    result.capture = fs::absolute("live.prb").string();
    std::vector<std::string> argv = {prb(),      "run",          "--java-home", jdk.home,
                                     "--out",    result.capture, "--format",    "json",
                                     "--report", "live.json"};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.insert(argv.end(), {"--", "java"});
    argv.insert(argv.end(), java.begin(), java.end());
    result.result = run(argv, seconds);
    result.report = nlohmann::json::parse(slurp("live.json"), nullptr, false);
    return result;
}

} // namespace live
