#include "data/PRBTime.h"

#include "core/PRBTrace.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kFrequent, PRBComponent::kTime, operation);
}

constexpr std::int64_t kSecondsPerDay = 86400;

// Floor division: the quotient of a negative number is rounded down.
constexpr std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

// Days from 1970-01-01 to a date of the Gregorian calendar. Years are counted from March, so
// that the leap day is the last day of a year.
constexpr std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = floorDiv(year, 400);
    const std::int64_t yearOfEra = year - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

std::int64_t secondsFromUtc(const std::tm& t) {
    const std::int64_t months = std::int64_t{t.tm_mon} + std::int64_t{t.tm_year} * 12;
    const std::int64_t year = floorDiv(months, 12);
    const int month = static_cast<int>(months - year * 12) + 1;
    return (daysFromCivil(year + 1900, month, 1) + t.tm_mday - 1) * kSecondsPerDay +
           std::int64_t{t.tm_hour} * 3600 + std::int64_t{t.tm_min} * 60 + t.tm_sec;
}

std::tm utcFields(std::int64_t seconds) {
    const std::int64_t days = floorDiv(seconds, kSecondsPerDay);
    std::int64_t rest64 = seconds % kSecondsPerDay; // not by days: their product may overflow
    if (rest64 < 0) rest64 += kSecondsPerDay;
    const int rest = static_cast<int>(rest64);
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = floorDiv(shifted, 146097);
    const std::int64_t day = shifted - era * 146097;
    const std::int64_t yearOfEra = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const std::int64_t dayOfYear = day - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t marchMonth = (5 * dayOfYear + 2) / 153;
    const int month = static_cast<int>(marchMonth < 10 ? marchMonth + 3 : marchMonth - 9);
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    std::tm t{};
    t.tm_year = static_cast<int>(std::clamp<std::int64_t>(year - 1900, INT_MIN, INT_MAX));
    t.tm_mon = month - 1;
    t.tm_mday = static_cast<int>(dayOfYear - (153 * marchMonth + 2) / 5) + 1;
    t.tm_hour = rest / 3600;
    t.tm_min = rest / 60 % 60;
    t.tm_sec = rest % 60;
    return t;
}

// Seconds east of UTC at a time; at the nearest time that the system can tell.
std::int64_t localOffset(std::int64_t seconds) {
    constexpr std::int64_t kFirst = std::numeric_limits<std::time_t>::min();
    constexpr std::int64_t kLast = std::numeric_limits<std::time_t>::max();
    const auto t = static_cast<std::time_t>(std::clamp(seconds, kFirst, kLast));
    std::tm fields{};
    return localtime_r(&t, &fields) == nullptr ? 0 : fields.tm_gmtoff;
}

std::int64_t secondsFromLocal(const std::tm& t) {
    std::tm fields = t;
    fields.tm_isdst = -1;
    fields.tm_wday = -1; // set by a call that succeeds, whatever it answers
    const std::time_t answer = mktime(&fields);
    if (fields.tm_wday >= 0) return answer;
    const std::int64_t asUtc = secondsFromUtc(t);
    return asUtc - localOffset(asUtc);
}

int number(const char* text, int digits) {
    int value = 0;
    for (int i = 0; i < digits && text[i] >= '0' && text[i] <= '9'; ++i)
        value = value * 10 + (text[i] - '0');
    return value;
}

} // namespace

PRBTime::PRBTime() : seconds_(std::time(nullptr)) {}

PRBTime::PRBTime(int year, int month, int day, int hour, int minute, int second, Zone zone) {
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    seconds_ = zone == Zone::Utc ? secondsFromUtc(t) : secondsFromLocal(t);
}

std::tm PRBTime::fields(Zone zone) const {
    std::int64_t shown = seconds_;
    if (zone == Zone::Local && __builtin_add_overflow(seconds_, localOffset(seconds_), &shown))
        shown = seconds_;
    return utcFields(shown);
}

int PRBTime::operator-(const PRBTime& other) const {
    auto trace = traced("PRBTime::operator-");
    std::int64_t difference;
    if (__builtin_sub_overflow(seconds_, other.seconds_, &difference))
        difference = seconds_ < other.seconds_ ? INT_MIN : INT_MAX;
    return trace.returns(static_cast<int>(std::clamp<std::int64_t>(difference, INT_MIN, INT_MAX)));
}

void PRBTime::getCTTime(char* out, int size) const {
    auto trace = traced("PRBTime::getCTTime");
    if (seconds_ == 0 || out == nullptr || size <= 0) return;
    char text[32] = "";
    const std::tm local = fields(Zone::Local);
    std::strftime(text, sizeof text, "0%y%m%d%H%M%S000", &local);
    if (text[1] != '9') text[0] = '1';
    std::replace(text, text + std::strlen(text), ' ', '0');
    const std::size_t n = std::min(std::strlen(text), static_cast<std::size_t>(size) - 1);
    std::memcpy(out, text, n);
    out[n] = '\0';
}

void PRBTime::convertFromCTTime(const char* text) {
    auto trace = traced("PRBTime::convertFromCTTime");
    if (text == nullptr || strnlen(text, 16) < 16) {
        seconds_ = 0;
        return;
    }
    *this = PRBTime(1900 + number(text, 3), number(text + 3, 2), number(text + 5, 2),
                    number(text + 7, 2), number(text + 9, 2), number(text + 11, 2), Zone::Local);
}

void PRBTime::convertFromJavaTime(long long milliseconds) {
    auto trace = traced("PRBTime::convertFromJavaTime");
    const std::int64_t seconds =
        milliseconds / 1000 + PRBTime(1970, 1, 1, 0, 0, 0, Zone::Local).seconds_;
    seconds_ = secondsFromUtc(PRBTime(seconds).fields(Zone::Local));
}
