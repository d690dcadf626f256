// The time of a sample: whole seconds, its compact text form, and the conversions that the
// receiving side expects.
#ifndef PRB_DATA_PRBTIME_H
#define PRB_DATA_PRBTIME_H

#include <cstdint>
#include <ctime>

// Signed 64-bit seconds since 1970-01-01 00:00:00 UTC, on both word sizes. A plain value; any
// thread. The local zone is the process's. Where time_t is 32 bits, local times outside its
// range use the zone's offset at the nearest end of the range.
class PRBTime {
public:
    enum class Zone { Local, Utc };

    PRBTime(); // the current time
    explicit PRBTime(std::int64_t seconds) : seconds_(seconds) {}
    // Calendar fields: the full year, month 1 to 12, day 1 to 31. Fields beyond their range
    // carry over, as mktime(3) does.
    PRBTime(int year, int month, int day, int hour, int minute, int second, Zone zone);

    std::int64_t seconds() const { return seconds_; }
    // The calendar fields of this time.
    std::tm fields(Zone zone) const;

    // Difference in whole seconds, held at the ends of int's range.
    int operator-(const PRBTime& other) const;
    bool operator==(const PRBTime& other) const = default;

    // Writes the 16 characters C YY MM DD HH MM SS 000 of the local time and a NUL, as far as
    // `size` bytes hold; nothing for time 0. C is 0 for a year whose tens digit is 9, else 1.
    void getCTTime(char* out, int size) const;
    // Local time from a compact text, milliseconds ignored; time 0 for a text that is null or
    // shorter than 16 characters.
    void convertFromCTTime(const char* text);
    // From Java's milliseconds. The local zone enters twice: in a zone whose offset has changed
    // since 1970 the result differs from milliseconds / 1000 by that change.
    void convertFromJavaTime(long long milliseconds);

private:
    std::int64_t seconds_;
};

#endif
