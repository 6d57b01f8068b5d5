// Tests of engine_exec: where matches and groups land for each syntax and
// flag, the argument checks, and what the caller's records look like
// afterwards. Every table runs in both instantiations.

#include <unistd.h>

#include <cstdio>
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
using Orlo::rm_detail_t;

constexpr int ERE = Orlo::REG_EXTENDED;
constexpr int ARE = Orlo::REG_ADVANCED;
constexpr int BRE = Orlo::REG_BASIC;
constexpr int NOTBOL = Orlo::REG_NOTBOL;
constexpr int NOTEOL = Orlo::REG_NOTEOL;

// "so,eo" for the match and each group, "nomatch", or "exec N" / "compile N".
template <class CharT>
std::string Match(int cflags, const std::basic_string<CharT>& pattern,
                  const std::basic_string<CharT>& subject, int eflags = 0) {
    regex_t re{};
    int rc = engine_compile(&re, pattern.data(), pattern.size(), cflags);
    if (rc != Orlo::REG_OKAY) return "compile " + std::to_string(rc);
    std::vector<regmatch_t> m(re.re_nsub + 1, regmatch_t{-7, -7});
    rc = engine_exec(&re, subject.data(), subject.size(), nullptr, m.size(), m.data(), eflags);
    engine_free(&re);
    if (rc == Orlo::REG_NOMATCH) return "nomatch";
    if (rc != Orlo::REG_OKAY) return "exec " + std::to_string(rc);
    std::string out;
    for (const regmatch_t& r : m) {
        if (!out.empty()) out += ' ';
        out += std::to_string(r.rm_so);
        out += ',';
        out += std::to_string(r.rm_eo);
    }
    return out;
}

struct Case {
    int cflags;
    const char* pattern;
    std::string subject;
    const char* expected;
    int eflags = 0;
};

template <class CharT>
void RunCases(const std::vector<Case>& cases) {
    for (const Case& c : cases)
        EXPECT_EQ(
            Match<CharT>(c.cflags, Widen<CharT>(c.pattern), Widen<CharT>(c.subject), c.eflags),
            c.expected)
            << "pattern /" << c.pattern << "/ flags " << c.cflags << " subject \"" << c.subject
            << "\" eflags " << c.eflags;
}

template <class CharT>
class ExecTest : public ::testing::Test {};
TYPED_TEST_SUITE(ExecTest, CharTypes);

TYPED_TEST(ExecTest, EachSyntaxFindsTheLeftmostLongestMatch) {
    RunCases<TypeParam>({
        {BRE, "\\(a\\)\\1", "xaa", "1,3 1,2"},
        {BRE, "a\\{2\\}", "aaa", "0,2"},
        {BRE, "a+", "aa+", "1,3"},
        {BRE, "a|b", "b a|b", "2,5"},
        {ERE, "a{2,3}", "aaaa", "0,3"},
        {ERE, "(a|b)+", "abab", "0,4 3,4"},
        {ERE, "a|ab|abc", "xabcd", "1,4"},
        {ERE, "x*", "abc", "0,0"},
        {ERE, "b*", "abb", "0,0"},
        {ERE, "\\d", "d1", "0,1"},
        {ARE, "\\d+", "ab123", "2,5"},
        {ARE, "(?:a)(b)", "ab", "0,2 1,2"},
        {ARE, "\\w+\\s\\W", "ab_1 %", "0,6"},
        {Orlo::REG_QUOTE, "a.b", "axb a.b", "4,7"},
        {ARE, "***=a.b", "axb a.b", "4,7"},
        {ARE, "(?i)AB", "xab", "1,3"},
        {ARE | Orlo::REG_EXPANDED, "a #c\n b", "ab", "0,2"},
    });
}

