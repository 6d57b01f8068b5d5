// One compiled pattern, matched by several threads at once.
//
// A compiled record is read only during matching; everything a match
// changes lives in the call or in the calling thread (its kept DFAs, its
// allocation counter). So threads sharing one record, each on a subject of
// its own and on one subject whose block they share, must see exactly what
// a lone thread sees. Each row stresses one part of the matcher: a search
// automaton whose state cache keeps evicting, the skip over bytes that
// keep the walk in place, DFAs too big for the inline form, back
// references (the retry memory, in local arrays and allocated), look-ahead
// constraints, which are evaluated afresh at each position.
//
// Each thread scans its subjects with the raw record through engine_exec,
// and with the handle through RegMatches, RegRange, RegReplaceTo and
// RegReplace; the transcripts are compared with a single-threaded run.

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "orlo/regex.h"
#include "orlo/regex_engine.h"
#include "orlo/regex_replace.h"
#include "regex_threads/thread_test_support.h"

namespace Orlo::regex_threads {
namespace {

constexpr int kThreads = 4;
constexpr int kPiecesPerSubject = 200;

struct SharedCase {
    const char* name;
    std::u32string_view pattern;
    std::vector<std::u32string_view> pieces;  // subjects are drawn from these
    uint8_t syntax = 1;                       // 1 extended, 3 advanced
    std::u32string_view replacement = U"<\\0|\\1>";
    bool icase = false;
    bool newline = false;
    int eflags = 0;        // added to the raw scan's exec flags
    bool backref = false;  // the pattern must compile with back references
};

const std::vector<SharedCase>& Cases() {
    static const std::vector<SharedCase> cases = {
        {.name = "the search automaton has far more states than its cache",
         .pattern = U"(a|b)*a(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)c",
         .pieces = {U"a", U"b", U"ab", U"ba", U"c"}},
        {.name = "the same with a seven-set cache, evicting at nearly every step",
         .pattern = U"(a|b)*a(a|b)(a|b)(a|b)(a|b)(a|b)c",
         .pieces = {U"a", U"b", U"ab", U"c"},
         .eflags = REG_SMALL},
        {.name = "long stretches skipped over in one state",
         .pattern = U"needle[0-9]+",
         .pieces = {U"haystack ", U"hay ", U"hay ", U"needle", U"7", U"42 "}},
        {.name = "many colours: DFAs too big for the inline form",
         .pattern = U"(foo|bar|baz|qux|quux)[0-9]{2,4}[a-z]",
         .pieces = {U"foo", U"bar", U"baz", U"qux", U"quux", U"12", U"345", U"x", U" "}},
        {.name = "back reference",
         .pattern = U"(a+)b\\1",
         .pieces = {U"a", U"aa", U"b", U"c"},
         .syntax = 3,
         .backref = true},
        {.name = "back reference retried at every midpoint",
         .pattern = U"([ab]*)c\\1",
         .pieces = {U"a", U"b", U"c", U"ab", U" ", U" "},
         .syntax = 3,
         .backref = true},
        {.name = "back reference with more groups and nodes than the local arrays",
         .pattern = U"(a|b+)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)(m)(n)(o)(p)(q)(r)(s)(t)(u)(v)\\1",
         .pieces = {U"a", U"b", U"bb", U"cdefghijklmnopqrstuv", U"x", U" "},
         .syntax = 3,
         .backref = true},
        {.name = "back reference compared ignoring case",
         .pattern = U"(ab+)\\1",
         .pieces = {U"ab", U"AB", U"aB", U"b", U"a"},
         .syntax = 3,
         .icase = true,
         .backref = true},
        {.name = "look-ahead",
         .pattern = U"\\w+(?=,)",
         .pieces = {U"word", U"x", U",", U" "},
         .syntax = 3},
        {.name = "negative look-ahead",
         .pattern = U"foo(?!bar)[a-z]*",
         .pieces = {U"foo", U"bar", U"baz", U" "},
         .syntax = 3},
        {.name = "look-ahead after a star, with empty matches",
         .pattern = U"(a|b)*(?=c)",
         .pieces = {U"a", U"b", U"c", U"d"},
         .syntax = 3},
        {.name = "non-greedy",
         .pattern = U"(a.*?)b",
         .pieces = {U"a", U"b", U"xy", U"z"},
         .syntax = 3},
        {.name = "line anchors, newline-sensitive",
         .pattern = U"^([a-z]+)$",
         .pieces = {U"ab", U"cd", U"\n", U" "},
         .newline = true},
        {.name = "characters beyond one byte (wide only)",
         .pattern = U"([\u00e0-\u00ff]+)\u4e2d",
         .pieces = {U"\u00e9", U"\u4e2d", U"a", U"\u00fc"}},
        {.name = "back reference over characters beyond one byte (wide only)",
         .pattern = U"(\u00e9+|\u4e2d)x\\1",
         .pieces = {U"\u00e9", U"\u4e2d", U"x", U"\u00fc"},
         .syntax = 3,
         .backref = true},
    };
    return cases;
}

// A row's pattern, compiled once as a raw record and once as a handle, with
// the same flags.
template <class CharT>
struct Compiled {
    regex_t raw{};
    basic_regex_handle<CharT> handle;
    bool newline = false;

