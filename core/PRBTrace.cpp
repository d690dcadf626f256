#include "core/PRBTrace.h"

#include "core/InternalTraceTable.h"
#include "core/PRBLogFile.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

std::atomic<int> PRBTrace::level{0};
constinit PRBTraceFilter PRBTrace::filter;
std::atomic<PRBLogFile*> PRBTrace::logFile{nullptr};
std::atomic<InternalTraceTable*> PRBTrace::table{nullptr};

bool PRBTrace::isTraceEnabledSlow(int traceClass, const char* component) {
    return (traceClass & level.load(std::memory_order_relaxed)) > 0 && filter.passes(component);
}

bool PRBTrace::isDebugEnabledSlow(const char* component) { return filter.passes(component); }

void PRBTrace::writeToLog(const char* text, int lock) {
    if (text == nullptr) return;
    if (InternalTraceTable* ring = table.load(std::memory_order_acquire)) {
        ring->newTraceEntry(text);
    } else if (PRBLogFile* file = logFile.load(std::memory_order_acquire)) {
        file->write(text, lock);
    }
}

void PRBTrace::log(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    int length = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length < 0) return;
    if (static_cast<std::size_t>(length) < sizeof text) return writeToLog(text);
    std::size_t size = static_cast<std::size_t>(length) + 1;
    std::unique_ptr<char[]> large(new (std::nothrow) char[size]);
    if (large == nullptr) return writeToLog(text); // cut rather than lost
    va_start(args, format);
    std::vsnprintf(large.get(), size, format, args);
    va_end(args);
    writeToLog(large.get());
}

void PRBTrace::entryLine(const char* operation) { log("%s Entry", operation); }
void PRBTrace::exitLine(const char* operation) { log("%s Exit", operation); }
void PRBTrace::exitLine(const char* operation, int value) {
    log("%s Exit with return value %i", operation, value);
}

void PRBTraceScope::entry() { PRBTrace::entryLine(operation_); }

void PRBTraceScope::exit() {
    if (hasValue_)
        PRBTrace::exitLine(operation_, value_);
    else
        PRBTrace::exitLine(operation_);
}
