// Names of months, week days and zones, both ways.
//
// The parsers trim with the library's white-space set and compare in lower
// case (zones in upper case) against fixed English tables, and read digits
// as ASCII only. A name is accepted whole or not at all: "sept" and
// "3rd" are refused, not read as far as they go. The zone parser never
// fails: what is no zone name gives the local zone, as an unset zone would.

#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/time.h"

namespace Orlo {

namespace {

struct NamePair {
    const char* shortName;
    const char* fullName;
};

constexpr NamePair kMonthNames[12] = {
    {"Jan", "January"},   {"Feb", "February"}, {"Mar", "March"},    {"Apr", "April"},
    {"May", "May"},       {"Jun", "June"},     {"Jul", "July"},     {"Aug", "August"},
    {"Sep", "September"}, {"Oct", "October"},  {"Nov", "November"}, {"Dec", "December"},
};

constexpr NamePair kWeekDayNames[7] = {
    {"Sun", "Sunday"},   {"Mon", "Monday"}, {"Tue", "Tuesday"},  {"Wed", "Wednesday"},
    {"Thu", "Thursday"}, {"Fri", "Friday"}, {"Sat", "Saturday"},
};

// The trimmed text in lower case, as the name parsers compare it.
stringEx Normalised(const stringEx& text) {
    stringEx result(text.c_str(), text.size());
    result.TrimLeft().TrimRight().ToLower();
    return result;
}

// ASCII digits only, whatever the locale says.
bool IsDigit(char ch) {
    return ch >= '0' && ch <= '9';
}

bool IsAllDigits(const stringEx& text) {
    if (text.empty()) return false;
    for (char ch : text.view()) {
        if (!IsDigit(ch)) return false;
    }
    return true;
}

// The index of `word`, in any case, among the short or full names of
// `names`, or -1.
template <size_t N>
int FindName(const stringEx& word, const NamePair (&names)[N]) {
    for (size_t index = 0; index < N; ++index) {
        if (word.EqualsNoCase(stringEx::view(names[index].shortName)) ||
            word.EqualsNoCase(stringEx::view(names[index].fullName))) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

// The number `word` stands for when it is all digits and from `low` to
// `high`, else -1. Leading zeros are allowed ("03"); too many digits are not
// read at all, so a long run can't wrap into the range.
int NumberInRange(const stringEx& word, int low, int high) {
    if (!IsAllDigits(word) || word.size() > 3) return -1;
    const int value = static_cast<int>(word.ToUInt());
    return value >= low && value <= high ? value : -1;
}

[[noreturn]] void ThrowUnknownName(const char* head, const stringEx& text, int32_t code) {
    throw timeExp(ExpMessage(head).Append(text), code);
}

// ---- zones ------------------------------------------------------------------------------

// Prefixes that name UTC under another word; "UT" comes last because it is
// also the start of "UTC".
constexpr const char* kUtcPrefixes[] = {"UTC", "GMT", "CUT", "TAI", "UT"};

// Length of the UTC prefix `text` begins with, or 0.
uint32_t UtcPrefixLength(const stringEx& text) {
    for (const char* prefix : kUtcPrefixes) {
        if (text.StartsWith(stringEx::view(prefix))) return stringEx::view(prefix).size();
    }
    return 0;
}

// Reads at most two digits from `pos`, which it moves behind them.
int ReadTwoDigits(const char* text, uint32_t length, uint32_t& pos) {
    int value = 0;
    for (int taken = 0; taken < 2 && pos < length && IsDigit(text[pos]); ++taken, ++pos) {
        value = value * 10 + (text[pos] - '0');
    }
    return value;
}

// Minutes of an offset such as "+8", "-05:30", "0800": an optional sign, at
// most two digits of hours, then at most two of minutes, after a ":" if one
// follows. What comes after is ignored.
int16_t ParseOffset(const stringEx& text, uint32_t pos) {
    const char* chars = text.c_str();
    const uint32_t length = text.size();
    bool negative = false;
    if (pos < length && (chars[pos] == '+' || chars[pos] == '-')) negative = chars[pos++] == '-';
    const int hours = ReadTwoDigits(chars, length, pos);
    if (pos < length && chars[pos] == ':') ++pos;
    const int minutes = ReadTwoDigits(chars, length, pos);
    const int total = hours * 60 + minutes;
    return static_cast<int16_t>(negative ? -total : total);
}

bool BeginsLikeOffset(const stringEx& text) {
    const char first = text[0];
    return IsDigit(first) || first == '+' || first == '-';
}

}  // namespace

stringEx CTime::MonthToStr(uint32_t month, bool fullName) {
    if (month < 1 || month > 12) {
        stringEx number;
        number.AppendUInt(month);
        ThrowUnknownName("CTime::MonthToStr - Unknown Month : ", number, TimeCode::InvalidMonth);
    }
    const NamePair& names = kMonthNames[month - 1];
    return stringEx::view(fullName ? names.fullName : names.shortName);
}

uint32_t CTime::StrToMonth(const stringEx& text) {
    const stringEx word = Normalised(text);
    const int number = NumberInRange(word, 1, 12);
    if (number > 0) return static_cast<uint32_t>(number);
    const int index = FindName(word, kMonthNames);
    if (index >= 0) return static_cast<uint32_t>(index + 1);
    ThrowUnknownName("CTime::StrToMonth - Unknown Month : ", text, TimeCode::InvalidMonth);
}

stringEx CTime::WeekDayToStr(int32_t weekDay, bool fullName) {
    if (weekDay < 0 || weekDay > 6) {
        stringEx number;
        number.AppendInt(weekDay);
        ThrowUnknownName("CTime::WeekDayToStr - Unknown Weekday : ", number, TimeCode::InvalidDay);
    }
    const NamePair& names = kWeekDayNames[weekDay];
    return stringEx::view(fullName ? names.fullName : names.shortName);
}

int32_t CTime::StrToWeekDay(const stringEx& text) {
    const stringEx word = Normalised(text);
    const int number = NumberInRange(word, 0, 6);
    if (number >= 0) return number;
    const int index = FindName(word, kWeekDayNames);
    if (index >= 0) return index;
    ThrowUnknownName("CTime::StrToWeekDay - Unknown Weekday : ", text, TimeCode::InvalidDay);
}

stringEx CTime::ZoneToStr(int16_t zone) {
    if (zone == kLocalZone) return stringEx::view("Local");
    if (zone == 0) return stringEx::view("UTC");
    const int magnitude = zone < 0 ? -int(zone) : zone;
    stringEx name;
    name.Format("UTC%c%02hu%02hu", zone < 0 ? '-' : '+',
                static_cast<unsigned short>(magnitude / 60),
                static_cast<unsigned short>(magnitude % 60));
    return name;
}

int16_t CTime::StrToZone(const stringEx& text) {
    stringEx name(text.c_str(), text.size());
    name.TrimLeft().TrimRight().ToUpper();
    if (name.empty()) return kLocalZone;
    if (name.view() == "NOTZ") return 0;
    const uint32_t prefix = UtcPrefixLength(name);
    if (prefix == 0 && !BeginsLikeOffset(name)) return kLocalZone;
    return ParseOffset(name, prefix);
}

}  // namespace Orlo
