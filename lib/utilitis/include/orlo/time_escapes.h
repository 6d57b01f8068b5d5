// The escape commands behind CTime::Format and CTimeSpan::Format.
//
// Both are match commands (orlo/match_cmd.h) for the single-escape engine
// with "%" as the escape. A command is made for one value: the time command
// holds the calendar form of the point in the zone that was asked for, built
// once, so a text with many escapes costs one conversion. On each escape it
// compares the text behind the "%" with its names in a fixed order, first
// hit wins, case counts, and reports the name's length as the length used.
// A name it doesn't know gives an empty replacement of length 0: the "%"
// disappears and the letters behind it stay ("%Q" gives "Q").
//
// Most callers want CTime::Format; the commands are public for callers that
// run the expansion themselves (ExpandDelimited with their own delimiters).
//
// Names of the time command, with 2024-03-05 14:07:09.250000 UTC on a Tuesday:
//
//   Y   year, "2024" ("-44" before year 1)
//   y   last two digits for 1970 to 2038 ("24"), otherwise the whole year,
//       at least two digits
//   M   month "03"                 A   month name "Mar"
//   d   day "05"                   D   day of the year "065"
//   W   week day, Sunday as 7: "2" B   week day name "Tue"
//   wm  week of the year, weeks beginning on Monday "10"
//   ws  week of the year, weeks beginning on Sunday "09"
//   H   hour "14"                  h   hour on the twelve-hour clock "2"
//   T   minute "07"                S   second "09"
//   ms  millisecond "250"          us  microsecond "250000"
//   P   "AM" or "PM"               p   "am" or "pm"
//   Z   zone as "+0000"            z   zone in minutes "0"
//   C   century: year / 100, one more for a positive year and one less for a
//       negative one, "21"
//
// Week of the year: the week whose first day is the N-th such day of the year
// is week ceil(N / 7); days that belong to a week begun in the year before
// count as week 1, so the first two partial weeks can share the number 1.
// It is no ISO week.
//
// Names of the span command, on the span's microseconds; T is a total, P the
// part left over by the next larger unit. With 1 day 1 hour 1 minute 1.5 s:
//
//   W    whole weeks "0"           TD   total days "1"
//   PD   days past whole weeks "1"
//   TH   total hours, at least two digits "25"
//   sTH  total hours, no filling "25"
//   PH   hours past whole days "01"
//   TM   total minutes "1501"      PM   minutes past whole hours "01"
//   TS   total seconds "90061"     PS   seconds past whole minutes "01"
//   Tms  total milliseconds        Pms  milliseconds past whole seconds "500"
//   Tus  total microseconds        Pus  microseconds past whole milliseconds "000"
//
// A negative span gives negative totals ("-25") and the parts of its
// magnitude, so "%TH:%PM" of minus ninety minutes reads "-01:30".

#ifndef ORLO_TIME_ESCAPES_H
#define ORLO_TIME_ESCAPES_H

#include <cstdint>

#include "orlo/match_cmd.h"
#include "orlo/stringEx.h"
#include "orlo/time.h"

namespace Orlo {

class CTimeStrEscapeCmd : public IStrMatchCmd<stringEx> {
  public:
    // Holds the calendar form of `time` in `zone`. Never throws.
    CTimeStrEscapeCmd(const CTime& time, int16_t zone) noexcept;
    // Serves escapes from a record the caller has built. The week numbers
    // need dayOfYear and weekDay to be consistent with the rest.
    explicit CTimeStrEscapeCmd(const TimeFields& fields) noexcept : m_fields(fields) {}

    // Always 1: a known name gives its text, any other an empty one.
    int Match(const stringEx& view, stringEx& out) override;
    // Length of the name the last Match used; 0 after an unknown one.
    uint32_t MatchLength() override { return m_length; }

  private:
    TimeFields m_fields;
    uint32_t m_length = 0;
};

class CTimeSpanStrEscapeCmd : public IStrMatchCmd<stringEx> {
  public:
    explicit CTimeSpanStrEscapeCmd(const CTimeSpan& span) noexcept : m_span(span) {}

    // Always 1: a known name gives its text, any other an empty one.
    int Match(const stringEx& view, stringEx& out) override;
    // Length of the name the last Match used; 0 after an unknown one.
    uint32_t MatchLength() override { return m_length; }

  private:
    CTimeSpan m_span;
    uint32_t m_length = 0;
};

}  // namespace Orlo

#endif  // ORLO_TIME_ESCAPES_H
