#include "prb/Report.h"

#include <algorithm>

namespace prb {

double percent(long long part, long long whole) {
    return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0;
}

std::vector<MethodUse> chosenMethods(const RunModel& run, const ReportOptions& options) {
    std::vector<MethodUse> methods = run.methods();
    if (options.sort == Sort::kTotal) {
        std::stable_sort(methods.begin(), methods.end(), [](const auto& a, const auto& b) {
            return a.total != b.total ? a.total > b.total : a.own > b.own;
        });
    } else if (options.sort == Sort::kName) {
        std::stable_sort(methods.begin(), methods.end(), [](const auto& a, const auto& b) {
            return std::tie(a.className, a.name, a.signature) <
                   std::tie(b.className, b.name, b.signature);
        });
    }
    const bool all = options.top == 0 || (options.format != Format::kText && !options.topGiven);
    if (!all && methods.size() > options.top) methods.resize(options.top);
    return methods;
}

std::vector<ClassUse> chosenClasses(const RunModel& run, const ReportOptions& options) {
    std::vector<ClassUse> classes = run.classes();
    const bool all = options.top == 0 || (options.format != Format::kText && !options.topGiven);
    if (!all && classes.size() > options.top) classes.resize(options.top);
    return classes;
}

std::string writeReport(const RunModel& run, const std::string& captureName,
                        const ReportOptions& options) {
    switch (options.format) {
    case Format::kJson:
        return writeJsonReport(run, captureName, options);
    case Format::kCsv:
        return writeCsvReport(run, options);
    case Format::kText:
        break;
    }
    return writeTextReport(run, captureName, options);
}

} // namespace prb
