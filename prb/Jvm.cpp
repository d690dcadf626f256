#include "prb/Jvm.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace fs = std::filesystem;

namespace prb {

namespace {

// Where libjvm.so lies below a home, newest layout first; 8 has it below jre/lib/<cpu>.
constexpr const char* kLibraryPlaces[] = {
    "lib/server/libjvm.so",          "jre/lib/amd64/server/libjvm.so", "lib/amd64/server/libjvm.so",
    "jre/lib/i386/server/libjvm.so", "lib/i386/server/libjvm.so",      "lib/client/libjvm.so",
};

std::string valueOf(const std::string& line, std::string_view key) {
    if (line.rfind(key, 0) != 0 || line.size() <= key.size() || line[key.size()] != '=') return {};
    std::string value = line.substr(key.size() + 1);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    return value;
}

int featureOf(const std::string& version) {
    // "1.8.0_392" is 8; "17.0.15" is 17.
    const std::string rest = version.rfind("1.", 0) == 0 ? version.substr(2) : version;
    return std::atoi(rest.c_str());
}

// Does the file hold the text? Read in blocks that overlap by the text's length.
bool fileContains(const std::string& path, std::string_view text) {
    std::ifstream in(path, std::ios::binary);
    std::string block;
    std::array<char, 1 << 16> buffer;
    while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0) {
        block.append(buffer.data(), static_cast<std::size_t>(in.gcount()));
        if (block.find(text) != std::string::npos) return true;
        if (block.size() > text.size()) block.erase(0, block.size() - text.size());
    }
    return false;
}

// Version and kind, from what lies in the home.
void readHome(Jvm& jvm) {
    if (!jvm.library.empty()) jvm.hotspot = fileContains(jvm.library, "gHotSpotVMStructs");
    for (const char* place : {"release", "../release"}) {
        std::ifstream release(fs::path(jvm.home) / place);
        for (std::string line; std::getline(release, line);) {
            const std::string version = valueOf(line, "JAVA_VERSION");
            if (!version.empty()) jvm.version = version;
        }
        if (!jvm.version.empty()) break;
    }
    jvm.feature = featureOf(jvm.version);
}

} // namespace

int elfBits(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::array<char, 5> ident{};
    if (!in.read(ident.data(), ident.size())) return 0;
    if (std::string_view(ident.data(), 4) != "\x7f"
                                             "ELF") {
        return 0;
    }
    return ident[4] == 1 ? 32 : ident[4] == 2 ? 64 : 0; // EI_CLASS of elf(5)
}

std::string findOnPath(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): one thread
    std::string_view rest = path == nullptr ? "" : path;
    while (!rest.empty()) {
        const std::size_t colon = rest.find(':');
        const std::string dir(rest.substr(0, colon));
        rest = colon == std::string_view::npos ? "" : rest.substr(colon + 1);
        std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        std::error_code ignored;
        if (access(candidate.c_str(), X_OK) == 0 && !fs::is_directory(candidate, ignored)) {
            return candidate;
        }
    }
    return {};
}

Jvm inspectJvm(const std::string& executable) {
    Jvm jvm;
    std::error_code error;
    const fs::path real = fs::canonical(findOnPath(executable), error);
    if (error) return jvm;
    jvm.executable = real.string();
    jvm.home = real.parent_path().parent_path().string();
    for (const char* place : kLibraryPlaces) {
        const fs::path library = fs::path(jvm.home) / place;
        if (fs::exists(library, error)) {
            jvm.library = library.string();
            break;
        }
    }
    jvm.bits = elfBits(jvm.library.empty() ? jvm.executable : jvm.library);
    readHome(jvm);
    return jvm;
}

Jvm inspectLibrary(const std::string& library) {
    Jvm jvm;
    jvm.library = library;
    jvm.bits = elfBits(library);
    // lib/server/libjvm.so, or lib/<cpu>/server/libjvm.so in old ones.
    fs::path home = fs::path(library).parent_path().parent_path().parent_path();
    if (home.filename() == "lib") home = home.parent_path();
    jvm.home = home.string();
    readHome(jvm);
    return jvm;
}

Jvm likelyJvm(const std::string& javaHome) {
    if (!javaHome.empty()) return inspectJvm(javaHome + "/bin/java");
    const char* home = std::getenv("JAVA_HOME"); // NOLINT(concurrency-mt-unsafe): one thread
    if (home != nullptr && *home != '\0') return inspectJvm(std::string(home) + "/bin/java");
    return inspectJvm("java");
}

std::string Jvm::problem() const {
    if (executable.empty()) return "there is no such java; name one with --java-home";
    if (library.empty()) {
        return executable + " is not the java of a JDK (no libjvm.so beside it); name the JDK "
                            "with --java-home";
    }
    if (!hotspot) {
        return library + " is not a HotSpot VM; prbprof works in HotSpot 17 and newer";
    }
    if (feature != 0 && feature < 17) {
        return "this JVM is version " + version + "; prbprof works in HotSpot 17 and newer";
    }
    return {};
}

} // namespace prb
