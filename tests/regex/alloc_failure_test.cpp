// Every allocation of a compilation and of a match made to fail in turn:
// each run must end with REG_ESPACE or with the result it has when nothing
// fails, and (under the sanitizers) leak nothing.

#include <string>
#include <vector>

#include "regex/alloc.h"
#include "regex/engine_support.h"

namespace re_test {
namespace {

using Orlo::engine_compile;
using Orlo::engine_exec;
using Orlo::engine_free;
using Orlo::regex_t;
using Orlo::regmatch_t;
using Orlo::IMPL::re::allocations_made;
using Orlo::IMPL::re::fail_allocation;

struct Sample {
    const char* pattern;
    int flags;
    const char* subject;
};

// A spread of what allocates: classes and their colours, bounds, groups,
// back references with retry memory, look-ahead, large automata.
const Sample kSamples[] = {
    {"a[b-d]+e", Orlo::REG_EXTENDED, "xabcde"},
    {"(a|ab)(c|bcd)(d*)", Orlo::REG_EXTENDED, "abcd"},
    {"([a-c]*)\\1x", Orlo::REG_ADVANCED, "abcabcx"},
    {"\\m\\w+(?=\\s)\\M", Orlo::REG_ADVANCED, "one two"},
    {"[[:alpha:]]{2,5}?\\d", Orlo::REG_ADVANCED | Orlo::REG_ICASE, "--AbC9"},
    {"^(x+|y){3,}$", Orlo::REG_EXTENDED | Orlo::REG_NEWLINE, "a\nxxyx\n"},
    {"(((a)b)c|abd)+", Orlo::REG_EXTENDED, "abcabdabc"},
};

// "rc so,eo ..." for one run; compile errors give "compile N".
template <class CharT>
std::string Run(const Sample& s, long failCompile, long failExec) {
    const std::basic_string<CharT> p = Widen<CharT>(s.pattern);
    const std::basic_string<CharT> t = Widen<CharT>(s.subject);
    regex_t re{};
    fail_allocation(failCompile);
    int rc = engine_compile(&re, p.data(), p.size(), s.flags);
    fail_allocation(0);
    if (rc != Orlo::REG_OKAY) {
        EXPECT_EQ(re.re_guts, nullptr);
        return "compile " + std::to_string(rc);
    }
    std::vector<regmatch_t> m(re.re_nsub + 1);
    fail_allocation(failExec);
    rc = engine_exec(&re, t.data(), t.size(), nullptr, m.size(), m.data(), 0);
    fail_allocation(0);
    engine_free(&re);
    std::string out = std::to_string(rc);
    if (rc == Orlo::REG_OKAY) {
        for (const regmatch_t& r : m) {
            out += ' ';
            out += std::to_string(r.rm_so);
            out += ',';
            out += std::to_string(r.rm_eo);
        }
    }
    return out;
}

// Allocations one step makes: compile alone, or compile and a first match.
template <class CharT>
long Count(const Sample& s, bool withExec) {
    const std::basic_string<CharT> p = Widen<CharT>(s.pattern);
    const std::basic_string<CharT> t = Widen<CharT>(s.subject);
    regex_t re{};
    const long before = allocations_made();
    EXPECT_EQ(engine_compile(&re, p.data(), p.size(), s.flags), Orlo::REG_OKAY);
    const long compiled = allocations_made();
    std::vector<regmatch_t> m(re.re_nsub + 1);
    engine_exec(&re, t.data(), t.size(), nullptr, m.size(), m.data(), 0);
    const long matched = allocations_made();
    engine_free(&re);
    return withExec ? matched - compiled : compiled - before;
}

template <class CharT>
class AllocFailureTest : public ::testing::Test {};
TYPED_TEST_SUITE(AllocFailureTest, CharTypes);

TYPED_TEST(AllocFailureTest, EveryCompileAllocationMayFail) {
    using CharT = TypeParam;
    const std::string espace = "compile " + std::to_string(Orlo::REG_ESPACE);
    for (const Sample& s : kSamples) {
        const std::string normal = Run<CharT>(s, 0, 0);
        const long n = Count<CharT>(s, false);
        ASSERT_GT(n, 0) << s.pattern;
        for (long i = 1; i <= n; ++i) {
            const std::string got = Run<CharT>(s, i, 0);
            EXPECT_TRUE(got == espace || got == normal)
                << s.pattern << ": allocation " << i << " of " << n << " gave " << got;
        }
    }
}

TYPED_TEST(AllocFailureTest, EveryMatchAllocationMayFail) {
    using CharT = TypeParam;
    const std::string espace = std::to_string(Orlo::REG_ESPACE);
    for (const Sample& s : kSamples) {
        const std::string normal = Run<CharT>(s, 0, 0);
        const long n = Count<CharT>(s, true);
        ASSERT_GT(n, 0) << s.pattern;
        for (long i = 1; i <= n; ++i) {
            const std::string got = Run<CharT>(s, 0, i);
            EXPECT_TRUE(got == espace || got == normal)
                << s.pattern << ": allocation " << i << " of " << n << " gave " << got;
        }
    }
}

}  // namespace
}  // namespace re_test
