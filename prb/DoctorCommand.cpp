#include "prb/ChildProcess.h"
#include "prb/Commands.h"
#include "prb/Signature.h"

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <set>
#include <unistd.h>

namespace fs = std::filesystem;

namespace prb {

namespace {

// The JDKs that a person may mean: the likely one and those below the usual folder.
std::vector<Jvm> findJvms(const std::vector<std::string>& homes) {
    std::vector<Jvm> found;
    std::set<std::string> seen;
    const auto add = [&](const Jvm& jvm) {
        if (!jvm.executable.empty() && seen.insert(jvm.executable).second) found.push_back(jvm);
    };
    if (!homes.empty()) {
        for (const std::string& home : homes) {
            Jvm jvm = inspectJvm(home + "/bin/java");
            if (jvm.executable.empty()) {
                jvm.executable = home + "/bin/java";
                found.push_back(jvm);
            } else {
                add(jvm);
            }
        }
        return found;
    }
    add(likelyJvm(""));
    std::error_code error;
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator("/usr/lib/jvm", error)) {
        folders.push_back(entry.path());
    }
    std::sort(folders.begin(), folders.end());
    for (const fs::path& folder : folders) {
        if (fs::exists(folder / "bin/java", error)) add(inspectJvm((folder / "bin/java").string()));
    }
    return found;
}

class Doctor {
public:
    Doctor(std::FILE* out, std::string folder) : out_(out), folder_(std::move(folder)) {}

    bool libraries(int bits) {
        const Libraries found = findLibraries(bits, folder_);
        if (!found.problem.empty()) {
            say(bits == 64, "%d-bit libraries: %s", bits, found.problem.c_str());
            return bits != 64;
        }
        std::fprintf(out_, "ok    %d-bit libraries in %s\n", bits, found.folder.c_str());
        return true;
    }

    // Runs `java -version` under the agent and reads the capture that must come out of it.
    bool tryJvm(const Jvm& jvm) {
        const std::string name = jvm.executable + " (" +
                                 (jvm.version.empty() ? "unknown version" : jvm.version) + ", " +
                                 std::to_string(jvm.bits) + " bit)";
        const std::string problem = jvm.problem();
        if (!problem.empty()) {
            say(false, "%s: %s", name.c_str(), problem.c_str());
            return true; // not ours to mend, and nothing is broken
        }
        const Libraries found = findLibraries(jvm.bits, folder_);
        if (!found.problem.empty()) {
            say(true, "%s: %s", name.c_str(), found.problem.c_str());
            return false;
        }
        char scratch[] = "/tmp/prb-doctor-XXXXXX";
        if (mkdtemp(scratch) == nullptr) {
            say(true, "cannot make a folder in /tmp");
            return false;
        }
        const std::string file = std::string(scratch) + "/doctor.prb";
        RunOptions options;
        const Captured result = runCaptured(
            {jvm.executable, "-agentpath:" + found.bridge + "=" + bridgeOptions(options, file),
             "-version"},
            60);
        const bool good = judge(name, file, result);
        std::error_code ignored;
        fs::remove_all(scratch, ignored);
        return good;
    }

private:
    bool judge(const std::string& name, const std::string& file, const Captured& result) {
        const std::size_t said = result.err.find("prbprof: ");
        if (said != std::string::npos) {
            const std::string line = result.err.substr(said, result.err.find('\n', said) - said);
            say(true, "%s: %s", name.c_str(), printable(line).c_str());
            return false;
        }
        if (result.exitCode != 0) {
            say(true, "%s: 'java -version' under the agent ended with code %d: %s", name.c_str(),
                result.exitCode, printable(result.err.substr(0, 400)).c_str());
            return false;
        }
        Capture capture(file);
        if (!capture.problem().empty()) {
            say(true, "%s: no capture came out of it: %s", name.c_str(), capture.problem().c_str());
            return false;
        }
        const RunModel run(capture);
        std::fprintf(out_, "ok    %s\n", name.c_str());
        std::fprintf(out_, "      data: %s\n", printable(run.facts().dataGiven).c_str());
        for (const std::string& warning : run.warnings()) {
            std::fprintf(out_, "      note: %s\n", printable(warning).c_str());
        }
        return run.complete();
    }

    __attribute__((format(printf, 3, 4))) void say(bool bad, const char* format, ...) {
        std::fputs(bad ? "BAD   " : "no    ", out_);
        va_list args;
        va_start(args, format);
        std::vfprintf(out_, format, args);
        va_end(args);
        std::fputc('\n', out_);
    }

    std::FILE* out_;
    std::string folder_;
};

} // namespace

int doctorCommand(const std::vector<std::string>& javaHomes, std::FILE* out) {
    Doctor doctor(out, programFolder());
    bool good = doctor.libraries(64);
    good = doctor.libraries(32) && good;
    const std::vector<Jvm> jvms = findJvms(javaHomes);
    if (jvms.empty()) {
        std::fprintf(out, "BAD   no java found; install one (Debian: openjdk-17-jdk-headless) or "
                          "name it with --java-home\n");
        good = false;
    }
    bool any = false;
    for (const Jvm& jvm : jvms) {
        any = any || jvm.problem().empty();
        good = doctor.tryJvm(jvm) && good;
    }
    if (!any && !jvms.empty()) {
        std::fprintf(out, "BAD   none of these JVMs can be profiled; install HotSpot 17 or newer "
                          "(Debian: openjdk-17-jdk-headless)\n");
        good = false;
    }
    std::fprintf(out, good ? "prbprof works on this machine\n"
                           : "something needs attention: see the lines marked BAD\n");
    return good ? kOk : kFailed;
}

} // namespace prb
