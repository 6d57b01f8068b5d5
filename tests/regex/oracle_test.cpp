// The matcher against a reference: random small patterns, built as trees,
// are written out for the engine and evaluated directly by the reference
// matcher over random and exhaustive short subjects, under every mix of the
// options that change what matches. A second test runs the matcher with its
// smallest state cache against the normal one over long texts.
//
// Everything is drawn from fixed seeds, so a failure repeats; it prints the
// pattern, subject and options with both answers.

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "regex/engine_support.h"
#include "regex/reference_matcher.h"

namespace re_test {
namespace {

using Orlo::regex_t;
using Orlo::regmatch_t;
using re_oracle::Node;

constexpr int ERE = Orlo::REG_EXTENDED;
constexpr int ARE = Orlo::REG_ADVANCED;

// Subject characters; patterns may also use 'B', to meet 'b' under case folding.
template <class CharT>
std::u32string Alphabet() {
    if constexpr (sizeof(CharT) == 1)
        return U"abA_\n \u00e9";
    else
        return U"abA_\n \u0100\u0101\u4e00";
}

template <class CharT>
std::basic_string<CharT> Encode(const std::u32string& s) {
    std::basic_string<CharT> out;
    for (char32_t c : s)
        out.push_back(CharT(c));  // narrow: 0xE9 becomes a negative char
    return out;
}

std::string Escape(const std::u32string& s) {
    std::ostringstream out;
    for (char32_t c : s) {
        if (c == '\n')
            out << "\\n";
        else if (c >= 0x20 && c < 0x7f)
            out << char(c);
        else
            out << "\\x{" << std::hex << uint32_t(c) << std::dec << '}';
    }
    return out.str();
}

std::string FlagNames(int cflags, int eflags) {
    std::string out = (cflags & Orlo::REG_ADVF) ? "ARE" : "ERE";
    if (cflags & Orlo::REG_ICASE) out += "|ICASE";
    if (cflags & Orlo::REG_NLSTOP) out += "|NLSTOP";
    if (cflags & Orlo::REG_NLANCH) out += "|NLANCH";
    if (eflags) out += " exec";
    if (eflags & Orlo::REG_NOTBOL) out += " NOTBOL";
    if (eflags & Orlo::REG_NOTEOL) out += " NOTEOL";
    if (eflags & Orlo::REG_SMALL) out += " SMALL";
    return out;
}

std::u32string Render(const Node& n) {
    std::u32string out;
    switch (n.kind) {
        case Node::Literal:
            return {n.ch};
        case Node::Any:
            return U".";
        case Node::Bracket:
            out = n.negated ? U"[^" : U"[";
            for (const auto& [first, last] : n.items) {
                out += first;
                if (last != first) out += U"-" + std::u32string{last};
            }
            return out + U"]";
        case Node::Concat:
            for (const Node& kid : n.kids)
                out += Render(kid);
            return out;
        case Node::Alternation:
            for (const Node& kid : n.kids)
                out += (out.empty() ? U"" : U"|") + Render(kid);
            return out;
        case Node::Group:
            return (n.capturing ? U"(" : U"(?:") + Render(n.kids[0]) + U")";
        case Node::Repeat:
            out = Render(n.kids[0]);
            if (!n.braces && n.min <= 1 && n.max < 0)
                out += n.min == 0 ? U"*" : U"+";
            else if (!n.braces && n.min == 0 && n.max == 1)
                out += U"?";
            else {
                std::string bound = "{" + std::to_string(n.min);
                if (n.max != n.min) bound += "," + (n.max < 0 ? "" : std::to_string(n.max));
                out += std::u32string(bound.begin(), bound.end()) + U"}";
            }
            return n.lazy ? out + U"?" : out;
        case Node::Ahead:
        case Node::NotAhead:
            return (n.kind == Node::Ahead ? U"(?=" : U"(?!") + Render(n.kids[0]) + U")";
        default: {
            static const char32_t* const kConstraints[] = {U"^",   U"$",   U"\\m",
                                                           U"\\M", U"\\y", U"\\Y"};
            return kConstraints[n.kind - Node::LineStart];
        }
    }
    return out;
}

Node Make(Node::Kind kind) {
    Node n;
    n.kind = kind;
    return n;
}

bool Nullable(const Node& n) {
    switch (n.kind) {
        case Node::Literal:
        case Node::Any:
        case Node::Bracket:
            return false;
        case Node::Concat:
            for (const Node& kid : n.kids)
                if (!Nullable(kid)) return false;
            return true;
        case Node::Alternation:
            for (const Node& kid : n.kids)
                if (Nullable(kid)) return true;
            return false;
        case Node::Group:
            return Nullable(n.kids[0]);
        case Node::Repeat:
            return n.min == 0 || Nullable(n.kids[0]);
        default:
            return true;
    }
}

// Constraints in the tree; with `ahead`, only those that look at what
// follows (all but ^).
int Constraints(const Node& n, bool ahead = false) {
    int count = n.kind > Node::LineStart || (n.kind == Node::LineStart && !ahead) ? 1 : 0;
    for (const Node& kid : n.kids)
        count += Constraints(kid, ahead);
    return count;
}

// Tests of the position as the pattern spells them out: a word constraint
// is two (the character before and the one after), a bounded repeat counts
// as its copies.
int ConstraintWeight(const Node& n) {
    int weight = 0;
    if (n.kind >= Node::WordStart && n.kind <= Node::NotWordEdge)
        weight = 2;
    else if (n.kind >= Node::LineStart)
        weight = 1;
    for (const Node& kid : n.kids)
        weight += ConstraintWeight(kid);
    return n.kind == Node::Repeat && n.max > 1 ? weight * n.max : weight;
}

// An unbounded loop whose body can be crossed without a character through a
// constraint on what follows, where a second constraint can meet it;
// `total` is the number of constraints in the whole pattern.
bool ConstraintLoop(const Node& n, int total) {
    if (n.kind == Node::Repeat && n.max < 0 && Nullable(n.kids[0]) &&
        Constraints(n.kids[0], true) > 0 && (total >= 2 || ConstraintWeight(n.kids[0]) > 1))
        return true;
    for (const Node& kid : n.kids)
        if (ConstraintLoop(kid, total)) return true;
    return false;
}

// Patterns whose compilation the engine cuts short with REG_ESPACE after a
// bounded amount of work (see RunawayCompilationsEndWithESpace): a
// constraint loop as above never settles, and the cost of tests that can
// meet without a character between them grows exponentially with their
// number. They say nothing about matching and only cost time here, so the
// generator leaves them out, as a fuzzer drops inputs that are merely slow.
bool CompileRunsAway(const Node& n) {
    return ConstraintWeight(n) >= 10 || ConstraintLoop(n, Constraints(n));
}

// Random trees of a bounded nesting depth. Quantifiers apply only to atoms
// (a group where needed), never to constraints; look-aheads hold no groups
// that capture and no further look-ahead.
class Generator {
  public:
    Generator(uint32_t seed, bool advanced, bool wide)
        : rng_(seed), advanced_(advanced), wide_(wide) {}

