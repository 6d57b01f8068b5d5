// Tests of the parser through engine_compile: error codes, the group count
// and pattern notes, the shape of the sub-expression tree, and the language
// of the root automaton, run over a colour feed by the small simulator.

#include <sstream>
#include <string>
#include <vector>

#include "regex/engine_support.h"
#include "regex/guts.h"

namespace re_test {
namespace {

using Orlo::engine_compile;
using Orlo::engine_free;
using Orlo::regex_t;

// A compiled pattern that releases itself.
template <class CharT>
struct Compiled {
    Compiled(const std::string& pattern, int flags) {
        std::basic_string<CharT> p = Widen<CharT>(pattern);
        rc = engine_compile(&re, p.data(), p.size(), flags);
    }
    ~Compiled() {
        if (rc == Orlo::REG_OKAY) engine_free(&re);
    }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;

    const guts<CharT>* Guts() const { return static_cast<const guts<CharT>*>(re.re_guts); }

    // Whether the whole of `text` is a match of the root automaton.
    bool Matches(const std::string& text) const {
        const guts<CharT>* g = Guts();
        const cnfa& root = g->tree->cnfa;
        std::vector<color> colours{root.bos[1]};
        for (char c : text)
            colours.push_back(getcolor(&g->cmap, CharT(c)));
        colours.push_back(root.eos[1]);
        return Accepts(root, colours);
    }

