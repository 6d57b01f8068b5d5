// regex_find on several threads at once, each with patterns of its own.
//
// Each thread's cache holds the last pattern it compiled; threads that
// search with different patterns at the same moment must neither see nor
// disturb each other's. The scripts below change pattern at every step, so
// the threads compile side by side as well as match, and a step repeats
// its pattern for several ordinals, so that the cache is also hit. Empty
// patterns free a thread's cache in the middle of its script and invalid
// ones leave it empty; threads end with their caches full, to be freed as
// they exit. The first searches of the first threads make the cache keys
// together, when the test runs in a process of its own.

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "orlo/regex.h"
#include "regex_threads/thread_test_support.h"

namespace Orlo::regex_threads {
namespace {

constexpr int kThreads = 4;
constexpr int kWaves = 3;  // each a new set of threads
constexpr int kSteps = 30;
// Each thread walks the steps with a stride of its own; every stride must be
// prime to the number of steps, so that each thread reaches every step.
constexpr size_t kStrides[] = {1, 2, 4, 7};

struct FindStep {
    std::u32string_view pattern;
    std::u32string subject;
    uint8_t syntax = 1;
    bool ignoreCase = false;
    bool newline = true;
    bool expand = true;
    uint32_t start = 0;
    bool startNotBol = false;
};

const std::vector<FindStep>& Steps() {
    static const std::vector<FindStep> steps = {
        {.pattern = U"\\d+", .subject = U"ab12cd345ef6"},
        {.pattern = U"[[:alpha:]]+", .subject = U"ab12cd345ef6"},
        {.pattern = U"(\\w+)@(\\w+)", .subject = U"a@b cc@dd e@"},
        {.pattern = U"***:(?n)^b", .subject = U"a\nb\nb", .start = 1, .startNotBol = true},
        {.pattern = U"^b", .subject = U"a\nb", .newline = false, .start = 2, .startNotBol = true},
        {.pattern = U"A+", .subject = U"aAa bA", .ignoreCase = true},
        {.pattern = U"a(", .subject = U"a("},
        {.pattern = U"", .subject = U"abc"},
        {.pattern = U"(a|b)*a(a|b)(a|b)(a|b)(a|b)c",
         .subject = Subject({U"a", U"b", U"ab", U"c"}, 200, 7)},
        {.pattern = U"(a+)b\\1", .subject = U"aabaa ab a abaab", .syntax = 3},
        {.pattern = U"\\w+(?=,)", .subject = U"x, yy,z", .syntax = 3},
        {.pattern = U"x*", .subject = U"ab"},
        {.pattern = U"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)", .subject = U"zabcdefghijk"},
        {.pattern = U"\\d+", .subject = U"ab12cd345ef6", .expand = false},
        {.pattern = U"\u00e9+", .subject = U"a\u00e9\u00e9 \u00e9"},  // wide only
    };
    return steps;
}

// Ordinals 0 to 3 of one step: "offset,length ..." per hit, "none" per miss.
template <class CharT>
void Run(std::string& out, const FindStep& step) {
    if (sizeof(CharT) == 1 && !IsAscii(step.pattern)) return;
    const basic_buffer<CharT> subject = Text<CharT>(step.subject);
    for (uint32_t ordinal = 0; ordinal < 4; ++ordinal) {
        basic_buffer<CharT> pattern = Text<CharT>(step.pattern);
        regex_results results;
        if (regex_find(subject, results, pattern, ordinal, step.start, step.ignoreCase,
                       step.newline, step.syntax, 0, false, step.expand, step.startNotBol)) {
            for (const auto& [offset, length] : results) {
                AppendNumber(out, int32_t(offset));
                out += ',';
                AppendNumber(out, length);
                out += ' ';
            }
        } else {
            out += "none ";
        }
    }
    out += '\n';
}

// A thread's script: its own walk through the steps, narrow and wide at
// each.
std::string Script(int thread) {
    const size_t n = Steps().size();
    const size_t stride = kStrides[size_t(thread) % std::size(kStrides)];
    std::string out;
    for (size_t s = 0; s < kSteps; ++s) {
        const FindStep& step = Steps()[(s * stride + size_t(thread)) % n];
        Run<char>(out, step);
        Run<wchar_t>(out, step);
    }
    return out;
}

TEST(FindCacheThreads, ThreadsWithDifferentPatternsSeeWhatOneThreadSees) {
    for (size_t stride : kStrides)
        ASSERT_EQ(std::gcd(stride, Steps().size()), 1u) << stride;
    for (int wave = 0; wave < kWaves; ++wave) {
        SCOPED_TRACE(wave);
        ExpectSameAsAlone(kThreads, Script);
    }
}

}  // namespace
}  // namespace Orlo::regex_threads
