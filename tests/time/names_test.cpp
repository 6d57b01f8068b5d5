// Month, week-day and zone names both ways: every name and its number, and
// the texts the parsers refuse.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "orlo/exceptions.h"
#include "orlo/stringEx.h"
#include "orlo/time.h"

namespace {

using Orlo::CTime;
using Orlo::stringEx;

std::string Str(const stringEx& s) {
    return std::string(s.view());
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

const char* const kMonths[12][2] = {{"Jan", "January"}, {"Feb", "February"}, {"Mar", "March"},
                                    {"Apr", "April"},   {"May", "May"},      {"Jun", "June"},
                                    {"Jul", "July"},    {"Aug", "August"},   {"Sep", "September"},
                                    {"Oct", "October"}, {"Nov", "November"}, {"Dec", "December"}};
const char* const kWeekDays[7][2] = {{"Sun", "Sunday"},    {"Mon", "Monday"},   {"Tue", "Tuesday"},
                                     {"Wed", "Wednesday"}, {"Thu", "Thursday"}, {"Fri", "Friday"},
                                     {"Sat", "Saturday"}};

// The name inside blanks of the library's white-space set.
std::string Padded(const char* name) {
    std::string text = " \t";
    text.append(name).append("\n ");
    return text;
}

// "05": a number with a leading zero, which the parsers accept.
std::string ZeroFilled(uint32_t number) {
    char text[16];
    snprintf(text, sizeof text, "%02u", number);
    return text;
}

std::string Upper(std::string text) {
    for (char& ch : text)
        ch = char(toupper(static_cast<unsigned char>(ch)));
    return text;
}

TEST(MonthAndWeekDayNames, EveryNameBothWays) {
    for (uint32_t month = 1; month <= 12; ++month) {
        const auto& [shortName, fullName] = kMonths[month - 1];
        EXPECT_EQ(Str(CTime::MonthToStr(month)), shortName);
        EXPECT_EQ(Str(CTime::MonthToStr(month, true)), fullName);
        for (std::string text : {std::string(shortName), Upper(fullName), Padded(shortName),
                                 std::to_string(month), ZeroFilled(month)}) {
            EXPECT_EQ(CTime::StrToMonth(stringEx(text.c_str())), month) << "'" << text << "'";
        }
    }
    for (int32_t day = 0; day <= 6; ++day) {
        const auto& [shortName, fullName] = kWeekDays[day];
        EXPECT_EQ(Str(CTime::WeekDayToStr(day)), shortName);
        EXPECT_EQ(Str(CTime::WeekDayToStr(day, true)), fullName);
        for (std::string text : {Upper(shortName), Padded(fullName), std::to_string(day)})
            EXPECT_EQ(CTime::StrToWeekDay(stringEx(text.c_str())), day) << "'" << text << "'";
    }
}

TEST(MonthAndWeekDayNames, RefusedTexts) {
    EXPECT_EQ(Thrown([] { CTime::MonthToStr(13); }), "CTime::MonthToStr - Unknown Month : 13 #3");
    EXPECT_EQ(Thrown([] { CTime::WeekDayToStr(-1); }),
              "CTime::WeekDayToStr - Unknown Weekday : -1 #4");
    // The message quotes the text as it was given, untrimmed.
    EXPECT_EQ(Thrown([] { CTime::StrToMonth(stringEx(" sept")); }),
              "CTime::StrToMonth - Unknown Month :  sept #3");
    EXPECT_EQ(Thrown([] { CTime::StrToWeekDay(stringEx("Sundays")); }),
              "CTime::StrToWeekDay - Unknown Weekday : Sundays #4");
    EXPECT_NE(Thrown([] { CTime::WeekDayToStr(7); }), "no throw");
    for (const char* text : {"0", "13", "+3", "3rd", "1 2", "janu", "4294967297", ""}) {
        EXPECT_NE(Thrown([&] { CTime::StrToMonth(stringEx(text)); }), "no throw") << text;
    }
    for (const char* text : {"7", "-0", "sund", ""}) {
        EXPECT_NE(Thrown([&] { CTime::StrToWeekDay(stringEx(text)); }), "no throw") << text;
    }
}

TEST(ZoneNames, ToText) {
    const struct {
        int16_t zone;
        const char* expected;
    } cases[] = {{Orlo::kLocalZone, "Local"}, {0, "UTC"},
                 {-330, "UTC-0530"},          {1, "UTC+0001"},
                 {845, "UTC+1405"},           {32767, "UTC+54607"}};
    for (const auto& c : cases)
        EXPECT_EQ(Str(CTime::ZoneToStr(c.zone)), c.expected) << c.zone;
}

TEST(ZoneNames, FromText) {
    const struct {
        const char* text;
        int16_t zone;
        const char* why;
    } cases[] = {
        {"", Orlo::kLocalZone, "empty"},
        {"Local", Orlo::kLocalZone, "no zone name, like anything else"},
        {" NOTZ ", 0, "trimmed"},
        {"UTC", 0, "a bare prefix"},
        {"GMT+8", 480, ""},
        {"utc+8:30", 510, ""},
        {"UT-3", -180, "two-letter prefix"},
        {"+0530", 330, "no prefix, but a sign"},
        {"0800", 480, "no prefix, but a digit"},
        {"+8:5", 485, "one digit of minutes after the colon"},
        {"+123", 723, "two digits of hours, then what is left"},
        {"UTCX", 0, "no sign, no digits: zero"},
        {"UTC+08:00 (China)", 480, "text behind the minutes is ignored"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CTime::StrToZone(stringEx(c.text)), c.zone) << "'" << c.text << "' " << c.why;
    }
}

TEST(ZoneNames, EveryZoneOfADayRoundTrips) {
    for (int zone = -1439; zone <= 1439; ++zone) {
        const auto z = static_cast<int16_t>(zone);
        ASSERT_EQ(CTime::StrToZone(CTime::ZoneToStr(z)), z);
    }
    EXPECT_EQ(CTime::StrToZone(CTime::ZoneToStr(Orlo::kLocalZone)), Orlo::kLocalZone);
}

}  // namespace