    Node Pattern(int depth) {
        for (;;) {
            Node n = Regex(depth, false);
            if (Render(n).size() <= 36 && !CompileRunsAway(n)) return n;
        }
    }

    int Uniform(int below) { return int(rng_() % uint32_t(below)); }
    bool Chance(int percent) { return Uniform(100) < percent; }
    char32_t Char(const std::u32string& from) { return from[Uniform(int(from.size()))]; }

  private:
    Node Regex(int depth, bool inAhead) {
        if (depth == 0 || !Chance(25)) return Branch(depth, inAhead);
        Node alt = Make(Node::Alternation);
        for (int i = 2 + Uniform(2); i > 0; --i)
            alt.kids.push_back(Branch(depth, inAhead));
        return alt;
    }

    Node Branch(int depth, bool inAhead) {
        Node cat = Make(Node::Concat);
        const int r = Uniform(10);
        for (int i = r < 4 ? 1 : r < 8 ? 2 : 3; i > 0; --i)
            cat.kids.push_back(Piece(depth, inAhead));
        return cat.kids.size() == 1 ? cat.kids[0] : cat;
    }

    Node Piece(int depth, bool inAhead) {
        if (Chance(12)) return Constraint(depth, inAhead);
        Node atom = Atom(depth, inAhead);
        if (!Chance(35)) return atom;
        Node rep = Make(Node::Repeat);
        if (Chance(60)) {
            static const int kShort[][2] = {{0, -1}, {1, -1}, {0, 1}};
            const int k = Uniform(3);
            rep.min = kShort[k][0];
            rep.max = kShort[k][1];
        } else {
            rep.braces = true;
            rep.min = Uniform(4);
            rep.max = Chance(25) ? -1 : rep.min + Uniform(4 - rep.min);
        }
        rep.lazy = advanced_ && Chance(30);
        rep.kids.push_back(std::move(atom));
        return rep;
    }

