// The text strings: stringEx (narrow, on the byte record) and wstringEx
// (32-bit wide elements). Both are the shared buffer of orlo/buffer.h plus
// the text services that make a buffer a text: the library's own number
// parsers and printers, trimming with the library's white-space set, case
// change, printf-style formatting, widening, hexadecimal text, a hex array
// dump, wildcard matching, and the escape expansions driven by a match
// command (orlo/match_cmd.h).
//
// White space, for every parser and trim here, is the fixed set 0x00, 0x09,
// 0x0A, 0x0B, 0x0D, 0x20: a zero counts, a form feed does not.
//
// One body of code serves both element types: basic_text<CharT, Base> is
// instantiated for char (on byteEx, so a stringEx is a byteEx) and for
// wchar_t. Nothing here throws but std::bad_alloc; the parsers report
// overflow through errno = ERANGE.

#ifndef ORLO_STRINGEX_H
#define ORLO_STRINGEX_H

#include <cstdarg>
#include <type_traits>

#include "orlo/buffer.h"

namespace Orlo {

class stringEx;
class wstringEx;
template <class T>
class IStrMatchCmd;

template <class CharT, class Base>
class basic_text : public Base {
  public:
    using buffer_type = basic_buffer<CharT>;
    // The concrete string class of this element type.
    using string_type = std::conditional_t<sizeof(CharT) == 1, stringEx, wstringEx>;
    using match_cmd = IStrMatchCmd<string_type>;

    using Base::Base;
    using Base::operator=;
    basic_text() noexcept = default;
    basic_text(const buffer_type& other) noexcept : Base(other) {}        // NOLINT
    basic_text(buffer_type&& other) noexcept : Base(std::move(other)) {}  // NOLINT

    // ---- numbers ------------------------------------------------------------

    // Parses a signed integer from at most `max` elements from `pos`. `base`
    // is 2..36, or -1 to take it from a prefix (x, b, 0x, 0b, 0 for octal).
    // Skips white space, takes one sign. On overflow sets errno = ERANGE and
    // returns 0x7FFFFFFF, or 0x80000000 with a minus. `end`, when given,
    // receives the offset behind the last element used; a `pos` past the end
    // returns 0 and leaves `end` alone.
    int32_t ToInt(uint32_t pos = 0, uint32_t max = npos, int base = 10,
                  uint32_t* end = nullptr) const;
    // As ToInt, unsigned: overflow gives 0xFFFFFFFF and ERANGE; a minus
    // negates modulo 2^32.
    uint32_t ToUInt(uint32_t pos = 0, uint32_t max = npos, int base = 10,
                    uint32_t* end = nullptr) const;
    // The library's own decimal parser (not the C library's): integer and
    // fraction digits, an optional exponent; ERANGE with infinity or 0 when
    // the value leaves the double range.
    double ToDouble(uint32_t pos = 0, uint32_t max = npos, uint32_t* end = nullptr) const;

    // Appends the digits of `value` in `base` (2..36, digits A-Z above 9);
    // any other base appends "0". A minus sign is written in base 10 only.
    basic_text& AppendInt(int32_t value, int base = 10);
    basic_text& AppendUInt(uint32_t value, int base = 10);

    // ---- trimming (in place; unshares only when something is removed) ------

    basic_text& TrimRight();
    basic_text& TrimLeft();
    basic_text& TrimRight(const buffer_type& set);
    basic_text& TrimLeft(const buffer_type& set);
    basic_text& TrimRight(CharT ch);
    basic_text& TrimLeft(CharT ch);

    // ---- case ---------------------------------------------------------------

    // toupper / tolower over the first min(count, length - pos) elements,
    // starting at the first element (pos only clips). Unshares first.
    basic_text& ToUpper(uint32_t pos = 0, uint32_t count = npos);
    basic_text& ToLower(uint32_t pos = 0, uint32_t count = npos);

    // ---- formatting -----------------------------------------------------------

    // One vsnprintf into room for 256 elements (or `maxlen`): longer output is
    // cut at 255 (maxlen - 1) elements, with no retry. A negative or zero
    // answer leaves the length unchanged.
    basic_text& Format(const CharT* format, ...);
    basic_text& Format(uint32_t maxlen, const CharT* format, ...);
    basic_text& AppendFormat(const CharT* format, ...);
    basic_text& AppendFormat(uint32_t maxlen, const CharT* format, ...);
    basic_text& FormatV(uint32_t maxlen, const CharT* format, va_list args);
    basic_text& AppendFormatV(uint32_t maxlen, const CharT* format, va_list args);

