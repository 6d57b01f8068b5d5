// A user's word list handed over as one alternation: thousands of plain
// words, bare or inside a group. Every alternative hangs off the same two
// states, which then hold an arc per word, so this is where duplicate checks,
// arc unlinking, arc sorting and the alternation's flag bookkeeping meet
// states of thousands of arcs. The list must compile, keep its properties,
// and find exactly its own words, the first, one in the middle and the last
// alike.

#include <string>
#include <vector>

#include "regex/engine_support.h"
#include "regex/word_list.h"

namespace re_test {
namespace {

using Orlo::engine_compile;
using Orlo::engine_exec;
using Orlo::engine_free;
using Orlo::regex_t;
using Orlo::regmatch_t;

constexpr int ERE = Orlo::REG_EXTENDED;
constexpr int ARE = Orlo::REG_ADVANCED;

// Large enough for hub states of thousands of arcs, small enough that the
// matcher's state cache for the automaton stays a modest allocation.
constexpr size_t kWords = 5000;

struct ShapeCase {
    const char* name;
    const char* open;
    const char* close;
    int flags;
    size_t groups;
    long info;
};

const ShapeCase kShapes[] = {
    {"bare, extended", "", "", ERE, 0, 0},
    {"group, extended", "(", ")", ERE, 1, 0},
    {"bare, advanced", "", "", ARE, 0, 0},
    {"group, advanced", "(", ")", ARE, 1, 0},
    {"non-capturing group, advanced", "(?:", ")", ARE, 0, Orlo::REG_UNONPOSIX},
};

template <class CharT>
class WordListTest : public ::testing::Test {};
TYPED_TEST_SUITE(WordListTest, CharTypes);

TYPED_TEST(WordListTest, CompilesAndFindsItsOwnWords) {
    using CharT = TypeParam;
    const std::vector<std::string> words = WordList(kWords);
    std::string list;
    for (const std::string& word : words) {
        if (!list.empty()) list += '|';
        list += word;
    }
    // Subjects wrap a word in characters no word has, so the match is that
    // word exactly: nothing can start earlier or run on.
    struct Probe {
        std::string subject;
        long start;  // -1: no match
        long end;
    };
    const std::string& middle = words[kWords / 2];
    const std::vector<Probe> probes = {
        {"12 " + words.front() + " 34", 3, long(3 + words.front().size())},
        {"-" + middle + "-", 1, long(1 + middle.size())},
        {words.back() + "!", 0, long(words.back().size())},
        {"0123 4567 ABCDE", -1, -1},
        {"", -1, -1},
    };

    for (const ShapeCase& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        const std::basic_string<CharT> pattern =
            Widen<CharT>(std::string(shape.open) + list + shape.close);
        regex_t re{};
        ASSERT_EQ(engine_compile(&re, pattern.data(), pattern.size(), shape.flags), Orlo::REG_OKAY);
        EXPECT_EQ(re.re_nsub, shape.groups);
        EXPECT_EQ(re.re_info, shape.info);
        for (const Probe& probe : probes) {
            SCOPED_TRACE(probe.subject);
            const std::basic_string<CharT> subject = Widen<CharT>(probe.subject);
            regmatch_t m[2] = {{-7, -7}, {-7, -7}};
            const int rc = engine_exec(&re, subject.data(), subject.size(), nullptr, 2, m, 0);
            if (probe.start < 0) {
                EXPECT_EQ(rc, Orlo::REG_NOMATCH);
                continue;
            }
            ASSERT_EQ(rc, Orlo::REG_OKAY);
            EXPECT_EQ(m[0].rm_so, probe.start);
            EXPECT_EQ(m[0].rm_eo, probe.end);
            const regmatch_t group = shape.groups ? m[0] : regmatch_t{-1, -1};
            EXPECT_EQ(m[1].rm_so, group.rm_so);
            EXPECT_EQ(m[1].rm_eo, group.rm_eo);
        }
        engine_free(&re);
    }
}

}  // namespace
}  // namespace re_test
