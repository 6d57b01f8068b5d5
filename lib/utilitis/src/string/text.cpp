// The text services of stringEx and wstringEx: one body of code over the
// element type, instantiated for both at the end of this file.
//
// The members are thin. They clip positions and counts as every string
// operation does (counts are clipped, positions past the end are the
// caller's error), then hand element ranges or whole records to the engines
// of text_numbers.cpp and text_escapes.cpp, or to the short routines below.
// Everything that edits goes through the buffer's room functions, so a
// shared block is made private before it is written, and a view is written
// in place, as the buffer does everywhere.
//
// Two members write into reserved room directly rather than append: Format
// (one vsnprintf into the room) and the case change. Their notes below say
// how the length and the terminator are kept right.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <utility>

#include "string/prims.h"
#include "string/text_impl.h"

namespace Orlo {

namespace {

template <class CharT>
using P = IMPL::Prims<CharT>;

// ---- elements --------------------------------------------------------------

// The case-blind comparisons fold with tolower of the byte taken as a signed
// value, as everywhere else in the library's string code.
char FoldCase(char c) {
    return char(std::tolower(static_cast<signed char>(c)));
}
wchar_t FoldCase(wchar_t c) {
    return wchar_t(std::towlower(wint_t(c)));
}

char UpperOf(char c) {
    return char(std::toupper(static_cast<unsigned char>(c)));
}
wchar_t UpperOf(wchar_t c) {
    return wchar_t(std::towupper(wint_t(c)));
}
char LowerOf(char c) {
    return char(std::tolower(static_cast<unsigned char>(c)));
}
wchar_t LowerOf(wchar_t c) {
    return wchar_t(std::towlower(wint_t(c)));
}

template <class CharT>
bool SameFolded(const CharT* a, const CharT* b, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (FoldCase(a[i]) != FoldCase(b[i])) return false;
    }
    return true;
}

// No conversion at all: narrowing keeps the low byte of each element, and
// widening takes each byte as an unsigned value. Real conversion between
// encodings is the business of the text conversion module.
template <class CharT, class SourceT>
CharT ConvertWidth(SourceT c) {
    return CharT(static_cast<unsigned char>(c));
}

template <class CharT, class SourceT>
void AppendConverted(basic_buffer<CharT>& out, const SourceT* text, uint32_t count) {
    if constexpr (std::is_same_v<CharT, SourceT>) {
        out.append(text, count);
    } else {
        CharT chunk[256];
        while (count > 0) {
            const uint32_t n = std::min<uint32_t>(count, 256);
            for (uint32_t i = 0; i < n; ++i)
                chunk[i] = ConvertWidth<CharT>(text[i]);
            out.append(chunk, n);
            text += n;
            count -= n;
        }
    }
}

template <class SourceT>
uint32_t CStringLength(const SourceT* text) {
    if (!text) return 0;
    return uint32_t(std::min<size_t>(P<SourceT>::len(text), basic_buffer<SourceT>::max_size()));
}

// ---- parsers ---------------------------------------------------------------

// Runs `parse` over at most `max` elements from `pos`, and reports where it
// stopped as an offset from the start of the string. A `pos` at or past the
// end reads nothing and leaves `end` alone.
template <class CharT, class Parse>
auto ParseField(const basic_buffer<CharT>& text, uint32_t pos, uint32_t max, uint32_t* end,
                Parse parse) {
    using Result = decltype(parse(text.c_str(), text.c_str(), std::declval<const CharT*&>()));
    if (pos >= text.size()) return Result();
    const CharT* first = text.c_str() + pos;
    const CharT* stop = first;
    const Result value = parse(first, first + std::min(max, text.size() - pos), stop);
    if (end) *end = uint32_t(stop - text.c_str());
    return value;
}

// ---- trims -------------------------------------------------------------------
// erase does nothing (and so does not unshare) when the run is empty.

template <class CharT, class Removable>
void TrimEnd(basic_buffer<CharT>& text, Removable removable) {
    uint32_t keep = text.size();
    while (keep > 0 && removable(text.c_str()[keep - 1]))
        --keep;
    text.erase(keep);
}

template <class CharT, class Removable>
void TrimStart(basic_buffer<CharT>& text, Removable removable) {
    uint32_t drop = 0;
    while (drop < text.size() && removable(text.c_str()[drop]))
        ++drop;
    text.erase(0, drop);
}

template <class CharT>
auto InSet(const basic_buffer<CharT>& set) {
    return [&set](CharT c) { return P<CharT>::chr(set.c_str(), c, set.size()) != nullptr; };
}

// ---- writing into reserved room ------------------------------------------------

// The room functions copy the content but not its terminator (the caller
// writes one). A view keeps its borrowed memory, which is not ours to
// terminate.
template <class CharT>
void TerminateUnlessView(basic_buffer<CharT>& text) {
    if (!text.is_view()) text.data()[text.size()] = CharT();
}

template <class CharT>
void ChangeCase(basic_buffer<CharT>& text, uint32_t pos, uint32_t count, CharT (*change)(CharT)) {
    text.reserve_exact(IMPL::RoomRequest<CharT>(uint64_t(text.size()) + 1));
    TerminateUnlessView(text);
    // `pos` clips the count but the walk starts at the first element; the
    // callers pass 0, where the two readings agree.
    const uint32_t clipped = pos >= text.size() ? 0 : std::min(count, text.size() - pos);
    CharT* data = text.data();
    for (uint32_t i = 0; i < clipped; ++i)
        data[i] = change(data[i]);
}

int FormatInto(char* out, size_t room, const char* format, va_list args) {
    return std::vsnprintf(out, room, format, args);
}
int FormatInto(wchar_t* out, size_t room, const wchar_t* format, va_list args) {
    return std::vswprintf(out, room, format, args);
}

// One formatting call into `room` elements at `offset`, with no retry:
// longer output is cut at room - 1. A failed call (negative or zero; the
// wide form fails on any cut) leaves the length as it was.
template <class CharT>
void WriteFormatted(basic_buffer<CharT>& text, uint32_t offset, uint32_t room, const CharT* format,
                    va_list args) {
    if (room == 0) return;
    text.reserve_exact(IMPL::RoomRequest<CharT>(uint64_t(offset) + room));
    CharT* at = text.data() + offset;
    const int written = FormatInto(at, room, format, args);
    at[room - 1] = CharT();
    if (written > 0) {
        text.set_length(offset + std::min(uint32_t(written), room - 1));
        return;
    }
    TerminateUnlessView(text);
}

// ---- hexadecimal ---------------------------------------------------------------

constexpr const char* kUpperDigits = "0123456789ABCDEF";
constexpr const char* kLowerDigits = "0123456789abcdef";

// The content as raw bytes: a wide element is its four bytes in memory order.
template <class CharT>
const unsigned char* RawBytes(const basic_buffer<CharT>& text) {
    return reinterpret_cast<const unsigned char*>(text.c_str());
}
template <class CharT>
uint64_t RawByteCount(const basic_buffer<CharT>& text) {
    return uint64_t(text.size()) * sizeof(CharT);
}

// `source` is a copy, so that `output` may be the record it came from.
template <class CharT>
void AppendHexPairs(basic_buffer<CharT> source, basic_buffer<CharT>& output,
                    const basic_buffer<CharT>& separator, bool upper) {
    const uint32_t start = output.size();
    const unsigned char* bytes = RawBytes(source);
    const uint64_t count = RawByteCount(source);
    output.reserve_exact(
        IMPL::RoomRequest<CharT>(start + (count + 1) * separator.size() + count * 2 + 2));
    const char* digits = upper ? kUpperDigits : kLowerDigits;
    for (uint64_t i = 0; i < count; ++i) {
        const CharT pair[2] = {CharT(digits[bytes[i] >> 4]), CharT(digits[bytes[i] & 15])};
        output.append(pair, 2);
        output.append(separator);
    }
    if (output.size() > start) output.erase(output.size() - separator.size(), separator.size());
}

constexpr uint64_t kArrayItemsPerLine = 12;

template <class CharT>
void AppendArrayItems(const basic_buffer<CharT>& source, basic_buffer<CharT>& out) {
    const unsigned char* bytes = RawBytes(source);
    const uint64_t count = RawByteCount(source);
    for (uint64_t i = 0; i < count; ++i) {
        if (i % kArrayItemsPerLine == 0) out.push_back('\t');
        const CharT item[4] = {'0', 'X', CharT(kUpperDigits[bytes[i] >> 4]),
                               CharT(kUpperDigits[bytes[i] & 15])};
        out.append(item, 4);
        const bool lastOfAll = i + 1 == count;
        if (!lastOfAll) IMPL::AppendAscii(out, ", ");
        if (lastOfAll || i % kArrayItemsPerLine == kArrayItemsPerLine - 1) out.push_back('\n');
    }
}

}  // namespace

