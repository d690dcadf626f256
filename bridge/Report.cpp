#include "bridge/Report.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <cerrno>
#include <unistd.h>

namespace bridge {
namespace {

constexpr char kPrefix[] = "prbprof: ";
std::atomic<bool> quiet{false};
std::atomic<ReportListener> listener{nullptr};

__attribute__((format(printf, 1, 0))) void writeLine(const char* format, va_list arguments) {
    const int savedErrno = errno;
    char line[kReportLineBytes];
    constexpr size_t start = sizeof kPrefix - 1;
    memcpy(line, kPrefix, start);
    const int wanted = vsnprintf(line + start, sizeof line - start - 1, format, arguments);
    size_t length = start;
    if (wanted > 0) length += strlen(line + start);
    for (size_t i = start; i < length; i++) {
        const unsigned char c = static_cast<unsigned char>(line[i]);
        if (c < 0x20 || c == 0x7f) line[i] = '?';
    }
    line[length++] = '\n';
    // A closed or full standard error is no reason to disturb the program.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, length);
    tellListener(line, static_cast<unsigned>(length));
    errno = savedErrno;
}

} // namespace

void report(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    writeLine(format, arguments);
    va_end(arguments);
}

void setReportListener(ReportListener now) noexcept {
    listener.store(now, std::memory_order_release);
}

void tellListener(const char* line, unsigned length) noexcept {
    if (const ReportListener now = listener.load(std::memory_order_acquire)) now(line, length);
}

void setQuiet(bool on) noexcept { quiet.store(on, std::memory_order_relaxed); }

void inform(const char* format, ...) {
    if (quiet.load(std::memory_order_relaxed)) return;
    va_list arguments;
    va_start(arguments, format);
    writeLine(format, arguments);
    va_end(arguments);
}

} // namespace bridge
