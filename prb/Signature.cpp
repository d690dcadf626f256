#include "prb/Signature.h"

#include <algorithm>
#include <cstdio>

namespace prb {

namespace {

const char* primitive(char c) {
    switch (c) {
    case 'Z':
        return "boolean";
    case 'B':
        return "byte";
    case 'C':
        return "char";
    case 'S':
        return "short";
    case 'I':
        return "int";
    case 'J':
        return "long";
    case 'F':
        return "float";
    case 'D':
        return "double";
    case 'V':
        return "void";
    default:
        return nullptr;
    }
}

std::string dotted(std::string_view name) {
    std::string result(name);
    std::replace(result.begin(), result.end(), '/', '.');
    return result;
}

// Reads one type at `at`; empty when there is none.
std::string type(std::string_view text, std::size_t& at, bool withPackage) {
    std::size_t dimensions = 0;
    while (at < text.size() && text[at] == '[') {
        at++;
        dimensions++;
    }
    if (at >= text.size()) return {};
    std::string result;
    if (const char* simple = primitive(text[at])) {
        result = simple;
        at++;
    } else if (text[at] == 'L') {
        const std::size_t end = text.find(';', at);
        if (end == std::string_view::npos) return {};
        std::string_view name = text.substr(at + 1, end - at - 1);
        if (!withPackage) name.remove_prefix(std::min(name.rfind('/') + 1, name.size()));
        result = dotted(name);
        at = end + 1;
    } else {
        return {};
    }
    for (; dimensions > 0; dimensions--) result += "[]";
    return result;
}

// The length of the well-formed UTF-8 character at `at`; 0 when there is none.
std::size_t utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(at);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first <= 0xDF ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    if (length == 0 || at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; i++) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    }
    if (length == 3) {
        const unsigned second = byte(at + 1);
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    }
    if (length == 4) {
        const unsigned second = byte(at + 1);
        if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    }
    return length;
}

} // namespace

std::string readableClass(std::string_view internalName) {
    if (!internalName.empty() && internalName.front() == '[') {
        std::size_t at = 0;
        std::string array = type(internalName, at, true);
        if (!array.empty() && at == internalName.size()) return array;
    }
    return dotted(internalName);
}

std::string readableSignature(std::string_view signature) {
    if (signature.empty() || signature.front() != '(') return std::string(signature);
    std::string result = "(";
    std::size_t at = 1;
    while (at < signature.size() && signature[at] != ')') {
        const std::string parameter = type(signature, at, false);
        if (parameter.empty()) return std::string(signature);
        if (result.size() > 1) result += ", ";
        result += parameter;
    }
    return at < signature.size() ? result + ")" : std::string(signature);
}

std::string printable(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        const std::size_t length = utf8Length(text, at);
        // C1 control characters (U+0080 to U+009F) can drive a terminal as well as C0 ones.
        const bool control =
            c < 0x20 || c == 0x7F ||
            (length == 2 && c == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0);
        if (length == 0 || control) {
            for (std::size_t i = 0; i < std::max<std::size_t>(length, 1); i++) {
                char hex[8];
                std::snprintf(hex, sizeof hex, "\\x%02X",
                              static_cast<unsigned>(static_cast<unsigned char>(text[at + i])));
                result += hex;
            }
            at += std::max<std::size_t>(length, 1);
        } else {
            result.append(text, at, length);
            at += length;
        }
    }
    return result;
}

} // namespace prb
