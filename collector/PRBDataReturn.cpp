#include "collector/PRBDataReturn.h"

#include "collector/PRBBufferConverter.h"
#include "collector/PRBJni.h"
#include "collector/PRBSamplerPause.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBMonitorGlobal.h"
#include "data/PRBAppServerSample.h"
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBProfilerError.h"
#include "data/PRBProfilerResourceSample.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBMonitorContentionEvent.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBUnloadedRecords.h"

#include <exception>

namespace {

// Keys that the pass itself writes.
constexpr int kThreadIdKey = 2;
constexpr int kProcessIdKey = 4;
constexpr int kTimeMsKey = 314;
constexpr int kProcessCpuKey = 316;
constexpr int kMemoryKey = 401;
constexpr int kMemoryHighWaterKey = 402;

// "Out of storage condition encountered": what a step answers that ran out of memory.
constexpr unsigned kNoStorage = 3;

bool debugging() { return PRBTrace::isDebugEnabled(PRBComponent::kCollector); }

void logSent(const char* what, const PRBReturnCode& rc) {
    if (debugging())
        PRBTrace::log("Sent %s sample to agent: RC = %i", what, static_cast<int>(unsigned{rc}));
}

jobjectID toId(int threadId) {
    return reinterpret_cast<jobjectID>(
        static_cast<std::uintptr_t>(static_cast<std::uint32_t>(threadId)));
}

// The id as it is sent: ids have 32 bits on every platform.
long long fromId(jobjectID id) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
}

// What the callbacks of a thread's records are given.
struct CallbackContext {
    PRBReturnCode& rc;
    int processId;
    const PRBJavaThread& thread;
    long long busy;
    long long cycles;
    PRBSampleList& list;
};

// A thrown exception must not cross the thread model, which holds its records meanwhile.
template <typename Step> int guarded(CallbackContext& context, Step&& step) {
    try {
        step();
    } catch (const std::exception&) {
        context.rc = kNoStorage;
    }
    return context.rc.OK() ? 1 : 0;
}

template <typename Sample, typename Fill> int saveRecord(void* context, Fill&& fill) {
    auto& pass = *static_cast<CallbackContext*>(context);
    return guarded(pass, [&] {
        Sample sample;
        sample.saveNumericData(kThreadIdKey, fromId(pass.thread.getThreadId()));
        sample.saveNumericData(kProcessIdKey, pass.processId);
        if (fill(sample, pass)) pass.list.save(sample);
    });
}

int methodFreqCallback(void* context, PRBJavaThread::MethodFrequency* record, long long now) {
    return saveRecord<PRBMethodUsageSample>(
        context, [&](PRBMethodUsageSample& sample, const CallbackContext& pass) {
            return record->createSample(sample, now, pass.busy, pass.cycles);
        });
}

int contentionCallback(void* context, PRBJavaThread::MonitorContentionEvent* event, long long now) {
    return saveRecord<PRBContentionSample>(
        context, [&](PRBContentionSample& sample, const CallbackContext&) {
            return event->createSample(sample, now);
        });
}

// The one thread that is asked for, or all of them, until the visitor says stop.
template <typename Visit>
void visitThreads(int threadId, const PRBThreadCollection& threads, Visit&& visit) {
    if (threadId != 0) {
        PRBJavaThread* thread = threads.findThread(toId(threadId));
        if (thread != nullptr && !thread->isThisBackgroundThread()) visit(*thread);
        return;
    }
    for (PRBJavaThread* thread : threads) {
        if (thread->isThisBackgroundThread()) continue;
        if (!visit(*thread)) return;
    }
}

} // namespace

struct PRBDataReturn::Request {
    std::uint32_t types;
    int threadId = 0; // 0: all
};

struct PRBDataReturn::Counts {
    long long busy = 0;
    long long cycles = 0;
};

// ---- The pass ----

jbyteArray PRBDataReturn::sendBackData(JNIEnv* env, int extra, jobject request) {
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    if (monitor == nullptr) return nullptr;
    PRBSampleList list(kept_);
    jbyteArray answer = nullptr;
    try {
        if (gather(env, extra, readRequest(env, request), *monitor, list).OK())
            answer = PRBBufferConverter::convertBufferCollectionToJavaByteArray(env, list);
    } catch (const std::exception&) {
        answer = nullptr; // no memory for it; the next pass has another chance
    }
    if ((collector_.getCollectionType() & PRBCollect::kThreads) != 0) monitor->purgeEndedThreads();
    // Unloaded classes and their methods, where nobody else would.
    PRBUnloadedRecords::release();
    PRBReclaimer::reclaim();
    return answer;
}