    Node Constraint(int depth, bool inAhead) {
        static const Node::Kind kKinds[] = {Node::LineStart, Node::LineEnd,  Node::WordStart,
                                            Node::WordEnd,   Node::WordEdge, Node::NotWordEdge,
                                            Node::Ahead,     Node::NotAhead};
        const int choices = !advanced_ ? 2 : (inAhead || depth == 0) ? 6 : 8;
        Node n = Make(kKinds[Uniform(choices)]);
        if (n.kind == Node::Ahead || n.kind == Node::NotAhead)
            n.kids.push_back(Regex(depth - 1, true));
        return n;
    }

    Node Atom(int depth, bool inAhead) {
        const int r = Uniform(100);
        if (r < 10) return Make(Node::Any);
        if (r < 30) return Bracket();
        if (r < 55 && depth > 0) {
            Node g = Make(Node::Group);
            g.capturing = !inAhead && (!advanced_ || Chance(60));
            g.kids.push_back(Regex(depth - 1, inAhead));
            return g;
        }
        Node lit = Make(Node::Literal);
        lit.ch = Char(PatternChars());
        return lit;
    }

    Node Bracket() {
        Node b = Make(Node::Bracket);
        b.negated = Chance(30);
        for (int i = 1 + Uniform(3); i > 0; --i) {
            char32_t first = Char(PatternChars());
            char32_t last = Chance(30) ? Char(PatternChars()) : first;
            if (re_oracle::RangeKey(last, wide_) < re_oracle::RangeKey(first, wide_))
                std::swap(first, last);
            b.items.push_back({first, last});
        }
        return b;
    }

    std::u32string PatternChars() const {
        return (wide_ ? Alphabet<wchar_t>() : Alphabet<char>()) + U"B";
    }

    std::mt19937 rng_;
    bool advanced_;
    bool wide_;
};

// A compiled pattern that releases itself.
template <class CharT>
struct Compiled {
    Compiled(const std::u32string& pattern, int flags) {
        const std::basic_string<CharT> p = Encode<CharT>(pattern);
        rc = Orlo::engine_compile(&re, p.data(), p.size(), flags);
    }
    ~Compiled() {
        if (rc == Orlo::REG_OKAY) Orlo::engine_free(&re);
    }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;

    regex_t re{};
    int rc = -1;
};

// Runs one pattern over `subjects`; returns the number of disagreements
// and reports the first few.
template <class CharT>
int Compare(const Node& pattern, int cflags, const std::vector<std::u32string>& subjects,
            const std::vector<int>& eflags, int* reported) {
    const std::u32string text = Render(pattern);
    Compiled<CharT> c(text, cflags);
    if (c.rc != Orlo::REG_OKAY) {
        ADD_FAILURE() << "compile " << Escape(text) << " [" << FlagNames(cflags, 0)
                      << "]: " << c.rc;
        return 1;
    }
    const bool shortest = (c.re.re_info & Orlo::REG_USHORTEST) != 0;
    int failures = 0;
    for (size_t i = 0; i < subjects.size(); ++i) {
        re_oracle::Options o;
        o.wide = sizeof(CharT) > 1;
        o.icase = cflags & Orlo::REG_ICASE;
        o.nlstop = cflags & Orlo::REG_NLSTOP;
        o.nlanch = cflags & Orlo::REG_NLANCH;
        o.notbol = eflags[i] & Orlo::REG_NOTBOL;
        o.noteol = eflags[i] & Orlo::REG_NOTEOL;
        const auto want = re_oracle::Matcher(subjects[i], o).Search(pattern, shortest);
        const std::basic_string<CharT> subject = Encode<CharT>(subjects[i]);
        regmatch_t m{-1, -1};
        const int rc =
            Orlo::engine_exec(&c.re, subject.data(), subject.size(), nullptr, 1, &m, eflags[i]);
        const bool same = want.first < 0 ? rc == Orlo::REG_NOMATCH
                                         : rc == Orlo::REG_OKAY && m.rm_so == want.first &&
                                               m.rm_eo == want.second;
        if (same) continue;
        ++failures;
        if (++*reported > 25) continue;
        ADD_FAILURE() << "pattern \"" << Escape(text) << "\" subject \"" << Escape(subjects[i])
                      << "\" [" << FlagNames(cflags, eflags[i]) << "]"
                      << (shortest ? " shortest" : "") << ": engine rc " << rc << " (" << m.rm_so
                      << "," << m.rm_eo << "), reference (" << want.first << "," << want.second
                      << ")";
    }
    return failures;
}

template <class CharT>
class OracleTest : public ::testing::Test {
  protected:
    static constexpr bool kWide = sizeof(CharT) > 1;

