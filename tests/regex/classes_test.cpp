// Tests of the bracket-item sets and the back-reference comparators, in
// both instantiations where they agree, and per instantiation where case
// folding and class tables differ.

#include <gtest/gtest.h>

#include <clocale>
#include <set>
#include <string>
#include <vector>

#include "engine_support.h"

namespace {

using namespace re_test;
using Orlo::REG_ECOLLATE;
using Orlo::REG_ECTYPE;
using Orlo::REG_ERANGE;
using Orlo::REG_OKAY;

template <class CharT>
class ClassesTest : public ::testing::Test {};
TYPED_TEST_SUITE(ClassesTest, CharTypes);

template <class CharT>
std::basic_string<CharT> Text(const std::string& s) {
    return std::basic_string<CharT>(s.begin(), s.end());
}

// The characters of a vector, as code points (narrow ones as bytes).
template <class CharT>
std::multiset<uint32_t> Chars(const cvec<CharT>* cv) {
    std::multiset<uint32_t> chars;
    for (int i = 0; i < cv->nchrs; ++i)
        chars.insert(sizeof(CharT) == 1 ? uint8_t(cv->chrs[i]) : uint32_t(cv->chrs[i]));
    return chars;
}

std::multiset<uint32_t> CharsOf(const std::string& s) {
    std::multiset<uint32_t> chars;
    for (char c : s)
        chars.insert(uint8_t(c));
    return chars;
}

template <class CharT>
cvec<CharT>* ClassNamed(Compilation<CharT>& c, const std::string& name, bool cases) {
    const std::basic_string<CharT> text = Text<CharT>(name);
    return cclass(&c.v, text.data(), text.data() + text.size(), cases);
}

// ---- collating names -------------------------------------------------------

struct ElementCase {
    const char* name;
    int code;  // -1: unknown
};

const ElementCase kElementCases[] = {
    {"a", 'a'},      {"hyphen", '-'},    {"NUL", 0},
    {"DEL", 127},    {"nosuchname", -1}, {"Hyphen", -1},  // names are case-sensitive
    {"hyphe", -1},                                        // and matched by their whole length
    {"hyphen-", -1},
};

TYPED_TEST(ClassesTest, ElementLooksUpCollatingNames) {
    for (const ElementCase& row : kElementCases) {
        SCOPED_TRACE(row.name);
        Compilation<TypeParam> c;
        const std::basic_string<TypeParam> name = Text<TypeParam>(row.name);
        const TypeParam got = element(&c.v, name.data(), name.data() + name.size());
        if (row.code < 0) {
            EXPECT_EQ(c.v.err, REG_ECOLLATE);
            continue;
        }
        EXPECT_EQ(c.v.err, REG_OKAY);
        EXPECT_EQ(got, TypeParam(row.code));
        EXPECT_EQ((c.re.re_info & Orlo::REG_ULOCALE) != 0, name.size() > 1)
            << "only a looked-up name is locale-dependent";
    }
}

// ---- classes ---------------------------------------------------------------

TYPED_TEST(ClassesTest, UnknownClassNamesFail) {
    for (const char* name : {"nosuch", "Alpha", "alph", "", "alphas"}) {
        Compilation<TypeParam> c;
        EXPECT_EQ(ClassNamed(c, name, false), nullptr) << name;
        EXPECT_EQ(c.v.err, REG_ECTYPE) << name;
    }
    Compilation<TypeParam> c;
    const bool wide = sizeof(TypeParam) > 1;
    EXPECT_EQ(ClassNamed(c, "ascii", false) != nullptr, wide) << "ascii is wide only";
}

// With case folding, lower and upper both mean every letter.
TYPED_TEST(ClassesTest, CaseFoldingWidensLowerAndUpperToAlpha) {
    for (const char* name : {"lower", "upper"}) {
        Compilation<TypeParam> c;
        const std::multiset<uint32_t> alpha = Chars(ClassNamed(c, "alpha", false));
        EXPECT_EQ(Chars(ClassNamed(c, name, true)), alpha) << name;
        EXPECT_NE(Chars(ClassNamed(c, name, false)), alpha) << name;
        EXPECT_EQ(c.v.err, REG_OKAY);
    }
}

class CtypeLocale {
  public:
    explicit CtypeLocale(const char* name) : m_ok(setlocale(LC_CTYPE, name) != nullptr) {}
    ~CtypeLocale() { setlocale(LC_CTYPE, "C"); }
    bool ok() const { return m_ok; }

