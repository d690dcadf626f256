// Text utilities of the sample model: the hex dump, the comparison that ignores case, and the
// text of an error number. All may be called from any thread.
#ifndef PRB_DATA_SNAPHEX_H
#define PRB_DATA_SNAPHEX_H

#include <string>

// Dumps a range of memory, 16 bytes a line, into `out` (cleared first) or, when `out` is null,
// into the log line by line. Each line is 60 characters: offset, four groups of four bytes,
// the printable characters between asterisks, a line feed; '%' shows doubled. A title that is
// neither null nor empty gives a first line with the address. Answers 0.
int SnapHex(const unsigned char* data, int length, const char* title, std::string* out);

// Compares ignoring the case of ASCII letters; negative, 0 or positive. Null counts as empty.
int PRBstricmp(const char* a, const char* b);

// "errno=%i", and ", " with the system's message when it has one; 0 means the current errno.
// Answers the text's characters. REQUIRES: text is not null.
const char* PRBGetLastError(std::string* text, int errorNumber);

#endif
