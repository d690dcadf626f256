#include "prb/Commands.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace prb {

void fitToOutput(ReportOptions& options, std::FILE* out) {
    const int fd = fileno(out);
    if (fd < 0 || isatty(fd) == 0) return;
    // NOLINTBEGIN(concurrency-mt-unsafe): the tool has one thread
    const char* term = std::getenv("TERM");
    options.colour =
        std::getenv("NO_COLOR") == nullptr && term != nullptr && std::strcmp(term, "dumb") != 0;
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        options.unicode =
            std::strstr(value, "UTF-8") != nullptr || std::strstr(value, "utf8") != nullptr;
        break;
    }
    // NOLINTEND(concurrency-mt-unsafe)
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        options.width = std::clamp<std::size_t>(size.ws_col, 80, 200);
    }
}

int reportCommand(const std::string& file, ReportOptions options, std::FILE* out, std::FILE* err) {
    Capture capture(file);
    if (!capture.problem().empty()) {
        std::fprintf(err, "prb: %s\n", capture.problem().c_str());
        return kFailed;
    }
    const RunModel run(capture);
    fitToOutput(options, out);
    const std::string text = writeReport(run, file, options);
    const bool written =
        std::fwrite(text.data(), 1, text.size(), out) == text.size() && std::fflush(out) == 0;
    if (!written) {
        std::fprintf(err, "prb: the report could not be written: %s\n", strerrordesc_np(errno));
        return kFailed;
    }
    // The notes of JSON and CSV readers must not hide that the file is damaged.
    if (!capture.fault().empty()) {
        std::fprintf(err, "prb: %s; what came before it is shown\n", capture.fault().c_str());
        return kFailed;
    }
    return kOk;
}

} // namespace prb
