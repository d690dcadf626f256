// What the bridge says to the user: single lines on standard error that begin with "prbprof: ".
//
// Any thread may call; each line leaves in one write, so that lines of several threads do not
// mix. Nothing here allocates.
#ifndef PRB_BRIDGE_REPORT_H
#define PRB_BRIDGE_REPORT_H

namespace bridge {

// Longest line, prefix and newline included; what is longer is cut.
constexpr unsigned kReportLineBytes = 1024;

// Writes "prbprof: ", the formatted text and a newline. Control characters in the text (a
// path or an option may hold any) become '?', so that one report stays one line.
void report(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Gets a copy of every line, with its newline, on the thread that says it; null: nobody does. For
// whoever attaches to a running JVM, whose standard error is not his.
using ReportListener = void (*)(const char* line, unsigned length);
void setReportListener(ReportListener listener) noexcept;
// Gives the listener a line that was said by other means.
void tellListener(const char* line, unsigned length) noexcept;

// Switches lines of report() off or on again (option quiet=yes silences what is merely for
// information; the bridge's failures are always said).
void setQuiet(bool quiet) noexcept;

// Like report(), but silent under quiet=yes.
void inform(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace bridge

#endif
