// A run shown to a person (text), a program (JSON) or a spreadsheet (CSV).
#ifndef PRB_PRB_REPORT_H
#define PRB_PRB_REPORT_H

#include "prb/RunModel.h"

#include <string>

namespace prb {

enum class Format { kText, kJson, kCsv };
enum class Sort { kOwn, kTotal, kName };

struct ReportOptions {
    Format format = Format::kText;
    Sort sort = Sort::kOwn;
    std::size_t top = 20; // rows of each table; 0 is all. JSON and CSV: all unless given
    bool topGiven = false;
    bool colour = false;     // the text goes to a terminal
    bool unicode = false;    // bars of blocks instead of '#'
    std::size_t width = 160; // columns of the text; what a file gets
};

// The whole report, ending in a newline.
std::string writeReport(const RunModel& run, const std::string& captureName,
                        const ReportOptions& options);

// The parts that writeReport chooses from.
std::string writeTextReport(const RunModel&, const std::string& name, const ReportOptions&);
std::string writeJsonReport(const RunModel&, const std::string& name, const ReportOptions&);
std::string writeCsvReport(const RunModel&, const ReportOptions&);

// The methods in the order asked for, cut to the rows asked for.
std::vector<MethodUse> chosenMethods(const RunModel& run, const ReportOptions& options);

// The classes cut to the rows asked for.
std::vector<ClassUse> chosenClasses(const RunModel& run, const ReportOptions& options);

// 100 * part / whole; 0 for an empty whole.
double percent(long long part, long long whole);

} // namespace prb

#endif
