#include "core/PRB_Profiler_Log.h"

#include "core/PRBTrace.h"

#include <cstdio>
#include <ctime>
#include <string>

const char* const pProfilerMessageTable[] = {
    "PRB001I OPX for WebSphere Application Server startup complete",
    "PRB002E Exception % caught in %s %s",
    "PRB003E Environmental error %i caught in %s rc = %i",
    "PRB004E Exception %s caught",
    "PRB005E Exception address %X",
    "PRB006E Windows exception address %X",
};
const int ProfilerMessageTableSize =
    static_cast<int>(sizeof pProfilerMessageTable / sizeof pProfilerMessageTable[0]);

namespace {

// The format comes from a message table.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string formatted(const char* format, va_list arguments) {
    char small[1024];
    va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(small, sizeof small, format, arguments);
    std::string text;
    if (length > 0 && static_cast<std::size_t>(length) < sizeof small) {
        text = small;
    } else if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}
#pragma GCC diagnostic pop

} // namespace

int PRB_Profiler_Log::SendMessage(const char* format, void*& args, int isError) const {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kProfilerLog,
                        "PRB_Profiler_Log::SendMessage");
    char when[20];
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    // Two digits of the year, as readers of these messages expect them.
    std::strftime(when, sizeof when, "%m/%d/%y %H:%M:%S", &local);
    std::string line = when;
    line += " "; // one blank of the time text, one of the joining
    line += " ";
    line += formatted(format, static_cast<Arguments*>(args)->list);
    line += " \r\n";
    PRBTrace::writeToLog(line.c_str(), 1);
    return trace.returns(isError);
}
