// Calendar arithmetic of CTime against gmtime_r over the whole count and a
// day-by-day count around year 1 and the leap rule's exceptions; then Set,
// the setters and time_t.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "orlo/exceptions.h"
#include "orlo/time.h"

namespace {

using Orlo::CTime;
using Orlo::kUsPerDay;
using Orlo::kUsPerSecond;
using Orlo::TimeFields;

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

std::string Show(int32_t year, int month, int day, int doy, int wd, int h, int m, int sec,
                 int64_t us, int zone) {
    char text[120];
    snprintf(text, sizeof text, "%d-%d-%d doy %d wd %d %d:%d:%d.%lld z %d", year, month, day, doy,
             wd, h, m, sec, static_cast<long long>(us), zone);
    return text;
}

std::string Show(const TimeFields& f) {
    return Show(f.year, int(f.month), f.day, f.dayOfYear, f.weekDay, f.hour, f.minute, f.second,
                f.microsecond, f.zone);
}

// The fields gmtime_r gives, shown; its year 0 is the library's year -1.
std::string ShowGmtime(int64_t us) {
    int64_t seconds = us / kUsPerSecond;
    int64_t micro = us % kUsPerSecond;
    if (micro < 0) --seconds, micro += kUsPerSecond;
    const time_t t = static_cast<time_t>(seconds);
    tm p{};
    if (!gmtime_r(&t, &p)) return "gmtime_r failed";
    const int64_t year = int64_t(p.tm_year) + 1900;
    return Show(int32_t(year < 1 ? year - 1 : year), p.tm_mon + 1, p.tm_mday, p.tm_yday + 1,
                p.tm_wday, p.tm_hour, p.tm_min, p.tm_sec, micro, 0);
}

TimeFields Fields(int32_t year, uint32_t month, uint16_t day, uint16_t hour, int16_t zone) {
    TimeFields f;
    f.year = year;
    f.month = month;
    f.day = day;
    f.hour = hour;
    f.zone = zone;
    return f;
}

// A timeExp's text and code, or "no throw".
template <class Body>
std::string Thrown(Body&& body) {
    try {
        body();
    } catch (const Orlo::timeExp& e) {
        return std::string(e.message.view()) + " #" + std::to_string(e.code);
    }
    return "no throw";
}

TimeFields ToFields(int64_t us, int16_t zone = 0) {
    TimeFields f;
    CTime(us).ToFields(f, zone);
    return f;
}

TEST(CalendarOracle, AgreesWithGmtimeOverRandomValues) {
    std::mt19937_64 random(20240305);
    // The whole count, and the proleptic centuries around year 1.
    std::uniform_int_distribution<int64_t> anywhere(kMin, kMax);
    std::uniform_int_distribution<int64_t> aroundYearOne(-800 * kUsPerDay * 365,
                                                         -600 * kUsPerDay * 365);
    int failures = 0;
    for (int64_t us :
         {kMin + kUsPerSecond, kMin + kUsPerSecond + 1, kMax - 1, kMax, int64_t(0), int64_t(-1)}) {
        EXPECT_EQ(Show(ToFields(us)), ShowGmtime(us)) << us;
    }
    for (int i = 0; i < 2000000 && failures < 5; ++i) {
        const int64_t us = i % 2 == 0 ? anywhere(random) : aroundYearOne(random);
        const std::string expected = ShowGmtime(us);
        const std::string actual = Show(ToFields(us));
        if (actual == expected) continue;
        ++failures;
        ADD_FAILURE() << "us " << us << "\n  expected " << expected << "\n  actual   " << actual;
    }
}

// The leap rule in the numbering without a year 0: year -1 counts as year 0.
bool CountedLeap(int32_t year) {
    const int64_t y = year < 1 ? year + 1 : year;
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int32_t YearAfter(int32_t year) {
    return year == -1 ? 1 : year + 1;
}

// Days from 1970-01-01 to January 1 of `year`, year by year.
int64_t CountedDaysToYear(int32_t year) {
    int64_t days = 0;
    for (int32_t y = year; y < 1970; y = YearAfter(y))
        days -= CountedLeap(y) ? 366 : 365;
    for (int32_t y = 1970; y < year; ++y)
        days += CountedLeap(y) ? 366 : 365;
    return days;
}

struct DateCase {
    int32_t year;
    uint32_t month;
    uint16_t day;
    int32_t weekDay;  // counted from 0001-01-01, a Monday, not taken from the code
    const char* why;
};

TEST(CalendarDayCount, DatesAroundYearOneAndTheLeapExceptions) {
    const DateCase cases[] = {
        {1970, 1, 1, 4, "the epoch"},
        {2000, 2, 29, 2, "divisible by 400: leap"},
        {2100, 2, 28, 0, "divisible by 100 only: common"},
        {1, 1, 1, 1, "the first day of year 1 was a Monday"},
        {-1, 12, 31, 0, "the day before year 1 lies in year -1"},
        {-1, 2, 29, 2, "year -1 is a leap year"},
        {-2, 3, 1, 1, "year -2 is common: March 1 follows February 28"},
        {-101, 3, 1, 4, "year -101 counts as -100: common"},
        {-401, 2, 29, 2, "year -401 counts as -400: leap"},
    };
    for (const DateCase& c : cases) {
        SCOPED_TRACE(c.why);
        int64_t days = CountedDaysToYear(c.year) + c.day - 1;
        uint16_t dayOfYear = c.day;
        for (uint32_t m = 1; m < c.month; ++m) {
            const uint32_t length = m == 2 ? (CountedLeap(c.year) ? 29 : 28)
                                           : (m == 4 || m == 6 || m == 9 || m == 11 ? 30 : 31);
            days += length;
            dayOfYear = uint16_t(dayOfYear + length);
        }
        const int64_t us = days * kUsPerDay + 45296789012;  // 12:34:56.789012
        const TimeFields f = ToFields(us);
        EXPECT_EQ(f.year, c.year);
        EXPECT_EQ(f.month, c.month);
        EXPECT_EQ(f.day, c.day);
        EXPECT_EQ(f.dayOfYear, dayOfYear);
        EXPECT_EQ(f.weekDay, c.weekDay);
        EXPECT_EQ(f.hour * 10000 + f.minute * 100 + f.second, 123456);
        EXPECT_EQ(f.microsecond, 789012u);
        EXPECT_EQ(CTime(f).us, us) << "Set gives the value back";
    }
}

TEST(CalendarDayCount, LeapYearsAndMonthLengths) {
    struct {
        uint32_t month;
        int32_t year;
        uint32_t days;
    } const cases[] = {{2, 2000, 29}, {2, 2100, 28}, {2, 2023, 28}, {2, -1, 29}, {4, 1, 30}};
    for (const auto& c : cases) {
        EXPECT_EQ(CTime::GetNumOfDays(c.month, c.year), c.days) << c.month << "/" << c.year;
        EXPECT_EQ(CTime::IsLeapYear(c.year), c.month == 2 && c.days == 29) << c.year;
    }
    TimeFields present;
    CTime::now().ToFields(present, Orlo::kLocalZone);
    EXPECT_EQ(CTime::IsLeapYear(0), CTime::IsLeapYear(present.year)) << "0 is the present year";
}

TEST(CalendarSet, RoundTripsInEveryZone) {
    std::mt19937_64 random(7);
    // Far enough from the ends that a zone's shift can't wrap.
    std::uniform_int_distribution<int64_t> value(kMin / 2, kMax / 2);
    std::uniform_int_distribution<int> zone(-1439, 1439);
    for (int i = 0; i < 200000; ++i) {
        const int64_t us = value(random);
        TimeFields f;
        CTime(us).ToFields(f, int16_t(zone(random)));
        ASSERT_EQ(CTime(f).us, us) << Show(f);
    }
    TimeFields local;
    CTime(123456789).ToFields(local, Orlo::kLocalZone);
    EXPECT_EQ(local.zone, Orlo::IMPL::LocalZoneBias());
    local.zone = Orlo::kLocalZone;
    EXPECT_EQ(CTime(local).us, 123456789) << "the local zone composes with the same bias";
}

TEST(CalendarSet, FieldsPastTheirRangeCarry) {
    TimeFields f = Fields(2023, 1, 32, 25, 60);
    // February 2, 01:00 at UTC+1 is 00:00 UTC.
    EXPECT_EQ(Show(ToFields(CTime(f).us)), "2023-2-2 doy 33 wd 4 0:0:0.0 z 0");
    EXPECT_EQ(Show(ToFields(CTime(Fields(2023, 1, 0, 0, 0)).us)),
              "2022-12-31 doy 365 wd 6 0:0:0.0 z 0");
}

TEST(CalendarSet, InvalidMonthsAndDaysOfYear) {
    TimeFields f = Fields(2023, 13, 1, 0, 0);
    CTime t(777);
    EXPECT_EQ(Thrown([&] { t.Set(f); }), "CTime::Set - invalid month value #3");
    EXPECT_EQ(t.us, 777) << "a refused Set leaves the value";
    EXPECT_EQ(Thrown([&] { t.SetMonth(13, 0); }), "CTime::SetMonth - invalid month value #3");

    f.month = 5;
    f.day = 17;
    t.Set(f);
    EXPECT_EQ(Thrown([&] { t.SetDayOfYear(366, -90); }),
              "CTime::SetDayOfYear - Invalid day of year\n"
              "  current obj's year          = 2023\n"
              "  current timezone in minutes = -90\n"
              "  the day of year value       = 366 #4");
}

TEST(CalendarSet, SettersChangeOneFieldInTheirZone) {
    TimeFields f = Fields(2024, 1, 31, 23, 120);
    f.minute = 30;
    const CTime base(f);
    struct {
        const char* what;
        CTime (*change)(CTime);
        const char* expected;  // read back at UTC+2
    } const cases[] = {
        {"year", [](CTime t) { return t.SetYear(-1, 120); }, "-1-1-31 doy 31 wd 1 23:30:0.0 z 120"},
        {"month into a short one carries", [](CTime t) { return t.SetMonth(2, 120); },
         "2024-3-2 doy 62 wd 6 23:30:0.0 z 120"},
        {"day of a leap year", [](CTime t) { return t.SetDayOfYear(366, 120); },
         "2024-12-31 doy 366 wd 2 23:30:0.0 z 120"},
        {"hour", [](CTime t) { return t.SetHour(0, 120); }, "2024-1-31 doy 31 wd 3 0:30:0.0 z 120"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Show(ToFields(c.change(base).us, 120)), c.expected) << c.what;

    // The zone decides which fields are read and rebuilt: midnight of
    // January 31 in UTC comes two hours after midnight of January 31 at UTC+2.
    EXPECT_EQ(CTime(base).SetHour(0, 0).us - CTime(base).SetHour(0, 120).us, 2 * Orlo::kUsPerHour);
}

TEST(CalendarTimeT, SecondsRoundTowardThePastWithinTheTargetsRange) {
    for (const auto& [us, seconds] : {std::pair<int64_t, time_t>{999999, 0},
                                      {1000000, 1},
                                      {-1, -1},
                                      {-1000000, -1},
                                      {-1000001, -2}})
        EXPECT_EQ(CTime(us).GetTime_T(), seconds) << us;
    EXPECT_EQ(CTime().SetTime_T(-7).us, -7000000);

    using Orlo::IMPL::FitsSeconds;
    constexpr int64_t bottom = int64_t(INT32_MIN) * kUsPerSecond;
    EXPECT_TRUE(FitsSeconds<int32_t>(int64_t(INT32_MAX) * kUsPerSecond + 999999));
    EXPECT_TRUE(FitsSeconds<int32_t>(bottom));
    EXPECT_FALSE(FitsSeconds<int32_t>(bottom - 1)) << "the floor takes it below the range";

    if constexpr (sizeof(time_t) < 8) {
        EXPECT_EQ(Thrown([] { CTime(kMax).GetTime_T(); }),
                  "CTime::GetTime_T - out of range when converting to time_t\n"
                  "  seconds offset = 9223372036854 #2");
    } else {
        EXPECT_EQ(CTime(kMin).GetTime_T(), kMin / kUsPerSecond - 1);
    }
}

}  // namespace
