// Time: CTime, a point in time, and CTimeSpan, a length of time, both one
// signed 64-bit count of microseconds, plus TimeFields, the broken-down
// calendar form of a point in a given zone.
//
// All calendar work is the library's own arithmetic over the proleptic
// Gregorian calendar, so every value of the 64-bit count (about 292000 years
// either side of 1970) has a calendar form, with no limit of the system's
// time_t and no C library call but the clock and the local zone bias. There
// is no year 0: year -1 is followed by year 1, and year -1 is a leap year.
//
// A value carries no zone. Each conversion takes one, in minutes east of UTC;
// kLocalZone (-32768) stands for the local zone, whose bias is read once per
// process and never follows daylight saving.
//
// Text forms: CTime::Format and CTimeSpan::Format expand "%" escapes whose
// names may be several letters long ("%Y-%M-%d %H:%T:%S.%us"); the escape
// commands that do it are in orlo/time_escapes.h.
//
// A value belongs to its owner; the static services are thread-safe.

#ifndef ORLO_TIME_H
#define ORLO_TIME_H

#include <compare>
#include <cstdint>
#include <ctime>
#include <limits>

#include "orlo/stringEx.h"

namespace Orlo {

// The zone argument that means "the local zone of this process".
inline constexpr int16_t kLocalZone = -32768;

// Microseconds in the calendar units.
inline constexpr int64_t kUsPerSecond = 1000000;
inline constexpr int64_t kUsPerMinute = 60 * kUsPerSecond;
inline constexpr int64_t kUsPerHour = 60 * kUsPerMinute;
inline constexpr int64_t kUsPerDay = 24 * kUsPerHour;

// The broken-down form of a point in time. The defaults make an unset
// record: month 0 and weekDay 7 are values no conversion produces.
struct TimeFields {
    int32_t year = 0;        // never 0 once set: -1 is followed by 1
    uint32_t month = 0;      // 1 to 12
    uint16_t dayOfYear = 1;  // 1 to 366
    uint16_t day = 1;        // 1 to 31
    int32_t weekDay = 7;     // 0 Sunday to 6 Saturday
    uint16_t hour = 0;
    uint16_t minute = 0;
    uint16_t second = 0;
    uint32_t microsecond = 0;   // 0 to 999999
    int16_t zone = kLocalZone;  // minutes east of UTC

    bool operator==(const TimeFields&) const = default;
};

class CTimeSpan;

class CTime {
  public:
    // Microseconds since 1970-01-01 00:00:00 UTC. Public: the locks and the
    // loggers read and write it directly.
    int64_t us = 0;

    // The value `now` gives when the clock fails: high word 0x80000000, low
    // word 0, which is also the least value of the count.
    static constexpr int64_t kNullValue = INT64_MIN;

    constexpr CTime() noexcept = default;
    constexpr explicit CTime(int64_t microseconds) noexcept : us(microseconds) {}
    // From a broken-down record; see Set.
    explicit CTime(const TimeFields& fields) { Set(fields); }

    // The present time from gettimeofday, or the null value if the clock
    // fails. Never throws.
    static CTime now() noexcept;

    // True for the value `now` gives when the clock fails.
    constexpr bool IsNull() const noexcept { return us == kNullValue; }

    // ---- calendar form ------------------------------------------------------------

    // Fills every field of `fields` with this point seen in `zone` (minutes
    // east of UTC, or kLocalZone); fields.zone receives the minutes used, so
    // the local zone comes back as its bias. Never throws.
    void ToFields(TimeFields& fields, int16_t zone = kLocalZone) const noexcept;

    // Sets the value from year, month, day, hour, minute, second,
    // microsecond and zone of `fields` (dayOfYear and weekDay are ignored).
    // Year 0 means the present year in the local zone. A day, hour, minute,
    // second or microsecond beyond its range is not refused: it carries into
    // the next unit, so day 32 of January is February 1 and day 0 the last
    // of December. A year beyond the reach of the count (about 292000 years
    // from 1970) wraps around rather than fail.
    // Throws timeExp (InvalidMonth) "CTime::Set - invalid month value" for a
    // month outside 1 to 12, and leaves the value unchanged then.
    CTime& Set(const TimeFields& fields);

    // Seconds since the epoch, rounded toward the past so that a value just
    // before the epoch is -1. Throws timeExp (OutOfRange) "CTime::GetTime_T -
    // out of range when converting to time_t\n" when the seconds do not fit
    // the system's time_t.
    time_t GetTime_T() const;

