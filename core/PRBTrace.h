// Tracing and the log, as every operation of the agent uses them: the two tests, one line into
// the log, and the entry/exit guard. With tracing off a guard costs one relaxed load and one
// branch; nothing is formatted before the tests.
#ifndef PRB_CORE_PRBTRACE_H
#define PRB_CORE_PRBTRACE_H

#include "core/PRBTraceFilter.h"

#include <atomic>

class InternalTraceTable;
class PRBLogFile;

namespace PRBTraceClass {
constexpr int kInternal = 0x1;    // internal diagnostics; no start-up value sets it
constexpr int kMain = 0x200;      // entry and exit of the main operations
constexpr int kDetail = 0x400;    // detail in the collector, the thread model and the sampler
constexpr int kMember = 0x800;    // entry and exit of ordinary members
constexpr int kFrequent = 0x1000; // the most frequent operations
} // namespace PRBTraceClass

// One name per class of the agent, eight characters as the filter option names them.
namespace PRBComponent {
constexpr const char* kMonitorGlobal = "PRBCMNGL";
constexpr const char* kLog = "PRBCLOG";
constexpr const char* kProfilerLog = "PRBCPLOG";
constexpr const char* kReturnCode = "PRBCRETC";
constexpr const char* kProfilerError = "PRBCPRER";
constexpr const char* kMask = "PRBCMASK";
constexpr const char* kMemoryManager = "PRBCMEMM";
constexpr const char* kRawMonitor = "PRBCJVRM";
constexpr const char* kThread = "PRBCJVTH";
constexpr const char* kClass = "PRBCJVCL";
constexpr const char* kMethod = "PRBCJVMT";
constexpr const char* kObject = "PRBCJVOB";
constexpr const char* kObjectAllocated = "PRBCJVOA";
constexpr const char* kCpuSampler = "PRBCCPUS";
constexpr const char* kCollector = "PRBCCLCO";
constexpr const char* kBuffer = "PRBCBUFF";
constexpr const char* kTransportable = "PRBCTRAN";
constexpr const char* kKeyValueSet = "PRBCKYST";
constexpr const char* kSample = "PRBCSAMP";
constexpr const char* kTime = "PRBCTIME";
constexpr const char* kUtilities = "PRBCUTIL";
constexpr const char* kResourceAnchor = "PRBCRSCA";
} // namespace PRBComponent

class PRBTrace {
public:
    // True when some bit of the class is in the trace level and the filter lets the component
    // pass; a null component passes every filter.
    static bool isTraceEnabled(int traceClass, const char* component) {
        if (__builtin_expect(level.load(std::memory_order_relaxed) == 0, 1)) return false;
        return isTraceEnabledSlow(traceClass, component);
    }
    // True when tracing is on at all and the filter lets the component pass.
    static bool isDebugEnabled(const char* component) {
        if (__builtin_expect(level.load(std::memory_order_relaxed) == 0, 1)) return false;
        return isDebugEnabledSlow(component);
    }

    // Appends one line to the log (or one entry to the internal trace table). Lost without
    // effect before the agent is initialised. `lock` 0 writes without the log's monitor.
    static void writeToLog(const char* text, int lock = 1);

    // Formats and writes one line of any length. User texts are arguments, never formats.
    __attribute__((format(printf, 1, 2))) static void log(const char* format, ...);

    // The lines that a scope writes; also for operations whose trace level changes while they
    // run, which test at entry and at exit for themselves.
    static void entryLine(const char* operation);
    static void exitLine(const char* operation);
    static void exitLine(const char* operation, int value);

    static bool doesDebugFilterMatch(const char* component) { return filter.matches(component); }

    // The trace level in force; 0 until the start-up options have set it.
    static std::atomic<int> level;
    // Where lines go and which components may write; borrowed, set once at start-up. Without a
    // log file and without a table lines are lost. A filter that is present but empty silences
    // every named component.
    static PRBTraceFilter filter;
    static std::atomic<PRBLogFile*> logFile;
    static std::atomic<InternalTraceTable*> table;

private:
    static bool isTraceEnabledSlow(int traceClass, const char* component);
    static bool isDebugEnabledSlow(const char* component);
};

// Writes "%s Entry" when made, and "%s Exit" (or, after `returns`, "%s Exit with return value
// %i") when it goes out of scope, if the trace class is on for the component.
class PRBTraceScope {
public:
    PRBTraceScope(int traceClass, const char* component, const char* operation)
        : operation_(PRBTrace::isTraceEnabled(traceClass, component) ? operation : nullptr) {
        if (__builtin_expect(operation_ != nullptr, 0)) entry();
    }
    ~PRBTraceScope() {
        if (__builtin_expect(operation_ != nullptr, 0)) exit();
    }
    PRBTraceScope(const PRBTraceScope&) = delete;
    PRBTraceScope& operator=(const PRBTraceScope&) = delete;

    // Notes the value for the exit line and hands it on: `return trace.returns(rc);`
    template <typename T> T returns(T value) {
        value_ = static_cast<int>(static_cast<long long>(value));
        hasValue_ = true;
        return value;
    }

private:
    void entry();
    void exit();
    const char* operation_;
    int value_ = 0;
    bool hasValue_ = false;
};

#endif
