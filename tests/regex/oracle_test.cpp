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
std::u32string Alphabet(bool wide) {
    return wide ? U"abA_\n \u0100\u0101\u4e00" : U"abA_\n \u00e9";
}

template <class CharT>
std::basic_string<CharT> Encode(const std::u32string& s) {
    return std::basic_string<CharT>(s.begin(), s.end());  // narrow: 0xE9 becomes a negative char
}

std::string Escape(const std::u32string& s) {
    std::ostringstream out;
    for (char32_t c : s)
        if (c >= 0x20 && c < 0x7f)
            out << char(c);
        else
            out << "\\x{" << std::hex << uint32_t(c) << std::dec << '}';
    return out.str();
}

std::u32string Render(const Node& n) {
    static const char32_t* const kConstraints[] = {U"^",   U"$",   U"\\m", U"\\M",
                                                   U"\\y", U"\\Y", U"(?=", U"(?!"};
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
                if (last != first) out += {U'-', last};
            }
            return out + U"]";
        case Node::Concat:
        case Node::Alternation:
            for (const Node& kid : n.kids) {
                if (n.kind == Node::Alternation && !out.empty()) out += U"|";
                out += Render(kid);
            }
            return out;
        case Node::Group:
            return (n.capturing ? U"(" : U"(?:") + Render(n.kids[0]) + U")";
        case Node::Repeat: {
            out = Render(n.kids[0]);
            std::string bound;
            if (!n.braces && n.min <= 1 && n.max < 0)
                bound = n.min == 0 ? "*" : "+";
            else if (!n.braces && n.min == 0 && n.max == 1)
                bound = "?";
            else {
                bound = "{" + std::to_string(n.min);
                if (n.max != n.min) bound += ",";
                if (n.max > n.min) bound += std::to_string(n.max);
                bound += "}";
            }
            if (n.lazy) bound += "?";
            return out + std::u32string(bound.begin(), bound.end());
        }
        default:
            out = kConstraints[n.kind - Node::LineStart];
            return n.kids.empty() ? out : out + Render(n.kids[0]) + U")";
    }
}

// Patterns whose compilation the engine cuts short with REG_ESPACE after a
// bounded amount of work (see RunawayCompilationsEndWithESpace) say nothing
// about matching and only cost time here, so the generator leaves them out:
// an unbounded loop whose body can be crossed without a character through a
// constraint on what follows, where a second constraint can meet it; and
// many tests of the position that can meet without a character between them.
bool Nullable(const Node& n) {
    if (n.kind <= Node::Bracket) return false;
    if (n.kind >= Node::LineStart || (n.kind == Node::Repeat && n.min == 0)) return true;
    if (n.kind == Node::Concat) return std::ranges::all_of(n.kids, Nullable);
    return std::ranges::any_of(n.kids, Nullable);  // alternation, group, repeat
}

// Constraints in the tree; with `ahead`, only those that look at what follows.
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
    int weight = n.kind >= Node::WordStart && n.kind <= Node::NotWordEdge ? 2
                 : n.kind >= Node::LineStart                              ? 1
                                                                          : 0;
    for (const Node& kid : n.kids)
        weight += ConstraintWeight(kid);
    return n.kind == Node::Repeat && n.max > 1 ? weight * n.max : weight;
}

bool ConstraintLoop(const Node& n, int total) {
    if (n.kind == Node::Repeat && n.max < 0 && Nullable(n.kids[0]) &&
        Constraints(n.kids[0], true) > 0 && (total >= 2 || ConstraintWeight(n.kids[0]) > 1))
        return true;
    return std::ranges::any_of(n.kids, [&](const Node& kid) { return ConstraintLoop(kid, total); });
}

// Random trees of a bounded nesting depth. Quantifiers apply only to atoms
// (a group where needed), never to constraints; look-aheads hold no groups
// that capture and no further look-ahead.
class Generator {
  public:
    Generator(uint32_t seed, bool advanced, bool wide)
        : rng_(seed), advanced_(advanced), chars_(Alphabet(wide) + U"B"), wide_(wide) {}