// ---- numbers -----------------------------------------------------------------------

template <class CharT, class Base>
int32_t basic_text<CharT, Base>::ToInt(uint32_t pos, uint32_t max, int base, uint32_t* end) const {
    return ParseField(*this, pos, max, end,
                      [base](const CharT* first, const CharT* last, const CharT*& stop) {
                          return IMPL::ParseInt32(first, last, base, stop);
                      });
}

template <class CharT, class Base>
uint32_t basic_text<CharT, Base>::ToUInt(uint32_t pos, uint32_t max, int base,
                                         uint32_t* end) const {
    return ParseField(*this, pos, max, end,
                      [base](const CharT* first, const CharT* last, const CharT*& stop) {
                          return IMPL::ParseUInt32(first, last, base, stop);
                      });
}

template <class CharT, class Base>
double basic_text<CharT, Base>::ToDouble(uint32_t pos, uint32_t max, uint32_t* end) const {
    return ParseField(*this, pos, max, end,
                      [](const CharT* first, const CharT* last, const CharT*& stop) {
                          return IMPL::ParseDouble(first, last, stop);
                      });
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendInt(int32_t value, int base) {
    const uint32_t magnitude = value < 0 ? 0u - uint32_t(value) : uint32_t(value);
    IMPL::AppendInteger<CharT>(*this, magnitude, value < 0, base);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendUInt(uint32_t value, int base) {
    IMPL::AppendInteger<CharT>(*this, value, false, base);
    return *this;
}

// ---- trimming ------------------------------------------------------------------------

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimRight() {
    TrimEnd<CharT>(*this, IMPL::IsTextSpace<CharT>);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimLeft() {
    TrimStart<CharT>(*this, IMPL::IsTextSpace<CharT>);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimRight(const buffer_type& set) {
    if (!set.empty()) TrimEnd<CharT>(*this, InSet(set));
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimLeft(const buffer_type& set) {
    if (!set.empty()) TrimStart<CharT>(*this, InSet(set));
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimRight(CharT ch) {
    TrimEnd<CharT>(*this, [ch](CharT c) { return c == ch; });
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::TrimLeft(CharT ch) {
    TrimStart<CharT>(*this, [ch](CharT c) { return c == ch; });
    return *this;
}

// ---- case ------------------------------------------------------------------------------

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::ToUpper(uint32_t pos, uint32_t count) {
    ChangeCase<CharT>(*this, pos, count, UpperOf);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::ToLower(uint32_t pos, uint32_t count) {
    ChangeCase<CharT>(*this, pos, count, LowerOf);
    return *this;
}

// ---- formatting -----------------------------------------------------------------------

namespace {
constexpr uint32_t kDefaultFormatRoom = 256;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::Format(const CharT* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(kDefaultFormatRoom, format, args);
    va_end(args);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::Format(uint32_t maxlen, const CharT* format,
                                                         ...) {
    va_list args;
    va_start(args, format);
    FormatV(maxlen, format, args);
    va_end(args);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendFormat(const CharT* format, ...) {
    va_list args;
    va_start(args, format);
    AppendFormatV(kDefaultFormatRoom, format, args);
    va_end(args);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendFormat(uint32_t maxlen, const CharT* format,
                                                               ...) {
    va_list args;
    va_start(args, format);
    AppendFormatV(maxlen, format, args);
    va_end(args);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::FormatV(uint32_t maxlen, const CharT* format,
                                                          va_list args) {
    WriteFormatted<CharT>(*this, 0, maxlen, format, args);
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendFormatV(uint32_t maxlen,
                                                                const CharT* format, va_list args) {
    WriteFormatted<CharT>(*this, this->size(), maxlen, format, args);
    return *this;
}

// ---- comparison -------------------------------------------------------------------------

template <class CharT, class Base>
bool basic_text<CharT, Base>::EqualsNoCase(const buffer_type& other) const noexcept {
    return this->size() == other.size() && SameFolded(this->c_str(), other.c_str(), this->size());
}

template <class CharT, class Base>
bool basic_text<CharT, Base>::StartsWith(const buffer_type& prefix) const noexcept {
    return prefix.size() <= this->size() &&
           P<CharT>::cmp(this->c_str(), prefix.c_str(), prefix.size()) == 0;
}

template <class CharT, class Base>
bool basic_text<CharT, Base>::EndsWith(const buffer_type& suffix) const noexcept {
    return suffix.size() <= this->size() &&
           P<CharT>::cmp(this->c_str() + (this->size() - suffix.size()), suffix.c_str(),
                         suffix.size()) == 0;
}

template <class CharT, class Base>
bool basic_text<CharT, Base>::StartsWithNoCase(const buffer_type& prefix) const noexcept {
    return prefix.size() <= this->size() &&
           SameFolded(this->c_str(), prefix.c_str(), prefix.size());
}

template <class CharT, class Base>
bool basic_text<CharT, Base>::EndsWithNoCase(const buffer_type& suffix) const noexcept {
    return suffix.size() <= this->size() &&
           SameFolded(this->c_str() + (this->size() - suffix.size()), suffix.c_str(),
                      suffix.size());
}

// ---- widening ----------------------------------------------------------------------------

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendOtherWidth(const basic_buffer<char>& text) {
    AppendConverted<CharT>(*this, text.c_str(), text.size());
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendOtherWidth(
    const basic_buffer<wchar_t>& text) {
    AppendConverted<CharT>(*this, text.c_str(), text.size());
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendOtherWidth(const char* text) {
    AppendConverted<CharT>(*this, text, CStringLength(text));
    return *this;
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::AppendOtherWidth(const wchar_t* text) {
    AppendConverted<CharT>(*this, text, CStringLength(text));
    return *this;
}

// ---- hexadecimal -----------------------------------------------------------------------------

template <class CharT, class Base>
void basic_text<CharT, Base>::ToHexText(buffer_type& output, const buffer_type& separator,
                                        bool upper) const {
    const buffer_type source(*this);  // survives the emptying when output is *this
    output.clear();
    AppendHexPairs<CharT>(source, output, separator, upper);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::AppendHexText(buffer_type& output, const buffer_type& separator,
                                            bool upper) const {
    AppendHexPairs<CharT>(*this, output, separator, upper);
}

// Bytes from 0x80 up are written as "0X" and their proper digit pair.
template <class CharT, class Base>
typename basic_text<CharT, Base>::string_type basic_text<CharT, Base>::ToHexArray(
    const buffer_type& name, bool isConst) const {
    string_type result;
    if (name.empty()) return result;
    const uint64_t count = RawByteCount(*this);
    result.reserve_exact(IMPL::RoomRequest<CharT>(name.size() + 33 + count * 6 + count / 6));
    if (isConst) IMPL::AppendAscii(result, "const ");
    IMPL::AppendAscii(result, "unsigned char ");
    result.append(name);
    IMPL::AppendAscii(result, "[] = {\n");
    AppendArrayItems<CharT>(*this, result);
    IMPL::AppendAscii(result, "};\n");
    return result;
}

// ---- wildcard match ----------------------------------------------------------------------------

// Iterative, with one back-up point: on a mismatch only the last `anyRun`
// takes one more element of the text; earlier ones are never retried, which
// suffices for patterns of single-element and any-run wildcards. The text
// ends at a zero element, as a C string does, or at the string's length,
// whichever comes first (a view of part of a block is not terminated).
template <class CharT, class Base>
bool basic_text<CharT, Base>::WildMatch(const CharT* pattern, uint32_t pos, CharT anyOne,
                                        CharT anyRun, bool ignoreCase) const {
    if (pos >= this->size()) return false;
    static const CharT kEmptyPattern[1] = {};
    const CharT* p = pattern ? pattern : kEmptyPattern;
    const CharT* s = this->c_str() + pos;
    const CharT* const end = this->c_str() + this->size();
    const CharT* star = nullptr;  // pattern behind the last anyRun
    const CharT* mark = nullptr;  // where the text stood when that anyRun began
    for (;;) {
        while (*p != 0 && *p == anyRun) {
            star = ++p;
            mark = s;
        }
        if (s == end || *s == 0) return *p == 0;
        const bool same = ignoreCase ? FoldCase(*p) == FoldCase(*s) : *p == *s;
        if (*p != 0 && (same || *p == anyOne)) {
            ++p;
            ++s;
            continue;
        }
        if (!star) return false;
        s = ++mark;
        p = star;
    }
}

// ---- escape expansion ---------------------------------------------------------------------------

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::ExpandEscapes(CharT escape, match_cmd& cmd,
                                                                bool dropDangling,
                                                                bool keepDouble) {
    IMPL::ExpandEscapesFrom<CharT>(*this, 0, escape, cmd, dropDangling, keepDouble);
    return *this;
}

template <class CharT, class Base>
void basic_text<CharT, Base>::ExpandDelimited(buffer_type& output, const buffer_type& open,
                                              const buffer_type& close, match_cmd& cmd,
                                              bool keepDouble) const {
    IMPL::ExpandDelimitedTo<CharT>(*this, output, open, close, cmd, keepDouble);
}

template <class CharT, class Base>
basic_text<CharT, Base>& basic_text<CharT, Base>::ExpandDelimitedInPlace(const buffer_type& open,
                                                                         const buffer_type& close,
                                                                         match_cmd& cmd,
                                                                         bool keepDouble) {
    IMPL::ExpandDelimitedInPlace<CharT>(*this, open, close, cmd, keepDouble);
    return *this;
}

// ---- markup and JSON escapes
// ---------------------------------------------------------------------

template <class CharT, class Base>
void basic_text<CharT, Base>::html_escape_append_to(buffer_type& output) const {
    IMPL::AppendEscaped<CharT>(*this, output, IMPL::EscapeFlavour::kHtml);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::xml_escape_append_to(buffer_type& output) const {
    IMPL::AppendEscaped<CharT>(*this, output, IMPL::EscapeFlavour::kXml);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::json_escape_append_to(buffer_type& output) const {
    IMPL::AppendEscaped<CharT>(*this, output, IMPL::EscapeFlavour::kJson);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::html_restore_append_to(buffer_type& output) const {
    IMPL::AppendRestored<CharT>(*this, output, IMPL::EscapeFlavour::kHtml);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::xml_restore_append_to(buffer_type& output) const {
    IMPL::AppendRestored<CharT>(*this, output, IMPL::EscapeFlavour::kXml);
}

template <class CharT, class Base>
void basic_text<CharT, Base>::json_restore_append_to(buffer_type& output) const {
    IMPL::AppendRestored<CharT>(*this, output, IMPL::EscapeFlavour::kJson);
}

template class basic_text<char, byteEx>;
template class basic_text<wchar_t, basic_buffer<wchar_t>>;

}  // namespace Orlo
