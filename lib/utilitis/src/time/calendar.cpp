// Calendar arithmetic: the count of microseconds to and from TimeFields.
//
// Everything is counted in days from the epoch, over the proleptic Gregorian
// calendar in astronomical numbering, where the year before year 1 is year 0.
// Only the edges convert to the numbering of the records, which has no year
// 0: astronomical 0 is year -1, -1 is year -2, and so on. So the leap rule
// (divisible by 4, and not by 100 unless by 400) applies unchanged to the
// astronomical number, which makes year -1 a leap year.
//
// Division always takes the floor, so that a value before the epoch, or before
// year 1, falls into the day and year it lies in rather than the one after.
//
// The local zone bias is read once with ftime and kept in one atomic word;
// daylight saving is not followed.

#include <sys/timeb.h>

#include <atomic>

#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/time.h"

namespace Orlo {

namespace {

constexpr int64_t kDaysFromYearOneToEpoch = 719162;
constexpr int64_t kDaysIn400Years = 146097;

// Days before the first of each month in a common year; index 12 is the year.
constexpr uint16_t kDaysBeforeMonth[13] = {0,   31,  59,  90,  120, 151, 181,
                                           212, 243, 273, 304, 334, 365};

// Quotient and remainder rounded toward minus infinity.
constexpr int64_t FloorDiv(int64_t value, int64_t divisor) {
    const int64_t quotient = value / divisor;
    return (value % divisor < 0) ? quotient - 1 : quotient;
}
constexpr int64_t FloorMod(int64_t value, int64_t divisor) {
    const int64_t rest = value % divisor;
    return rest < 0 ? rest + divisor : rest;
}

constexpr int64_t ToAstronomical(int32_t year) {
    return year < 1 ? int64_t(year) + 1 : year;
}
constexpr int32_t FromAstronomical(int64_t year) {
    return static_cast<int32_t>(year < 1 ? year - 1 : year);
}

constexpr bool IsLeapAstronomical(int64_t year) {
    return FloorMod(year, 4) == 0 && (FloorMod(year, 100) != 0 || FloorMod(year, 400) == 0);
}

// Days from the epoch to January 1 of an astronomical year.
constexpr int64_t DaysToNewYear(int64_t year) {
    const int64_t before = year - 1;  // whole years since January 1 of year 1
    return before * 365 + FloorDiv(before, 4) - FloorDiv(before, 100) + FloorDiv(before, 400) -
           kDaysFromYearOneToEpoch;
}

// The astronomical year that holds day `days` from the epoch. The estimate
// by the mean year length is off by at most one either way.
constexpr int64_t YearOfDay(int64_t days) {
    int64_t year = FloorDiv((days + kDaysFromYearOneToEpoch) * 400, kDaysIn400Years) + 1;
    if (DaysToNewYear(year) > days) --year;
    if (DaysToNewYear(year + 1) <= days) ++year;
    return year;
}

constexpr uint32_t DaysBefore(uint32_t month, bool leap) {
    return kDaysBeforeMonth[month - 1] + (leap && month > 2 ? 1 : 0);
}

// The month (1 to 12) in which a day of the year (1 to 366) lies.
constexpr uint32_t MonthOfDay(uint32_t dayOfYear, bool leap) {
    uint32_t month = 1;
    while (month < 12 && DaysBefore(month + 1, leap) < dayOfYear)
        ++month;
    return month;
}

// The zone in minutes, with the local sentinel replaced by the bias.
int16_t ResolveZone(int16_t zone) {
    return zone == kLocalZone ? IMPL::LocalZoneBias() : zone;
}

// 0x7FFFFFFF: not read yet. Any thread may read ftime first; they all store
// the same value, so the race is harmless.
constexpr int32_t kBiasUnread = 0x7FFFFFFF;
std::atomic<int32_t> g_localBias{kBiasUnread};

int32_t ReadLocalBias() noexcept {
    timeb now{};
    // ftime is kept by the C library for old callers; it is the one call that
    // gives the bias without going through the time_t conversions.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const int failed = ftime(&now);
#pragma GCC diagnostic pop
    return failed != 0 ? 0 : -int32_t(now.timezone);
}

int32_t PresentYear() {
    TimeFields fields;
    CTime::now().ToFields(fields, kLocalZone);
    return fields.year;
}

// Sets `time` from `fields` after the month has been checked. Fields past
// their range carry. Arithmetic wraps (unsigned) for years beyond the range
// of the count, which has no meaningful answer but must not be undefined.
void Compose(CTime& time, const TimeFields& fields) {
    const int32_t year = fields.year == 0 ? PresentYear() : fields.year;
    const int64_t astronomical = ToAstronomical(year);
    const int64_t days = DaysToNewYear(astronomical) +
                         DaysBefore(fields.month, IsLeapAstronomical(astronomical)) +
                         int64_t(fields.day) - 1;
    const int64_t minutesEast = ResolveZone(fields.zone);
    uint64_t total = uint64_t(days) * uint64_t(kUsPerDay);
    total += uint64_t(fields.hour) * uint64_t(kUsPerHour);
    total += uint64_t(fields.minute) * uint64_t(kUsPerMinute);
    total += uint64_t(fields.second) * uint64_t(kUsPerSecond);
    total += fields.microsecond;
    total -= uint64_t(minutesEast * kUsPerMinute);
    time.us = static_cast<int64_t>(total);
}

[[noreturn]] void ThrowInvalidMonth(const char* head) {
    throw timeExp(ExpMessage(head), TimeCode::InvalidMonth);
}

bool IsValidMonth(uint32_t month) {
    return month >= 1 && month <= 12;
}

}  // namespace

namespace IMPL {

int16_t LocalZoneBias() noexcept {
    int32_t bias = g_localBias.load(std::memory_order_seq_cst);
    if (bias == kBiasUnread) {
        bias = ReadLocalBias();
        g_localBias.store(bias, std::memory_order_seq_cst);
    }
    return static_cast<int16_t>(bias);
}

}  // namespace IMPL

void CTime::ToFields(TimeFields& fields, int16_t zone) const noexcept {
    const int16_t minutesEast = ResolveZone(zone);
    // Wrapping add: a value at the end of the range seen in a far zone
    // lands at the other end instead of being undefined.
    const int64_t local =
        static_cast<int64_t>(uint64_t(us) + uint64_t(int64_t(minutesEast) * kUsPerMinute));
    const int64_t days = FloorDiv(local, kUsPerDay);
    int64_t inDay = FloorMod(local, kUsPerDay);

    const int64_t year = YearOfDay(days);
    const bool leap = IsLeapAstronomical(year);
    const auto dayOfYear = static_cast<uint32_t>(days - DaysToNewYear(year) + 1);
    const uint32_t month = MonthOfDay(dayOfYear, leap);

    fields.year = FromAstronomical(year);
    fields.month = month;
    fields.dayOfYear = static_cast<uint16_t>(dayOfYear);
    fields.day = static_cast<uint16_t>(dayOfYear - DaysBefore(month, leap));
    fields.weekDay = static_cast<int32_t>(FloorMod(days + 4, 7));  // the epoch was a Thursday
    fields.hour = static_cast<uint16_t>(inDay / kUsPerHour);
    inDay %= kUsPerHour;
    fields.minute = static_cast<uint16_t>(inDay / kUsPerMinute);
    inDay %= kUsPerMinute;
    fields.second = static_cast<uint16_t>(inDay / kUsPerSecond);
    fields.microsecond = static_cast<uint32_t>(inDay % kUsPerSecond);
    fields.zone = minutesEast;
}

CTime& CTime::Set(const TimeFields& fields) {
    if (!IsValidMonth(fields.month)) ThrowInvalidMonth("CTime::Set - invalid month value");
    Compose(*this, fields);
    return *this;
}

bool CTime::IsLeapYear(int32_t year) noexcept {
    return IsLeapAstronomical(ToAstronomical(year == 0 ? PresentYear() : year));
}

uint32_t CTime::GetNumOfDays(uint32_t month, int32_t year) {
    if (!IsValidMonth(month)) ThrowInvalidMonth("CTime::GetNumOfDays - invalid month value");
    return kDaysBeforeMonth[month] - kDaysBeforeMonth[month - 1] +
           (month == 2 && IsLeapYear(year) ? 1 : 0);
}

// ---- one field changed ---------------------------------------------------------------
// Each setter reads the fields in the zone, changes one and composes again
// in the zone that was resolved, so the local bias is read once per call.

namespace {

template <class Change>
CTime& Rebuild(CTime& time, int16_t zone, Change&& change) {
    TimeFields fields;
    time.ToFields(fields, zone);
    change(fields);
    Compose(time, fields);
    return time;
}

}  // namespace

CTime& CTime::SetYear(int32_t year, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.year = year; });
}