    // ---- comparison -------------------------------------------------------------

    bool EqualsNoCase(const buffer_type& other) const noexcept;
    bool StartsWith(const buffer_type& prefix) const noexcept;
    bool EndsWith(const buffer_type& suffix) const noexcept;
    bool StartsWithNoCase(const buffer_type& prefix) const noexcept;
    bool EndsWithNoCase(const buffer_type& suffix) const noexcept;

    // ---- widening: appends the low byte (narrow) or the byte value (wide) of
    // each element of text in the other width, with no conversion. ---------

    basic_text& AppendOtherWidth(const basic_buffer<char>& text);
    basic_text& AppendOtherWidth(const basic_buffer<wchar_t>& text);
    basic_text& AppendOtherWidth(const char* text);
    basic_text& AppendOtherWidth(const wchar_t* text);

    // ---- hexadecimal ---------------------------------------------------------------

    // Replaces `output` with two hex digits per byte of the content, each
    // followed by `separator` but the last. Wide elements are taken bytewise.
    void ToHexText(buffer_type& output, const buffer_type& separator, bool upper) const;
    // As ToHexText without emptying `output`.
    void AppendHexText(buffer_type& output, const buffer_type& separator, bool upper) const;
    // Source text of a C array named `name` holding the content's bytes,
    // twelve "0XHH" items to a line. An empty name gives a Null string.
    string_type ToHexArray(const buffer_type& name, bool isConst) const;

    // ---- wildcard match ------------------------------------------------------------

    // True when the text from `pos` matches the whole `pattern`, with
    // `anyOne` matching one element and `anyRun` any run. Both are read as
    // C strings. An empty text (or pos at or past the end) matches nothing.
    bool WildMatch(const CharT* pattern, uint32_t pos, CharT anyOne, CharT anyRun,
                   bool ignoreCase) const;

    // ---- escape expansion (see orlo/match_cmd.h) ---------------------------------

    // In place: each `escape` element followed by text is handed to `cmd`;
    // a match replaces the escape and cmd.MatchLength() elements behind it.
    // A doubled escape collapses to one unless `keepDouble`; a trailing
    // escape is removed when `dropDangling`.
    basic_text& ExpandEscapes(CharT escape, match_cmd& cmd, bool dropDangling, bool keepDouble);
    // Appends to `output` the content with each open-name-close replaced by
    // what `cmd` gives for the name. `output` may be this very string.
    void ExpandDelimited(buffer_type& output, const buffer_type& open, const buffer_type& close,
                         match_cmd& cmd, bool keepDouble) const;
    // The same, in place.
    basic_text& ExpandDelimitedInPlace(const buffer_type& open, const buffer_type& close,
                                       match_cmd& cmd, bool keepDouble);

    // ---- markup and JSON escapes ---------------------------------------------------

    void html_escape_append_to(buffer_type& output) const;
    void xml_escape_append_to(buffer_type& output) const;
    void json_escape_append_to(buffer_type& output) const;
    void html_restore_append_to(buffer_type& output) const;
    void xml_restore_append_to(buffer_type& output) const;
    void json_restore_append_to(buffer_type& output) const;
};

class stringEx : public basic_text<char, byteEx> {
  public:
    using basic_text::basic_text;
    using basic_text::operator=;
    stringEx() noexcept = default;
    stringEx(const basic_buffer<char>& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_text(other) {}
    stringEx(basic_buffer<char>&& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_text(std::move(other)) {}
    // A view of a literal or of memory that outlives the string.
    static stringEx view(const char* text) noexcept { return stringEx(as_view, text); }
    using basic_buffer<char>::view;
};

class wstringEx : public basic_text<wchar_t, basic_buffer<wchar_t>> {
  public:
    using basic_text::basic_text;
    using basic_text::operator=;
    wstringEx() noexcept = default;
    wstringEx(const basic_buffer<wchar_t>& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_text(other) {}
    wstringEx(basic_buffer<wchar_t>&& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_text(std::move(other)) {}
    static wstringEx view(const wchar_t* text) noexcept { return wstringEx(as_view, text); }
    using basic_buffer<wchar_t>::view;
};

extern template class basic_text<char, byteEx>;
extern template class basic_text<wchar_t, basic_buffer<wchar_t>>;

}  // namespace Orlo

#endif  // ORLO_STRINGEX_H
