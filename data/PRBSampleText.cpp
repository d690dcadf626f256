// Samples from keyword lines, and the number texts in them.
#include "core/PRBTrace.h"
#include "data/PRBArithmetic.h"
#include "data/PRBSample.h"
#include "data/SnapHex.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include <locale.h>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kMember, PRBComponent::kSample, operation);
}

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view skip(std::string_view text, const char* characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    return text;
}

// A decimal number at the start of a text, behind blanks and a sign.
struct Decimal {
    std::string_view digits; // with a minus sign; empty when there is no number
    std::string_view rest;   // what follows
    bool integer = true;     // neither fraction nor exponent
};

Decimal readDecimal(std::string_view text) {
    text = skip(text, " \t\r");
    const bool plus = !text.empty() && text[0] == '+';
    if (plus) text.remove_prefix(1);
    std::size_t n = 0;
    const auto digitsFrom = [&](std::size_t i) {
        while (i < text.size() && isDigit(text[i])) ++i;
        return i;
    };
    if (!plus && n < text.size() && text[n] == '-') ++n;
    const std::size_t whole = n;
    n = digitsFrom(n);
    std::size_t digits = n - whole;
    Decimal answer;
    if (n < text.size() && text[n] == '.') {
        const std::size_t end = digitsFrom(n + 1);
        digits += end - n - 1;
        if (digits == 0) return answer;
        n = end;
        answer.integer = false;
    }
    if (digits == 0) return answer;
    if (n < text.size() && (text[n] == 'e' || text[n] == 'E')) {
        std::size_t exponent = n + 1;
        if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
        const std::size_t end = digitsFrom(exponent);
        if (end > exponent) {
            n = end;
            answer.integer = false;
        }
    }
    answer.digits = text.substr(0, n);
    answer.rest = text.substr(n);
    return answer;
}

// Infinite or 0 when the number does not fit a double. The host may have set a locale with
// another decimal point.
double toDouble(std::string_view digits) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr); // lives with the process
    return strtod_l(std::string(digits).c_str(), nullptr, plain);
}

std::string_view view(const char* text) { return text == nullptr ? "" : text; }

void dump(const void* data, std::size_t size, const char* title) {
    SnapHex(static_cast<const unsigned char*>(data), static_cast<int>(size), title, nullptr);
}

} // namespace

int PRBSample::getScaleFactorMultiplier(int key) {
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    return entry == nullptr ? 1 : prbScaleMultiplier(entry->scaleCode);
}

long long PRBSample::convertStringValueToInt(const char* text, unsigned key) {
    auto trace = traced("PRBSample::convertStringValueToInt");
    const Decimal number = readDecimal(view(text));
    if (number.digits.empty()) return trace.returns(0LL);
    const int multiplier = getScaleFactorMultiplier(static_cast<int>(key));
    if (number.integer && multiplier == 1) {
        long long value = 0;
        const auto result = std::from_chars(number.digits.data(),
                                            number.digits.data() + number.digits.size(), value);
        if (result.ec == std::errc()) return trace.returns(value);
    }
    return trace.returns(PRBArithmetic::rounded(toDouble(number.digits) * multiplier));
}

double PRBSample::convertStringValueToDouble(const char* text) {
    auto trace = traced("PRBSample::convertStringValueToDouble");
    const Decimal number = readDecimal(view(text));
    return number.digits.empty() ? 0 : toDouble(number.digits);
}

// "(12.5, 3)", "12.5/3", "12.5": sum or integral, then count or weight.
void PRBSample::convertPerfLoadValue(const char* text, double& first, double& second) {
    auto trace = traced("PRBSample::convertPerfLoadValue");
    first = second = 0;
    std::string_view rest = skip(view(text), " \t\r");
    if (!rest.empty() && std::strchr("([{<", rest[0]) != nullptr) rest.remove_prefix(1);
    const Decimal one = readDecimal(rest);
    if (one.digits.empty()) return;
    first = toDouble(one.digits);
    const Decimal two = readDecimal(skip(one.rest, " \t\r,;:/"));
    second = two.digits.empty() ? 1 : toDouble(two.digits);
}

void PRBSample::buildFromSampleString(const char* text) {
    auto trace = traced("PRBSample::buildFromSampleString");
    time_ = PRBTime();
    buildFromDataString(text);
}

std::unique_ptr<PRBSample> PRBSample::buildFromSampleString(_SampleType type, const char* text) {
    auto trace = traced("PRBSample::buildFromSampleString");
    auto sample = buildFromType(type);
    if (sample != nullptr) sample->buildFromSampleString(text);
    return sample;
}

void PRBSample::saveKeyword(const PRBKeyword& keyword, const char* value) {
    const PRBKeyTableEntry* entry = getKeyTableEntry(keyword.key);
    if (entry == nullptr) return;
    if (entry->keyType == PRBKeyType::Text) {
        saveStringData(keyword.key, value);
    } else if (isStatisticType(entry->keyType)) {
        double first, second;
        convertPerfLoadValue(value, first, second);
        saveStatInfoData(static_cast<unsigned>(keyword.key), first, second);
    } else {
        saveNumericData(keyword.key,
                        convertStringValueToInt(value, static_cast<unsigned>(keyword.key)));
    }
}

void PRBSample::buildFromDataString(const char* text) {
    auto trace = traced("PRBSample::buildFromDataString");
    const PRBKeyword* table = getZAMKeywordTable();
    std::string_view rest = view(text);
    while (!rest.empty() && rest[0] != '\n') {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t delimiter = line.find('=');
        if (table == nullptr || delimiter == std::string_view::npos) continue;
        const std::string keyword(line.substr(0, delimiter));
        const std::string value(line.substr(delimiter + 1));
        if (keyword.empty() || value.empty()) continue;
        const PRBKeyword* row = table;
        while (row->keyword != nullptr && PRBstricmp(row->keyword, keyword.c_str()) != 0) ++row;
        if (row->keyword != nullptr) {
            saveKeyword(*row, value.c_str());
        } else if (PRBTrace::isDebugEnabled(PRBComponent::kSample)) {
            PRBTrace::log("Unable to find entry in ZAM Keyword table for %s", keyword.c_str());
        }
    }
    if (!PRBTrace::isDebugEnabled(PRBComponent::kSample)) return;
    PRBTrace::log("Dump of keys and values for sample type %i follows",
                  static_cast<int>(getSampleType()));
    dump(intKeys_, numIntKeys_ * sizeof *intKeys_, "Numeric Keys");
    dump(slots_, numIntKeys_ * sizeof *slots_, "Numeric Values");
}
