#include "core/PRBLogFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <unistd.h>

PRBLogFile::~PRBLogFile() {
    if (std::FILE* open = file.exchange(nullptr)) std::fclose(open);
}

std::FILE* PRBLogFile::open() noexcept {
    // The process id is read for each line: a forked child has a log of its own.
    char name[32];
    std::snprintf(name, sizeof name, "prb_%i.log", static_cast<int>(getpid()));
    return std::fopen(name, "ae"); // appending, and not inherited by the server's children
}

void PRBLogFile::writeLine(std::FILE* out, const char* text) noexcept {
    char prefix[128];
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    // 0 also means that the text does not fit: then the line has no date.
    std::size_t dated = std::strftime(prefix, sizeof prefix - 2, "%c", &local);
    prefix[dated] = prefix[dated + 1] = ' ';
    dated += 2;

    // One write per line, so that the lines of two processes do not mix.
    std::size_t length = std::strlen(text), size = dated + length + 2;
    char small[1280];
    std::unique_ptr<char[]> large;
    char* line = small;
    if (size > sizeof small) {
        large.reset(new (std::nothrow) char[size]);
        if (large == nullptr) {
            length = sizeof small - dated - 2;
            size = sizeof small;
        } else {
            line = large.get();
        }
    }
    char* end = std::copy_n(prefix, dated, line);
    end = std::copy_n(text, length, end);
    std::copy_n("\r\n", 2, end);
    std::setvbuf(out, nullptr, _IONBF, 0);
    std::fwrite(line, 1, size, out);
}

void PRBLogFile::write(const char* text, int lock) noexcept {
    int errnoBefore = errno;
    if (lock != 0) monitor.enter(0);
    std::FILE* out = file.exchange(nullptr, std::memory_order_acq_rel);
    if (out == nullptr) out = open();
    if (out != nullptr) {
        writeLine(out, text == nullptr ? "" : text);
        std::fclose(out);
        out = open();
        std::FILE* none = nullptr;
        if (out != nullptr && !file.compare_exchange_strong(none, out, std::memory_order_acq_rel))
            std::fclose(out); // a writer without the monitor was faster
    }
    if (lock != 0) monitor.exit(0);
    errno = errnoBefore;
}
