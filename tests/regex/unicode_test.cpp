// Tests of the Unicode tables under the wide engine: case mapping,
// categories and class members of well-known characters, and the agreement
// of the class lists with the categories over the whole plane.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "regex/unicode.h"

namespace {

using namespace Orlo::IMPL;
using Cat = UnicodeGeneralCategory;

constexpr uint32_t kPlaneSize = 0x10000;

const unicode_class* FindClass(std::string_view name) {
    for (const unicode_class& cls : unicode_classes)
        if (name == cls.name) return &cls;
    return nullptr;
}

bool InClass(const unicode_class& cls, uint32_t c) {
    for (size_t i = 0; i < cls.nranges; ++i)
        if (cls.ranges[i].first <= c && c <= cls.ranges[i].last) return true;
    for (size_t i = 0; i < cls.nsingles; ++i)
        if (cls.singles[i] == c) return true;
    return false;
}

std::string Hex(uint32_t c) {
    std::ostringstream out;
    out << "U+" << std::hex << std::uppercase << c;
    return out.str();
}

// ---- case mapping -------------------------------------------------------------------

struct CaseRow {
    uint32_t c;
    uint32_t upper, lower, title;
    const char* why;
};

const CaseRow kCaseRows[] = {
    {'a', 'A', 'a', 'A', "ASCII small letter"},
    {0xE9, 0xC9, 0xE9, 0xC9, "Latin-1 e acute"},
    {0xFF, 0x178, 0xFF, 0x178, "y diaeresis: its capital lies outside Latin-1"},
    {0xDF, 0xDF, 0xDF, 0xDF, "sharp s has no one-character capital"},
    {0x130, 0x130, 0x69, 0x130, "I with dot lowers 199 code points back"},
    {0x131, 0x49, 0x131, 0x49, "dotless i uppers to plain I"},
    {0x3C2, 0x3A3, 0x3C2, 0x3A3, "final sigma uppers to Sigma"},
    {0x3A3, 0x3A3, 0x3C3, 0x3A3, "Sigma lowers to the medial form"},
    {0x401, 0x401, 0x451, 0x401, "Cyrillic IO, delta 80"},
    {0x1C4, 0x1C4, 0x1C6, 0x1C5, "DZ caron: title is the next code point"},
    {0x1C5, 0x1C4, 0x1C6, 0x1C5, "Dz caron: both forms under one delta, title itself"},
    {0x1C6, 0x1C4, 0x1C6, 0x1C5, "dz caron: title is the previous code point"},
    {0x1F80, 0x1F88, 0x1F80, 0x1F88, "its capital is a title-case letter"},
    {0x345, 0x399, 0x345, 0x399, "a combining mark with an upper-case form"},
    {0x2160, 0x2160, 0x2170, 0x2160, "Roman numeral: a number with case"},
    {0x4E00, 0x4E00, 0x4E00, 0x4E00, "ideograph: no case"},
    // Only the low 16 bits are looked up, and the delta applies to the whole value.
    {0x10041, 0x10041, 0x10061, 0x10041, "U+10041 takes the properties of A"},
    {0x10061, 0x10041, 0x10061, 0x10041, "U+10061 takes the properties of a"},
    // Mappings the tables leave out give the character back, never a wrong one.
    {0xB5, 0xB5, 0xB5, 0xB5, "micro sign: its capital Mu is 743 code points away"},
    {0x212A, 0x212A, 0x212A, 0x212A, "Kelvin sign: k is too far for the delta"},
    {0x180, 0x180, 0x180, 0x180, "its capital was assigned after the covered version"},
};

TEST(UnicodeCase, WellKnownCharacters) {
    for (const CaseRow& row : kCaseRows) {
        SCOPED_TRACE(Hex(row.c) + ": " + row.why);
        const wchar_t c = wchar_t(row.c);
        EXPECT_EQ(uint32_t(UnicodeToUpper(c)), row.upper);
        EXPECT_EQ(uint32_t(UnicodeToLower(c)), row.lower);
        EXPECT_EQ(uint32_t(UnicodeToTitle(c)), row.title);
    }
}

// ---- categories ---------------------------------------------------------------------

struct CategoryRow {
    uint32_t c;
    Cat category;
};

const CategoryRow kCategoryRows[] = {
    {'A', Cat::Lu},    {'a', Cat::Ll},    {0x1C5, Cat::Lt},   {0x2B0, Cat::Lm},   {0x5D0, Cat::Lo},
    {0x4E00, Cat::Lo}, {0x300, Cat::Mn},  {0x903, Cat::Mc},   {0x20DD, Cat::Me},  {'7', Cat::Nd},
    {0x663, Cat::Nd},  {0x2160, Cat::Nl}, {0xB2, Cat::No},    {'_', Cat::Pc},     {'-', Cat::Pd},
    {'(', Cat::Ps},    {')', Cat::Pe},    {0xAB, Cat::Pi},    {0xBB, Cat::Pf},    {'!', Cat::Po},
    {'+', Cat::Sm},    {'$', Cat::Sc},    {'^', Cat::Sk},     {0xA9, Cat::So},    {' ', Cat::Zs},
    {0x3000, Cat::Zs}, {0x2028, Cat::Zl}, {0x2029, Cat::Zp},  {0, Cat::Cc},       {0x9F, Cat::Cc},
    {0xAD, Cat::Cf},   {0xDFFF, Cat::Cs}, {0xE000, Cat::Co},  {0xF8FF, Cat::Co},  {0x378, Cat::Cn},
    {0xFFFF, Cat::Cn}, {0x2C60, Cat::Cn}, {0x10041, Cat::Lu}, {0x1FFFF, Cat::Cn},
};

TEST(UnicodeCategory, WellKnownCharacters) {
    for (const CategoryRow& row : kCategoryRows) {
        SCOPED_TRACE(Hex(row.c));
        EXPECT_EQ(int(UnicodeCategory(wchar_t(row.c))), int(row.category));
    }
}

// ---- classes ------------------------------------------------------------------------

struct MemberRow {
    const char* cls;
    std::vector<uint32_t> members, others;
    const char* why;
};

const MemberRow kMemberRows[] = {
    {"alpha", {'q', 0xE9, 0x4E00, 0x1C5}, {'1', '_'}, "letters of every kind"},
    {"alnum", {'1', 0x663, 'q'}, {'-'}, "letters and decimal digits"},
    {"digit",
     {'0', '9', 0x660, 0x669, 0x6F0, 0xFF10},
     {0xB2, 0x2160, 'a'},
     "Arabic-Indic and full-width digits, not superscripts or numerals"},
    {"space",
     {' ', '\t', '\r', 0xA0, 0x1680, 0x2000, 0x200B, 0x2028, 0x202F, 0x3000},
     {0x85, 0x205F, 0x8},
     "a fixed list, ideographic space included"},
    {"blank", {'\t', ' '}, {'\n', 0xA0, 0x3000}, "tab and space only"},
    {"xdigit", {'0', 'a', 'F'}, {'g', 'G', 0xFF21}, "ASCII only"},
    {"cntrl", {0, 0x9F}, {' ', 0xA0}, "both control blocks"},
    {"upper", {'A'}, {'a', 0x1C5}, "title-case letters are neither lower nor upper"},
    {"punct", {'!', '_', 0x3001}, {'$', '+'}, "symbols are not punctuation"},
    {"graph", {'!', '$', 0x300}, {' ', 0xAD, 0xE000}, "no spaces, format or private use"},
    {"print",
     {'a', '7', 0x4E00},
     {' ', '!'},
     "print has the members of alnum, not graph and space"},
};

TEST(UnicodeClasses, WellKnownMembers) {
    for (const MemberRow& row : kMemberRows) {
        SCOPED_TRACE(std::string(row.cls) + ": " + row.why);
        const unicode_class* cls = FindClass(row.cls);
        ASSERT_NE(cls, nullptr);
        for (uint32_t c : row.members)
            EXPECT_TRUE(InClass(*cls, c)) << Hex(c);
        for (uint32_t c : row.others)
            EXPECT_FALSE(InClass(*cls, c)) << Hex(c);
    }
}

// Ranges and lone points ascend, and none touches another: a run that was
// not merged, or an overlap, would show here.
TEST(UnicodeClasses, ListsAreSortedAndMerged) {
    for (const unicode_class& cls : unicode_classes) {
        SCOPED_TRACE(cls.name);
        EXPECT_EQ(cls.ranges == nullptr, cls.nranges == 0);
        EXPECT_EQ(cls.singles == nullptr, cls.nsingles == 0);
        std::vector<std::pair<uint32_t, uint32_t>> spans;
        for (size_t i = 0; i < cls.nranges; ++i) {
            EXPECT_LT(cls.ranges[i].first, cls.ranges[i].last) << "range " << i;
            spans.emplace_back(cls.ranges[i].first, cls.ranges[i].last);
            if (i > 0) {
                EXPECT_LT(cls.ranges[i - 1].last, cls.ranges[i].first);
            }
        }
        for (size_t i = 0; i < cls.nsingles; ++i) {
            spans.emplace_back(cls.singles[i], cls.singles[i]);
            if (i > 0) {
                EXPECT_LT(cls.singles[i - 1], cls.singles[i]);
            }
        }
        std::sort(spans.begin(), spans.end());
        for (size_t i = 1; i < spans.size(); ++i)
            EXPECT_GT(spans[i].first, spans[i - 1].second + 1)
                << "touching at " << Hex(spans[i].first);
    }
}

bool IsLetter(Cat cat) {
    return cat >= Cat::Lu && cat <= Cat::Lo;
}

// The class lists and the property words are two outputs of the generator;
// over the whole plane they must tell the same story.
TEST(UnicodeClasses, AgreeWithTheCategories) {
    const unicode_class& alnum = *FindClass("alnum");
    const unicode_class& alpha = *FindClass("alpha");
    const unicode_class& cntrl = *FindClass("cntrl");
    const unicode_class& digit = *FindClass("digit");
    const unicode_class& graph = *FindClass("graph");
    const unicode_class& lower = *FindClass("lower");
    const unicode_class& print = *FindClass("print");
    const unicode_class& punct = *FindClass("punct");
    const unicode_class& upper = *FindClass("upper");
    int failures = 0;
    for (uint32_t c = 0; c < kPlaneSize && failures < 10; ++c) {
        const Cat cat = UnicodeCategory(wchar_t(c));
        const bool letter = IsLetter(cat);
        const bool punctuation = cat >= Cat::Pc && cat <= Cat::Po;
        const bool printable = cat >= Cat::Lu && cat <= Cat::So;
        const bool agree =
            InClass(alpha, c) == letter && InClass(digit, c) == (cat == Cat::Nd) &&
            InClass(alnum, c) == (letter || cat == Cat::Nd) &&
            InClass(print, c) == InClass(alnum, c) && InClass(lower, c) == (cat == Cat::Ll) &&
            InClass(upper, c) == (cat == Cat::Lu) && InClass(punct, c) == punctuation &&
            InClass(cntrl, c) == (cat == Cat::Cc) && InClass(graph, c) == printable;
        if (!agree) {
            ADD_FAILURE() << Hex(c) << " of category " << int(cat);
            ++failures;
        }
    }
}

}  // namespace