CTime& CTime::SetMonth(uint32_t month, int16_t zone) {
    if (!IsValidMonth(month)) ThrowInvalidMonth("CTime::SetMonth - invalid month value");
    return Rebuild(*this, zone, [&](TimeFields& f) { f.month = month; });
}

CTime& CTime::SetDay(uint16_t day, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.day = day; });
}

CTime& CTime::SetDayOfYear(uint16_t dayOfYear, int16_t zone) {
    TimeFields fields;
    ToFields(fields, zone);
    const uint32_t daysInYear = IsLeapAstronomical(ToAstronomical(fields.year)) ? 366 : 365;
    if (dayOfYear < 1 || dayOfYear > daysInYear) {
        throw timeExp(ExpMessage("CTime::SetDayOfYear - Invalid day of year")
                          .Int("  current obj's year          = ", fields.year)
                          .Int("  current timezone in minutes = ", fields.zone)
                          .UInt("  the day of year value       = ", dayOfYear),
                      TimeCode::InvalidDay);
    }
    // January with the day counted past its end carries into the right month.
    fields.month = 1;
    fields.day = dayOfYear;
    Compose(*this, fields);
    return *this;
}

CTime& CTime::SetHour(uint16_t hour, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.hour = hour; });
}

CTime& CTime::SetMinute(uint16_t minute, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.minute = minute; });
}

CTime& CTime::SetSecond(uint16_t second, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.second = second; });
}

CTime& CTime::SetMicrosecond(uint32_t microsecond, int16_t zone) {
    return Rebuild(*this, zone, [&](TimeFields& f) { f.microsecond = microsecond; });
}

}  // namespace Orlo