    Node Pattern(int depth) {
        for (;;) {
            Node n = Regex(depth, false);
            if (Render(n).size() <= 36 && ConstraintWeight(n) < 10 &&
                !ConstraintLoop(n, Constraints(n)))
                return n;
        }
    }

    int Uniform(int below) { return int(rng_() % uint32_t(below)); }
    bool Chance(int percent) { return Uniform(100) < percent; }
    char32_t Char(const std::u32string& from) { return from[Uniform(int(from.size()))]; }

  private:
    Node Regex(int depth, bool inAhead) {
        if (depth == 0 || !Chance(25)) return Branch(depth, inAhead);
        Node alt{Node::Alternation};
        for (int i = 2 + Uniform(2); i > 0; --i)
            alt.kids.push_back(Branch(depth, inAhead));
        return alt;
    }

    Node Branch(int depth, bool inAhead) {
        Node cat{Node::Concat};
        const int r = Uniform(10);
        for (int i = r < 4 ? 1 : r < 8 ? 2 : 3; i > 0; --i)
            cat.kids.push_back(Piece(depth, inAhead));
        return cat.kids.size() == 1 ? cat.kids[0] : cat;
    }

    Node Piece(int depth, bool inAhead) {
        if (Chance(12)) return Constraint(depth, inAhead);
        Node atom = Atom(depth, inAhead);
        if (!Chance(35)) return atom;
        Node rep{Node::Repeat};
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
        const int choices = !advanced_ ? 2 : (inAhead || depth == 0) ? 6 : 8;
        Node n{Node::Kind(Node::LineStart + Uniform(choices))};
        if (n.kind >= Node::Ahead) n.kids.push_back(Regex(depth - 1, true));
        return n;
    }

    Node Atom(int depth, bool inAhead) {
        const int r = Uniform(100);
        if (r < 10) return Node{Node::Any};
        if (r < 30) {
            Node b{Node::Bracket};
            b.negated = Chance(30);
            for (int i = 1 + Uniform(3); i > 0; --i) {
                char32_t first = Char(chars_);
                char32_t last = Chance(30) ? Char(chars_) : first;
                if (re_oracle::RangeKey(last, wide_) < re_oracle::RangeKey(first, wide_))
                    std::swap(first, last);
                b.items.push_back({first, last});
            }
            return b;
        }
        if (r < 55 && depth > 0) {
            Node g{Node::Group};
            g.capturing = !inAhead && (!advanced_ || Chance(60));
            g.kids.push_back(Regex(depth - 1, inAhead));
            return g;
        }
        return Node{Node::Literal, Char(chars_)};
    }

    std::mt19937 rng_;
    bool advanced_;
    std::u32string chars_;
    bool wide_;
};