TYPED_TEST(ExecTest, BracketsClassesAndCase) {
    RunCases<TypeParam>({
        {ERE, "[a-c]+", "xbcad", "1,4"},
        {ERE, "[^a]+", "aabca", "2,4"},
        {ERE, "[]a]+", "x]a]", "1,4"},
        {ERE, "[[:digit:]]+", "ab42c", "2,4"},
        {ERE, "[[:alpha:]_]+", "1a_b2", "1,4"},
        {ERE, "[[=a=]]", "ba", "1,2"},
        {ERE, "[[.hyphen.]]", "a-", "1,2"},
        {ERE | Orlo::REG_ICASE, "[a-c]+", "xAbC", "1,4"},
        {ERE | Orlo::REG_ICASE, "HeLLo", "say hello", "4,9"},
        {ERE | Orlo::REG_ICASE, "[^a]", "Aab", "2,3"},
        {ERE, "\xe9+", "a\xe9\xe9", "1,3"},
        {ERE, ".", "\xe9", "0,1"},
        {ERE, "a.c", std::string("a\0c", 3), "0,3"},
    });
}

TYPED_TEST(ExecTest, QuantifierPreferences) {
    RunCases<TypeParam>({
        {ARE, "a+?", "aaa", "0,1"},
        {ARE, "a*?b", "xaab", "1,4"},
        {ARE, "a{2,3}?", "aaaa", "0,2"},
        {ARE, "a??", "a", "0,0"},
        {ARE, "(a+)(a*)", "aaa", "0,3 0,3 3,3"},
        {ARE, "(a+?)(a*)", "aaa", "0,1 0,1 1,1"},
        {ARE, "(a+?)(a*)b", "aaab", "0,4 0,1 1,3"},
        {ARE, "(a*)(a+?)", "aaa", "0,3 0,2 2,3"},
        {ARE, "(.*)c(.*)", "abcdcef", "0,7 0,4 5,7"},
        {ARE, "(.*?)c(.*)", "abcdcef", "0,3 0,2 3,3"},
        {ERE, "(a|ab)(c|bcd)(d*)", "abcd", "0,4 0,2 2,3 3,4"},
        {ERE, "(wee|week)(knights|night)", "weeknights", "0,10 0,3 3,10"},
        {ERE, "(a)|b", "b", "0,1 -1,-1"},
        {ERE, "((a)|b)+", "ab", "0,2 1,2 -1,-1"},
        {ERE, "(a*)+", "aa", "0,2 2,2"},
        {ERE, "(a)*", "b", "0,0 -1,-1"},
    });
}

// Group placement where one half of a split has a single possible length
// (literal text, an empty end, a look-ahead) and where neither has.
TYPED_TEST(ExecTest, GroupsBesideFixedLengthParts) {
    RunCases<TypeParam>({
        {ERE, "(a+)(b)(c*)", "aabcc", "0,5 0,2 2,3 3,5"},
        {ARE, "x(a|b)y(\\d+)", "-xby12-", "1,6 2,3 4,6"},
        {ARE, "(a)(?=b)(b+)", "abb", "0,3 0,1 1,3"},
        {ERE, "^(a+)(b)$", "aab", "0,3 0,2 2,3"},
        {ARE, "(\\w+)\\y(\\s+)", "ab  c", "0,4 0,2 2,4"},
        {ERE, "(ab|cd)(e+)", "cdee", "0,4 0,2 2,4"},
        {ERE, "(a*)(a)", "aaa", "0,3 0,2 2,3"},
        {ERE, "([0-9]+)\\.([0-9]+)", "v1.22.3", "1,5 1,2 3,5"},
    });
}