    // Sets the value from seconds since the epoch. Never throws.
    CTime& SetTime_T(time_t seconds) noexcept;

    // ---- one field changed --------------------------------------------------------
    // Each setter reads the calendar form in `zone`, changes one field and
    // rebuilds the value in the same zone; the other fields stay as they read.
    // A day that the new month or year lacks carries into the next month, as
    // in Set. Only SetMonth and SetDayOfYear refuse a value.

    // Year 0 means the present year in the local zone.
    CTime& SetYear(int32_t year, int16_t zone = kLocalZone);
    // Throws timeExp (InvalidMonth) "CTime::SetMonth - invalid month value"
    // for a month outside 1 to 12.
    CTime& SetMonth(uint32_t month, int16_t zone = kLocalZone);
    CTime& SetDay(uint16_t day, int16_t zone = kLocalZone);
    // Moves to that day of the same year, keeping the time of day. Throws
    // timeExp (InvalidDay) "CTime::SetDayOfYear - Invalid day of year\n" with
    // the year, the zone in minutes and the value when the year has no such
    // day (0, or 366 in a common year).
    CTime& SetDayOfYear(uint16_t dayOfYear, int16_t zone = kLocalZone);
    CTime& SetHour(uint16_t hour, int16_t zone = kLocalZone);
    CTime& SetMinute(uint16_t minute, int16_t zone = kLocalZone);
    CTime& SetSecond(uint16_t second, int16_t zone = kLocalZone);
    CTime& SetMicrosecond(uint32_t microsecond, int16_t zone = kLocalZone);

    // ---- calendar rules -------------------------------------------------------------

    // Whether `year` has 366 days. Year -1 is the astronomical year 0 and so
    // a leap year; year 0 means the present year in the local zone.
    static bool IsLeapYear(int32_t year) noexcept;
    // Days of `month` (1 to 12) in `year` (0 for the present year). Throws
    // timeExp (InvalidMonth) "CTime::GetNumOfDays - invalid month value".
    static uint32_t GetNumOfDays(uint32_t month, int32_t year);

    // ---- text forms -----------------------------------------------------------------

    // `text` with each "%" escape replaced by a part of this point seen in
    // `zone` ("%Y-%M-%d %H:%T:%S" gives "2024-03-05 14:07:09"); the escapes
    // are listed in orlo/time_escapes.h. "%%" gives "%"; the "%" of an
    // unknown escape is dropped and the letters behind it stay; a "%" at the
    // end is dropped. Never throws but std::bad_alloc.
    stringEx Format(const stringEx& text, int16_t zone = kLocalZone) const;
    // The same, written over `output` so that a caller that formats often
    // can keep reusing one block. `text` may be `output` itself.
    void FormatTo(stringEx& output, const stringEx& text, int16_t zone = kLocalZone) const;

    // "Jan" to "Dec", or "January" to "December" with `fullName`, as a view
    // of a constant text (unview it before writing to it). Throws
    // timeExp (InvalidMonth) "CTime::MonthToStr - Unknown Month : " and the
    // number for a month outside 1 to 12.
    static stringEx MonthToStr(uint32_t month, bool fullName = false);
    // 1 to 12 from the number, the three-letter form or the English name,
    // trimmed and in any case ("  SEPT" fails, " sep " and "September" do
    // not). Throws timeExp (InvalidMonth) "CTime::StrToMonth - Unknown Month
    // : " and the text for anything else.
    static uint32_t StrToMonth(const stringEx& text);
    // "Sun" to "Sat", or "Sunday" to "Saturday" with `fullName`, for 0 to 6,
    // as a view of a constant text.
    // Throws timeExp (InvalidDay) "CTime::WeekDayToStr - Unknown Weekday : "
    // and the number for anything else.
    static stringEx WeekDayToStr(int32_t weekDay, bool fullName = false);
    // 0 (Sunday) to 6 from the number, the three-letter form or the English
    // name, as StrToMonth. Throws timeExp (InvalidDay) "CTime::StrToWeekDay -
    // Unknown Weekday : " and the text for anything else.
    static int32_t StrToWeekDay(const stringEx& text);

    // "Local" for kLocalZone, "UTC" for 0, otherwise "UTC", the sign and
    // hours and minutes: 480 gives "UTC+0800", -330 "UTC-0530". Never throws
    // but std::bad_alloc.
    static stringEx ZoneToStr(int16_t zone);
    // Minutes east of UTC from a zone name: "UTC", "GMT+8", "utc+8:30",
    // "+0530", "-3". An empty text and anything that is no zone name give
    // kLocalZone; "NOTZ" and a bare prefix give 0. Text behind the minutes
    // is ignored. Never throws but std::bad_alloc.
    static int16_t StrToZone(const stringEx& text);

