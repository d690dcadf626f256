#include "data/PRBTime.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace {

void useZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

std::string compact(const PRBTime& time, int size = 17) {
    char text[64];
    std::memset(text, '#', sizeof text);
    time.getCTTime(text, size);
    return std::string(text, strnlen(text, sizeof text));
}

PRBTime local(int y, int mo, int d, int h, int mi, int s) {
    return PRBTime(y, mo, d, h, mi, s, PRBTime::Zone::Local);
}

class Time : public testing::Test {
protected:
    void SetUp() override { useZone("UTC0"); }
};

} // namespace

TEST_F(Time, IsNowByDefault) {
    const std::int64_t before = std::time(nullptr);
    const PRBTime now;
    EXPECT_GE(now.seconds(), before);
    EXPECT_LE(now.seconds(), std::time(nullptr));
}

TEST_F(Time, CompactTextOfTheNineties) {
    useZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(compact(local(1999, 12, 31, 23, 59, 58)), "0991231235958000");
    EXPECT_EQ(compact(local(2001, 2, 3, 4, 5, 6)), "1010203040506000");
    EXPECT_EQ(compact(local(2001, 7, 3, 4, 5, 6)), "1010703040506000"); // summer time
}

TEST_F(Time, CenturyDigitIsZeroForTheNinetiesOnly) {
    EXPECT_EQ(compact(local(1990, 1, 1, 0, 0, 0)), "0900101000000000");
    EXPECT_EQ(compact(local(1989, 12, 31, 0, 0, 0)), "1891231000000000");
    EXPECT_EQ(compact(local(1970, 1, 2, 0, 0, 0)), "1700102000000000");
    EXPECT_EQ(compact(local(1905, 6, 7, 8, 9, 10)), "1050607080910000");
}

TEST_F(Time, TimeZeroWritesNothing) {
    char text[20] = "untouched";
    PRBTime(0).getCTTime(text, sizeof text);
    EXPECT_STREQ(text, "untouched");
}

TEST_F(Time, WritesAtMostTheSizeAndEndsTheText) {
    const PRBTime time = local(2001, 2, 3, 4, 5, 6);
    EXPECT_EQ(compact(time, 5), "1010");
    EXPECT_EQ(compact(time, 1), "");
    EXPECT_EQ(compact(time, 16), "101020304050600");
    EXPECT_EQ(compact(time, 60), "1010203040506000");
    char text[2] = {'#', '#'};
    time.getCTTime(text, 0);
    time.getCTTime(text, -3);
    time.getCTTime(nullptr, 10);
    EXPECT_EQ(text[0], '#');
}

TEST_F(Time, ReadsCompactTexts) {
    for (const char* zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0"}) {
        useZone(zone);
        PRBTime time(77);
        time.convertFromCTTime("1010203040506999");
        EXPECT_EQ(time, local(2001, 2, 3, 4, 5, 6)) << zone;
        time.convertFromCTTime("1050703040506000trailing");
        EXPECT_EQ(time, local(2005, 7, 3, 4, 5, 6)) << zone;
        time.convertFromCTTime("0991231235958000");
        EXPECT_EQ(time, local(1999, 12, 31, 23, 59, 58)) << zone;
    }
    PRBTime utc;
    useZone("UTC0");
    utc.convertFromCTTime("1010203040506999");
    EXPECT_EQ(utc.seconds(), 981173106);
}

TEST_F(Time, ShortTextsGiveTimeZero) {
    for (const char* text : {"101020304050600", "", static_cast<const char*>(nullptr)}) {
        PRBTime time(77);
        time.convertFromCTTime(text);
        EXPECT_EQ(time.seconds(), 0);
    }
}

TEST_F(Time, JavaTimesAreTruncatedTowardsZero) {
    for (const char* zone : {"UTC0", "EST5EDT,M3.2.0,M11.1.0"}) {
        useZone(zone);
        PRBTime time;
        time.convertFromJavaTime(1999);
        EXPECT_EQ(time.seconds(), 1) << zone;
        time.convertFromJavaTime(-1999);
        EXPECT_EQ(time.seconds(), -1) << zone;
        time.convertFromJavaTime(981173106789);
        EXPECT_EQ(time.seconds(), 981173106) << zone;
    }
}

