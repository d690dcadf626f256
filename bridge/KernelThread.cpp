#include "bridge/KernelThread.h"

#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace bridge {

bool isOnRunQueue(pid_t tid) {
    char path[64] = "/proc/self/task/";
    char digits[16];
    int count = 0;
    for (auto rest = static_cast<unsigned>(tid); rest != 0; rest /= 10) {
        digits[count++] = static_cast<char>('0' + rest % 10);
    }
    char* end = path + std::strlen(path);
    while (count > 0) *end++ = digits[--count];
    std::memcpy(end, "/stat", sizeof "/stat");

    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    // "<tid> (<name>) <state> ...": the name is at most 15 characters, brackets included.
    char text[64];
    const ssize_t length = read(file, text, sizeof text);
    close(file);
    for (ssize_t i = length - 3; i > 0; i--) {
        if (text[i] == ')') return text[i + 2] == 'R';
    }
    return false;
}

} // namespace bridge
