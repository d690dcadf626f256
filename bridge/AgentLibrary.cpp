#include "bridge/AgentLibrary.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

namespace bridge {
namespace {

void* loaded = nullptr;

constexpr int kBits = sizeof(void*) * 8;

// Reads the first bytes of a file. Answers how many, or -1 with errno.
ssize_t readStart(const std::string& path, unsigned char* bytes, size_t count) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return -1;
    const ssize_t got = read(file, bytes, count);
    const int error = errno;
    close(file);
    errno = error;
    return got;
}

std::string cannotRead(const char* what, const std::string& path, const char* option) {
    char room[256]; // the GNU form: the text may lie there or be constant
    const std::string reason = strerror_r(errno, room, sizeof room);
    return "cannot read " + path + " (" + reason + "): put " + what +
           " beside libprbbridge.so or name it by " + option + "=";
}

} // namespace

std::string AgentLibrary::locate(const std::string& named, const char* file) {
    if (!named.empty()) return named;
    Dl_info bridge{};
    if (dladdr(reinterpret_cast<void*>(&readStart), &bridge) == 0 || !bridge.dli_fname) return file;
    const std::string path = bridge.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(file) : path.substr(0, slash + 1) + file;
}

std::string AgentLibrary::checkJar(const std::string& path) {
    unsigned char start[4] = {};
    const ssize_t got = readStart(path, start, sizeof start);
    if (got < 0) return cannotRead(kJar, path, "jar");
    if (got < 4 || memcmp(start, "PK\3\4", 4) != 0)
        return path + " is not a jar file: put the release's " + kJar + " there";
    return {};
}

std::string AgentLibrary::checkLibrary(const std::string& path) {
    unsigned char start[EI_NIDENT] = {};
    const ssize_t got = readStart(path, start, sizeof start);
    if (got < 0) return cannotRead(kLibrary, path, "lib");
    if (got < EI_NIDENT || memcmp(start, ELFMAG, SELFMAG) != 0)
        return path + " is not a library: put the release's " + kLibrary + " there";
    const int bits = start[EI_CLASS] == ELFCLASS64 ? 64 : 32;
    if (bits != kBits)
        return path + " is a " + std::to_string(bits) + "-bit library in a " +
               std::to_string(kBits) + "-bit JVM: name the " + std::to_string(kBits) +
               "-bit one by lib=";
    return {};
}

std::string AgentLibrary::otherBridge(JavaVM* vm) {
    // The bridge puts its own function in the place of the VM's.
    Dl_info owner{};
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(vm->functions->GetEnv), &owner) == 0 || !owner.dli_fname ||
        dladdr(reinterpret_cast<void*>(&readStart), &self) == 0 ||
        owner.dli_fbase == self.dli_fbase)
        return {};
    const std::string path = owner.dli_fname;
    constexpr std::string_view kName = "libprbbridge.so";
    const size_t slash = path.rfind('/');
    return path.compare(slash + 1, std::string::npos, kName) == 0 ? path : std::string();
}

std::string AgentLibrary::load(const std::string& path) {
    // A plain name would be searched for in the system's folders.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    loaded = dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (loaded) return {};
    const char* reason = dlerror(); // NOLINT(concurrency-mt-unsafe): each thread has its own
    return std::string("cannot load the agent: ") + (reason ? reason : path.c_str()) +
           ": install the release's files again, or let the process have more memory (ulimit -v)";
}

std::string AgentLibrary::callOnLoad(JavaVM* vm, const std::string& text) {
    using OnLoad = jint(JNICALL*)(JavaVM*, char*, void*);
    const auto onLoad = reinterpret_cast<OnLoad>(dlsym(loaded, "JVM_OnLoad"));
    if (!onLoad) return "the library named by lib= has no JVM_OnLoad: name libprbprof.so";
    std::string copy = text; // the interface's text is not const
    const jint result = onLoad(vm, copy.data(), nullptr);
    if (result == 0) return {};
    return "the agent refuses to start (" + std::to_string(result) + "): check its options";
}

bool AgentLibrary::isLoaded() { return loaded != nullptr; }

void* AgentLibrary::handle() {
    if (!loaded) loaded = dlopen(kLibrary, RTLD_NOW | RTLD_NOLOAD);
    return loaded;
}

bool AgentLibrary::isRunOption(const char* argument) {
    static constexpr char kRun[] = "-Xrunprbprof";
    constexpr size_t length = sizeof kRun - 1;
    return argument && strncmp(argument, kRun, length) == 0 &&
           (argument[length] == '\0' || argument[length] == ':');
}

bool AgentLibrary::loadedByVm(const VmStructs& vm) {
    void* arguments = vm.staticAddress("Arguments", "_jvm_args_array");
    void* count = vm.staticAddress("Arguments", "_num_jvm_args");
    if (!arguments || !count) return false;
    char** all = *static_cast<char***>(arguments);
    for (int i = 0; all && i < *static_cast<int*>(count); i++)
        if (isRunOption(all[i])) return true;
    return false;
}

} // namespace bridge
