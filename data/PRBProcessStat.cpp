#include "data/PRBProcessStat.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unistd.h>

ssize_t PRBProcessStat::readWhole(int fd, char* buffer, std::size_t size) {
    std::size_t total = 0;
    while (total < size) {
        const ssize_t n = read(fd, buffer + total, size - total);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        total += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(total);
}

long long PRBProcessStat::cpuMilliseconds(const char* text, unsigned pid) {
    int pidRead = 0;
    if (std::sscanf(text, "%d (", &pidRead) != 1 || static_cast<unsigned>(pidRead) != pid)
        return -1;
    const char* behind = std::strrchr(text, ')');
    if (behind == nullptr || behind[1] == '\0') return -1;
    // State, five numbers of the process's relations, flags and four fault counts, then the
    // two times.
    unsigned long user = 0, system = 0;
    if (std::sscanf(behind + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user,
                    &system) != 2)
        return -1;
    return static_cast<std::uint32_t>(user + system) * std::uint32_t{1000} / 100;
}
