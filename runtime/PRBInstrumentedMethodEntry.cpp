#include "runtime/PRBInstrumentedMethodEntry.h"

#include "collector/PRBJni.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBContext.h"
#include "core/PRBTrace.h"
#include "data/SnapHex.h"
#include "runtime/PRBClock.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

long long cpuNow() { return PRBContext::getThreadCPUTimeInMicroSeconds() * 1000; }

void logInconsistency(const char* text, const char* firstLabel, const long long& first,
                      const char* secondLabel, const long long& second) {
    if (!PRBTrace::isDebugEnabled(PRBComponent::kThread)) return;
    PRBTrace::writeToLog(text);
    SnapHex(reinterpret_cast<const unsigned char*>(&first), sizeof first, firstLabel, nullptr);
    SnapHex(reinterpret_cast<const unsigned char*>(&second), sizeof second, secondLabel, nullptr);
}

} // namespace

void PRBJavaThread::InstrumentedMethodEntry::reset(jobject firstObject, jobject secondObject,
                                                   InstrumentedMethodEntry* below) {
    first = firstObject;
    second = secondObject;
    parent = below;
    for (auto* counter : {&numSamples, &numSamplesContention, &numSamplesWait, &numSamplesActive,
                          &contentionEvents, &waitEvents})
        counter->store(0, kRelaxed);
    contentionTime.store(0, kRelaxed);
    waitTime.store(0, kRelaxed);
    childCpu.store(0, kRelaxed);
    childReal.store(0, kRelaxed);
    StartCPUTime = 0;
    startTime = {};
    // Pushed while the sampler counts, an entry has no times, also when it is popped later.
    timed = PRBContext::isCPUSamplingActive() == 0;
    if (!timed) return;
    StartCPUTime = cpuNow();
    startTime = PRBClock::now();
}

void PRBJavaThread::InstrumentedMethodEntry::simulateSamples(long long divisor) {
    const long long cpu = cpuNow();
    if (cpu < StartCPUTime) {
        logInconsistency("Found TotalCPUTime < StartCPUTime", "TotalCPUTime", cpu, "StartCPUTime",
                         StartCPUTime);
        return;
    }
    const long long totalCpu = cpu - StartCPUTime;
    const long long totalReal = TimeSpan(startTime, PRBClock::now());
    if (totalCpu > totalReal) {
        // The text says it the other way round; readers of logs know it so.
        logInconsistency("Found TotalCPUTime < TotalRealTime", "TotalCPUTime", totalCpu,
                         "TotalRealTime", totalReal);
        return;
    }
    if (divisor == 0) return;
    const auto store = [](std::atomic<unsigned>& counter, long long count) {
        counter.store(static_cast<unsigned>(count), kRelaxed);
    };
    store(numSamples, (totalReal - childReal.load(kRelaxed)) / divisor);
    store(numSamplesActive, (totalCpu - childCpu.load(kRelaxed)) / divisor);
    store(numSamplesContention, getNumSamplesContention() / divisor);
    store(numSamplesWait, getNumSamplesWait() / divisor);
    if (parent != nullptr) {
        parent->childReal.fetch_add(totalReal, kRelaxed);
        parent->childCpu.fetch_add(totalCpu, kRelaxed);
    }
}

void PRBJavaThread::InstrumentedMethodEntry::updateJavaInstrumentedMethodEntry(JNIEnv* env, jobject,
                                                                               jobject javaEntry) {
    PRBTraceScope trace(
        PRBTraceClass::kDetail, PRBComponent::kThread,
        "PRBJavaThread::InstrumentedMethodEntry::updateJavaInstrumentedMethodEntry");
    // 1 while the sampler counts; read once, as it may go active meanwhile.
    const long long divisor = PRBContext::getSimulatedSamplingDivisor();
    if (divisor != 1 && timed) simulateSamples(divisor);
    if (getNumSamples() != 0 && env != nullptr && javaEntry != nullptr) callJava(env, javaEntry);
}

void PRBJavaThread::InstrumentedMethodEntry::callJava(JNIEnv* env, jobject javaEntry) const {
    PRBJni::LocalFrame frame(env, 32);
    if (!frame.isOpen()) return;
    jclass cls = env->GetObjectClass(javaEntry);
    const PRBWorkloadCollector* collector =
        PRBWorkloadCollector::getWorkloadCollector(env, nullptr, 0);
    if (cls == nullptr || collector == nullptr) return;
    jmethodID method = PRBJni::findMethod(env, cls, collector->getNumCpuSamplesName(),
                                          collector->getNumCpuSamplesSignature());
    if (method == nullptr) return;
    env->CallVoidMethod(javaEntry, method, static_cast<jint>(getNumSamples()),
                        static_cast<jint>(getNumSamplesActive()),
                        static_cast<jint>(getNumSamplesContention()),
                        static_cast<jint>(getNumSamplesWait()));
    PRBJni::clearException(env);
}