    regex_t re{};
    int rc = -1;
};

// "op[flags]#subno{min,max}(left,right)", with only what the node has.
std::string Tree(const subre* t) {
    if (!t) return "-";
    std::ostringstream out;
    out << t->op;
    std::string flags;
    if (t->flags & LONGER) flags += 'L';
    if (t->flags & SHORTER) flags += 'S';
    if (t->flags & MIXED) flags += 'M';
    if (t->flags & CAP) flags += 'C';
    if (t->flags & BACKR) flags += 'B';
    if (!flags.empty()) out << '[' << flags << ']';
    if (t->op == '(' || t->op == 'b') out << '#' << t->subno;
    if (t->op == 'b') out << '{' << t->min << ',' << t->max << '}';
    if (t->left || t->right) out << '(' << Tree(t->left) << ',' << Tree(t->right) << ')';
    return out.str();
}

constexpr int ERE = Orlo::REG_EXTENDED;
constexpr int ARE = Orlo::REG_ADVANCED;
constexpr int BRE = Orlo::REG_BASIC;

template <class CharT>
class ParserTest : public ::testing::Test {};
TYPED_TEST_SUITE(ParserTest, CharTypes);

// ---- error codes ------------------------------------------------------------------

struct ErrorCase {
    const char* pattern;
    int flags;
    int code;
    const char* why;
};

const ErrorCase kErrorCases[] = {
    {"\\1(a)", ARE, Orlo::REG_ESUBREG, "group not yet opened"},
    {"(a\\1)", ARE, Orlo::REG_ESUBREG, "group not yet finished"},
    {"(a){0}\\1", ARE, Orlo::REG_ESUBREG, "a removed group cannot be referred to"},
    {"(?=(a))\\1", ARE, Orlo::REG_ESUBREG, "no group captures inside a look-ahead"},
    {"(?=a\\1)", ARE, Orlo::REG_ESUBREG, "no back reference inside a look-ahead"},
    {"(?=a)*", ARE, Orlo::REG_BADRPT, "a constraint takes no quantifier"},
    {"^*", ARE, Orlo::REG_BADRPT, "an anchor takes no quantifier"},
    {"a**", BRE, Orlo::REG_BADRPT, "the second star is a quantifier at atom position"},
    {"*a", BRE, Orlo::REG_OKAY, "a leading basic star is plain"},
    {"*a", ERE, Orlo::REG_BADRPT, ""},
    {"a{256}", ERE, Orlo::REG_BADBR, ""},
    {"a{1000}", ERE, Orlo::REG_BADBR, "a digit left over"},
    {"a{3,2}", ERE, Orlo::REG_BADBR, ""},
    {"a{2,3", ERE, Orlo::REG_EBRACE, ""},
    {"(a", ERE, Orlo::REG_EPAREN, ""},
    {"a)", ARE, Orlo::REG_EPAREN, ""},
    {"[z-a]", ERE, Orlo::REG_ERANGE, ""},
    {"[a-c-e]", ERE, Orlo::REG_ERANGE, "a range cannot continue"},
    {"[[:digit:]-z]", ERE, Orlo::REG_ERANGE, "a class cannot bound a range"},
    {"[a-[.z.]]", ERE, Orlo::REG_OKAY, "a collating element can"},
    {"[[.nosuch.]]", ERE, Orlo::REG_ECOLLATE, ""},
    {"[[:nosuch:]]", ERE, Orlo::REG_ECTYPE, ""},
    {"[abc", ERE, Orlo::REG_EBRACK, ""},
    {"\\y*", ARE, Orlo::REG_BADRPT, "a word boundary takes no quantifier"},
    {"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)\\11", ARE, Orlo::REG_OKAY, "past the inline table"},
};

TYPED_TEST(ParserTest, ErrorCodes) {
    for (const ErrorCase& c : kErrorCases) {
        Compiled<TypeParam> compiled(c.pattern, c.flags);
        EXPECT_EQ(compiled.rc, c.code) << c.pattern << " flags " << c.flags << ": " << c.why;
        if (compiled.rc != Orlo::REG_OKAY) {
            EXPECT_EQ(compiled.re.re_magic, 0) << c.pattern;
            EXPECT_EQ(compiled.re.re_guts, nullptr) << c.pattern;
        }
    }
}

TYPED_TEST(ParserTest, ArgumentChecks) {
    regex_t re{};
    const TypeParam pattern[] = {TypeParam('a')};
    EXPECT_EQ(engine_compile(nullptr, pattern, 1, ERE), Orlo::REG_INVARG);
    EXPECT_EQ(engine_compile(&re, static_cast<const TypeParam*>(nullptr), 0, ERE),
              Orlo::REG_INVARG);
    EXPECT_EQ(engine_compile(&re, pattern, 1, Orlo::REG_QUOTE | Orlo::REG_NEWLINE),
              Orlo::REG_INVARG);
    EXPECT_EQ(engine_compile(&re, pattern, 1, Orlo::REG_ADVF), Orlo::REG_INVARG);
    EXPECT_EQ(re.re_magic, 0) << "checked before the record is touched";
    ASSERT_EQ(engine_compile(&re, pattern, 1, Orlo::REG_QUOTE | Orlo::REG_ICASE), Orlo::REG_OKAY);
    EXPECT_EQ(re.re_csize, int32_t(sizeof(TypeParam)));
    engine_free(&re);
    EXPECT_EQ(re.re_magic, 0);
    EXPECT_EQ(re.re_guts, nullptr);
}

// In narrow text `\200` reads as a back reference that is cut to a negative
// byte, and must still be refused rather than index the group table.
TEST(ParserNarrow, NegativeBackReferenceIsRefused) {
    std::string groups;
    for (int i = 0; i < 200; ++i)
        groups += "(a)";
    groups.append("\\200");
    Compiled<char> compiled(groups, ARE);
    EXPECT_EQ(compiled.rc, Orlo::REG_ESUBREG);
}

// ---- group count and notes --------------------------------------------------------

struct InfoCase {
    const char* pattern;
    int flags;
    size_t nsub;
    long set;    // bits that must be set
    long clear;  // bits that must be clear
};

const InfoCase kInfoCases[] = {
    {"abc", ERE, 0, 0, Orlo::REG_UBACKREF | Orlo::REG_USHORTEST | Orlo::REG_UUNSPEC},
    {"(a)(b(c))", ERE, 3, 0, 0},
    {"(?:a)(b)", ARE, 1, 0, 0},
    {"(?=(a)(b))c", ARE, 0, Orlo::REG_ULOOKAHEAD, 0},
    {"(a)", ERE | Orlo::REG_NOSUB, 0, 0, 0},
    {"(a)\\1", ARE, 1, Orlo::REG_UBACKREF, 0},
    {"a|", ERE, 0, Orlo::REG_UUNSPEC, 0},
    {"a)", ERE, 0, Orlo::REG_UPBOTCH, 0},
    {"a*?", ARE, 0, Orlo::REG_USHORTEST, 0},
    {"a\\{0,\\}", BRE, 0, Orlo::REG_USHORTEST, 0},
    {"a\\{2,10\\}", BRE, 0, Orlo::REG_USHORTEST, 0},  // the stale digit is 0
    {"a\\{0,0\\}", BRE, 0, 0, Orlo::REG_USHORTEST},   // the atom is gone
};

TYPED_TEST(ParserTest, GroupCountAndNotes) {
    for (const InfoCase& c : kInfoCases) {
        Compiled<TypeParam> compiled(c.pattern, c.flags);
        ASSERT_EQ(compiled.rc, Orlo::REG_OKAY) << c.pattern;
        EXPECT_EQ(compiled.re.re_nsub, c.nsub) << c.pattern;
        EXPECT_EQ(compiled.re.re_info & c.set, c.set) << c.pattern;
        EXPECT_EQ(compiled.re.re_info & c.clear, 0) << c.pattern;
        EXPECT_EQ(compiled.Guts()->nsub, c.nsub) << c.pattern;
    }
}

// ---- tree shape -------------------------------------------------------------------

struct TreeCase {
    const char* pattern;
    int flags;
    const char* tree;
    int ntree;
};

const TreeCase kTreeCases[] = {
    {"abc", ARE, "=", 2},
    {"a|b", ARE, "=[L]", 2},
    {"a*?b", ARE, "=[S]", 2},
    {"(a)", ARE, ".[C](=,.[C](([C]#1(=,-),=))", 7},
    {"(a)|b", ARE, "|[LC](.[C](=,.[C](([C]#1(=,-),=)),|[L](=,-))", 10},
    {"(a)\\1", ARE, ".[CB](=,.[CB](([C]#1(=,-),.[B](=,.[B](b[B]#1{1,1},=))))", 0},
    {"(a)*", ARE, ".[LC](=,.[LC](|[LC](.[LC](=[L],([C]#1(=,-)),|[L](=[L],-)),=))", 0},
    {"a*?b*", ARE, ".[SM](=[S],.[L](|[L](.[L](=[L],=),|[L](=[L],-)),=))", 0},
    {"(a){0}b", ARE, "=", 2},
    // A kept alternation: each node of its chain carries the flags of every
    // alternative from its own to the last, so what only a later
    // alternative has reaches all the nodes before it, and no further.
    {"a|(b)|c", ARE, "|[LC](=,|[LC](.[C](=,.[C](([C]#1(=,-),=)),|[L](=,-)))", 0},
    {"a|b|c|d*?", ARE, "|[LM](=,|[LM](=,|[LM](=,|[LM](=[S],-))))", 0},
    {"a*?|b|(c)|d|e", ARE,
     "|[LMC](=[S],|[LC](=,|[LC](.[C](=,.[C](([C]#1(=,-),=)),|[L](=,|[L](=,-)))))", 0},
    {"(a)|b*?|c|d", ARE, "|[LMC](.[C](=,.[C](([C]#1(=,-),=)),|[LM](=[S],|[L](=,|[L](=,-))))", 0},
};

TEST(ParserTree, Shapes) {
    for (const TreeCase& c : kTreeCases) {
        Compiled<char> compiled(c.pattern, c.flags);
        ASSERT_EQ(compiled.rc, Orlo::REG_OKAY) << c.pattern;
        const guts<char>* g = compiled.Guts();
        EXPECT_EQ(Tree(g->tree), c.tree) << c.pattern;
        if (c.ntree) {
            EXPECT_EQ(g->ntree, c.ntree) << c.pattern;
        }
        EXPECT_EQ(g->tree->retry, 1) << c.pattern;
    }
}

// ---- language of the root automaton ---------------------------------------------------

struct LanguageCase {
    const char* pattern;
    int flags;
    std::vector<std::string> accepted;
    std::vector<std::string> rejected;
};

const std::vector<LanguageCase> kLanguageCases = {
    {"a|b", ERE, {"a", "b"}, {"", "ab", "c"}},
    {"ab*c", ERE, {"ac", "abc", "abbbc"}, {"a", "abb", "bc", "abcc"}},
    {"[^a]", ERE, {"b", "\n", "A"}, {"a", "", "bb"}},
    {"[^a]", ERE | Orlo::REG_NEWLINE, {"b"}, {"a", "\n"}},
    {"x{2,3}", ERE, {"xx", "xxx"}, {"x", "xxxx", ""}},
    {"[[:digit:]]+", ERE, {"0", "0123"}, {"", "a1"}},
    {"\\d\\w", ARE, {"1a", "2_"}, {"a1", "1-"}},
    {"abc", ERE | Orlo::REG_ICASE, {"abc", "ABC", "aBc"}, {"abd"}},
    {"a.c", ERE | Orlo::REG_NEWLINE, {"abc"}, {"a\nc"}},
    {"(a|b){2}c", ERE, {"abc", "bbc"}, {"ac", "abac"}},
    {"^ab$", ERE, {"ab"}, {"b"}},
    {"\\mab\\M", ARE, {"ab"}, {"a"}},
    {"a|b|", ERE, {"a", "b", ""}, {"ab"}},
    {"a.b", Orlo::REG_QUOTE, {"a.b"}, {"axb"}},
    // A messy atom is rewritten into copies plus the capturing last one.
    {"(a|b){1,3}", ARE, {"a", "ab", "bab"}, {"", "abab", "c"}},
};

TYPED_TEST(ParserTest, RootLanguage) {
    for (const LanguageCase& c : kLanguageCases) {
        Compiled<TypeParam> compiled(c.pattern, c.flags);
        ASSERT_EQ(compiled.rc, Orlo::REG_OKAY) << c.pattern;
        for (const std::string& text : c.accepted)
            EXPECT_TRUE(compiled.Matches(text)) << c.pattern << " on '" << text << "'";
        for (const std::string& text : c.rejected)
            EXPECT_FALSE(compiled.Matches(text)) << c.pattern << " on '" << text << "'";
    }
}

// The length every match of an automaton has, which lets group placement
// split a span without walking it; -1 where lengths differ.
TYPED_TEST(ParserTest, FixedMatchLength) {
    const struct {
        const char* pattern;
        int flags;
        int length;
    } rows[] = {
        {"abc", Orlo::REG_ADVANCED, 3},     {"", Orlo::REG_ADVANCED, 0},
        {"[ab]{3}", Orlo::REG_ADVANCED, 3}, {"ab|cd", Orlo::REG_ADVANCED, 2},
        {"a|bc", Orlo::REG_ADVANCED, -1},   {"a*", Orlo::REG_ADVANCED, -1},
        {"a?", Orlo::REG_ADVANCED, -1},     {"^ab$", Orlo::REG_ADVANCED, 2},
        {"(?=a)b", Orlo::REG_ADVANCED, 1},  {"\\yab\\y", Orlo::REG_ADVANCED, 2},
        {"a{2,3}", Orlo::REG_ADVANCED, -1},
    };
    for (const auto& row : rows) {
        Compiled<TypeParam> c(row.pattern, row.flags);
        ASSERT_EQ(c.rc, Orlo::REG_OKAY) << row.pattern;
        EXPECT_EQ(c.Guts()->tree->cnfa.fixedlen, row.length) << row.pattern;
    }
}

}  // namespace
}  // namespace re_test
