// Text forms: the escapes of CTime::Format and CTimeSpan::Format, the
// expansion around them, the strings Format is handed, and bad input.

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "orlo/stringEx.h"
#include "orlo/time.h"
#include "orlo/time_escapes.h"

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
        {tuesday, -330, "%d %H:%T %Z %z", "05 08:37 -0530 -330"},
        {tuesday, -848, "%M-%d %H:%T %Z", "03-04 23:59 -1408", "a day back"},
        {CTime(0), 0, "%Y-%M-%d %D %W %B", "1970-01-01 001 4 Thu"},
        {CTime(-1), 0, "%Y-%M-%d %H:%T:%S.%us %y", "1969-12-31 23:59:59.999999 1969"},
        {At(2038, 6, 1), 0, "%y", "38"},
        {At(2039, 1, 1), 0, "%y", "2039"},
        {At(5, 1, 1), 0, "%Y %y", "5 05", "the whole year, still two digits wide"},
        {At(-45, 3, 15), 0, "%Y %y %C %D", "-45 -45 -1 075", "year -45 counts as -44: leap"},
        {At(-150, 1, 1), 0, "%C", "-2"},
        {At(1999, 12, 31), 0, "%C", "20"},
        {At(2024, 1, 1, 0, 30), 0, "%h %P %p", "12 AM am"},
        {At(2024, 1, 1, 12, 0), 0, "%h %p", "12 pm"},
        {At(2024, 1, 1, 13, 0), 0, "%h %P", "1 PM"},
        {At(2024, 3, 3), 0, "%W %B %wm %ws", "7 Sun 09 09", "Sunday reads 7"},
        {At(2025, 1, 1), 0, "%B %wm %ws", "Wed 01 01"},
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
        {"%%Y", "%Y", "and is not read as an escape"},
        {"100%", "100", "a final percent sign is dropped"},
        {"%Q", "Q", "unknown: the percent sign goes, the letter stays"},
        {"%wx", "wx", "w alone is no name"},
        {"%Ms", "03s", "case counts: M is the month, ms the millisecond"},
        {"%Y%M", "202403", "escapes back to back"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Str(t.Format(stringEx::view(c.format), 0)), c.expected) << c.why;
}

TEST(TimeFormat, StringsItIsHanded) {
    const CTime t = At(2024, 3, 5);
    // FormatTo over a view gets a block of its own.
    char borrowed[] = "borrowed memory";
    stringEx output = stringEx::view(borrowed);
    t.FormatTo(output, stringEx::view("%d"), 0);
    EXPECT_EQ(Str(output), "05");
    EXPECT_STREQ(borrowed, "borrowed memory");

    // Reused output keeps its block; the text may be the output itself.
    stringEx reused("%Y-%M-%d and some room to spare");
    t.FormatTo(reused, reused, 0);
    EXPECT_EQ(Str(reused), "2024-03-05 and some room to spare");
    const char* block = reused.c_str();
    t.FormatTo(reused, stringEx::view("%M"), 0);
    EXPECT_EQ(Str(reused), "03");
    EXPECT_EQ(reused.c_str(), block);

    // A shared text stays as it was.
    const stringEx shared("%Y");
    stringEx sameBlock = shared;
    t.FormatTo(sameBlock, sameBlock, 0);
    EXPECT_EQ(Str(sameBlock), "2024");
    EXPECT_EQ(Str(shared), "%Y");
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
        {90061000000, "%TD %PD %W %TM %TS", "1 1 0 1501 90061"},
        {0, "%TH|%sTH|%W|%TD|%PD|%Pms|%Pus|%Tus", "00|0|0|0|0|000|000|0"},
        {kMixed, "%W %TD %PD %TH %PH", "1 8 1 195 03"},
        {kMixed, "%Tms %Pms %Tus %Pus", "702000001 001 702000001500 500"},
        {-90 * Orlo::kUsPerMinute, "%TH:%PM", "-01:30"},
        {-90 * Orlo::kUsPerMinute, "%sTH %TM %PS", "-1 -90 00"},
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

TEST(FormatBadInput, AnyTextAndAnyRecordFormatWithoutACrash) {
    std::mt19937_64 random(99);
    const std::string alphabet = "%%%%YyMAdDWwmsBHhTSuPpZzC?";
    std::uniform_int_distribution<int64_t> anyValue(std::numeric_limits<int64_t>::min(),
                                                    std::numeric_limits<int64_t>::max());
    for (int i = 0; i < 20000; ++i) {
        std::string format;
        for (int n = int(random() % 12); n > 0; --n)
            format += alphabet[random() % alphabet.size()];
        const auto zone = static_cast<int16_t>(random());
        const stringEx text(format.c_str());
        // Each escape writes at most 20 bytes.
        EXPECT_LE(CTime(anyValue(random)).Format(text, zone).size(), 20 * format.size() + 1);
        EXPECT_LE(CTimeSpan(anyValue(random)).Format(text).size(), 20 * format.size() + 1);
    }

    // A record filled by hand with values no conversion produces.
    TimeFields odd;
    odd.month = 0;
    odd.weekDay = 9;
    odd.dayOfYear = 0;
    Orlo::CTimeStrEscapeCmd command(odd);
    stringEx text("[%A|%B|%wm|%ws|%W]");
    text.ExpandEscapes('%', command, true, false);
    EXPECT_EQ(Str(text), "[||01|01|9]");
}

}  // namespace
