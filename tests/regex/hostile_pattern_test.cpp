// Random patterns built from the syntax's own pieces, under random flags,
// compiled and run over awkward subjects (NUL, high bytes, newlines). The
// engine must answer with a code from its list and never touch memory it
// does not own; the sanitizer builds are what make this test bite.

#include <random>
#include <string>
#include <vector>

#include "regex/engine_support.h"

namespace re_test {
namespace {

using Orlo::engine_compile;
using Orlo::engine_exec;
using Orlo::engine_free;
using Orlo::regex_t;
using Orlo::regmatch_t;

// Fragments that reach every corner of the lexer: prefixes, embedded
// options, escapes of each kind, brackets with classes, bounds, look-ahead,
// back references, and bytes that are not characters of any syntax.
const std::vector<std::string>& Pieces() {
    static const std::vector<std::string> pieces = {
        "a",
        "b",
        ".",
        "*",
        "+",
        "?",
        "*?",
        "+?",
        "??",
        "{",
        "}",
        "{2}",
        "{1,3}",
        "{,2}",
        "{2,1}",
        "{0,}?",
        "(",
        ")",
        "(?:",
        "(?=",
        "(?!",
        "(?i)",
        "(?x)",
        "(?q)",
        "(?b)",
        "(?e)",
        "(?n)",
        "(?z)",
        "|",
        "^",
        "$",
        "[",
        "]",
        "[^",
        "[a-",
        "-",
        "[:alpha:]",
        "[[:digit:]]",
        "[=a=]",
        "[.hyphen.]",
        "[.a",
        "[[:<:]]",
        "[[:>:]]",
        "\\",
        "\\1",
        "\\2",
        "\\9",
        "\\0",
        "\\d",
        "\\W",
        "\\s",
        "\\m",
        "\\M",
        "\\y",
        "\\Y",
        "\\A",
        "\\Z",
        "\\x41",
        "\\x",
        "\\u00e9",
        "\\U0001F600",
        "\\cA",
        "\\e",
        "\\B",
        "\\777",
        "\\0377",
        "***:",
        "***=",
        "***?",
        "#c\n",
        " ",
        "\n",
        std::string(1, '\0'),
        "\xe9",
        "\xff",
        "\x80",
    };
    return pieces;
}

const int kCompileFlags[] = {
    Orlo::REG_BASIC,
    Orlo::REG_EXTENDED,
    Orlo::REG_ADVANCED,
    Orlo::REG_ADVANCED | Orlo::REG_EXPANDED,
    Orlo::REG_ADVANCED | Orlo::REG_ICASE | Orlo::REG_NEWLINE,
    Orlo::REG_EXTENDED | Orlo::REG_NLSTOP | Orlo::REG_EXPECT,
    Orlo::REG_QUOTE | Orlo::REG_ICASE,
    Orlo::REG_BASIC | Orlo::REG_NLANCH | Orlo::REG_NOSUB,
};

const std::vector<std::string>& Subjects() {
    static const std::vector<std::string> subjects = {
        "",
        "a",
        "ab\nba",
        std::string("a\0b\0", 4),
        "\xe9\xff\x80"
        "aA_9 -",
        "aaaaaaaaaaaaaaaab",
    };
    return subjects;
}

bool KnownCode(int rc) {
    return (rc >= Orlo::REG_OKAY && rc <= Orlo::REG_BADRPT) ||
           (rc >= Orlo::REG_ASSERT && rc <= Orlo::REG_BADOPT);
}

template <class CharT>
class HostilePatternTest : public ::testing::Test {};
TYPED_TEST_SUITE(HostilePatternTest, CharTypes);

TYPED_TEST(HostilePatternTest, EveryPatternEndsWithAKnownCodeAndNoLeak) {
    using CharT = TypeParam;
    std::mt19937 rng(1121);
    const auto& pieces = Pieces();
    int compiled = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string pattern;
        const int n = 1 + int(rng() % 7);
        for (int i = 0; i < n; ++i)
            pattern += pieces[rng() % pieces.size()];
        const int cflags = kCompileFlags[rng() % std::size(kCompileFlags)];
        const std::basic_string<CharT> p = Widen<CharT>(pattern);
        regex_t re{};
        int rc = engine_compile(&re, p.data(), p.size(), cflags);
        ASSERT_TRUE(KnownCode(rc) && rc != Orlo::REG_NOMATCH) << rc;
        if (rc != Orlo::REG_OKAY) {
            EXPECT_EQ(re.re_magic, 0);
            EXPECT_EQ(re.re_guts, nullptr);
            continue;
        }
        ++compiled;
        for (const std::string& subject : Subjects()) {
            const std::basic_string<CharT> s = Widen<CharT>(subject);
            std::vector<regmatch_t> m(re.re_nsub + 1);
            Orlo::rm_detail_t details{};
            const int eflags = int(rng() % 4) | ((rng() % 8 == 0) ? Orlo::REG_SMALL : 0);
            rc = engine_exec(&re, s.data(), s.size(), &details, m.size(), m.data(), eflags);
            ASSERT_TRUE(rc == Orlo::REG_OKAY || rc == Orlo::REG_NOMATCH)
                << "exec " << rc << " for pattern \"" << pattern << "\" flags " << cflags;
            if (rc == Orlo::REG_OKAY && !(cflags & Orlo::REG_NOSUB)) {
                EXPECT_LE(0, m[0].rm_so);
                EXPECT_LE(m[0].rm_so, m[0].rm_eo);
                EXPECT_LE(size_t(m[0].rm_eo), s.size());
            }
        }
        engine_free(&re);
    }
    // The mix is meant to compile often enough to exercise matching too.
    EXPECT_GT(compiled, 1000);
}

// Constraints moved through a loop they can cross without a character never
// settle, and long runs of position tests multiply states: compilation
// gives up with REG_ESPACE after a bounded amount of work instead of taking
// every byte and second there is.
TYPED_TEST(HostilePatternTest, RunawayCompilationsEndWithESpace) {
    using CharT = TypeParam;
    const struct {
        std::string pattern;
        int flags;
    } rows[] = {
        // Automata that would take minutes and gigabytes: bounds multiplied,
        // and a nest so deep that each group's automaton of all it holds
        // adds up to millions of states.
        {"((a{255}){255}){255}", Orlo::REG_EXTENDED},
        {std::string(2000, '(') + "a" + std::string(2000, ')'), Orlo::REG_EXTENDED},
        {"(^$)*", Orlo::REG_EXTENDED},
        {"x(^$)*", Orlo::REG_ADVANCED},
        {"(^|$)*", Orlo::REG_EXTENDED},
        {"($)*^", Orlo::REG_EXTENDED},
        {"((?=a)$)*", Orlo::REG_ADVANCED},
        {"(a|\\m)*", Orlo::REG_ADVANCED},
        {"\\Y\\Y\\Y\\Y\\Y\\Y\\Y\\Y", Orlo::REG_ADVANCED},
        {"($\\M|.){6}", Orlo::REG_ADVANCED | Orlo::REG_NLANCH},
    };
    for (const auto& row : rows) {
        const std::basic_string<CharT> p = Widen<CharT>(row.pattern);
        regex_t re{};
        EXPECT_EQ(engine_compile(&re, p.data(), p.size(), row.flags), Orlo::REG_ESPACE)
            << row.pattern.substr(0, 30);
        EXPECT_EQ(re.re_guts, nullptr);
    }
}

// Nesting that recursion would pay for with the stack ends the compile with
// REG_ESPACE instead; ordinary depths compile and match.
TYPED_TEST(HostilePatternTest, DeepPatternsEndWithESpaceNotACrash) {
    using CharT = TypeParam;
    auto repeat = [](const std::string& piece, int n) {
        std::string out;
        for (int i = 0; i < n; ++i)
            out += piece;
        return out;
    };
    const struct {
        std::string pattern;
        int rc;
    } rows[] = {
        {std::string(100000, '(') + "a" + std::string(100000, ')'), Orlo::REG_ESPACE},
        {repeat("(?:", 100000) + "a" + std::string(100000, ')'), Orlo::REG_ESPACE},
        {repeat("(a)", 60000), Orlo::REG_ESPACE},
        {std::string(300, '(') + "a" + std::string(300, ')'), Orlo::REG_OKAY},
        {repeat("(a)", 500), Orlo::REG_OKAY},
    };
    for (const auto& row : rows) {
        const std::basic_string<CharT> p = Widen<CharT>(row.pattern);
        regex_t re{};
        ASSERT_EQ(engine_compile(&re, p.data(), p.size(), Orlo::REG_ADVANCED), row.rc)
            << row.pattern.substr(0, 12) << "... (" << row.pattern.size() << " characters)";
        if (row.rc != Orlo::REG_OKAY) continue;
        const std::basic_string<CharT> subject = Widen<CharT>(std::string(2100, 'a'));
        std::vector<regmatch_t> m(re.re_nsub + 1);
        EXPECT_EQ(engine_exec(&re, subject.data(), subject.size(), nullptr, m.size(), m.data(), 0),
                  Orlo::REG_OKAY);
        engine_free(&re);
    }
}

}  // namespace
}  // namespace re_test