    // The reference knows narrow characters as the "C" locale classifies them.
    void SetUp() override { ASSERT_STREQ(setlocale(LC_CTYPE, nullptr), "C"); }

    static int CompileFlags(Generator& g, int syntax) {
        return syntax | (g.Chance(30) ? Orlo::REG_ICASE : 0) |
               (g.Chance(30) ? Orlo::REG_NLSTOP : 0) | (g.Chance(30) ? Orlo::REG_NLANCH : 0);
    }

    // `patterns` random trees, each against `count` random subjects, most of
    // up to eight characters, some of up to forty, with random exec options
    // (the smallest state cache among them).
    static void RandomSubjects(int syntax, uint32_t seed, int patterns, int count) {
        Generator g(seed, syntax == ARE, kWide);
        const std::u32string alphabet = Alphabet<CharT>();
        int failures = 0, reported = 0, pairs = 0;
        for (int p = 0; p < patterns; ++p) {
            const Node pattern = g.Pattern(1 + g.Uniform(3));
            const int cflags = CompileFlags(g, syntax);
            std::vector<std::u32string> subjects(count);
            std::vector<int> eflags(count);
            for (int i = 0; i < count; ++i) {
                for (int len = g.Chance(90) ? g.Uniform(9) : g.Uniform(41); len > 0; --len)
                    subjects[i] += g.Char(alphabet);
                eflags[i] = (g.Chance(25) ? Orlo::REG_NOTBOL : 0) |
                            (g.Chance(25) ? Orlo::REG_NOTEOL : 0) |
                            (g.Chance(20) ? Orlo::REG_SMALL : 0);
            }
            failures += Compare<CharT>(pattern, cflags, subjects, eflags, &reported);
            pairs += count;
        }
        EXPECT_EQ(failures, 0) << "of " << pairs << " pattern and subject pairs";
    }