    explicit Compiled(const SharedCase& c) : newline(c.newline) {
        const int flags = c.syntax | (c.icase ? REG_ICASE : 0) | (c.newline ? REG_NEWLINE : 0);
        basic_buffer<CharT> pattern = Text<CharT>(c.pattern);
        if (engine_compile(&raw, pattern.c_str(), pattern.size(), flags) != REG_OKAY) return;
        handle = compile_pattern_handle(pattern, c.icase, c.newline, c.syntax, false);
    }
    ~Compiled() { engine_free(&raw); }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;
};

// Every match and its groups, by engine_exec from the end of the last one,
// with the line-start rule the replace functions use.
template <class CharT>
void ScanRaw(std::string& out, Compiled<CharT>& compiled, int eflags,
             const basic_buffer<CharT>& subject) {
    const CharT* text = subject.c_str();
    const uint32_t size = subject.size();
    for (uint32_t pos = 0; pos < size;) {
        int flags = REG_STARTEND | eflags;
        if (pos != 0 && !(compiled.newline && text[pos - 1] == CharT('\n'))) flags |= REG_NOTBOL;
        regmatch_t m[kRegexPairs];
        const int rc =
            engine_exec(&compiled.raw, text + pos, size - pos, nullptr, kRegexPairs, m, flags);
        if (rc != REG_OKAY) {
            out += "end ";
            AppendNumber(out, rc);
            out += '\n';
            return;
        }
        regex_results pairs;
        append_match_pairs(pairs, m, compiled.raw.re_nsub, pos);
        for (const auto& [offset, length] : pairs) {
            AppendNumber(out, offset);
            out += ',';
            AppendNumber(out, length);
            out += ' ';
        }
        out += '\n';
        pos += uint32_t(m[0].rm_eo);
        if (m[0].rm_eo == 0) ++pos;
    }
}

// What one thread sees of one subject through the raw record and the handle.
template <class CharT>
void Transcribe(std::string& out, Compiled<CharT>& compiled, const SharedCase& c,
                const basic_buffer<CharT>& subject) {
    ScanRaw(out, compiled, c.eflags, subject);

    const basic_regex_handle<CharT>& h = compiled.handle;
    uint32_t first = 0;
    uint32_t last = 0;
    out += RegMatches(subject, h, false, false) ? "matches " : "no match ";
    if (RegRange(subject, h, first, last, false, false)) {
        AppendNumber(out, first);
        out += '-';
        AppendNumber(out, last);
    }
    out += '\n';

    const basic_buffer<CharT> replacement = Text<CharT>(c.replacement);
    basic_buffer<CharT> expanded;
    AppendNumber(out, RegReplaceTo(subject, expanded, h, replacement, false, false, true));
    out += ": ";
    AppendReadable(out, expanded);
    out += '\n';

    // Shares the subject's block until the first change.
    basic_buffer<CharT> inPlace = subject;
    AppendNumber(out, RegReplace(inPlace, h, replacement, false, false, true));
    out += ": ";
    AppendReadable(out, inPlace);
    out += '\n';
}

template <class CharT>
class SharedPatternTest : public ::testing::Test {};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(SharedPatternTest, CharTypes);

TYPED_TEST(SharedPatternTest, ThreadsMatchingOnePatternSeeWhatOneThreadSees) {
    using CharT = TypeParam;
    uint32_t seed = 1;
    for (const SharedCase& c : Cases()) {
        if (sizeof(CharT) == 1 && !IsAscii(c.pattern)) continue;
        SCOPED_TRACE(c.name);
        Compiled<CharT> compiled(c);
        ASSERT_NE(compiled.raw.re_magic, 0) << "the pattern does not compile";
        ASSERT_FALSE(compiled.handle.empty());
        ASSERT_EQ((compiled.raw.re_info & REG_UBACKREF) != 0, c.backref);

        // One subject shared by all (each thread holds its own record on
        // the one block) and one of each thread's own.
        const basic_buffer<CharT> common = Text<CharT>(Subject(c.pieces, kPiecesPerSubject, seed));
        std::vector<basic_buffer<CharT>> own;
        for (int t = 0; t < kThreads; ++t)
            own.push_back(
                Text<CharT>(Subject(c.pieces, kPiecesPerSubject, seed + 1 + uint32_t(t))));
        seed += kThreads + 1;

        // A row whose subjects hold no match would test little.
        ASSERT_TRUE(RegMatches(common, compiled.handle, false, false));

        // Twice each: the second time, the thread's DFAs are warm.
        ExpectSameAsAlone(kThreads, [&](int t) {
            std::string out;
            for (int round = 0; round < 2; ++round) {
                const basic_buffer<CharT> mine = common;
                Transcribe(out, compiled, c, mine);
                Transcribe(out, compiled, c, own[size_t(t)]);
            }
            return out;
        });
    }
}

}  // namespace
}  // namespace Orlo::regex_threads