TYPED_TEST(ExecTest, AnchorsUnderEachNewlineMode) {
    constexpr int NLSTOP = Orlo::REG_NLSTOP;
    constexpr int NLANCH = Orlo::REG_NLANCH;
    RunCases<TypeParam>({
        {ERE, "^b", "a\nb", "nomatch"},
        {ERE | NLANCH, "^b", "a\nb", "2,3"},
        {ERE, "a$", "a\nb", "nomatch"},
        {ERE | NLANCH, "a$", "a\nb", "0,1"},
        {ERE, "^a", "a", "nomatch", NOTBOL},
        {ERE | NLANCH, "^a", "a\na", "2,3", NOTBOL},
        {ERE, "a$", "a", "nomatch", NOTEOL},
        {ERE | NLANCH, "a$", "a\na", "0,1", NOTEOL},
        {ERE, "$", "ab", "2,2"},
        {ERE, "$", "ab", "nomatch", NOTEOL},
        {ERE, "a.b", "a\nb", "0,3"},
        {ERE | NLSTOP, "a.b", "a\nb", "nomatch"},
        {ERE | NLSTOP, "a[^x]b", "a\nb", "nomatch"},
        {ERE | NLSTOP, "^b", "a\nb", "nomatch"},
        {ERE | Orlo::REG_NEWLINE, "^b$", "a\nb\nc", "2,3"},
        {ARE, "\\Ab", "a\nb", "nomatch"},
        {ARE | NLANCH, "b\\Z", "b\na", "nomatch"},
        {ARE | NLANCH, "b\\Z", "a\nb", "2,3"},
        {ERE, "a^b", "a^b", "nomatch"},
    });
}

TYPED_TEST(ExecTest, WordConstraintsAndLookAhead) {
    RunCases<TypeParam>({
        {ARE, "\\mfoo\\M", "afoo foo", "5,8"},
        {ARE, "\\yo", "foo o", "4,5"},
        {ARE, "o\\Y", "o foo", "3,4"},
        {ERE, "[[:<:]]b", "ab b", "3,4"},
        {ERE, "a[[:>:]]", "ab a", "3,4"},
        {ARE, "a(?=b)", "acab", "2,3"},
        {ARE, "a(?!b)", "abac", "2,3"},
        {ARE, "(?=.*c)a+", "aab", "nomatch"},
        {ARE, "x(?=y$)", "xyxy", "2,3"},
        {ARE, "a(?!$)", "aa", "0,1"},
        {ARE, "a(?=$)", "aa", "nomatch", NOTEOL},
    });
}

TYPED_TEST(ExecTest, BackReferencesAreVerified) {
    RunCases<TypeParam>({
        {ARE, "(a*)\\1", "aaaa", "0,4 0,2"},
        {ARE, "(a*)\\1", "aaa", "0,2 0,1"},
        {ARE, "(a|b)\\1", "abba", "1,3 1,2"},
        {ARE, "([a-c]*)\\1", "abcabc", "0,6 0,3"},
        {ARE, "(a)\\1{2}", "aaaa", "0,3 0,1"},
        {ARE, "(a)\\1*", "aaab", "0,3 0,1"},
        {ERE, "(a)\\1", "a1", "0,2 0,1"},
        {ARE, "(ab|a)\\1x", "ababx", "0,5 0,2"},
        {ARE, "(.)\\1", "abcdd", "3,5 3,4"},
        {ARE, "(a)(b)?\\2", "ab", "nomatch"},
        {ARE | Orlo::REG_ICASE, "(a)\\1", "aA", "0,2 0,1"},
        {ARE, "(a)\\1", "aA", "nomatch"},
        {ARE, "(x)*y\\1", "xxyx", "0,4 1,2"},
        {ARE, "()\\1", "ab", "0,0 0,0"},
        {ARE, "(a+?)\\1", "aaaa", "0,2 0,1"},
    });
}

TYPED_TEST(ExecTest, ArgumentChecks) {
    using CharT = TypeParam;
    const std::basic_string<CharT> text = Widen<CharT>("ab");
    regmatch_t m[2];
    EXPECT_EQ(engine_exec(nullptr, text.data(), 2, nullptr, 1, m, 0), Orlo::REG_INVARG);

    regex_t re{};
    const std::basic_string<CharT> p = Widen<CharT>("b");
    ASSERT_EQ(engine_compile(&re, p.data(), p.size(), ERE), Orlo::REG_OKAY);
    EXPECT_EQ(engine_exec(&re, static_cast<const CharT*>(nullptr), 0, nullptr, 1, m, 0),
              Orlo::REG_INVARG);
    EXPECT_EQ(engine_exec(&re, text.data(), 0, nullptr, 1, m, 0), Orlo::REG_NOMATCH);
    engine_free(&re);
    EXPECT_EQ(engine_exec(&re, text.data(), 2, nullptr, 1, m, 0), Orlo::REG_INVARG);

    ASSERT_EQ(engine_compile(&re, p.data(), p.size(), ARE | Orlo::REG_EXPECT), Orlo::REG_OKAY);
    EXPECT_EQ(engine_exec(&re, text.data(), 2, nullptr, 1, m, 0), Orlo::REG_INVARG);
    engine_free(&re);
}

