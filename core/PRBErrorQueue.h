// Failures that the Java side must learn about, until a data return collects them.
#ifndef PRB_CORE_PRBERRORQUEUE_H
#define PRB_CORE_PRBERRORQUEUE_H

#include "core/PRBCollections.h"
#include "core/PRBJavaRawMonitor.h"

#include <atomic>

class PRBProfilerError;

// First in, first out; owns what it holds. Any thread.
class PRBErrorQueue {
public:
    // With nobody collecting, the oldest is dropped above this.
    static constexpr std::size_t kMost = 1000;

    explicit PRBErrorQueue(JVMPI_Interface* jvmpi) : monitor("_ProfilerError", jvmpi) {}
    ~PRBErrorQueue() { errors.clearAndDestroy(); }
    PRBErrorQueue(const PRBErrorQueue&) = delete;
    PRBErrorQueue& operator=(const PRBErrorQueue&) = delete;

    void add(PRBProfilerError* error); // takes ownership
    PRBProfilerError* next();          // the caller owns it; null when empty

    // The queue that report() adds to; set once at start-up.
    static std::atomic<PRBErrorQueue*> installed;
    // Builds and queues an error; lost before initialisation.
    static void report(unsigned code, const char* text);

private:
    PRBJavaRawMonitor monitor;
    PRBSlist errors;
};

#endif
