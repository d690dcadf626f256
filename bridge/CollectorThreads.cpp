#include "bridge/CollectorThreads.h"

#include <cstdio>
#include <memory>

#include <dirent.h>

namespace bridge {
namespace {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// The threads that decide on collections (JDK 17 to 25).
const char* const kThreads[] = {"ZDirector", "Shenandoah Cont"};

std::string nameOfTask(const char* tid) {
    const std::string path = std::string("/proc/self/task/") + tid + "/comm";
    const std::unique_ptr<FILE, CloseFile> file(fopen(path.c_str(), "re"));
    char line[64];
    if (!file || !fgets(line, sizeof line, file.get())) return {};
    std::string name = line;
    if (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

} // namespace

bool isEarlyEndingCollectorThread(const std::string& name) {
    for (const char* known : kThreads)
        if (name == known) return true;
    return false;
}

bool collectorEndsBeforeVmDeath() {
    const std::unique_ptr<DIR, CloseFolder> folder(opendir("/proc/self/task"));
    if (!folder) return false;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is nobody else's
    while (const dirent* entry = readdir(folder.get()))
        if (entry->d_name[0] != '.' && isEarlyEndingCollectorThread(nameOfTask(entry->d_name)))
            return true;
    return false;
}

} // namespace bridge