template <class CharT>
int Compile(regex_t* re, const std::u32string& pattern, int flags) {
    const std::basic_string<CharT> p = Encode<CharT>(pattern);
    return Orlo::engine_compile(re, p.data(), p.size(), flags);
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

    // Runs one pattern over every subject with its exec flags; counts the
    // disagreements in `failures` and reports the first few.
    static void Compare(const Node& pattern, int cflags,
                        const std::vector<std::u32string>& subjects, const std::vector<int>& eflags,
                        int& failures) {
        const std::u32string text = Render(pattern);
        regex_t re{};
        if (const int rc = Compile<CharT>(&re, text, cflags); rc != Orlo::REG_OKAY) {
            ADD_FAILURE() << "compile " << Escape(text) << " cflags " << cflags << ": " << rc;
            ++failures;
            return;
        }
        const bool shortest = (re.re_info & Orlo::REG_USHORTEST) != 0;
        for (size_t i = 0; i < subjects.size(); ++i) {
            const re_oracle::Options o{.wide = kWide,
                                       .icase = (cflags & Orlo::REG_ICASE) != 0,
                                       .nlstop = (cflags & Orlo::REG_NLSTOP) != 0,
                                       .nlanch = (cflags & Orlo::REG_NLANCH) != 0,
                                       .notbol = (eflags[i] & Orlo::REG_NOTBOL) != 0,
                                       .noteol = (eflags[i] & Orlo::REG_NOTEOL) != 0};
            const auto want = re_oracle::Matcher(subjects[i], o).Search(pattern, shortest);
            const std::basic_string<CharT> subject = Encode<CharT>(subjects[i]);
            regmatch_t m{-1, -1};
            const int rc =
                Orlo::engine_exec(&re, subject.data(), subject.size(), nullptr, 1, &m, eflags[i]);
            if (want.first < 0
                    ? rc == Orlo::REG_NOMATCH
                    : rc == Orlo::REG_OKAY && m.rm_so == want.first && m.rm_eo == want.second)
                continue;
            if (++failures > 25) continue;
            ADD_FAILURE() << "pattern \"" << Escape(text) << "\" subject \"" << Escape(subjects[i])
                          << "\" cflags " << cflags << " eflags " << eflags[i]
                          << (shortest ? " shortest" : "") << ": engine rc " << rc << " ("
                          << m.rm_so << "," << m.rm_eo << "), reference (" << want.first << ","
                          << want.second << ")";
        }
        Orlo::engine_free(&re);
    }

    // Random trees, each against `count` random subjects, most of up to
    // eight characters, some of up to forty, with random exec options.
    static void RandomSubjects(int syntax, uint32_t seed, int patterns, int count) {
        Generator g(seed, syntax == ARE, kWide);
        int failures = 0;
        for (int p = 0; p < patterns; ++p) {
            const Node pattern = g.Pattern(1 + g.Uniform(3));
            const int cflags = CompileFlags(g, syntax);
            std::vector<std::u32string> subjects(count);
            std::vector<int> eflags(count);
            for (int i = 0; i < count; ++i) {
                for (int len = g.Chance(90) ? g.Uniform(9) : g.Uniform(41); len > 0; --len)
                    subjects[i] += g.Char(Alphabet(kWide));
                eflags[i] = (g.Chance(25) ? Orlo::REG_NOTBOL : 0) |
                            (g.Chance(25) ? Orlo::REG_NOTEOL : 0) |
                            (g.Chance(20) ? Orlo::REG_SMALL : 0);
            }
            Compare(pattern, cflags, subjects, eflags, failures);
        }
        EXPECT_EQ(failures, 0) << "of " << patterns * count << " pattern and subject pairs";
    }

    // A few trees against every subject of up to four characters from a
    // four-character alphabet, under every pair of exec options.
    static void AllShortSubjects(int syntax, uint32_t seed, int patterns) {
        const std::u32string alphabet = kWide ? U"aA\n\u0100" : U"aA\n\u00e9";
        std::vector<std::u32string> subjects{U""}, all;
        for (size_t from = 0; from < subjects.size(); ++from)
            if (subjects[from].size() < 4)
                for (char32_t c : alphabet)
                    subjects.push_back(subjects[from] + c);
        std::vector<int> eflags;
        for (int e : {0, Orlo::REG_NOTBOL, Orlo::REG_NOTEOL, Orlo::REG_NOTBOL | Orlo::REG_NOTEOL})
            for (const std::u32string& s : subjects) {
                all.push_back(s);
                eflags.push_back(e);
            }
        Generator g(seed, syntax == ARE, kWide);
        int failures = 0;
        for (int p = 0; p < patterns; ++p) {
            const Node pattern = g.Pattern(2);
            Compare(pattern, CompileFlags(g, syntax), all, eflags, failures);
        }
        EXPECT_EQ(failures, 0) << "of " << patterns * all.size() << " pattern and subject pairs";
    }
};
TYPED_TEST_SUITE(OracleTest, CharTypes);

TYPED_TEST(OracleTest, RandomSubjects) {
    TestFixture::RandomSubjects(ERE, 20240611, 6000, 24);
    TestFixture::RandomSubjects(ARE, 77031, 8000, 24);
}

TYPED_TEST(OracleTest, AllShortSubjects) {
    TestFixture::AllShortSubjects(ERE, 913, 60);
    TestFixture::AllShortSubjects(ARE, 4471, 80);
}

