// The pass that turns what was measured into one Java byte array.
#ifndef PRB_COLLECTOR_PRBDATARETURN_H
#define PRB_COLLECTOR_PRBDATARETURN_H

#include "collector/PRBSampleList.h"
#include "collector/PRBThreadCollection.h"
#include "core/PRBReturnCode.h"
#include "jvmpi/jvmpi.h"

#include <cstdint>
#include <memory>
#include <sys/time.h>

class PRBMonitorGlobal;
class PRBProfilerResourceSample;
class PRBSample;
class PRBWorkloadCollector;

// A part of the collector: its gatherers and what is kept from one pass to the next. Runs on the
// polling Java thread, one pass at a time ("_DataReturn" is held by the caller). The sampler
// rests while counters are read and reset, and runs on however the pass ends.
//
// Every gatherer streams each sample to the end of the list at once, and answers the code of the
// step; the `extra` number of the Java side is passed through and unused.
class PRBDataReturn {
public:
    explicit PRBDataReturn(PRBWorkloadCollector& collector) : collector_(collector) {}

    // A local reference, or null; see PRBWorkloadCollector::sendBackData.
    jbyteArray sendBackData(JNIEnv* env, int extra, jobject request);

    // Thread id 0 means every thread. `busy` and `cycles` are the sampler's counts since the
    // pass before.
    PRBReturnCode returnThreadData(JNIEnv* env, int threadId, long long busy, long long cycles,
                                   int extra, PRBSampleList& list, PRBThreadCollection& threads);
    PRBReturnCode returnMethodData(JNIEnv* env, int threadId, long long busy, long long cycles,
                                   int extra, PRBSampleList& list, PRBThreadCollection& threads);
    PRBReturnCode returnContentionData(JNIEnv* env, int threadId, int extra, PRBSampleList& list,
                                       PRBThreadCollection& threads);
    PRBReturnCode returnHeapData(JNIEnv* env, int extra, PRBSampleList& list);
    PRBReturnCode returnGCData(JNIEnv* env, int extra, PRBSampleList& list);

    // All threads that are not the agent's own. Takes no monitor.
    std::unique_ptr<PRBThreadCollection> getAllThreads() const;
    // Throws std::bad_alloc when there is no memory, which ends the pass.
    static void saveSample(const PRBSample* sample, PRBSampleList& list);

    // From now on the time to the next pass counts.
    void noteStart();
    void setProcessId(int processId) { processId_ = processId; }
    int getProcessId() const { return processId_; }
    // Milliseconds of process CPU: at the last pass (-1: none yet or not known), and since the
    // pass before that (-1: there was none).
    long long getProcessCPUAtLastReturn() const { return processCpuAtLast_; }
    long long getProcessCPUSinceLastReturn() const { return processCpuSince_; }

private:
    struct Request; // what a pass is to gather
    struct Counts;  // of the sampler

    Request readRequest(JNIEnv* env, jobject request) const;
    PRBReturnCode gather(JNIEnv* env, int extra, const Request& wanted, PRBMonitorGlobal& monitor,
                         PRBSampleList& list);
    void readProcessCpu();
    long long elapsedSinceLastReturn(); // ns; 0 on the first
    Counts takeCounts(PRBMonitorGlobal& monitor, bool samplerIsRunning, long long elapsed,
                      PRBProfilerResourceSample& resources);
    static void saveErrors(PRBMonitorGlobal& monitor, const PRBReturnCode& rc, PRBSampleList& list);

    PRBWorkloadCollector& collector_;
    PRBSampleList::Kept kept_;
    timeval lastGCReturn_{};
    timeval lastReturn_{};
    long long processCpu_ = -1;
    long long processCpuSince_ = -1;
    long long processCpuAtLast_ = -1;
    std::uint32_t memoryInUse_ = 0;     // bytes, of the agent, at the pass
    std::uint32_t memoryHighWater_ = 0; // bytes
    int processId_ = 0;
};

#endif
