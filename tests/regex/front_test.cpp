// The front: compile_pattern_handle and its translation, and regex_find
// with its per-thread cache, in both widths.

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "orlo/regex.h"

namespace {

using namespace Orlo;

template <class CharT>
basic_buffer<CharT> Text(const std::string& s) {
    basic_buffer<CharT> out;
    for (char c : s)
        out.push_back(CharT(static_cast<unsigned char>(c)));
    return out;
}

// One regex_find call with the arguments the tests vary; the rest as the
// library's own callers pass them (extended syntax, no start_not_bol).
struct Find {
    std::string pattern;
    std::string subject;
    uint32_t ordinal = 0;
    uint32_t start = 0;
    bool ignoreCase = false;
    bool newline = true;
    bool expand = true;
    bool startNotBol = false;
    uint8_t syntax = 1;
};

// "offset,length ..." or "none".
template <class CharT>
std::string Search(const Find& f, std::string* patternAfter = nullptr) {
    basic_buffer<CharT> pattern = Text<CharT>(f.pattern);
    regex_results results;
    bool found = regex_find(Text<CharT>(f.subject), results, pattern, f.ordinal, f.start,
                            f.ignoreCase, f.newline, f.syntax, 0, false, f.expand, f.startNotBol);
    if (patternAfter) {
        patternAfter->clear();
        for (uint32_t i = 0; i < pattern.size(); ++i)
            patternAfter->push_back(char(pattern.c_str()[i]));
    }
    if (!found) return results.empty() ? "none" : "none, but results";
    std::string out;
    for (const auto& [offset, length] : results) {
        if (!out.empty()) out += ' ';
        out += std::to_string(int32_t(offset));
        out += ',';
        out += std::to_string(length);
    }
    return out;
}

template <class CharT>
class FrontTest : public ::testing::Test {
  protected:
    // Each test starts and ends with an empty cache.
    void TearDown() override { Search<CharT>(Find{"", "x"}); }
};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(FrontTest, CharTypes);

TYPED_TEST(FrontTest, FindsByOrdinalAndStart) {
    const struct {
        Find f;
        const char* expected;
    } rows[] = {
        {{"a", "aa", 1}, "1,1"},
        {{"x*", "ab", 0}, "0,0"},
        {{"x*", "ab", 1}, "1,0"},
        {{"x*", "ab", 2}, "none"},
        {{"b", "abab", 0, 2}, "3,1"},
        {{"b", "ab", 0, 2}, "none"},
        {{"^$", "", 0}, "none"},
        {{"(a)|b", "b", 0}, "0,1 -1,0"},
        {{"(a)|(b)", "xb", 0, 1}, "1,1 0,0 1,1"},
        {{"\\d+", "ab12", 0}, "2,2"},
        {{"A", "a", 0, 0, true}, "0,1"},
        // The first search trusts the caller; later ones look at the text.
        {{"^b", "a\nb", 0, 2}, "2,1"},
        {{"^b", "ab", 0, 1}, "1,1"},
        {{"^b", "ab", 0, 1, false, true, true, true}, "none"},
        {{"^b", "a\nb", 0, 2, false, true, true, true}, "2,1"},
        {{"^b", "a\nb", 0, 2, false, false, true, true}, "none"},
        // A *** pattern decides its newline rule through its own options.
        {{"***:(?n)^b", "a\nb", 0, 2, false, false, true, true}, "2,1"},
        {{"***:^b", "a\nb", 0, 2, false, true, true, true}, "none"},
        {{"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)", "abcdefghijk", 0},
         "0,11 0,1 1,1 2,1 3,1 4,1 5,1 6,1 7,1 8,1 -1,0 -1,0"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Search<TypeParam>(row.f), row.expected)
            << row.f.pattern << " on " << row.f.subject << " ordinal " << row.f.ordinal << " start "
            << row.f.start;
}

// The translation runs on the caller's copy of the pattern.
TYPED_TEST(FrontTest, TranslationChangesTheCallersPattern) {
    const struct {
        std::string pattern;
        bool expand;
        std::string after;
    } rows[] = {
        {"\\d\\w", true, "[[:digit:]][[:alnum:]_]"},
        {"\\d", false, "\\d"},
        {"\\\\d", true, "\\\\d"},
        {"\\q", true, "\\q"},
        {"\\n\\t", true, "\n\t"},
        {"***:\\d", true, "***:\\d"},
    };
    for (const auto& row : rows) {
        std::string after;
        Search<TypeParam>(Find{row.pattern, "x", 0, 0, false, true, row.expand}, &after);
        EXPECT_EQ(after, row.after) << row.pattern;
    }
}

// The cache keys on the text, the flags and the expansion; an invalid
// pattern leaves nothing behind that a later call could use.
TYPED_TEST(FrontTest, TheCacheFollowsPatternAndFlags) {
    using CharT = TypeParam;
    EXPECT_EQ(Search<CharT>(Find{"a", "A"}), "none");
    EXPECT_EQ(Search<CharT>(Find{"a", "A", 0, 0, true}), "0,1");
    EXPECT_EQ(Search<CharT>(Find{"a", "A"}), "none");
    EXPECT_EQ(Search<CharT>(Find{"a(", "a("}), "none");
    EXPECT_EQ(Search<CharT>(Find{"a", "a("}), "0,1");
    EXPECT_EQ(Search<CharT>(Find{"a(", "a("}), "none");
    EXPECT_EQ(Search<CharT>(Find{"\\d", "d1", 0, 0, false, true, false}), "0,1");
    EXPECT_EQ(Search<CharT>(Find{"\\d", "d1", 0, 0, false, true, true}), "1,1");
    EXPECT_EQ(Search<CharT>(Find{"", "a"}), "none");
    EXPECT_EQ(Search<CharT>(Find{"a", "a"}), "0,1");
}

TYPED_TEST(FrontTest, EachThreadKeepsItsOwnPattern) {
    using CharT = TypeParam;
    std::string results[2];
    auto worker = [&](int i) {
        const std::string pattern = i ? "b+" : "a+";
        for (int round = 0; round < 200; ++round)
            results[i] = Search<CharT>(Find{pattern, "xaabbb"});
    };
    std::thread t0(worker, 0), t1(worker, 1);
    t0.join();
    t1.join();
    EXPECT_EQ(results[0], "1,2");
    EXPECT_EQ(results[1], "3,3");
}

TYPED_TEST(FrontTest, HandlesAreSharedAndEmptyWhenUnusable) {
    using CharT = TypeParam;
    basic_buffer<CharT> empty;
    EXPECT_TRUE(compile_pattern_handle(empty, false, true, 1, true).empty());
    basic_buffer<CharT> bad = Text<CharT>("[a");
    EXPECT_TRUE(compile_pattern_handle(bad, false, true, 1, true).empty());

    basic_buffer<CharT> p = Text<CharT>("a");
    basic_regex_handle<CharT> h = compile_pattern_handle(p, true, true, 1, true);
    ASSERT_FALSE(h.empty());
    EXPECT_EQ(h.flags(), uint32_t(REG_EXTENDED | REG_ICASE | REG_NEWLINE));
    basic_regex_handle<CharT> copy = h;
    h = basic_regex_handle<CharT>();
    EXPECT_TRUE(h.empty());
    ASSERT_FALSE(copy.empty());
    EXPECT_EQ(copy.get()->re_nsub, 0u);

    // A *** pattern is not translated, and its options set the newline rule.
    basic_buffer<CharT> directed = Text<CharT>("***:(?n)\\Aa");
    basic_regex_handle<CharT> d = compile_pattern_handle(directed, false, false, 1, true);
    ASSERT_FALSE(d.empty());
    EXPECT_EQ(d.flags(), uint32_t(REG_EXTENDED | REG_NEWLINE));
    basic_buffer<CharT> plain = Text<CharT>("***:\\Aa");
    EXPECT_EQ(compile_pattern_handle(plain, false, true, 1, true).flags(), uint32_t(REG_EXTENDED));
}

TEST(FrontProbe, NewlineOptionsOfDirectedPatterns) {
    const struct {
        const char* pattern;
        bool sensitive;
    } rows[] = {
        {"***:(?n)a", true},  {"***:(?in)a", true},  {"***:(?m)a", true}, {"***:(?w)a", true},
        {"***:(?i)a", false}, {"***:(?zn)a", false}, {"***:(?)a", false}, {"***:(n)a", false},
        {"***=(?n)a", false}, {"***:(?xn", true},    {"**:(?n)a", false}, {"***:(?i)(?n)", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(probe_newline_option(Text<char>(row.pattern)), row.sensitive) << row.pattern;
}

}  // namespace