// Every successive match in `text`, each search starting where the last
// ended (one further after an empty one), with every group; the search
// that ends the run must find nothing rather than fail.
template <class CharT>
std::vector<std::pair<long, long>> AllMatches(regex_t* re, const std::basic_string<CharT>& text,
                                              int eflags) {
    std::vector<std::pair<long, long>> found;
    const size_t groups = std::min<size_t>(re->re_nsub + 1, 8);
    size_t at = 0;
    for (int notbol = 0; at <= text.size(); notbol = Orlo::REG_NOTBOL) {
        regmatch_t m[8];
        const int code = Orlo::engine_exec(re, text.data() + at, text.size() - at, nullptr, groups,
                                           m, eflags | notbol);
        if (code != Orlo::REG_OKAY) {
            EXPECT_EQ(code, Orlo::REG_NOMATCH) << "eflags " << eflags;
            break;
        }
        for (size_t i = 0; i < groups; ++i)
            found.push_back({m[i].rm_so < 0 ? -1 : long(at) + m[i].rm_so,
                             m[i].rm_eo < 0 ? -1 : long(at) + m[i].rm_eo});
        at += size_t(m[0].rm_eo > m[0].rm_so ? m[0].rm_eo : m[0].rm_eo + 1);
    }
    return found;
}

TYPED_TEST(OracleTest, SmallCacheGivesTheSameMatches) {
    std::mt19937 rng(5150);
    const std::u32string alphabet = Alphabet(TestFixture::kWide) + U"aabb";
    std::u32string text32;
    while (text32.size() < 30000)
        text32 += rng() % 48 == 0 ? U'\n' : alphabet[rng() % alphabet.size()];
    const std::basic_string<TypeParam> text = Encode<TypeParam>(text32);
    // Matches stay within a line or a run, so that searching stays linear.
    std::vector<std::pair<std::u32string, int>> cases = {
        {U"a[^b\n]*b", ERE},
        {U"(a|b)+_", ERE | Orlo::REG_ICASE},
        {U"^[ab ]+$", ERE | Orlo::REG_NEWLINE},
        {U"(A|a_|b)(b*)(_?)", ERE},
        {U"[^\n]{2,3}b", ERE | Orlo::REG_NLSTOP},
        {U"\\m[ab]+\\M", ARE},
        {U"\\y_\\Y|b\\y", ARE},
        {U"(?=a_)a|(?!b)b?A", ARE},
        {U"a+?b|(?:A|_)*?b", ARE | Orlo::REG_ICASE},
        {U"(?:^|\\n)(a|b)+?$", ARE | Orlo::REG_NEWLINE},
        {U"(a+)(?:b+|_)(A*)", ARE},
        {U".{1,3}?(?=\\n)", ARE | Orlo::REG_NLSTOP},
    };
    // Sixteen generated ones of each syntax, of some size, made to stop at newlines.
    for (int syntax : {ERE, ARE}) {
        Generator g(syntax * 101 + 7, syntax == ARE, TestFixture::kWide);
        for (const size_t had = cases.size(); cases.size() < had + 16;) {
            const std::u32string pattern = Render(g.Pattern(3));
            if (pattern.size() >= 10)
                cases.push_back({pattern, TestFixture::CompileFlags(g, syntax) | Orlo::REG_NLSTOP});
        }
    }
    for (const auto& [pattern, cflags] : cases) {
        SCOPED_TRACE(testing::Message() << Escape(pattern) << " cflags " << cflags);
        regex_t re{};
        ASSERT_EQ(Compile<TypeParam>(&re, pattern, cflags), Orlo::REG_OKAY);
        const auto normal = AllMatches(&re, text, 0);
        const auto small = AllMatches(&re, text, Orlo::REG_SMALL);
        Orlo::engine_free(&re);
        const auto [n, s] = std::ranges::mismatch(normal, small);
        EXPECT_TRUE(n == normal.end() && s == small.end())
            << "entries " << normal.size() << " and " << small.size() << ", first difference at "
            << n - normal.begin();
    }
}

}  // namespace
}  // namespace re_test
