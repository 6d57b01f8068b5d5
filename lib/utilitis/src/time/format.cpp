// Text forms of CTime and CTimeSpan: the two escape commands and the Format
// functions that run the library's single-escape engine with them.
//
// Each command has a constant table of names and writers, searched in order
// with the first hit winning: a name that begins another name would have to
// come after it. Today case keeps all names apart ("M" and "ms", "TM" and
// "Tms"); the order is the one the escape list in orlo/time_escapes.h
// documents. The writers give the same bytes as the printf forms "%02hu",
// "%.6lu", "%li" and so on would, but write the digits themselves: Format
// runs for every log record, and a vsnprintf per escape would be most of
// its cost.

#include <string_view>

#include "orlo/time.h"
#include "orlo/time_escapes.h"

namespace Orlo {

namespace {

// ---- digits -------------------------------------------------------------------------

// Appends `value` in decimal with at least `minDigits` digits, zero-filled.
void AppendUnsigned(stringEx& out, uint64_t value, uint32_t minDigits) {
    char digits[24];
    char* start = digits + sizeof digits;
    do {
        *--start = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (digits + sizeof digits - start < minDigits)
        *--start = '0';
    out.append(start, static_cast<uint32_t>(digits + sizeof digits - start));
}

uint64_t Magnitude(int64_t value) {
    return value < 0 ? 0 - uint64_t(value) : uint64_t(value);
}

// Appends `value` as printf "%0<width>li" does: the sign counts toward the
// width, the zeros go between sign and digits.
void AppendSigned(stringEx& out, int64_t value, uint32_t width) {
    if (value >= 0) return AppendUnsigned(out, uint64_t(value), width);
    out.push_back('-');
    AppendUnsigned(out, Magnitude(value), width > 1 ? width - 1 : 1);
}

void AppendText(stringEx& out, std::string_view text) {
    out.append(text.data(), static_cast<uint32_t>(text.size()));
}

// ---- the time escapes ------------------------------------------------------------------

constexpr std::string_view kMonthShort[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kWeekDayShort[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// Week of the year for weeks that begin on the day with index 0, where
// `dayIndex` is the day's place in its week. The week's first day is day
// D - I of the year; a week begun last year is week 1.
uint16_t WeekOfYear(uint32_t dayOfYear, uint32_t dayIndex) {
    if (dayIndex >= dayOfYear) return 1;
    return static_cast<uint16_t>((dayOfYear - dayIndex + 6) / 7);
}

uint32_t MondayIndex(int32_t weekDay) {
    return weekDay == 0 ? 6 : static_cast<uint32_t>(weekDay - 1);
}

// For 1970 to 2038 the year in two digits; outside that window two digits
// would be ambiguous, so the whole year is written.
int64_t ShortYear(int32_t year) {
    return year >= 1970 && year <= 2038 ? year % 100 : year;
}

int16_t Century(int32_t year) {
    return static_cast<int16_t>(year / 100 + (year > 0 ? 1 : -1));
}

void AppendZone(stringEx& out, int16_t zone) {
    const uint64_t magnitude = Magnitude(zone);
    out.push_back(zone < 0 ? '-' : '+');
    AppendUnsigned(out, magnitude / 60, 2);
    AppendUnsigned(out, magnitude % 60, 2);
}

void AppendName(stringEx& out, const std::string_view* names, uint32_t count, uint32_t index) {
    // A record filled by a caller may hold an unset or wrong value; it gets
    // no name rather than a read outside the table.
    if (index < count) AppendText(out, names[index]);
}

struct TimeEscape {
    std::string_view name;
    void (*write)(stringEx& out, const TimeFields& f);
};

// Searched in this order; first hit wins.
constexpr TimeEscape kTimeEscapes[] = {
    {"Y", [](stringEx& out, const TimeFields& f) { AppendSigned(out, f.year, 1); }},
    {"y", [](stringEx& out, const TimeFields& f) { AppendSigned(out, ShortYear(f.year), 2); }},
    {"M", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, uint16_t(f.month), 2); }},
    {"A",
     [](stringEx& out, const TimeFields& f) { AppendName(out, kMonthShort, 12, f.month - 1); }},
    {"d", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.day, 2); }},
    {"D", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.dayOfYear, 3); }},
    {"W",
     [](stringEx& out, const TimeFields& f) {
         AppendUnsigned(out, uint16_t(f.weekDay == 0 ? 7 : f.weekDay), 1);
     }},
    {"wm",
     [](stringEx& out, const TimeFields& f) {
         AppendUnsigned(out, WeekOfYear(f.dayOfYear, MondayIndex(f.weekDay)), 2);
     }},
    {"ws",
     [](stringEx& out, const TimeFields& f) {
         AppendUnsigned(out, WeekOfYear(f.dayOfYear, uint32_t(f.weekDay)), 2);
     }},
    {"B", [](stringEx& out,
             const TimeFields& f) { AppendName(out, kWeekDayShort, 7, uint32_t(f.weekDay)); }},
    {"H", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.hour, 2); }},
    {"h", [](stringEx& out,
             const TimeFields& f) { AppendUnsigned(out, f.hour % 12 == 0 ? 12 : f.hour % 12, 1); }},
    {"T", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.minute, 2); }},
    {"S", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.second, 2); }},
    {"ms",
     [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.microsecond / 1000, 3); }},
    {"us", [](stringEx& out, const TimeFields& f) { AppendUnsigned(out, f.microsecond, 6); }},
    {"P", [](stringEx& out, const TimeFields& f) { AppendText(out, f.hour < 12 ? "AM" : "PM"); }},
    {"p", [](stringEx& out, const TimeFields& f) { AppendText(out, f.hour < 12 ? "am" : "pm"); }},
    {"Z", [](stringEx& out, const TimeFields& f) { AppendZone(out, f.zone); }},
    {"z", [](stringEx& out, const TimeFields& f) { AppendSigned(out, f.zone, 1); }},
    {"C", [](stringEx& out, const TimeFields& f) { AppendSigned(out, Century(f.year), 1); }},
};

