// The agent's log: "prb_<process id>.log" in the current directory, one line per call.
#ifndef PRB_CORE_PRBLOGFILE_H
#define PRB_CORE_PRBLOGFILE_H

#include "core/PRBJavaRawMonitor.h"

#include <atomic>
#include <cstdio>
#include <string>

// Any thread may write. The file is closed and opened again after every line, so that it is
// always flushed and may be moved or truncated between lines. No failure is reported: a line
// that cannot be written is lost, and the next one tries to open the file again.
class PRBLogFile : public PRBMemoryManager {
public:
    explicit PRBLogFile(JVMPI_Interface* jvmpi) : monitor("_LogFile", jvmpi) {}
    ~PRBLogFile();
    PRBLogFile(const PRBLogFile&) = delete;
    PRBLogFile& operator=(const PRBLogFile&) = delete;

    // Local date and time in the locale's form, two blanks, the text, CR LF. `lock` 0 writes
    // without the monitor. Leaves errno as it was.
    void write(const char* text, int lock) noexcept;

private:
    void writeLine(std::FILE* file, const char* text) noexcept;
    std::FILE* open() noexcept;

    PRBJavaRawMonitor monitor;
    // A writer takes the file out while it uses it, so that writers without the monitor never
    // meet in one FILE; null when no file is open.
    std::atomic<std::FILE*> file{nullptr};
};

#endif