PRBDataReturn::Request PRBDataReturn::readRequest(JNIEnv* env, jobject request) const {
    Request wanted{collector_.getCollectionType()};
    if (request == nullptr) return wanted;
    PRBJni::LocalRef<jclass> cls(env, env->GetObjectClass(request));
    jmethodID getType = PRBJni::findMethod(env, cls.get(), "getType", "()J");
    jmethodID getThreadId = PRBJni::findMethod(env, cls.get(), "getThreadId", "()I");
    if (getType != nullptr) {
        const jlong type = env->CallLongMethod(request, getType);
        if (!PRBJni::clearException(env)) wanted.types = static_cast<std::uint32_t>(type);
    }
    if (getThreadId != nullptr) {
        const jint threadId = env->CallIntMethod(request, getThreadId);
        if (!PRBJni::clearException(env)) wanted.threadId = threadId;
    }
    return wanted;
}

PRBReturnCode PRBDataReturn::gather(JNIEnv* env, int extra, const Request& wanted,
                                    PRBMonitorGlobal& monitor, PRBSampleList& list) {
    const auto wants = [&](std::uint32_t bit) { return (wanted.types & bit) != 0; };
    PRBReturnCode rc;
    monitor.dumpMonitorStats();
    readProcessCpu();
    const long long elapsed = elapsedSinceLastReturn();
    PRBProfilerResourceSample resources;

    std::unique_ptr<PRBThreadCollection> threads;
    const auto snapshot = [&]() -> PRBThreadCollection& {
        if (threads == nullptr) threads = getAllThreads();
        return *threads;
    };
    {
        PRBSamplerPause pause(monitor.getCPUSampler());
        const Counts counts = takeCounts(monitor, pause.isPausing(), elapsed, resources);
        if (counts.cycles != 0 && wants(PRBCollect::kThreads)) {
            rc = returnThreadData(env, wanted.threadId, counts.busy, counts.cycles, extra, list,
                                  snapshot());
            logSent("ThreadData", rc);
        }
        if (counts.cycles != 0 && rc.OK() && wants(PRBCollect::kMethods)) {
            rc = returnMethodData(env, wanted.threadId, counts.busy, counts.cycles, extra, list,
                                  snapshot());
            logSent("MethodFrequency", rc);
        }
    }
    if (rc.OK() && wants(PRBCollect::kContention)) {
        rc = returnContentionData(env, wanted.threadId, extra, list, snapshot());
        logSent("Contention", rc);
    }
    threads.reset();
    if (rc.OK() && wants(PRBCollect::kHeap)) {
        rc = returnHeapData(env, extra, list);
        logSent("HeapData", rc);
    }
    // When the Java side collects garbage collection data itself, the agent sends none.
    const bool javaCollects = collector_.isGCCollectionActiveInWorkloadAnalysis(env);
    if (rc.OK() && wants(PRBCollect::kGarbageCollection) && !javaCollects) {
        rc = returnGCData(env, extra, list);
        logSent("GCData", rc);
    }
    if (rc.OK() && wants(PRBCollect::kProfilerErrors)) saveErrors(monitor, rc, list);
    if (rc.OK() && wants(PRBCollect::kResourceUsage)) {
        resources.saveNumericData(kMemoryKey, memoryInUse_);
        resources.saveNumericData(kMemoryHighWaterKey, memoryHighWater_);
        resources.saveNumericData(kProcessIdKey, processId_);
        saveSample(&resources, list);
        logSent("ResourceUsage", rc);
    }
    return rc;
}

void PRBDataReturn::saveErrors(PRBMonitorGlobal& monitor, const PRBReturnCode& rc,
                               PRBSampleList& list) {
    while (rc.OK()) {
        std::unique_ptr<PRBProfilerError> error(monitor.getNextProfilerErrorSample());
        if (error == nullptr) return;
        saveSample(error.get(), list);
        logSent("ProfError", rc);
    }
}

void PRBDataReturn::readProcessCpu() {
    processCpu_ = PRBAppServerSample::getProcessCPUUsage(static_cast<unsigned>(processId_));
    processCpuSince_ =
        processCpuAtLast_ >= 0 && processCpu_ >= 0 ? processCpu_ - processCpuAtLast_ : -1;
    processCpuAtLast_ = processCpu_;
}

long long PRBDataReturn::elapsedSinceLastReturn() {
    const timeval now = PRBClock::now();
    const bool isFirst = lastReturn_.tv_sec == 0 && lastReturn_.tv_usec == 0;
    const long long elapsed = isFirst ? 0 : PRBJavaThread::TimeSpan(lastReturn_, now);
    lastReturn_ = now;
    return elapsed;
}

