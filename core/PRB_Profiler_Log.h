// The profiler's own operator messages.
#ifndef PRB_CORE_PRB_PROFILER_LOG_H
#define PRB_CORE_PRB_PROFILER_LOG_H

#include "core/PRB_Log.h"

extern const char* const pProfilerMessageTable[];
extern const int ProfilerMessageTableSize;

// Its table of operations is fixed and holds no destructor; nobody deletes one through its base.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor)
class PRB_Profiler_Log final : public PRB_Log {
public:
    PRB_Profiler_Log() : PRB_Log(pProfilerMessageTable, ProfilerMessageTableSize) {}

    using PRB_Log::SendMessage;
    // Writes the formatted message, with a time stamp of its own before it and a line end of its
    // own after it, as one line of the log.
    virtual int SendMessage(const char* format, void*& args, int isError) const;
};

#endif
