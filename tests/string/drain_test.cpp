// The expand-form replaces with a drain: the slices taken followed by what
// is left in the destination are exactly the result without a drain, and
// the destination never holds more than a couple of slices. The subjects
// are large enough to flush many times, and have long stretches without a
// match, which bypass the destination.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "orlo/regex_replace.h"
#include "orlo/stringEx.h"

namespace {

using namespace Orlo;

template <class CharT>
basic_buffer<CharT> Text(const std::string& s) {
    basic_buffer<CharT> out;
    out.reserve_exact(uint32_t(s.size()) + 1);
    for (char c : s)
        out.push_back(CharT(static_cast<unsigned char>(c)));
    return out;
}

// Collects what the replace hands on, and watches the destination's size.
template <class CharT>
class Collector final : public basic_drain<CharT> {
  public:
    explicit Collector(const basic_buffer<CharT>& dest) : m_dest(dest) {}
    void Take(const CharT* data, uint32_t n) override {
        EXPECT_GT(n, 0u);
        m_taken.append(data, n);
        m_largestDest = std::max(m_largestDest, m_dest.size());
        ++m_calls;
    }
    std::basic_string<CharT> m_taken;
    uint32_t m_largestDest = 0;
    uint32_t m_calls = 0;

  private:
    const basic_buffer<CharT>& m_dest;
};

// Lines of words, matches of every kind sprinkled in, and a long quiet
// stretch in the middle.
std::string Subject(unsigned seed) {
    std::mt19937 rng(seed);
    const char* const words[] = {"ab", "AB", "aB", "b", "abc", "x", "yy", "a", "\n", " "};
    std::string s;
    while (s.size() < 700000) {
        s += words[rng() % 10];
        if (rng() % 5 == 0) s += ' ';
        if (rng() % 100000 == 0) s += "MARK";
    }
    s += std::string(600000, 'q');
    while (s.size() < 1600000)
        s += words[rng() % 10];
    return s;
}

template <class T>
class DrainTest : public ::testing::Test {};
using Widths = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(DrainTest, Widths);

// Runs one replace with and without a drain onto a destination that already
// holds a few elements, and compares.
template <class CharT, class Replace>
void ExpectSameResult(const std::string& what, Replace replace) {
    const basic_buffer<CharT> prefix = Text<CharT>("pre\n");
    basic_buffer<CharT> whole(prefix);
    const uint32_t wholeCount = replace(whole, nullptr);

    basic_buffer<CharT> rest(prefix);
    Collector<CharT> drain(rest);
    const uint32_t drainedCount = replace(rest, &drain);
    EXPECT_EQ(drainedCount, wholeCount) << what;
    drain.m_taken.append(rest.c_str(), rest.size());
    EXPECT_TRUE(drain.m_taken == std::basic_string<CharT>(whole.c_str(), whole.size())) << what;
    EXPECT_GT(drain.m_calls, 0u) << what;
    EXPECT_LT(drain.m_largestDest, 1200000u) << what;
    EXPECT_LT(rest.size(), 1200000u) << what;
}

TYPED_TEST(DrainTest, PlainAndCaseBlindGiveTheSameBytes) {
    using CharT = TypeParam;
    const basic_buffer<CharT> source = Text<CharT>(Subject(1));
    const struct {
        const char* find;
        std::string with;
    } cases[] = {
        {"ab", "X"},
        {"ab", ""},
        {"b", "longer replacement"},
        {"MARK", std::string(300000, 'r')},  // a replacement of more than a slice
        {"qqq", "-"},
        {"absent", "never"},
    };
    for (const auto& c : cases) {
        const basic_buffer<CharT> find = Text<CharT>(c.find), with = Text<CharT>(c.with);
        for (bool ignoreCase : {false, true}) {
            ExpectSameResult<CharT>(std::string(c.find) + (ignoreCase ? " /i" : ""),
                                    [&](basic_buffer<CharT>& dest, basic_drain<CharT>* drain) {
                                        if (ignoreCase)
                                            return drain ? source.ReplaceToIC(dest, find, with, 0,
                                                                              *drain)
                                                         : source.ReplaceToIC(dest, find, with);
                                        return drain ? source.ReplaceTo(dest, find, with, 0, *drain)
                                                     : source.ReplaceTo(dest, find, with);
                                    });
        }
    }
}

// A regex replace decides each search's line start from the output written
// so far, which a drain may already have taken.
TYPED_TEST(DrainTest, RegexGivesTheSameBytesAndLineStarts) {
    using CharT = TypeParam;
    const basic_buffer<CharT> source = Text<CharT>(Subject(2));
    const struct {
        const char* pattern;
        const char* with;
        bool newline;
    } cases[] = {
        {"^a", "", true},
        {"^a", "", false},
        {"b*", "-", true},
        {"$", "<", true},
        {"(\\w+) (\\w+)", "\\2 \\1", true},
        {"^(ab|x)\\n", "\\1", true},
        {"q+", "Q", true},
        {"zzz", "never", true},
    };
    for (const auto& c : cases) {
        basic_buffer<CharT> pattern = Text<CharT>(c.pattern);
        const basic_regex_handle<CharT> handle =
            compile_pattern_handle(pattern, false, c.newline, 1, true);
        ASSERT_FALSE(handle.empty()) << c.pattern;
        const basic_buffer<CharT> with = Text<CharT>(c.with);
        ExpectSameResult<CharT>(
            c.pattern, [&](basic_buffer<CharT>& dest, basic_drain<CharT>* drain) {
                return drain ? RegReplaceTo(source, dest, handle, with, false, false, true, *drain)
                             : RegReplaceTo(source, dest, handle, with, false, false, true);
            });
    }
}

}  // namespace