  private:
    bool m_ok;
};

// Spot checks in the "C" locale, and in C.UTF-8, where the C library's tests
// are asked and count NUL as a control; blank has no test there.
struct NarrowClassCase {
    const char* name;
    std::string members, others;
};

const NarrowClassCase kNarrowClasses[] = {
    {"alnum", "aZ09", "_ -"},    {"blank", " \t", "\n\v"},   {"cntrl", "\x01\x1f\x7f", " a"},
    {"graph", "a~!", " \x7f"},   {"print", "a~ ", "\t\x7f"}, {"punct", "!_~", "a0 "},
    {"space", "\t\r ", "a\x1f"}, {"upper", "AZ", "az"},      {"xdigit", "09aFf", "gG"},
};

TEST(NarrowClasses, MembersInTheCAndUtf8Locales) {
    for (const char* name : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(name);
        const CtypeLocale locale(name);
        if (!locale.ok()) continue;
        for (const NarrowClassCase& row : kNarrowClasses) {
            Compilation<char> c;
            const cvec<char>* cv = ClassNamed(c, row.name, false);
            ASSERT_NE(cv, nullptr) << row.name;
            const std::multiset<uint32_t> got = Chars(cv);
            for (uint32_t ch : CharsOf(row.members))
                EXPECT_EQ(got.count(ch), 1u) << row.name << " " << ch;
            for (uint32_t ch : CharsOf(row.others))
                EXPECT_EQ(got.count(ch), 0u) << row.name << " " << ch;
            EXPECT_EQ(got.count(0),
                      std::string(name) == "C" ? 0u : row.name == std::string("cntrl"))
                << row.name;
        }
    }
}

// ---- ranges and cases ------------------------------------------------------

struct RangeCase {
    char a, b;
    bool cases;
    std::string chars;  // the characters listed; empty: one range a..b
    int error = REG_OKAY;
};

const RangeCase kRangeCases[] = {
    {'a', 'z', false, ""},
    {'z', 'a', false, "", REG_ERANGE},
    {'Y', 'b', true, "YyZz[\\]^_`aAbB"},
};

TYPED_TEST(ClassesTest, Ranges) {
    for (const RangeCase& row : kRangeCases) {
        SCOPED_TRACE((std::string{row.a, '-', row.b} + (row.cases ? " cases" : "")));
        Compilation<TypeParam> c;
        const cvec<TypeParam>* cv = range(&c.v, TypeParam(row.a), TypeParam(row.b), row.cases);
        EXPECT_EQ(c.v.err, row.error);
        if (row.error != REG_OKAY) continue;
        ASSERT_NE(cv, nullptr);
        EXPECT_EQ(Chars(cv), CharsOf(row.chars));
        if (!row.chars.empty()) continue;
        ASSERT_EQ(cv->nranges, 1);
        EXPECT_EQ(cv->ranges[0], TypeParam(row.a));
        EXPECT_EQ(cv->ranges[1], TypeParam(row.b));
    }
}

// The narrow range compares signed characters, on purpose: bytes from 0x80
// up are negative.
TEST(NarrowRanges, CompareSignedBytes) {
    Compilation<char> c;
    const cvec<char>* high = range(&c.v, char(0x80), char(0xff), false);
    ASSERT_NE(high, nullptr);
    EXPECT_EQ(high->ranges[0], -128);
    EXPECT_EQ(high->ranges[1], -1);
    EXPECT_EQ(range(&c.v, 'a', char(0xff), false), nullptr);
    EXPECT_EQ(c.v.err, REG_ERANGE);
}

// Former fault: a run of letters with three case forms each (DZ, Dz, dz
// and their kin) needs more room than two entries per character. A range
// over the whole plane needs no cases at all.
TEST(WideRanges, CaseFolding) {
    Compilation<wchar_t> c;
    const cvec<wchar_t>* cv = range(&c.v, wchar_t(0x1c4), wchar_t(0x1cc), true);
    ASSERT_NE(cv, nullptr);
    EXPECT_LE(cv->nchrs, cv->chrspace);
    const std::multiset<uint32_t> got = Chars(cv);
    EXPECT_EQ(std::set<uint32_t>(got.begin(), got.end()).size(), 9u);
    cv = range(&c.v, wchar_t(0x20), wchar_t(0x12000), true);
    ASSERT_NE(cv, nullptr);
    EXPECT_EQ(cv->nchrs, 0);
}

struct CasesRow {
    uint32_t c;
    std::multiset<uint32_t> narrow;  // empty: not a narrow character
    std::multiset<uint32_t> wide;
};

const CasesRow kCasesRows[] = {
    {'a', {'a', 'A'}, {'a', 'A'}},      {'5', {'5'}, {'5'}},
    {0xe9, {0xe9}, {0xe9, 0xc9}},  // no case for high bytes in the "C" locale
    {0x1c4, {}, {0x1c6, 0x1c4, 0x1c5}}, {0xdf, {0xdf}, {0xdf}},
};

TEST(Allcases, EveryCaseOnce) {
    for (const CasesRow& row : kCasesRows) {
        SCOPED_TRACE(row.c);
        if (!row.narrow.empty()) {
            Compilation<char> c;
            EXPECT_EQ(Chars(allcases(&c.v, char(row.c))), row.narrow);
        }
        Compilation<wchar_t> c;
        EXPECT_EQ(Chars(allcases(&c.v, wchar_t(row.c))), row.wide);
    }
}

TYPED_TEST(ClassesTest, EquivalenceClassesAreTheCharacter) {
    struct {
        int cflags;
        char c;
        bool cases;
        std::string members;
    } rows[] = {
        {0, 'q', false, "q"},
        {0, 'q', true, "qQ"},
        {Orlo::REG_FAKE, 'x', false, "xy"},
        {Orlo::REG_FAKE, 'x', true, "xyXY"},
    };
    for (const auto& row : rows) {
        Compilation<TypeParam> c(row.cflags);
        EXPECT_EQ(Chars(eclass(&c.v, TypeParam(row.c), row.cases)), CharsOf(row.members))
            << row.c << " flags " << row.cflags << " cases " << row.cases;
    }
}

// ---- comparators -----------------------------------------------------------

TYPED_TEST(ClassesTest, ComparatorsForBackReferences) {
    struct {
        const char* a;
        const char* b;
        bool exact, blind;
    } rows[] = {
        {"abc", "abc", true, true},
        {"abc", "abd", false, false},
        {"ABC", "abc", false, true},
        {"", "", true, true},
    };
    for (const auto& row : rows) {
        const auto a = Text<TypeParam>(row.a);
        const auto b = Text<TypeParam>(row.b);
        EXPECT_EQ(cmp(a.data(), b.data(), a.size()) == 0, row.exact) << row.a << " " << row.b;
        EXPECT_EQ(casecmp(a.data(), b.data(), a.size()) == 0, row.blind) << row.a << " " << row.b;
    }
}

TEST(WideComparators, FoldThroughUnicode) {
    const std::wstring upper = L"\x391\xc9", lower = L"\x3b1\xe9";
    EXPECT_NE(cmp(upper.data(), lower.data(), upper.size()), 0);
    EXPECT_EQ(casecmp(upper.data(), lower.data(), upper.size()), 0);
}

}  // namespace
