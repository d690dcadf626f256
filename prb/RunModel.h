// What a capture says about one run, added up: the run itself, its threads and its methods.
//
// A cycle of the sampler charges at most one sample to each thread, so samples times the mean
// length of a cycle is processor time. The agent's own threads are kept apart: their samples
// are in no share.
#ifndef PRB_PRB_RUNMODEL_H
#define PRB_PRB_RUNMODEL_H

#include "anchors/PRBAnchorCollection.h"
#include "prb/Capture.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace prb {

struct ThreadUse {
    long long id = 0;
    std::string name, group;
    bool own = false; // the profiler's
    long long busy = 0, blocked = 0, waiting = 0;
    long long cycles = 0; // cycles of the polls in which the thread was seen
    long long allocatedObjects = 0, allocatedBytes = 0;
};

struct ClassUse {
    std::string name;                           // as the VM has it
    long long allocated = 0, freed = 0;         // objects, of the whole run
    long long liveObjects = -1, liveBytes = -1; // when the heap was last looked at; -1: never
};

struct MethodUse {
    std::string className, name, signature; // as the VM has them
    long long own = 0;                      // samples that found it running
    // Samples that found it on the stack. A recursive method is counted once per frame below
    // the top, so this is an upper bound for one; never more than all samples.
    long long total = 0;
    // Of methods that were timed call by call; own and total are then nanoseconds.
    long long calls = 0, elapsedNs = 0;
};

struct RunFacts {
    std::string server, jvm, jvmVersion, jvmVendor, javaVersion, command, system, bridgeVersion;
    std::string dataGiven, limits, options;
    long long processId = -1, bits = 0, processors = 0, agentLevel = 0;
    long long intervalMs = 0, pollMs = 0, startMs = 0, endMs = 0, elapsedNs = 0;
    long long pollNs = 0, bytesWritten = 0;
    bool nanoseconds = false;                  // values are timed, not sampled
    std::map<std::string, long long> counters; // the bridge's own, by name
};

class RunModel {
public:
    // Reads the capture to its end, or to its fault.
    explicit RunModel(Capture& capture);

    const RunFacts& facts() const { return facts_; }
    const std::vector<ThreadUse>& threads() const { return threads_; } // most busy first
    const std::vector<MethodUse>& methods() const { return methods_; } // most own first
    const std::vector<ClassUse>& classes() const { return classes_; }  // most allocated first
    bool countsAllocations() const { return allocations_; }

    long long records() const { return records_; }
    long long polls() const { return polls_; }
    long long cycles() const { return cycles_; }
    long long busySamples() const { return busy_; }           // of the program's threads
    long long ignoredSamples() const { return unmonitored_; } // busy outside the method masks
    double elapsedMs() const { return elapsedMs_; }           // from the start to the last poll
    double meanCycleMs() const;                               // 0 without a cycle
    // Processor time that a sample stands for: the mean cycle, weighted by the samples of each
    // poll, because cycles grow and shrink with the load of the machine.
    double sampleMs() const;
    long long samplerCpuUs() const { return samplerCpuUs_; }
    long long processCpuMs() const { return processCpuMs_; } // -1 when not told
    long long agentBytes() const { return agentBytes_; }
    long long agentBytesHigh() const { return agentBytesHigh_; }
    bool complete() const { return complete_; } // did the run end with its last record?
    const std::vector<std::string>& warnings() const { return warnings_; }
    const std::vector<std::pair<long long, std::string>>& errors() const { return errors_; }
    const std::map<int, long long>& recordsByType() const { return byType_; }

private:
    void read(std::string_view record, std::size_t offset);
    void readFacts(std::string_view record);
    void readThread(std::string_view record);
    void readMethod(std::string_view record);
    void readClass(std::string_view record);
    void readExact(const std::string& bridgeFacts);
    void keepExact();
    void endBatch();
    void gatherThreads();
    void finish(const Capture& capture);

    RunFacts facts_;
    std::vector<ThreadUse> threads_;
    std::vector<MethodUse> methods_;
    std::vector<ClassUse> classes_;
    std::map<std::string, ClassUse> byClass_;
    bool allocations_ = false;                // some record tells of them
    PRBAnchorCollection anchors_;             // what the threads did; a poll is an interval
    std::map<long long, ThreadUse> byThread_; // who they are, by their first names
    using MethodKey = std::tuple<std::string, std::string, std::string>;
    std::map<MethodKey, MethodUse> byMethod_;
    std::map<MethodKey, std::pair<long long, long long>> exact_; // calls, elapsed nanoseconds
    long long records_ = 0, polls_ = 0, cycles_ = 0, busy_ = 0, unmonitored_ = 0;
    long long samplerCpuUs_ = 0, agentBytes_ = -1, agentBytesHigh_ = -1;
    long long firstProcessCpuMs_ = -1, processCpuMs_ = -1;
    long long batchCycles_ = -1, lastSampleMs_ = -1;
    long long batchBusy_ = 0, batchStartMs_ = -1; // samples; the end of the poll before
    double elapsedMs_ = 0;
    double pricedMs_ = 0; // samples of each poll times its mean cycle
    long long pricedSamples_ = 0;
    bool complete_ = false;
    std::vector<std::string> warnings_;
    std::vector<std::pair<long long, std::string>> errors_;
    std::map<int, long long> byType_;
};

} // namespace prb

#endif