TEST_F(Time, JavaTimesMoveByTheChangeOfTheZoneSince1970) {
    useZone("CET-1CEST,M3.5.0,M10.5.0/3");
    PRBTime time;
    time.convertFromJavaTime(981173106000); // winter, as on the first day of 1970
    EXPECT_EQ(time.seconds(), 981173106);
    time.convertFromJavaTime(994132800000); // summer: an hour more
    EXPECT_EQ(time.seconds(), 994132800 + 3600);
    useZone("Europe/London"); // UTC+1 throughout 1970
    time.convertFromJavaTime(981173106000);
    EXPECT_EQ(time.seconds(), 981173106 - 3600);
    time.convertFromJavaTime(994132800000);
    EXPECT_EQ(time.seconds(), 994132800);
}

TEST_F(Time, DifferencesAreWholeSecondsWithinAnInt) {
    EXPECT_EQ(PRBTime(100) - PRBTime(130), -30);
    EXPECT_EQ(PRBTime(130) - PRBTime(100), 30);
    EXPECT_EQ(PRBTime(0x1000000000) - PRBTime(0), INT_MAX);
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(PRBTime(kMin) - PRBTime(kMax), INT_MIN);
    EXPECT_EQ(PRBTime(kMax) - PRBTime(kMin), INT_MAX);
}

// Against the system's own calendar, over four centuries and at odd seconds.
TEST_F(Time, FieldsAgreeWithTheSystemsCalendar) {
    constexpr std::int64_t kFirst = std::numeric_limits<std::time_t>::min();
    constexpr std::int64_t kLast = std::numeric_limits<std::time_t>::max();
    for (std::int64_t s = -6000000000; s < 7000000000; s += 86400 * 13 + 4711) {
        const std::tm own = PRBTime(s).fields(PRBTime::Zone::Utc);
        EXPECT_EQ(PRBTime(own.tm_year + 1900, own.tm_mon + 1, own.tm_mday, own.tm_hour, own.tm_min,
                          own.tm_sec, PRBTime::Zone::Utc)
                      .seconds(),
                  s);
        if (s < kFirst || s > kLast) continue;
        const auto t = static_cast<std::time_t>(s);
        std::tm theirs{};
        gmtime_r(&t, &theirs);
        EXPECT_EQ(own.tm_year, theirs.tm_year);
        EXPECT_EQ(own.tm_mon, theirs.tm_mon);
        EXPECT_EQ(own.tm_mday, theirs.tm_mday);
        EXPECT_EQ(own.tm_hour, theirs.tm_hour);
        EXPECT_EQ(own.tm_min, theirs.tm_min);
        EXPECT_EQ(own.tm_sec, theirs.tm_sec);
    }
}

TEST_F(Time, LocalTimesComeBackInEveryZone) {
    for (const char* zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "Asia/Kolkata",
                             "Australia/Lord_Howe", "Pacific/Apia", "<-0330>3:30"}) {
        useZone(zone);
        for (std::int64_t s = -100000000; s < 2100000000; s += 86400 * 41 + 12345) {
            const std::tm f = PRBTime(s).fields(PRBTime::Zone::Local);
            const PRBTime back =
                local(f.tm_year + 1900, f.tm_mon + 1, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec);
            EXPECT_LE(std::abs(back - PRBTime(s)), 3600) << zone << ' ' << s;
        }
    }
}

TEST_F(Time, TimesAtTheEndsOfTheRangeAreHarmless) {
    for (std::int64_t s : {std::numeric_limits<std::int64_t>::min(),
                           std::numeric_limits<std::int64_t>::max(), std::int64_t{5000000000}}) {
        useZone("CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_EQ(compact(PRBTime(s)).size(), 16u);
    }
    PRBTime time;
    time.convertFromCTTime("9999999999999999");
    time.convertFromCTTime("abcdefghijklmnop");
    time.convertFromJavaTime(std::numeric_limits<long long>::max());
    time.convertFromJavaTime(std::numeric_limits<long long>::min());
}

// The last minute before 1970 is the value that mktime also answers for failure.
TEST_F(Time, TheSecondBefore1970IsATime) {
    EXPECT_EQ(local(1969, 12, 31, 23, 59, 59).seconds(), -1);
}
