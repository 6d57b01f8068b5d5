// Regex search and replace on strings, in both widths: the template
// expansion, the escape translation, RegFind's line-start decisions and the
// two replace strategies.

#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>

#include "orlo/regex_replace.h"
#include "orlo/stringEx.h"

namespace {

using namespace Orlo;

template <class CharT>
basic_buffer<CharT> Text(const std::string& s) {
    basic_buffer<CharT> out;
    for (char c : s)
        out.push_back(CharT(static_cast<unsigned char>(c)));
    return out;
}

template <class CharT>
std::string Narrow(const basic_buffer<CharT>& s) {
    std::string out;
    for (uint32_t i = 0; i < s.size(); ++i)
        out.push_back(char(s.c_str()[i]));
    return out;
}

// Extended syntax, newline-sensitive unless asked otherwise, class letters
// translated: the way the command compiles.
template <class CharT>
basic_regex_handle<CharT> Compile(const std::string& pattern, bool newline = true) {
    basic_buffer<CharT> p = Text<CharT>(pattern);
    return compile_pattern_handle(p, false, newline, 1, true);
}

template <class CharT>
class RegexReplaceTest : public ::testing::Test {};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(RegexReplaceTest, CharTypes);

TYPED_TEST(RegexReplaceTest, ExpandTemplateForms) {
    using CharT = TypeParam;
    const basic_buffer<CharT> subject = Text<CharT>("abcdef");
    const CRegMatch match = {{1, 3}, {2, 1}, {5, 0}, {4, 9}, {uint32_t(-1), 0}};
    const struct {
        const char* tmpl;
        const char* expected;
    } rows[] = {
        {"<\\0>", "<bcd>"},   {"\\1\\1", "cc"}, {"[\\2]", "[]"},  // empty pair
        {"\\3", "ef"},                                            // clipped to the subject's end
        {"[\\4]", "[]"},                                          // a group that took no part
        {"[\\5\\9]", "[]"},                                       // past the pairs: both bytes go
        {"\\\\1", "\\1"},      // a doubled backslash is one, not read again
        {"x\\", "x"},          // a backslash last vanishes
        {"\\q\\n", "qn"},      // other letters stand for themselves
        {"\\10", "c0"},        // one digit only
        {"\\0\\0", "bcdbcd"},  // inserted text is not scanned again
    };
    for (const auto& row : rows)
        EXPECT_EQ(Narrow(ExpandTemplate(Text<CharT>(row.tmpl), match, subject)), row.expected)
            << row.tmpl;
    const basic_buffer<CharT> self = Text<CharT>("\\0");
    EXPECT_EQ(Narrow(ExpandTemplate(self, {{0, 2}}, Text<CharT>("\\0"))), "\\0");
}

TYPED_TEST(RegexReplaceTest, EscapeTranslateByTable) {
    using CharT = TypeParam;
    const struct {
        const char* text;
        bool dropUnknown, keepDouble;
        const char* expected;
    } rows[] = {
        {"a\\tb\\n", false, true, "a\tb\n"},
        {"\\\\n", false, true, "\\\\n"},
        {"\\\\n", false, false, "\\n"},
        {"\\q\\1", false, true, "\\q\\1"},
        {"\\q\\1", true, true, "q1"},
        {"x\\", false, true, "x\\"},
        {"x\\", true, true, "x"},
        {"\\\"\\'\\r\\v\\b", false, true, "\"'\r\v\b"},
    };
    for (const auto& row : rows) {
        basic_buffer<CharT> text = Text<CharT>(row.text);
        EscapeTranslate(text, CharT('\\'), plain_escape_table<CharT>(), row.dropUnknown,
                        row.keepDouble);
        EXPECT_EQ(Narrow(text), row.expected) << row.text;
    }
}

// The replace in both strategies, where they agree.
TYPED_TEST(RegexReplaceTest, BothStrategies) {
    using CharT = TypeParam;
    const struct {
        const char* pattern;
        bool newline;
        std::string subject;
        const char* replacement;
        std::string expected;
        uint32_t count;
    } rows[] = {
        {"$", true, "abc", "!", "abc!", 1},
        {"x*", true, "abc", "-", "-a-b-c", 3},
        {"^", true, "a\nb", ">", ">a\n>b", 2},
        {"a.b", true, "a\nb", "x", "a\nb", 0},
        {"a.b", false, "a\nb", "x", "x", 1},
        {"(a)", true, "a", "\\2", "", 1},
        {"(a)|b", true, "ab", "[\\1]", "[a][]", 2},
        {"a", true, "a", "\\t", "\t", 1},
        {"a", true, "a", "\\q", "q", 1},
        {"a", true, "a", "\\\\1", "\\1", 1},
        {"^a", true, "aaa", "", "", 3},
        {"^a", false, "aaa", "", "", 3},
        {"^a", true, "aaa", "\\n", "\n\n\n", 3},
        {"^a", false, "aaa", "\\n", "\naa", 1},
        {"[0-9]+", true,
         std::string("1\0"
                     "22",
                     4),
         "#", std::string("#\0#", 3), 2},
    };
    for (const auto& row : rows) {
        const basic_regex_handle<CharT> h = Compile<CharT>(row.pattern, row.newline);
        ASSERT_FALSE(h.empty()) << row.pattern;
        const basic_buffer<CharT> source = Text<CharT>(row.subject);
        basic_buffer<CharT> dest = Text<CharT>("=");
        EXPECT_EQ(RegReplaceTo(source, dest, h, Text<CharT>(row.replacement), false, false, true),
                  row.count)
            << row.pattern;
        EXPECT_EQ(Narrow(dest), "=" + row.expected) << row.pattern << " expand";
        basic_buffer<CharT> text = source;
        EXPECT_EQ(RegReplace(text, h, Text<CharT>(row.replacement), false, false, true), row.count)
            << row.pattern;
        EXPECT_EQ(Narrow(text), row.expected) << row.pattern << " in place";
    }
}

TYPED_TEST(RegexReplaceTest, AnEmptyHandleTouchesNothing) {
    using CharT = TypeParam;
    const basic_regex_handle<CharT> none = Compile<CharT>("a(");
    EXPECT_TRUE(none.empty());
    basic_buffer<CharT> dest = Text<CharT>("kept");
    EXPECT_EQ(RegReplaceTo(Text<CharT>("abc"), dest, none, Text<CharT>("x"), false, false, true),
              0u);
    EXPECT_EQ(Narrow(dest), "kept");
    basic_buffer<CharT> text = Text<CharT>("abc");
    EXPECT_EQ(RegReplace(text, none, Text<CharT>("x"), false, false, true), 0u);
    EXPECT_EQ(Narrow(text), "abc");
    CRegMatch m;
    EXPECT_FALSE(RegFind(text, m, none, 0, 0, false, false, true));
    EXPECT_FALSE(RegMatches(text, none, false, false));
}

TYPED_TEST(RegexReplaceTest, RegFindDecidesLineStarts) {
    using CharT = TypeParam;
    const basic_buffer<CharT> subject = Text<CharT>("ab\nab");
    const struct {
        bool newline;
        uint32_t nth, start;
        bool notbol, rescan;
        long offset;  // -1: no match
    } rows[] = {
        {true, 0, 0, false, false, 0},
        {true, 0, 0, true, false, 3},    // the caller's notbol, then a real line start
        {true, 0, 1, false, false, 3},   // rescan off: the caller's word stands...
        {true, 0, 3, true, false, -1},   // ...even right behind a line feed
        {true, 0, 3, true, true, 3},     // with rescan the line feed before decides
        {false, 0, 3, false, true, -1},  // no newline rule: only offset 0 starts a line
        {false, 0, 3, false, false, 3},  // unless the caller says so
        {true, 1, 0, false, false, 3},
        {true, 2, 0, false, false, -1},
        {true, 0, 5, false, false, -1},  // no search starts at the end
    };
    const basic_regex_handle<CharT> h0 = Compile<CharT>("^a", true);
    const basic_regex_handle<CharT> h1 = Compile<CharT>("^a", false);
    for (const auto& row : rows) {
        CRegMatch m;
        const bool found = RegFind(subject, m, row.newline ? h0 : h1, row.nth, row.start,
                                   row.notbol, false, row.rescan);
        EXPECT_EQ(found ? long(m[0].first) : -1, row.offset)
            << "newline " << row.newline << " nth " << row.nth << " start " << row.start
            << " notbol " << row.notbol << " rescan " << row.rescan;
    }
}

TYPED_TEST(RegexReplaceTest, RegMatchesAndRegRange) {
    using CharT = TypeParam;
    const basic_regex_handle<CharT> h = Compile<CharT>("b+");
    uint32_t start = 0, end = 0;
    EXPECT_TRUE(RegMatches(Text<CharT>("abbc"), h, false, false));
    EXPECT_FALSE(RegMatches(Text<CharT>("ac"), h, false, false));
    EXPECT_TRUE(RegRange(Text<CharT>("abbc"), h, start, end, false, false));
    EXPECT_EQ(start, 1u);
    EXPECT_EQ(end, 3u);
    const basic_regex_handle<CharT> anchored = Compile<CharT>("^a$");
    EXPECT_FALSE(RegMatches(Text<CharT>("a"), anchored, true, false));
    EXPECT_FALSE(RegMatches(Text<CharT>("a"), anchored, false, true));
}

// The in-place replace gives the result of the loop that replaces one match
// at a time inside the text and searches on behind the replacement (kept
// here as the reference), without its moving of the rest at every match.
template <class CharT>
uint32_t MatchAtATime(basic_buffer<CharT>& text, const basic_regex_handle<CharT>& handle,
                      const basic_buffer<CharT>& replacement, bool notbol) {
    CRegMatch match;
    uint32_t pos = 0, count = 0;
    while (RegFind(text, match, handle, 0, pos, notbol, false, true)) {
        const auto [offset, len] = match[0];
        const basic_buffer<CharT> expanded = ExpandTemplate(replacement, match, text);
        text.replace(offset, len, expanded);
        pos = offset + expanded.size() + (len == 0 ? 1 : 0);
        ++count;
    }
    return count;
}

TYPED_TEST(RegexReplaceTest, InPlaceAgreesWithTheMatchAtATimeLoop) {
    using CharT = TypeParam;
    const char* const patterns[] = {"a", "ab*",        "b*",    "^a?",     "a$", "$",
                                    "^", "(a)(b)?\\n", "\\n^b", "[ab]{2}", "x*", "b|ab"};
    const char* const replacements[] = {"", "X", "XYZW", "\\2\\1", "\\0\\0\\0", "\\n"};
    std::mt19937 rng(11);
    for (int round = 0; round < 3000; ++round) {
        std::string subject;
        const size_t size = rng() % (round % 10 == 0 ? 200 : 12);
        for (size_t i = 0; i < size; ++i)
            subject += "aab\n"[rng() % 4];
        const char* pattern = patterns[rng() % std::size(patterns)];
        const bool newline = rng() % 2, notbol = rng() % 4 == 0;
        const basic_regex_handle<CharT> h = Compile<CharT>(pattern, newline);
        ASSERT_FALSE(h.empty()) << pattern;
        basic_buffer<CharT> with = Text<CharT>(replacements[rng() % std::size(replacements)]);
        basic_buffer<CharT> expected = Text<CharT>(subject);
        const uint32_t count = MatchAtATime(expected, h, with, notbol);

        // The text as a block of its own, shared with another record, or a
        // view of borrowed memory: none but the text itself may change.
        const basic_buffer<CharT> owned = Text<CharT>(subject);
        for (int form = 0; form < 3; ++form) {
            basic_buffer<CharT> text = owned;
            if (form == 0) text = Text<CharT>(subject);
            if (form == 2) text = basic_buffer<CharT>(as_view, owned.c_str(), owned.size());
            EXPECT_EQ(RegReplace(text, h, with, notbol, false, false), count)
                << pattern << " on " << subject;
            EXPECT_EQ(Narrow(text), Narrow(expected)) << pattern << " on " << subject;
            EXPECT_EQ(Narrow(owned), subject) << "the shared or borrowed block changed";
        }
    }
}

}  // namespace