void PRBDataReturn::noteStart() { lastReturn_ = PRBClock::now(); }

PRBDataReturn::Counts PRBDataReturn::takeCounts(PRBMonitorGlobal& monitor, bool samplerIsRunning,
                                                long long elapsed,
                                                PRBProfilerResourceSample& resources) {
    Counts counts;
    PRBProfilerCPUSampler* sampler = monitor.getCPUSampler();
    if (samplerIsRunning) {
        counts.busy = sampler->getAndResetCPUBusyCount();
        counts.cycles = sampler->getAndResetCycleCount();
        sampler->getProfilerUsageStats(resources);
    } else if (sampler == nullptr) {
        const long long divisor = monitor.getSimulatedSamplingDivisor();
        if (divisor != 0) {
            counts.busy = PRBJavaThread::getAndResetCPUTime() / divisor;
            counts.cycles = elapsed / divisor;
        }
    }
    memoryInUse_ = PRBMemoryManager::getCurrentAllocation();
    memoryHighWater_ = PRBMemoryManager::getHighWaterMark();
    if (samplerIsRunning && elapsed != 0 && debugging()) {
        PRBTrace::log("CPU Used by the CPU Sampler is %i",
                      static_cast<int>(sampler->getCPUUsedBySampler(elapsed)));
    }
    return counts;
}

// ---- The gatherers ----

PRBReturnCode PRBDataReturn::returnThreadData(JNIEnv*, int threadId, long long busy,
                                              long long cycles, int, PRBSampleList& list,
                                              PRBThreadCollection& threads) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::returnThreadData");
    PRBReturnCode rc;
    visitThreads(threadId, threads, [&](PRBJavaThread& thread) {
        PRBCThreadSample sample;
        sample.saveNumericData(kProcessIdKey, processId_);
        sample.saveNumericData(kProcessCpuKey, processCpu_);
        if (thread.createSample(sample, busy, cycles)) saveSample(&sample, list);
        return rc.OK();
    });
    return trace.returns(rc);
}

PRBReturnCode PRBDataReturn::returnMethodData(JNIEnv*, int threadId, long long busy,
                                              long long cycles, int, PRBSampleList& list,
                                              PRBThreadCollection& threads) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::returnMethodData");
    PRBReturnCode rc;
    visitThreads(threadId, threads, [&](PRBJavaThread& thread) {
        CallbackContext context{rc, processId_, thread, busy, cycles, list};
        thread.getMethodUsageSamples(methodFreqCallback, &context, nullptr);
        return rc.OK();
    });
    return trace.returns(rc);
}

PRBReturnCode PRBDataReturn::returnContentionData(JNIEnv*, int threadId, int, PRBSampleList& list,
                                                  PRBThreadCollection& threads) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::returnContentionData");
    PRBReturnCode rc;
    visitThreads(threadId, threads, [&](PRBJavaThread& thread) {
        CallbackContext context{rc, processId_, thread, 0, 0, list};
        thread.getContentionSamples(contentionCallback, &context);
        return true;
    });
    return trace.returns(rc);
}

PRBReturnCode PRBDataReturn::returnHeapData(JNIEnv*, int, PRBSampleList& list) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::returnHeapData");
    return trace.returns(collector_.getHeapData().returnHeapData(collector_, processId_, list));
}

PRBReturnCode PRBDataReturn::returnGCData(JNIEnv*, int, PRBSampleList& list) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::returnGCData");
    const timeval now = PRBClock::now();
    const bool isFirst = lastGCReturn_.tv_sec == 0 && lastGCReturn_.tv_usec == 0;
    const long long elapsed = isFirst ? 0 : PRBJavaThread::TimeSpan(lastGCReturn_, now);
    lastGCReturn_ = now;
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    if (monitor == nullptr) return trace.returns(PRBReturnCode());
    PRBGarbageCollectionSample sample;
    sample.saveNumericData(kProcessIdKey, processId_);
    sample.saveNumericData(kTimeMsKey, PRBClock::toMillis(now));
    PRBReturnCode rc = monitor->createSample(sample, elapsed);
    if (rc.OK()) saveSample(&sample, list);
    return trace.returns(rc);
}

std::unique_ptr<PRBThreadCollection> PRBDataReturn::getAllThreads() const {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::getAllThreads");
    return std::make_unique<PRBThreadCollection>();
}

void PRBDataReturn::saveSample(const PRBSample* sample, PRBSampleList& list) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kCollector,
                        "PRBWorkloadCollector::saveSample");
    list.save(*sample);
}