TEST(ExecMixed, ARecordOfTheOtherWidthIsRefused) {
    regex_t narrow{}, wide{};
    ASSERT_EQ(engine_compile(&narrow, "a", 1, ERE), Orlo::REG_OKAY);
    ASSERT_EQ(engine_compile(&wide, L"a", 1, ERE), Orlo::REG_OKAY);
    regmatch_t m[1];
    EXPECT_EQ(engine_exec(&narrow, L"a", 1, nullptr, 1, m, 0), Orlo::REG_MIXED);
    EXPECT_EQ(engine_exec(&wide, "a", 1, nullptr, 1, m, 0), Orlo::REG_MIXED);
    engine_free(&narrow);
    engine_free(&wide);
}

// What the caller's pmatch holds afterwards, by pattern and caller's count.
TYPED_TEST(ExecTest, CallerRecordsAreFilledOnlyAsFarAsAsked) {
    using CharT = TypeParam;
    struct Row {
        const char* pattern;
        int cflags;
        size_t nmatch;
        const char* subject;
        std::vector<long> expected;  // so, eo pairs of all 4 entries
    };
    const std::vector<Row> rows = {
        // Untouched entries keep -7; a back-reference pattern still fills
        // no more than asked, and entries past its groups with -1.
        {"(a)\\1", ARE, 1, "aa", {0, 2, -7, -7, -7, -7, -7, -7}},
        {"(a)\\1", ARE, 4, "aa", {0, 2, 0, 1, -1, -1, -1, -1}},
        {"(a)(b)", ERE, 2, "ab", {0, 2, 0, 1, -7, -7, -7, -7}},
        {"(a)(b)", ERE | Orlo::REG_NOSUB, 4, "ab", {-7, -7, -7, -7, -7, -7, -7, -7}},
        {"(a)", ERE, 0, "a", {-7, -7, -7, -7, -7, -7, -7, -7}},
        {"(a)", ERE, 4, "b", {-7, -7, -7, -7, -7, -7, -7, -7}},
    };
    for (const Row& row : rows) {
        regex_t re{};
        std::basic_string<CharT> p = Widen<CharT>(row.pattern);
        std::basic_string<CharT> s = Widen<CharT>(row.subject);
        ASSERT_EQ(engine_compile(&re, p.data(), p.size(), row.cflags), Orlo::REG_OKAY);
        regmatch_t m[4];
        for (regmatch_t& r : m)
            r = regmatch_t{-7, -7};
        int rc = engine_exec(&re, s.data(), s.size(), nullptr, row.nmatch, m, 0);
        EXPECT_EQ(rc, s == Widen<CharT>("b") ? Orlo::REG_NOMATCH : Orlo::REG_OKAY) << row.pattern;
        std::vector<long> got;
        for (const regmatch_t& r : m) {
            got.push_back(r.rm_so);
            got.push_back(r.rm_eo);
        }
        EXPECT_EQ(got, row.expected) << row.pattern << " nmatch " << row.nmatch;
        engine_free(&re);
    }
}

