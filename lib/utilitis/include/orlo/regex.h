// The regular-expression front: how the rest of the system compiles and
// runs patterns. The engine itself (orlo/regex_engine.h) is never called
// directly from outside.
//
// Two services, for narrow text (byteEx) and, with the same steps, wide text
// (wstringEx):
// - compile_pattern_handle gives a compiled pattern to keep: a shared,
//   reference-counted handle, empty for an empty pattern and after a failed
//   compilation (no message, no exception: a bad pattern is just an empty
//   handle).
// - regex_find searches in one call, keeping the last compiled pattern in a
//   cache of the calling thread, so that a loop that searches again and
//   again with one pattern compiles it once.
//
// Both may first translate backslash class letters into bracket classes
// (`\d` -> `[[:digit:]]`, `\A` -> not-alpha, `\b` -> backspace, ...; see
// perl_class_table). The translation knows nothing of the syntax: `[\d]`
// becomes `[[[:digit:]]]`. A pattern that begins with "***" speaks for
// itself and is not translated.
//
// Thread-safety: a handle may be shared between threads (the count is
// atomic, the compiled pattern is read only). regex_find's cache is per
// thread and freed at thread exit, or by a call with an empty pattern.

#ifndef ORLO_REGEX_H
#define ORLO_REGEX_H

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "orlo/buffer.h"
#include "orlo/escape_table.h"
#include "orlo/regex_engine.h"

namespace Orlo {

class wstringEx;

template <class CharT>
class basic_regex_handle {
  public:
    basic_regex_handle() noexcept = default;
    basic_regex_handle(const basic_regex_handle& other) noexcept;
    basic_regex_handle& operator=(const basic_regex_handle& other) noexcept;
    ~basic_regex_handle();

    // True for the empty pattern and for a pattern that did not compile.
    bool empty() const noexcept { return m_record == nullptr; }
    explicit operator bool() const noexcept { return m_record != nullptr; }

    // The compiled pattern, for engine_exec; null when empty. Read only in
    // effect: the engine never writes a compiled record.
    regex_t* get() const noexcept;
    // The compile flags it was made with; 0 when empty.
    uint32_t flags() const noexcept;

    // Takes ownership of a freshly compiled record (from
    // compile_pattern_handle).
    static basic_regex_handle adopt(regex_t* re, uint32_t flags);

  private:
    struct record;
    void release() noexcept;

    record* m_record = nullptr;
    std::atomic<uint32_t>* m_refs = nullptr;
};

using regex_handle = basic_regex_handle<char>;
using wregex_handle = basic_regex_handle<wchar_t>;

extern template class basic_regex_handle<char>;
extern template class basic_regex_handle<wchar_t>;

// Compiles `pattern` (which may be changed in place by the translation).
// `raw_flags` is the syntax, used as such: 0 basic, 1 extended,
// 3 advanced, 4 literal. `newline` makes `.` and `[^...]` stop at a line
// feed and `^`/`$` match at one; `expand` translates the class letters
// first, unless the pattern begins with "***", whose own options then
// decide the newline rule.
regex_handle compile_pattern_handle(basic_buffer<char>& pattern, bool ignore_case, bool newline,
                                    uint8_t raw_flags, bool expand);
wregex_handle compile_pattern_handle(basic_buffer<wchar_t>& pattern, bool ignore_case, bool newline,
                                     uint8_t raw_flags, bool expand);

// (offset, length) of the whole match and of each group, offsets from the
// subject's start. A group that took no part has length 0 (and offset one
// before the search's start).
using regex_results = std::vector<std::pair<uint32_t, uint32_t>>;

// Searches `subject` from `start` for match number `ordinal` (0: the first)
// of `pattern`, compiled as compile_pattern_handle does and kept in the
// thread's cache while the pattern, flags and `expand` stay the same. With
// `expand` the caller's `pattern` is translated in place. `not_bol` is
// engine flags, used as such; `not_eol` adds REG_NOTEOL; `start_not_bol`
// lets the first search too decide from the text whether `start` is a line
// start. Empty matches advance by one. False for no match, for an invalid
// pattern, and when `start` is at or past the subject's end. An empty
// `pattern` frees the thread's cache and returns false.
bool regex_find(const basic_buffer<char>& subject, regex_results& results,
                basic_buffer<char>& pattern, uint32_t ordinal, uint32_t start, bool ignore_case,
                bool newline, uint8_t raw_flags, uint8_t not_bol, bool not_eol, bool expand,
                bool start_not_bol);
bool regex_find(const basic_buffer<wchar_t>& subject, regex_results& results,
                basic_buffer<wchar_t>& pattern, uint32_t ordinal, uint32_t start, bool ignore_case,
                bool newline, uint8_t raw_flags, uint8_t not_bol, bool not_eol, bool expand,
                bool start_not_bol);

// Number of (offset, length) pairs a search asks of the engine: the match
// and the first nine groups.
inline constexpr size_t kRegexPairs = 10;

// Fills `results` from the engine's `m` (kRegexPairs entries) for a pattern
// of `nsub` groups, found by a search that started at `base`: offsets from
// the subject's start, and a group the engine did not report (past the
// ninth) at base - 1 with length 0, as a group that took no part.
void append_match_pairs(regex_results& results, const regmatch_t* m, size_t nsub, uint32_t base);

// The class-letter translation table: `\d` -> "[[:digit:]]" and so on, then
// the control and quote escapes.
template <class CharT>
const escape_entry<CharT>* perl_class_table();

// The translation the front applies, with the arguments it uses: unknown
// escapes and doubled backslashes are left for the engine to judge.
template <class CharT>
void expand_escapes(basic_buffer<CharT>& text, CharT escape_char, const escape_entry<CharT>* table,
                    bool drop_unknown, bool keep_double) {
    EscapeTranslate(text, escape_char, table, drop_unknown, keep_double);
}

// Whether a pattern that begins with "***" asks for newline-sensitive
// matching through its embedded options ("***:(?n)..."): the options must
// start with one of "beqcinmpwsxt" and hold `n`, `m` or `w`.
template <class CharT>
bool probe_newline_option(const basic_buffer<CharT>& pattern);

}  // namespace Orlo

#endif  // ORLO_REGEX_H
