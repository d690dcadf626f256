// Life and control of the sampler; what one cycle does is in PRBSamplerCycle.cpp.
#include "runtime/PRBProfilerCPUSampler.h"

#include "core/PRBContext.h"
#include "core/PRBTrace.h"
#include "data/PRBProfilerResourceSample.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBReclaimer.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <string>
#include <unistd.h>

std::atomic<PRBProfilerCPUSampler*> PRBProfilerCPUSampler::pSampler{nullptr};
std::atomic<PRBProfilerCPUSampler::ErrorSink> PRBProfilerCPUSampler::errorSink{nullptr};

namespace {

constexpr const char* kName = PRBComponent::kCpuSampler;
constexpr int kIdleWaitMs = 120000;
constexpr unsigned kEnvironmentalError = 43; // the return code of a failed pipe or fork

void debug(const char* text) {
    if (PRBTrace::isDebugEnabled(kName)) PRBTrace::writeToLog(text);
}

} // namespace

PRBProfilerCPUSampler* PRBProfilerCPUSampler::createBackgroundThread(JVMPI_Interface* jvmpi,
                                                                     unsigned int intervalMs) {
    return new PRBProfilerCPUSampler(jvmpi, intervalMs);
}

PRBProfilerCPUSampler::PRBProfilerCPUSampler(JVMPI_Interface* interface, unsigned int intervalMs)
    : PRBProfilerBackgroundThread(interface),
      interval(intervalMs),
      interruptLock("_InterruptSamplerRawMonitor", interface) {
    PRBTraceScope trace(PRBTraceClass::kMain, kName, "PRBProfilerCPUSampler constructor");
    pSampler.store(this, std::memory_order_release);
    PRBContext::samplerIdle.store(&idle, std::memory_order_release);
    char name[] = "PRB_CPUSampler_Thread";
    if (jvmpi != nullptr && jvmpi->CreateSystemThread != nullptr)
        jvmpi->CreateSystemThread(name, JVMPI_MAXIMUM_PRIORITY, launchBackgroundThread);
}

// REQUIRES: the thread has ended, or was never started.
PRBProfilerCPUSampler::~PRBProfilerCPUSampler() {
    PRBContext::samplerIdle.store(nullptr, std::memory_order_release);
    pSampler.store(nullptr, std::memory_order_release);
    releaseBuffers();
}

void PRBProfilerCPUSampler::launchBackgroundThread(void*) {
    PRBProfilerCPUSampler* sampler = pSampler.load(std::memory_order_acquire);
    if (sampler != nullptr) sampler->backgroundProcessing();
}

// ---- The thread's life ------------------------------------------------------------------------

void PRBProfilerCPUSampler::backgroundProcessing() {
    PRBTraceScope trace(PRBTraceClass::kMain, kName, "PRBProfilerCPUSampler::backgroundProcessing");
    terminated.store(0, std::memory_order_release);
    blockSigpipe();
    while (waitForActivation()) {
        debug("CPU Profiler to become active");
        forgetTimesOfThreads();
        createChildProcess();
        sampleUntilStopped();
        stopChildProcess();
    }
    PRBMonitorGuard guard(stoppedMonitor);
    terminated.store(1, std::memory_order_release);
    stoppedMonitor.post();
}

// A child that died closes its pipe: the next request would then kill the host.
void PRBProfilerCPUSampler::blockSigpipe() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

// False when the thread is to end.
bool PRBProfilerCPUSampler::waitForActivation() {
    for (;;) {
        {
            PRBMonitorGuard guard(stopRequestMonitor);
            idle.store(1, std::memory_order_release);
            if (isStopRequested()) return false;
            if (inactive.load(std::memory_order_acquire) == 0) {
                if (!stopNoted) {
                    // Under the monitor: a stop that comes now finds the thread active.
                    idle.store(0, std::memory_order_release);
                    return true;
                }
                // Switched off before this thread woke up.
                stopNoted = false;
                inactive.store(1, std::memory_order_release);
            }
        }
        // Or a zombie would be left for the length of the wait, which counts as a process.
        child.reapEnding();
        // A post that came since then ends the wait at once.
        stopRequestMonitor.wait(kIdleWaitMs);
        child.reap();
    }
}

