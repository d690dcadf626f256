#include "prb/Libraries.h"

#include "prb/Jvm.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace prb {

namespace {

// Beside the program in a build or release folder; below lib/ of an installation.
constexpr const char* kPlaces64[] = {".", "64", "../lib/prbprof/64"};
constexpr const char* kPlaces32[] = {"../release-i386", "32", "../lib/prbprof/32"};

} // namespace

std::string programFolder() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? "." : self.parent_path().string();
}

Libraries findLibraries(int bits, const std::string& programFolder) {
    Libraries found;
    std::error_code error;
    const auto look = [&](const char* place) {
        const fs::path folder = (fs::path(programFolder) / place).lexically_normal();
        found.searched.push_back(folder.string());
        const fs::path bridge = folder / "libprbbridge.so";
        if (!fs::exists(bridge, error) || elfBits(bridge.string()) != bits) return false;
        found.folder = fs::weakly_canonical(folder, error).string();
        found.bridge = (fs::path(found.folder) / "libprbbridge.so").string();
        found.agent = (fs::path(found.folder) / "libprbprof.so").string();
        found.jar = (fs::path(found.folder) / "prbprof.jar").string();
        return true;
    };
    bool any = false;
    if (bits == 32) {
        for (const char* place : kPlaces32) {
            if ((any = look(place))) break;
        }
    } else {
        for (const char* place : kPlaces64) {
            if ((any = look(place))) break;
        }
    }
    if (!any) {
        found.problem = "no " + std::to_string(bits) + "-bit libprbbridge.so found; looked in";
        for (const std::string& place : found.searched) found.problem += " " + place;
        found.problem += bits == 32 ? "; build it with: cmake --preset release-i386 && "
                                      "cmake --build --preset release-i386"
                                    : "; build it with: cmake --preset release && "
                                      "cmake --build --preset release";
    } else {
        for (const std::string& file : {found.agent, found.jar}) {
            if (!fs::exists(file, error)) {
                found.problem = file + " is missing beside the bridge; build or install it again";
                break;
            }
        }
    }
    return found;
}

} // namespace prb