    // A few trees against every subject of up to four characters from a
    // four-character alphabet, under every pair of exec options.
    static void AllShortSubjects(int syntax, uint32_t seed, int patterns) {
        const std::u32string alphabet = kWide ? U"aA\n\u0100" : U"aA\n\u00e9";
        std::vector<std::u32string> subjects{U""};
        for (size_t from = 0; from < subjects.size(); ++from)
            if (subjects[from].size() < 4)
                for (char32_t c : alphabet)
                    subjects.push_back(subjects[from] + c);
        std::vector<std::u32string> all;
        std::vector<int> eflags;
        for (int e : {0, Orlo::REG_NOTBOL, Orlo::REG_NOTEOL, Orlo::REG_NOTBOL | Orlo::REG_NOTEOL})
            for (const std::u32string& s : subjects) {
                all.push_back(s);
                eflags.push_back(e);
            }
        Generator g(seed, syntax == ARE, kWide);
        int failures = 0, reported = 0;
        for (int p = 0; p < patterns; ++p) {
            const Node pattern = g.Pattern(2);
            failures += Compare<CharT>(pattern, CompileFlags(g, syntax), all, eflags, &reported);
        }
        EXPECT_EQ(failures, 0) << "of " << patterns * all.size() << " pattern and subject pairs";
    }
};
TYPED_TEST_SUITE(OracleTest, CharTypes);

TYPED_TEST(OracleTest, ExtendedRandomSubjects) {
    TestFixture::RandomSubjects(ERE, 20240611, 6000, 24);
}

TYPED_TEST(OracleTest, AdvancedRandomSubjects) {
    TestFixture::RandomSubjects(ARE, 77031, 8000, 24);
}

TYPED_TEST(OracleTest, ExtendedAllShortSubjects) {
    TestFixture::AllShortSubjects(ERE, 913, 60);
}

TYPED_TEST(OracleTest, AdvancedAllShortSubjects) {
    TestFixture::AllShortSubjects(ARE, 4471, 80);
}

// ---- the smallest state cache ------------------------------------------------

// Every successive match of `pattern` in `text`, each search starting where
// the last match ended (one further after an empty one), with every group.
template <class CharT>
std::vector<regmatch_t> AllMatches(regex_t* re, const std::basic_string<CharT>& text, int eflags,
                                   int* rc) {
    std::vector<regmatch_t> found;
    const size_t groups = std::min<size_t>(re->re_nsub + 1, 8);
    size_t at = 0;
    *rc = Orlo::REG_NOMATCH;  // also when the last match ends the text
    for (int notbol = 0; at <= text.size(); notbol = Orlo::REG_NOTBOL) {
        regmatch_t m[8];
        const int code = Orlo::engine_exec(re, text.data() + at, text.size() - at, nullptr, groups,
                                           m, eflags | notbol);
        if (code != Orlo::REG_OKAY) {
            *rc = code;
            break;
        }
        for (size_t i = 0; i < groups; ++i)
            found.push_back({m[i].rm_so < 0 ? -1 : long(at) + m[i].rm_so,
                             m[i].rm_eo < 0 ? -1 : long(at) + m[i].rm_eo});
        at += size_t(m[0].rm_eo > m[0].rm_so ? m[0].rm_eo : m[0].rm_eo + 1);
    }
    return found;
}

struct CacheCase {
    const char* pattern;
    int cflags;
};

// Patterns whose matches stay within a line or a run, so that searching the
// whole text stays linear.
const CacheCase kCacheCases[] = {
    {"a[^b\n]*b", ERE},
    {"(a|b)+_", ERE | Orlo::REG_ICASE},
    {"^[ab ]+$", ERE | Orlo::REG_NEWLINE},
    {"(A|a_|b)(b*)(_?)", ERE},
    {"[^\n]{2,3}b", ERE | Orlo::REG_NLSTOP},
    {"\\m[ab]+\\M", ARE},
    {"\\y_\\Y|b\\y", ARE},
    {"(?=a_)a|(?!b)b?A", ARE},
    {"a+?b|(?:A|_)*?b", ARE | Orlo::REG_ICASE},
    {"(?:^|\\n)(a|b)+?$", ARE | Orlo::REG_NEWLINE},
    {"(a+)(?:b+|_)(A*)", ARE},
    {".{1,3}?(?=\\n)", ARE | Orlo::REG_NLSTOP},
};

template <class CharT>
std::basic_string<CharT> LongText(std::mt19937& rng, size_t length) {
    const std::u32string alphabet = Alphabet<CharT>() + U"aabb";
    std::u32string text;
    while (text.size() < length)
        text += rng() % 48 == 0 ? U'\n' : alphabet[rng() % alphabet.size()];
    return Encode<CharT>(text);
}

TYPED_TEST(OracleTest, SmallCacheGivesTheSameMatches) {
    std::mt19937 rng(5150);
    const std::basic_string<TypeParam> text = LongText<TypeParam>(rng, 30000);
    std::vector<std::pair<std::u32string, int>> cases;
    for (const CacheCase& c : kCacheCases) {
        const std::string p = c.pattern;
        cases.push_back({std::u32string(p.begin(), p.end()), c.cflags});
    }
    // Generated ones too, of some size, made to stop at newlines so that no
    // match runs long.
    for (int syntax : {ERE, ARE}) {
        Generator g(syntax * 101 + 7, syntax == ARE, TestFixture::kWide);
        while (cases.size() < std::size(kCacheCases) + (syntax == ERE ? 16 : 32)) {
            const std::u32string pattern = Render(g.Pattern(3));
            if (pattern.size() >= 10)
                cases.push_back({pattern, TestFixture::CompileFlags(g, syntax) | Orlo::REG_NLSTOP});
        }
    }
    for (const auto& [pattern, cflags] : cases) {
        SCOPED_TRACE(Escape(pattern) + " [" + FlagNames(cflags, 0) + "]");
        Compiled<TypeParam> c(pattern, cflags);
        ASSERT_EQ(c.rc, Orlo::REG_OKAY);
        int rc_normal = 0, rc_small = 0;
        const std::vector<regmatch_t> normal = AllMatches(&c.re, text, 0, &rc_normal);
        const std::vector<regmatch_t> small = AllMatches(&c.re, text, Orlo::REG_SMALL, &rc_small);
        EXPECT_EQ(rc_normal, Orlo::REG_NOMATCH);
        EXPECT_EQ(rc_small, Orlo::REG_NOMATCH);
        EXPECT_EQ(normal.size(), small.size());
        for (size_t i = 0; i < std::min(normal.size(), small.size()); ++i) {
            if (normal[i].rm_so == small[i].rm_so && normal[i].rm_eo == small[i].rm_eo) continue;
            ADD_FAILURE() << "entry " << i << ": normal (" << normal[i].rm_so << ","
                          << normal[i].rm_eo << "), small (" << small[i].rm_so << ","
                          << small[i].rm_eo << ")";
            break;
        }
    }
}

}  // namespace
}  // namespace re_test
