// Text forms: the escapes of CTime::Format and CTimeSpan::Format and the
// expansion around them.

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "orlo/stringEx.h"
#include "orlo/time.h"

namespace {

using Orlo::CTime;
using Orlo::CTimeSpan;
using Orlo::stringEx;
using Orlo::TimeFields;

std::string Str(const stringEx& s) {
    return std::string(s.view());
}

// A point given in UTC.
CTime At(int32_t year, uint32_t month, uint16_t day, uint16_t hour = 0, uint16_t minute = 0,
         uint16_t second = 0, uint32_t microsecond = 0) {
    TimeFields f;
    f.year = year;
    f.month = month;
    f.day = day;
    f.hour = hour;
    f.minute = minute;
    f.second = second;
    f.microsecond = microsecond;
    f.zone = 0;
    return CTime(f);
}

struct TimeCase {
    CTime time;
    int16_t zone;
    const char* format;
    const char* expected;
    const char* why = "";
};

TEST(TimeFormat, Escapes) {
    const CTime tuesday = At(2024, 3, 5, 14, 7, 9, 250123);
    const TimeCase cases[] = {
        {tuesday, 0, "%Y-%M-%d %H:%T:%S.%us UTC%Z", "2024-03-05 14:07:09.250123 UTC+0000"},
        {tuesday, 0, "%B, %d %A %Y %H:%T:%S GMT", "Tue, 05 Mar 2024 14:07:09 GMT"},
        {tuesday, 0, "%y|%D|%W|%wm|%ws|%h|%P|%p|%ms|%z|%C", "24|065|2|10|09|2|PM|pm|250|0|21"},
        {tuesday, 480, "%H:%T %Z %z", "22:07 +0800 480"},
        {tuesday, -848, "%M-%d %H:%T %Z", "03-04 23:59 -1408", "a day back"},
        {CTime(0), 0, "%Y-%M-%d %D %W %B", "1970-01-01 001 4 Thu"},
        {CTime(-1), 0, "%Y-%M-%d %H:%T:%S.%us %y", "1969-12-31 23:59:59.999999 1969"},
        {At(2038, 6, 1), 0, "%y", "38"},
        {At(2039, 1, 1), 0, "%y", "2039"},
        {At(5, 1, 1), 0, "%Y %y", "5 05", "the whole year, still two digits wide"},
        {At(-45, 3, 15), 0, "%Y %y %C %D", "-45 -45 -1 075", "year -45 counts as -44: leap"},
        {At(1999, 12, 31), 0, "%C", "20"},
        {At(2024, 1, 1, 0, 30), 0, "%h %P %p", "12 AM am"},
        {At(2024, 1, 1, 13, 0), 0, "%h %P", "1 PM"},
        {At(2024, 3, 3), 0, "%W %B %wm %ws", "7 Sun 09 09", "Sunday reads 7"},
        {At(2025, 1, 6), 0, "%B %wm", "Mon 01", "the first whole week shares number 1"},
        {At(2024, 12, 31), 0, "%D %wm %ws", "366 53 52"},
        {At(2024, 1, 1, 0, 0, 0, 999), 0, "%S.%ms|%us", "00.000|000999"},
    };
    for (const TimeCase& c : cases) {
        EXPECT_EQ(Str(c.time.Format(stringEx::view(c.format), c.zone)), c.expected)
            << c.format << " at zone " << c.zone << " " << c.why;
    }
}

TEST(TimeFormat, TheExpansionAroundEscapes) {
    const CTime t = At(2024, 3, 5, 14, 7, 9, 250123);
    const struct {
        const char* format;
        const char* expected;
        const char* why;
    } cases[] = {
        {"%%", "%", "a doubled escape is one percent sign"},
        {"100%", "100", "a final percent sign is dropped"},
        {"%Q", "Q", "unknown: the percent sign goes, the letter stays"},
        {"%wx", "wx", "w alone is no name"},
        {"%Ms", "03s", "case counts: M is the month, ms the millisecond"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Str(t.Format(stringEx::view(c.format), 0)), c.expected) << c.why;
}

struct SpanCase {
    int64_t us;
    const char* format;
    const char* expected;
    const char* why = "";
};

TEST(SpanFormat, Escapes) {
    constexpr int64_t kMixed = 8 * Orlo::kUsPerDay + 3 * Orlo::kUsPerHour + 1500;
    const SpanCase cases[] = {
        {90061000000, "%TH %PH %PM %PS", "25 01 01 01", "1 day 1 hour 1 minute 1 second"},
        {0, "%TH|%sTH|%W|%TD|%PD|%Pms|%Pus|%Tus", "00|0|0|0|0|000|000|0"},
        {kMixed, "%W %TD %PD %TH %PH", "1 8 1 195 03"},
        {kMixed, "%Tms %Pms %Tus %Pus", "702000001 001 702000001500 500"},
        {-90 * Orlo::kUsPerMinute, "%TH:%PM", "-01:30"},
        {-500, "%TS.%Pms%Pus", "0.000500", "a total of 0 has no sign"},
        {std::numeric_limits<int64_t>::min(), "%Tus", "-9223372036854775808"},
        {std::numeric_limits<int64_t>::max(), "%W %Pus", "15250284 807"},
        {Orlo::kUsPerSecond, "%X|%T|%sth|%Tmsx|%%TS", "X|T|sth|1000x|%TS"},
    };
    for (const SpanCase& c : cases) {
        EXPECT_EQ(Str(CTimeSpan(c.us).Format(stringEx::view(c.format))), c.expected)
            << c.format << " of " << c.us << " " << c.why;
    }
}

}  // namespace
