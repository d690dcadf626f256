#include "data/SnapHex.h"

#include "core/PRBFormat.h"
#include "core/PRBTrace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kBytesPerLine = 16;
constexpr std::size_t kFirstGroup = 5; // behind "0000-"
constexpr std::size_t kLeftBar = 41;
constexpr std::size_t kCharacters = 42;
constexpr std::size_t kRightBar = 58;
constexpr std::size_t kLineLength = 60; // with the line feed

void emit(const std::string& line, std::string* out) {
    if (out != nullptr) {
        *out += line;
    } else {
        PRBTrace::writeToLog(line.c_str());
    }
}

std::string dumpLine(const unsigned char* data, int offset, int count) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string line(79, ' ');
    char prefix[16];
    const int n = std::snprintf(prefix, sizeof prefix, "%04X-", static_cast<unsigned>(offset));
    line.replace(0, static_cast<std::size_t>(n), prefix);
    std::size_t hex = kFirstGroup;
    std::size_t column = kCharacters;
    for (int i = 0; i < count; ++i) {
        const unsigned char byte = data[offset + i];
        line[hex++] = kDigits[byte >> 4];
        line[hex++] = kDigits[byte & 15];
        if (i % 4 == 3) line[hex++] = ' ';
        line[column++] = byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
        if (byte == '%') line[column++] = '%';
    }
    // Doubled characters push the others to the right; the bar and the end stay in place.
    line[kLeftBar] = '*';
    line[kRightBar] = '*';
    line[kLineLength - 1] = '\n';
    line.resize(kLineLength);
    return line;
}

int lower(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? u + ('a' - 'A') : u;
}

} // namespace

int SnapHex(const unsigned char* data, int length, const char* title, std::string* out) {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kUtilities, "SnapHex");
    if (out != nullptr) out->clear();
    if (data == nullptr || length <= 0) return trace.returns(0);
    if (title != nullptr && *title != '\0') {
        char address[32];
        std::snprintf(address, sizeof address, PRB_PTR, prbPtr(data));
        emit(std::string(title) + "   @" + address + "\n", out);
    }
    // The offset is compared before it is advanced: a dump may reach up to the largest int.
    for (int offset = 0;; offset += kBytesPerLine) {
        const int left = length - offset;
        emit(dumpLine(data, offset, left < kBytesPerLine ? left : kBytesPerLine), out);
        if (left <= kBytesPerLine) break;
    }
    return trace.returns(0);
}

int PRBstricmp(const char* a, const char* b) {
    if (a == nullptr) a = "";
    if (b == nullptr) b = "";
    while (*a != '\0' && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

const char* PRBGetLastError(std::string* text, int errorNumber) {
    if (errorNumber == 0) errorNumber = errno;
    *text = "errno=" + std::to_string(errorNumber);
    char room[256];
    // The GNU form: the message may lie in `room` or be constant.
    const char* message = strerror_r(errorNumber, room, sizeof room);
    if (message != nullptr && *message != '\0') {
        *text += ", ";
        *text += message;
    }
    return text->c_str();
}
