// The sample of the whole server process, and what the agent asks the system about it.
#ifndef PRB_DATA_PRBAPPSERVERSAMPLE_H
#define PRB_DATA_PRBAPPSERVERSAMPLE_H

#include "data/PRBSampleCatalogue.h"

#include <atomic>

class PRBAppServerSample : public PRBSampleOf<PRBAppServerSample, PRBSampleCatalogue::kAppServer> {
public:
    // User and system time of a process in milliseconds, from proc(5), at 100 clock ticks a
    // second; -1 when it cannot be read. The product of ticks and 1000 wraps at 32 bits, after
    // about 11.9 hours of processor time. Any thread.
    static long long getProcessCPUUsage(unsigned pid);
    // The configured processors of the machine, at least 1. Asked once. Any thread.
    static long long getNumProcessors();

    // Running totals over the whole server; `first` is the counter of key 78.
    void saveRollUpValues(long long first, long long instantiates, long long transactions,
                          long long committed, long long rolledBack, long long poolCreates,
                          long long poolDestroys, long long poolAllocates, long long errors,
                          long long requests);

private:
    static std::atomic<long long> numProcessors;
};

#endif