// ---- the span escapes ------------------------------------------------------------------

// A span split into its magnitude and sign: totals are signed, parts are
// taken of the magnitude so that they never read negative.
struct SpanParts {
    uint64_t magnitude;
    bool negative;
};

constexpr uint64_t kUsPerWeek = 7 * uint64_t(kUsPerDay);

void AppendTotal(stringEx& out, const SpanParts& s, uint64_t unit, uint32_t minDigits) {
    const uint64_t total = s.magnitude / unit;
    if (s.negative && total != 0) out.push_back('-');
    AppendUnsigned(out, total, minDigits);
}

void AppendPart(stringEx& out, const SpanParts& s, uint64_t unit, uint64_t perNext,
                uint32_t minDigits) {
    AppendUnsigned(out, s.magnitude / unit % perNext, minDigits);
}

struct SpanEscape {
    std::string_view name;
    void (*write)(stringEx& out, const SpanParts& s);
};

constexpr SpanEscape kSpanEscapes[] = {
    {"W", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerWeek, 1); }},
    {"TD", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerDay, 1); }},
    {"PD", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, kUsPerDay, 7, 1); }},
    {"TH", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerHour, 2); }},
    {"sTH", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerHour, 1); }},
    {"PH", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, kUsPerHour, 24, 2); }},
    {"TM", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerMinute, 1); }},
    {"PM", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, kUsPerMinute, 60, 2); }},
    {"TS", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, kUsPerSecond, 1); }},
    {"PS", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, kUsPerSecond, 60, 2); }},
    {"Tms", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, 1000, 1); }},
    {"Pms", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, 1000, 1000, 3); }},
    {"Tus", [](stringEx& out, const SpanParts& s) { AppendTotal(out, s, 1, 1); }},
    {"Pus", [](stringEx& out, const SpanParts& s) { AppendPart(out, s, 1, 1000, 3); }},
};

// The first entry of `table` whose name `text` begins with, or null. The
// first byte is compared alone before the rest: most names miss on it, and
// a library compare per entry would cost more than the whole expansion.
template <class Entry, size_t N>
const Entry* FindEscape(const Entry (&table)[N], std::string_view text) {
    if (text.empty()) return nullptr;
    for (const Entry& entry : table) {
        if (entry.name[0] == text[0] && text.starts_with(entry.name)) return &entry;
    }
    return nullptr;
}

// Copies `text` into `output` (unless they are one object) and expands it
// there, reusing output's block when it is its own.
void ExpandInto(stringEx& output, const stringEx& text, IStrMatchCmd<stringEx>& command) {
    if (&output != &text) {
        // A view's memory is borrowed and must not be written.
        if (output.is_view()) output = stringEx();
        output.assign(text.c_str(), text.size());
    }
    output.unview();
    output.ExpandEscapes('%', command, true, false);
}

}  // namespace

CTimeStrEscapeCmd::CTimeStrEscapeCmd(const CTime& time, int16_t zone) noexcept {
    time.ToFields(m_fields, zone);
}

int CTimeStrEscapeCmd::Match(const stringEx& view, stringEx& out) {
    const TimeEscape* escape = FindEscape(kTimeEscapes, view.view());
    m_length = escape ? static_cast<uint32_t>(escape->name.size()) : 0;
    if (escape) escape->write(out, m_fields);
    return 1;
}

int CTimeSpanStrEscapeCmd::Match(const stringEx& view, stringEx& out) {
    const SpanEscape* escape = FindEscape(kSpanEscapes, view.view());
    m_length = escape ? static_cast<uint32_t>(escape->name.size()) : 0;
    if (escape) escape->write(out, SpanParts{Magnitude(m_span.us), m_span.us < 0});
    return 1;
}

stringEx CTime::Format(const stringEx& text, int16_t zone) const {
    stringEx result;
    FormatTo(result, text, zone);
    return result;
}

void CTime::FormatTo(stringEx& output, const stringEx& text, int16_t zone) const {
    CTimeStrEscapeCmd command(*this, zone);
    ExpandInto(output, text, command);
}

stringEx CTimeSpan::Format(const stringEx& text) const {
    CTimeSpanStrEscapeCmd command(*this);
    stringEx result;
    ExpandInto(result, text, command);
    return result;
}

}  // namespace Orlo