// With REG_EXPECT, rm_extend spans the text from the point before which no
// match could have begun to the end.
TYPED_TEST(ExecTest, ExpectReportsTheSpanStillInPlay) {
    using CharT = TypeParam;
    struct Row {
        const char* pattern;
        const char* subject;
        int rc;
        long so, eo;
    };
    const std::vector<Row> rows = {
        // After a match: from the first beginning whose walk reached the end.
        {"abc", "xxabcxx", Orlo::REG_OKAY, 7, 7}, {"abc", "xxabc", Orlo::REG_OKAY, 2, 5},
        {"abc", "xxab", Orlo::REG_NOMATCH, 2, 4}, {"abc", "xxxx", Orlo::REG_NOMATCH, 4, 4},
        {"(a)\\1", "xaa", Orlo::REG_OKAY, 1, 3},
    };
    for (const Row& row : rows) {
        regex_t re{};
        std::basic_string<CharT> p = Widen<CharT>(row.pattern);
        std::basic_string<CharT> s = Widen<CharT>(row.subject);
        ASSERT_EQ(engine_compile(&re, p.data(), p.size(), ARE | Orlo::REG_EXPECT), Orlo::REG_OKAY);
        rm_detail_t details{{-7, -7}};
        regmatch_t m[2];
        EXPECT_EQ(engine_exec(&re, s.data(), s.size(), &details, 2, m, 0), row.rc);
        EXPECT_EQ(details.rm_extend.rm_so, row.so) << row.pattern << " on " << row.subject;
        EXPECT_EQ(details.rm_extend.rm_eo, row.eo) << row.pattern << " on " << row.subject;
        engine_free(&re);
    }
}

TEST(ExecWide, CharactersBeyondOneByte) {
    struct Row {
        int cflags;
        std::wstring pattern, subject;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {ERE, L"\u00e9+", L"a\u00e9\u00e9", "1,3"},
        {ERE, L"[\u0100-\u0105]+", L"a\u0101\u0104\u0106", "1,3"},
        {ERE | Orlo::REG_ICASE, L"\u00e9", L"\u00c9", "0,1"},
        {ERE | Orlo::REG_ICASE, L"\u0101", L"\u0100", "0,1"},
        {ARE, L"\\w+", L" \u4e2d\u6587 ", "1,3"},
        {ERE, L"[[:alpha:]]+", L"1\u00e9\u0416\u4e002", "1,4"},
        {ERE, L"\u4e00.\u4e01", L"\u4e00\u0100\u4e01", "0,3"},
        // Only the low 16 bits of a character are coloured.
        {ERE, L"a", L"\U00010061", "0,1"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Match<wchar_t>(row.cflags, row.pattern, row.subject), row.expected);
}

// Narrow characters are signed: the high bytes sort below the ASCII ones.
TEST(ExecNarrow, HighBytesFormASignedRange) {
    EXPECT_EQ(Match<char>(ARE, "[\x80-\xff]+", "a\xe9\xff"), "1,3");
    EXPECT_EQ(Match<char>(ARE, "[\x80-a]+",
                          "\x80\x01"
                          "a{"),
              "0,3");
    EXPECT_EQ(Match<char>(ARE, "[a-\xff]", "b"), "compile 11");
}

// REG_PROGRESS writes its trace to standard output, which is captured here
// through a temporary file.
TEST(ExecProgress, TraceNamesEachStageInOrder) {
    std::fflush(stdout);
    FILE* capture = std::tmpfile();
    ASSERT_NE(capture, nullptr);
    int saved = dup(1);
    dup2(fileno(capture), 1);
    regex_t re{};
    const char pattern[] = "(a)(?=b)";
    int rc = engine_compile(&re, pattern, sizeof pattern - 1, ARE | Orlo::REG_PROGRESS);
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    ASSERT_EQ(rc, Orlo::REG_OKAY);
    engine_free(&re);

    std::string trace;
    std::rewind(capture);
    for (int c; (c = std::fgetc(capture)) != EOF;)
        trace.push_back(char(c));
    std::fclose(capture);
    size_t at = 0;
    for (const char* heading :
         {"========= RAW ==========\n",
          "========= TREE FIXED ==========\n1. `.' hascapture L:2 R:3\n  2. `='\n",
          "========= TREE NODE 2 ==========", "========= LA1 ==========",
          "========= SEARCH =========="}) {
        size_t found = trace.find(heading, at);
        ASSERT_NE(found, std::string::npos) << heading << "\n" << trace;
        at = found;
    }
}

}  // namespace
}  // namespace re_test