void PRBProfilerCPUSampler::sampleUntilStopped() {
    const auto wanted = [this] {
        return !isStopRequested() && inactive.load(std::memory_order_acquire) == 0;
    };
    long long lastCycleMs = 0;
    while (wanted()) {
        const long long cpuStart = PRBContext::getThreadCPUTimeInMicroSeconds();
        long long sleepMs = static_cast<long long>(getInterval()) - lastCycleMs;
        if (sleepMs <= 0) sleepMs = 1;
        const unsigned suspended = suspendSeconds.load(std::memory_order_acquire);
        if (suspended != 0) {
            sleepMs = static_cast<long long>(suspended) * 1000;
            PRBTrace::log("sampler thread suspended for %i seconds", static_cast<int>(suspended));
        }
        pause(static_cast<int>(std::min<long long>(sleepMs, INT_MAX)));
        const long long cycleStart = PRBClock::toMillis(PRBClock::now());
        if (!wanted()) break;
        if (suspended != 0) {
            PRBTrace::log("sampler thread woken up after %i seconds", static_cast<int>(suspended));
            suspendSeconds.store(0, std::memory_order_release);
        }
        {
            PRBMonitorGuard guard(interruptLock);
            debug("Starting CPU Monitoring cycle");
            runCycle();
            debug("Finishing CPU Monitoring cycle");
        }
        // A clock that was set back must not make a sleep of the hours it was set back by.
        lastCycleMs = std::max(0LL, PRBClock::toMillis(PRBClock::now()) - cycleStart);
        cpuUsed.fetch_add(PRBContext::getThreadCPUTimeInMicroSeconds() - cpuStart,
                          std::memory_order_relaxed);
        PRBReclaimer::reclaim();
    }
}

// ---- Control ------------------------------------------------------------------------------------

int PRBProfilerCPUSampler::activateSampler(unsigned int intervalMs) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBProfilerCPUSampler::activateSampler");
    PRBMonitorGuard guard(stopRequestMonitor);
    const bool pending = stopNoted;
    stopNoted = false;
    if (pending) interval.store(intervalMs, std::memory_order_relaxed);
    if (idle.load() != 1 || inactive.load() != 1) return trace.returns(0);
    interval.store(intervalMs, std::memory_order_relaxed);
    inactive.store(0, std::memory_order_release);
    stopRequestMonitor.post();
    return trace.returns(1);
}

int PRBProfilerCPUSampler::deactivateSampler() {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBProfilerCPUSampler::deactivateSampler");
    PRBMonitorGuard guard(stopRequestMonitor);
    if (inactive.load() != 0) return trace.returns(0);
    if (idle.load() != 0) {
        stopNoted = true;
        return trace.returns(0);
    }
    inactive.store(1, std::memory_order_release);
    stopRequestMonitor.post();
    return trace.returns(1);
}

void PRBProfilerCPUSampler::withdrawDeactivation() {
    PRBMonitorGuard guard(stopRequestMonitor);
    if (idle.load() == 0 && inactive.load() == 1) inactive.store(0, std::memory_order_release);
}

void PRBProfilerCPUSampler::interruptSampler() { interruptLock.enter(1); }

void PRBProfilerCPUSampler::resumeSampler(unsigned int intervalMs) {
    cpuUsed.store(0, std::memory_order_relaxed);
    if (intervalMs != 0) interval.store(intervalMs, std::memory_order_relaxed);
    interruptLock.exit(1);
}

int PRBProfilerCPUSampler::tempSuspend(unsigned int seconds) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBProfilerCPUSampler::tempSuspend");
    unsigned none = 0;
    return trace.returns(suspendSeconds.compare_exchange_strong(none, seconds) ? 1 : 0);
}

long long PRBProfilerCPUSampler::getCPUUsedBySampler(long long elapsed) const {
    const long long used = cpuUsed.load(std::memory_order_relaxed);
    return elapsed == 0 || used == 0 ? 0 : used * 1000 / elapsed;
}

void PRBProfilerCPUSampler::getProfilerUsageStats(PRBProfilerResourceSample& sample) const {
    sample.saveNumericData(400, cpuUsed.load(std::memory_order_relaxed));
    sample.saveNumericData(403, cycleCount.load(std::memory_order_relaxed));
}

// ---- The child that the sampler sleeps by -------------------------------------------------------

void PRBProfilerCPUSampler::createChildProcess() {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBProfilerCPUSampler::createChildProcess");
    std::string failure;
    if (child.start(failure)) {
        if (PRBTrace::isDebugEnabled(kName))
            PRBTrace::log("New process %i created.\n", static_cast<int>(child.getPid()));
        return;
    }
    PRBTrace::writeToLog(failure.c_str());
    if (ErrorSink sink = errorSink.load(std::memory_order_acquire))
        sink(kEnvironmentalError, failure.c_str());
}

void PRBProfilerCPUSampler::pause(int ms) { child.pause(ms); }

void PRBProfilerCPUSampler::stopChildProcess() { child.stop(); }

FILE* PRBProfilerCPUSampler::openChildLogFile() {
    const pid_t pid = child.getPid();
    return PRBSamplerChild::openLogFile(pid != 0 ? pid : getpid());
}

void PRBProfilerCPUSampler::RunInChildProcess(int readFd, int writeFd, FILE* log) {
    PRBSamplerChild::run(readFd, writeFd, log);
}
