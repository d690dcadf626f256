// The process-wide object of the agent: a face over the small parts of the core. Built once by
// InitProfiler, never destroyed, never rebuilt. No part includes this header; code that needs
// only the registries or the flags includes core/PRBContext.h.
#ifndef PRB_CORE_PRBMONITORGLOBAL_H
#define PRB_CORE_PRBMONITORGLOBAL_H

#include "core/PRBContext.h"
#include "core/PRBLookup.h"
#include "core/PRBMaskLists.h"
#include "core/PRBMemoryManager.h"
#include "core/PRBReturnCode.h"
#include "core/PRBTrace.h"
#include "jvmpi/jvmpi.h"

#include <cstdint>
#include <memory>
#include <string>

class PRBGarbageCollectionSample;
class PRBHeapDumpHandler;
class PRBJavaRawMonitor;
class PRBProfilerCPUSampler;
class PRBProfilerError;
class PRBSlist;
class PRBWorkloadCollector;

extern JavaVM* pJavaVM;                     // set by JNI_OnLoad
extern JVMPI_Interface* PRBjvmpi_interface; // filled by InitProfiler

class PRBMonitorGlobal : public PRBMemoryManager {
public:
    // The singleton; the arguments matter on the first call only. Without arguments: the
    // singleton or null.
    static PRBMonitorGlobal* getMonitorGlobal(JVMPI_Interface* jvmpi, const char* options,
                                              JavaVM* vm);
    static PRBMonitorGlobal* getMonitorGlobal();
    static JVMPI_Interface* getInterface() { return PRBContext::getInterface(); }
    static bool isProfilerActive(); // has the singleton been built?
    static int getBuildLevel() { return CurrentBuildLevel; }
    virtual ~PRBMonitorGlobal();

    // ---- Start-up options ----
    // Keeps a copy of the text that JVM_OnLoad was given.
    static void setStartupOptions(const char* options);
    // Each out-argument may be null: its keyword is then accepted and ignored.
    static PRBReturnCode parseStartupOptions(const char* options, std::uint16_t* port,
                                             int* traceLevel, PRBSlist** filter,
                                             std::string* configFile);
    // The "workanalysisconfig" value of the JVM_OnLoad text; empty without one.
    static std::string getConfigFileFromStartupParms();
    // Starts the sampler's thread and enables the start-up events. The sampler is built once.
    void completeInit();
    void setPRBWorkloadCollector(PRBWorkloadCollector* collector);
    PRBWorkloadCollector* getPRBWorkloadCollector() const;

    // ---- Events (JVMPI calls notify on the thread that the event happens on) ----
    static void notify(JVMPI_Event* event);

    // ---- Trace and log: see PRBTrace ----
    static bool isTraceEnabled(int traceClass, const char* component) {
        return PRBTrace::isTraceEnabled(traceClass, component);
    }
    static bool isDebugEnabled(const char* component) {
        return PRBTrace::isDebugEnabled(component);
    }
    static void writeToLog(const char* text, int lock) { PRBTrace::writeToLog(text, lock); }
    bool doesDebugFilterMatch(const char* component) const;
    // Dumps the event counters if trace class 0x1 is on, and zeroes them.
    void dumpMonitorStats();

    // ---- Registries and look-ups: see PRBContext and PRBLookup ----
    PRBJavaClass* getClassForClassID(jobjectID id) { return PRBLookup::getClassForClassID(id); }
    PRBJavaObjectAllocated* getObject(jobjectID id) { return PRBLookup::getObject(id); }
    PRBJavaClass* getClassForObject(jobjectID id) { return PRBLookup::getClassForObject(id); }
    jobjectID getClassIDForObject(jobjectID id) { return PRBLookup::getClassIDForObject(id); }
    PRBJavaClass* getClassForMethod(jmethodID id) { return PRBLookup::getClassForMethod(id); }
    jobjectID getClassIDForMethod(jmethodID id) { return PRBLookup::getClassIDForMethod(id); }
    PRBJavaThread* getThreadClass(JNIEnv* env) { return PRBLookup::getThreadClass(env); }
    // Takes the ended threads out of "_ThreadTable"; they are deleted when no pass can see them.
    void purgeEndedThreads();
    // A thread from a Java handle: its address, or a POSIX thread id that an earlier
    // registration noted. Null for anything else.
    static PRBJavaThread* resolveThreadHandle(JNIEnv* env, jlong handle);
    // Notes the calling thread's POSIX id for resolveThreadHandle; answers the id.
    static jlong registerThreadHandle(JNIEnv* env);

    // ---- Collection ----
    void setClassMask(const char* list) { PRBMaskLists::setClassMask(list); }
    void setMethodMask(const char* list) { PRBMaskLists::setMethodMask(list); }
    bool shouldClassBeMonitored(const char* n) { return PRBMaskLists::shouldClassBeMonitored(n); }
    bool shouldMethodBeMonitored(const char* n) { return PRBMaskLists::shouldMethodBeMonitored(n); }
    unsigned getDataBeingCollected() const { return PRBContext::getDataBeingCollected(); }
    void setDataBeingCollected(unsigned bits) { PRBContext::setDataBeingCollected(bits); }
    int isCPUSamplingActive() const { return PRBContext::isCPUSamplingActive(); }
    void setCPUSamplingInterval(unsigned ms) { PRBContext::setCPUSamplingInterval(ms); }
    long long getSimulatedSamplingDivisor() const {
        return PRBContext::getSimulatedSamplingDivisor();
    }
    static long long getThreadCPUTimeInMicroSeconds(long long threadHandle = 0) {
        return PRBContext::getThreadCPUTimeInMicroSeconds(threadHandle);
    }
    PRBProfilerCPUSampler* getCPUSampler() const;

    // ---- Data for the collector ----
    // Fills a garbage collection sample from the statistics; always OK.
    PRBReturnCode createSample(PRBGarbageCollectionSample& sample, long long interval);
    long long getGCCPUTime() const; // nanoseconds since the start, never reset
    // First in, first out; takes ownership. Bounded: the oldest is dropped above 1000.
    void newProfilerErrorSample(PRBProfilerError* error);
    PRBProfilerError* getNextProfilerErrorSample(); // null when empty; the caller owns it
    // One handler at a time; answers the one before. Dumps are given to it only on the thread
    // that registered it.
    PRBHeapDumpHandler* registerHeapDumpHandler(PRBHeapDumpHandler* handler);
    void deregisterHeapDumpHandler();
    // Held around register, request and deregister, so that two requests cannot mix.
    PRBJavaRawMonitor& getHeapDumpRequestMonitor();
    // Asks for the thread's death at its next method entry. 0, or 71, 72, 76.
    unsigned requestKillThread(jobjectID threadId);

    // ---- The VM's version ----
    std::string getJavaVersion(JNIEnv* env) const;
    PRBReturnCode determineJavaVersion(JNIEnv* env);
    std::string getJavaProperty(JNIEnv* env, const char* name, PRBReturnCode& rc);

private:
    PRBMonitorGlobal(JVMPI_Interface* jvmpi, const char* options, JavaVM* vm);
    int applyOptions(const char* options);
    static void traceParseExit(const PRBReturnCode& rc);
    PRBReturnCode findJavaVersion(JNIEnv* env) const;

    static const int CurrentBuildLevel;
    struct Parts; // the members, in the order in which they are built
    std::unique_ptr<Parts> parts_;
};

#endif
