#include "data/PRBAppServerSample.h"

#include "data/PRBProcessStat.h"
#include "data/SnapHex.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char* kComponent = PRBSampleCatalogue::kAppServer.component;
constexpr std::size_t kStatSize = 3840; // with the terminating zero

} // namespace

std::atomic<long long> PRBAppServerSample::numProcessors{0};

long long PRBAppServerSample::getProcessCPUUsage(unsigned pid) {
    PRBTraceScope trace(PRBTraceClass::kMember, kComponent,
                        "PRBAppServerSample::getProcessCPUUsage");
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%i/stat", static_cast<int>(pid));
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return trace.returns(-1LL);
    char text[kStatSize] = {};
    const ssize_t n = PRBProcessStat::readWhole(fd, text, sizeof text - 1);
    close(fd);
    if (n <= 0) return trace.returns(-1LL);
    if (PRBTrace::isDebugEnabled(kComponent))
        SnapHex(reinterpret_cast<const unsigned char*>(text), sizeof text, "stat file follows",
                nullptr);
    const long long usage = PRBProcessStat::cpuMilliseconds(text, pid);
    if (usage < 0 && PRBTrace::isDebugEnabled(kComponent))
        PRBTrace::log("Data read from %s is invalid", path);
    return trace.returns(usage);
}

long long PRBAppServerSample::getNumProcessors() {
    PRBTraceScope trace(PRBTraceClass::kMember, kComponent, "PRBAppServerSample::getNumProcessors");
    long long number = numProcessors.load(std::memory_order_relaxed);
    if (number == 0) {
        number = std::max(sysconf(_SC_NPROCESSORS_CONF), 1L);
        if (PRBTrace::isDebugEnabled(kComponent))
            PRBTrace::log("The number of detected processors is %i", static_cast<int>(number));
        numProcessors.store(number, std::memory_order_relaxed);
    }
    return trace.returns(number);
}

void PRBAppServerSample::saveRollUpValues(long long first, long long instantiates,
                                          long long transactions, long long committed,
                                          long long rolledBack, long long poolCreates,
                                          long long poolDestroys, long long poolAllocates,
                                          long long errors, long long requests) {
    Trace trace(description(), "saveRollUpValues");
    const struct {
        int key;
        long long value;
    } values[] = {{78, first},          {240, poolCreates},  {241, poolDestroys},
                  {242, poolAllocates}, {207, instantiates}, {129, transactions},
                  {130, committed},     {131, rolledBack},   {260, errors},
                  {261, requests}};
    for (const auto& [key, value] : values) saveNumericData(key, value);
}
