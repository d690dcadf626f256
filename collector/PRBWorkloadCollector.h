// The one object through which the Java side drives the agent: starts, changes and stops
// collections, and gathers what was measured.
#ifndef PRB_COLLECTOR_PRBWORKLOADCOLLECTOR_H
#define PRB_COLLECTOR_PRBWORKLOADCOLLECTOR_H

#include "collector/PRBDataReturn.h"
#include "collector/PRBEventCollection.h"
#include "collector/PRBHeapData.h"
#include "collector/PRBHeapDumpHandler.h"
#include "collector/PRBJavaCollector.h"
#include "core/PRBCollectable.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBReturnCode.h"
#include "jvmpi/jvmpi.h"

#include <atomic>
#include <cstdint>
#include <string>

// A face over the parts of this folder. Built by InitProfiler, never deleted, never stored in a
// container; its address is the handle that the Java side holds. Natives run on any Java thread:
// starting, stopping and gathering are serialised by the monitor "_DataReturn", the outermost of
// all locks, which no event handler takes.
class PRBWorkloadCollector : public PRBCollectable, public PRBHeapDumpHandler {
public:
    class ReferenceFinderHeapDumpHandler;
    using ThreadCollection = PRBThreadCollection;

    // The singleton, built when there is none and `create` is not 0; null otherwise. With
    // `create` 0 neither environment nor object is looked at, so a collection may ask.
    static PRBWorkloadCollector* getWorkloadCollector(JNIEnv* env, jobject javaCollector,
                                                      int create);
    // From the Java side's handle: null for anything but the singleton's address.
    static PRBWorkloadCollector* fromHandle(jlong handle);
    jlong toHandle() const;

    PRBWorkloadCollector(JNIEnv* env, jobject javaCollector);
    std::uint16_t isA() const override { return 32714; }
    bool isGood() const { return constructed_ != 0; } // is construction complete?

    // Also builds "_DataReturn", on the first call.
    void setJVMPIInterface(JVMPI_Interface* jvmpi);
    JVMPI_Interface* getJVMPIInterface() const { return jvmpi_.load(std::memory_order_acquire); }
    // The process whose CPU use is reported; 0 reports none.
    void setProcessId(int processId) { dataReturn_.setProcessId(processId); }
    int getProcessId() const { return dataReturn_.getProcessId(); }

    // ---- Collections ----
    // Starts a collection or moves to another set of types; only changed events are passed to
    // the VM. Milliseconds for the sampling interval, 0 means 5; null or empty class masks mean
    // "*", null method masks mean none. Always OK.
    unsigned processInitiateCollection(JNIEnv* env, int collectionType, int pollingFrequency,
                                       int cpuSamplingInterval, const char* classMasks,
                                       const char* methodMasks);
    // Types, masks and interval are kept. Always 0.
    unsigned processStopCollection(JNIEnv* env);
    std::uint32_t getCollectionType() const {
        return collectionType_.load(std::memory_order_relaxed);
    }
    int getCPUSamplingInterval() const { return cpuSamplingInterval_; } // ms
    int getPollingFrequency() const { return pollingFrequency_; }       // s
    const PRBEventCollection& getEventCollection() const { return events_; }

    // ---- Gathering ----
    // One pass: every kind of data that the types in force ask for, as one byte array (a local
    // reference); null when there is nothing to tell. The request may name other types and one
    // thread. Calls Java, forces a collection and requests a dump when heap data is asked for.
    jbyteArray sendBackData(JNIEnv* env, int extra, jobject request);
    PRBDataReturn& getDataReturn() { return dataReturn_; }
    PRBHeapData& getHeapData() { return heapData_; }
    // Level 0: see PRBHeapData.
    void handleHeapDump(JVMPI_Event* event) override;
    // The objects that hold a reference to any of the targets, as an array of the class.
    jobjectArray getReferencesToTargetObjects(JNIEnv* env, jobjectArray targets, jclass cls);

    // ---- Calls to the Java side ----
    bool isGCCollectionActiveInWorkloadAnalysis(JNIEnv* env) const;
    long long getNumBytesFree(JNIEnv* env) const;  // -1 when the Java side does not tell
    long long getTotalNumBytes(JNIEnv* env) const; // likewise
    void writeToWorkloadAnalysisLog(JNIEnv* env, const char* text) const;
    int getJavaBuildLevel() const { return java_.getBuildLevel(); }
    // The name of an object's class as Class.getName tells it; empty when it tells none.
    static std::string getNameOfClassForObject(JNIEnv* env, jobject object);

    // ---- Small queries ----
    static std::string getCurrentWorkingDirectory(); // empty above 511 bytes
    static std::string createString(JNIEnv* env, jstring text);
    void showProfilerGCStats(JNIEnv* env, long long freed, long long currentlyFree,
                             long long total);
    long long getNumBytesFreedAtLastGC() const { return load(bytesFreed_); }
    long long getNumBytesCurrentlyFreeAtLastGC() const { return load(bytesCurrentlyFree_); }
    long long getNumBytesTotalAtLastGC() const { return load(bytesTotal_); }
    long long getGCCPUTime() const; // nanoseconds; -1 without a monitor

    // The instrumented entry's Java method that is told the sample counts.
    const char* getNumCpuSamplesName() const { return numCpuSamplesName_.c_str(); }
    const char* getNumCpuSamplesSignature() const { return numCpuSamplesSignature_.c_str(); }
    void setNumCpuSamplesMethod(const char* name, const char* signature);

private:
    ~PRBWorkloadCollector() override = default; // of one that lost the race to be the singleton
    static void Init();
    static long long load(const std::atomic<long long>& value) {
        return value.load(std::memory_order_relaxed);
    }
    class Exclusive; // holds "_DataReturn" for a scope
    void startSampling(int interval);

    static std::atomic<PRBWorkloadCollector*> singleton;
    static std::atomic<int> InitializedOK;

    PRBJavaCollector java_;
    std::atomic<std::uint32_t> collectionType_{0};
    int cpuSamplingInterval_ = 5; // ms
    int pollingFrequency_ = 0;    // s; the Java side's, kept and logged
    PRBEventCollection events_;
    std::atomic<long long> bytesFreed_{-1};
    std::atomic<long long> bytesCurrentlyFree_{-1};
    std::atomic<long long> bytesTotal_{-1};
    std::atomic<JVMPI_Interface*> jvmpi_{nullptr};
    std::atomic<PRBJavaRawMonitor*> passMonitor_{nullptr}; // "_DataReturn"; lives as long as this
    PRBHeapData heapData_;
    PRBDataReturn dataReturn_;
    std::string numCpuSamplesName_ = "setNumCpuSamples";
    std::string numCpuSamplesSignature_ = "(IIII)V";
    int constructed_ = 0;
};

#endif
