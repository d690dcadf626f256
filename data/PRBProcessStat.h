// The text of a process's stat file, see proc(5).
#ifndef PRB_DATA_PRBPROCESSSTAT_H
#define PRB_DATA_PRBPROCESSSTAT_H

#include <cstddef>
#include <sys/types.h>

namespace PRBProcessStat {

// Reads up to `size` bytes until the file ends, going on after a signal; -1 on an error.
ssize_t readWhole(int fd, char* buffer, std::size_t size);

// User and system time in milliseconds at 100 clock ticks a second, the product of ticks and
// 1000 taken in 32 bits; -1 when the text is cut off before them or not that of the process.
// The fields are counted from the last ')', so any command name is fine.
long long cpuMilliseconds(const char* text, unsigned pid);

} // namespace PRBProcessStat

#endif