    // Sets the system clock to this value with settimeofday. Throws timeExp
    // (OutOfRange) "SetSysTime - overflow when converting to time_t\n" when
    // the seconds do not fit time_t, and timeExp (SetSystemTime) "SetSysTime
    // - system error, failed set system time\n" with the error number and its
    // description when the system refuses (EPERM without privilege).
    void SetSysTime() const;

    // ---- arithmetic -------------------------------------------------------------------

    CTime& operator+=(const CTimeSpan& span) noexcept;
    CTime& operator-=(const CTimeSpan& span) noexcept;
    auto operator<=>(const CTime&) const = default;
};

class CTimeSpan {
  public:
    // Signed length in microseconds.
    int64_t us = 0;

    constexpr CTimeSpan() noexcept = default;
    constexpr explicit CTimeSpan(int64_t microseconds) noexcept : us(microseconds) {}

    static constexpr CTimeSpan Milliseconds(int64_t ms) noexcept { return CTimeSpan(ms * 1000); }
    static constexpr CTimeSpan Seconds(int64_t s) noexcept { return CTimeSpan(s * kUsPerSecond); }
    static constexpr CTimeSpan Minutes(int64_t m) noexcept { return CTimeSpan(m * kUsPerMinute); }
    static constexpr CTimeSpan Hours(int64_t h) noexcept { return CTimeSpan(h * kUsPerHour); }
    static constexpr CTimeSpan Days(int64_t d) noexcept { return CTimeSpan(d * kUsPerDay); }

    // `text` with each "%" escape replaced by a part of this span: "%TH:%PM:%PS"
    // of 90061 seconds gives "25:01:01". The escapes are listed in
    // orlo/time_escapes.h; the rules for "%%", unknown escapes and a final
    // "%" are those of CTime::Format. Never throws but std::bad_alloc.
    stringEx Format(const stringEx& text) const;

    CTimeSpan& operator+=(const CTimeSpan& other) noexcept {
        us += other.us;
        return *this;
    }
    CTimeSpan& operator-=(const CTimeSpan& other) noexcept {
        us -= other.us;
        return *this;
    }
    constexpr CTimeSpan operator-() const noexcept { return CTimeSpan(-us); }
    auto operator<=>(const CTimeSpan&) const = default;
};

inline CTime& CTime::operator+=(const CTimeSpan& span) noexcept {
    us += span.us;
    return *this;
}
inline CTime& CTime::operator-=(const CTimeSpan& span) noexcept {
    us -= span.us;
    return *this;
}

constexpr CTime operator+(CTime time, CTimeSpan span) noexcept {
    return CTime(time.us + span.us);
}
constexpr CTime operator+(CTimeSpan span, CTime time) noexcept {
    return CTime(time.us + span.us);
}
constexpr CTime operator-(CTime time, CTimeSpan span) noexcept {
    return CTime(time.us - span.us);
}
constexpr CTimeSpan operator-(CTime later, CTime earlier) noexcept {
    return CTimeSpan(later.us - earlier.us);
}
constexpr CTimeSpan operator+(CTimeSpan a, CTimeSpan b) noexcept {
    return CTimeSpan(a.us + b.us);
}
constexpr CTimeSpan operator-(CTimeSpan a, CTimeSpan b) noexcept {
    return CTimeSpan(a.us - b.us);
}

// ---- implementation details only, past this point ----------------------------------

namespace IMPL {

// Whether the seconds of `microseconds` (rounded toward the past) fit the
// signed integer type Seconds. A template so that the check can be tried
// against a 32-bit type on a system whose time_t has 64 bits.
template <class Seconds>
constexpr bool FitsSeconds(int64_t microseconds) noexcept {
    int64_t seconds = microseconds / kUsPerSecond - (microseconds % kUsPerSecond < 0 ? 1 : 0);
    return seconds >= std::numeric_limits<Seconds>::min() &&
           seconds <= std::numeric_limits<Seconds>::max();
}

// The local zone's minutes east of UTC: read with ftime at the first call
// (0 if that fails) and the same for the rest of the process. Thread-safe.
int16_t LocalZoneBias() noexcept;

}  // namespace IMPL
}  // namespace Orlo

#endif  // ORLO_TIME_H
