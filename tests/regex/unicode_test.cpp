// Tests of the Unicode tables under the wide engine: case mapping,
// categories and class members of well-known characters, the agreement of
// the class lists with the categories over the whole plane, and, where
// Debian's unicode-data is installed, every code point of the plane against
// a reading of the character database that shares no code with the
// generator.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
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
    {'Z', 'Z', 'z', 'Z', "ASCII capital letter"},
    {'5', '5', '5', '5', "digit: no case"},
    {'@', '@', '@', '@', "punctuation: no case"},
    {0xE9, 0xC9, 0xE9, 0xC9, "Latin-1 e acute"},
    {0xC9, 0xC9, 0xE9, 0xC9, "Latin-1 E acute"},
    {0xFF, 0x178, 0xFF, 0x178, "y diaeresis: its capital lies outside Latin-1"},
    {0x178, 0x178, 0xFF, 0x178, "Y diaeresis lowers back into Latin-1"},
    {0xDF, 0xDF, 0xDF, 0xDF, "sharp s has no one-character capital"},
    {0x130, 0x130, 0x69, 0x130, "I with dot lowers 199 code points back"},
    {0x131, 0x49, 0x131, 0x49, "dotless i uppers to plain I"},
    {0x3B1, 0x391, 0x3B1, 0x391, "Greek alpha"},
    {0x391, 0x391, 0x3B1, 0x391, "Greek Alpha"},
    {0x3C2, 0x3A3, 0x3C2, 0x3A3, "final sigma uppers to Sigma"},
    {0x3A3, 0x3A3, 0x3C3, 0x3A3, "Sigma lowers to the medial form"},
    {0x430, 0x410, 0x430, 0x410, "Cyrillic a"},
    {0x401, 0x401, 0x451, 0x401, "Cyrillic IO, delta 80"},
    {0x1C4, 0x1C4, 0x1C6, 0x1C5, "DZ caron: title is the next code point"},
    {0x1C5, 0x1C4, 0x1C6, 0x1C5, "Dz caron: both forms under one delta, title itself"},
    {0x1C6, 0x1C4, 0x1C6, 0x1C5, "dz caron: title is the previous code point"},
    {0x1C7, 0x1C7, 0x1C9, 0x1C8, "LJ"},
    {0x1C8, 0x1C7, 0x1C9, 0x1C8, "Lj"},
    {0x1C9, 0x1C7, 0x1C9, 0x1C8, "lj"},
    {0x1CA, 0x1CA, 0x1CC, 0x1CB, "NJ"},
    {0x1CB, 0x1CA, 0x1CC, 0x1CB, "Nj"},
    {0x1CC, 0x1CA, 0x1CC, 0x1CB, "nj"},
    {0x1F3, 0x1F1, 0x1F3, 0x1F2, "dz: the fourth title-case triple"},
    {0x1F80, 0x1F88, 0x1F80, 0x1F88, "its capital is a title-case letter"},
    {0x1F88, 0x1F88, 0x1F80, 0x1F88, "title-case letter with only a lower form"},
    {0x345, 0x399, 0x345, 0x399, "a combining mark with an upper-case form"},
    {0x2160, 0x2160, 0x2170, 0x2160, "Roman numeral: a number with case"},
    {0xFF41, 0xFF21, 0xFF41, 0xFF21, "full-width a"},
    {0x4E00, 0x4E00, 0x4E00, 0x4E00, "ideograph: no case"},
    {0xD800, 0xD800, 0xD800, 0xD800, "surrogate"},
    {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, "not a character"},
    // Only the low 16 bits are looked up, and the delta applies to the whole value.
    {0x10041, 0x10041, 0x10061, 0x10041, "U+10041 takes the properties of A"},
    {0x10061, 0x10041, 0x10061, 0x10041, "U+10061 takes the properties of a"},
    // Mappings the tables leave out give the character back, never a wrong one.
    {0xB5, 0xB5, 0xB5, 0xB5, "micro sign: its capital Mu is 743 code points away"},
    {0x212A, 0x212A, 0x212A, 0x212A, "Kelvin sign: k is too far for the delta"},
    {0x2C65, 0x2C65, 0x2C65, 0x2C65, "assigned after the covered version"},
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

TEST(UnicodeClasses, NamesInTheirOrder) {
    const char* const names[] = {"alnum", "alpha", "ascii", "blank", "cntrl", "digit", "graph",
                                 "lower", "print", "punct", "space", "upper", "xdigit"};
    ASSERT_EQ(std::size(names), kUnicodeClassCount);
    for (size_t i = 0; i < kUnicodeClassCount; ++i)
        EXPECT_STREQ(unicode_classes[i].name, names[i]);
}

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
    {"ascii", {0, 0x7F}, {0x80}, ""},
    {"cntrl", {0, 0x9F}, {' ', 0xA0}, "both control blocks"},
    {"lower", {'a', 0xDF}, {'A', 0x1C5}, ""},
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

// ---- against the installed character database ---------------------------------------

const char kDatabaseDir[] = "/usr/share/unicode/";

// The categories by number, written out afresh rather than taken from the
// header's enumeration, so that a shifted numbering shows.
const char* const kCategoryNames[] = {"Cn", "Lu", "Ll", "Lt", "Lm", "Lo", "Mn", "Mc", "Me", "Nd",
                                      "Nl", "No", "Pc", "Pd", "Ps", "Pe", "Pi", "Pf", "Po", "Sm",
                                      "Sc", "Sk", "So", "Zs", "Zl", "Zp", "Cc", "Cf", "Cs", "Co"};

// The two-letter name of a category number; an impossible number as digits.
std::string CategoryName(Cat cat) {
    const size_t number = size_t(cat);
    if (number >= std::size(kCategoryNames)) return std::to_string(number);
    return kCategoryNames[number];
}

struct DatabaseEntry {
    std::string category = "Cn";
    std::optional<uint32_t> upper, lower, title;
    std::pair<int, int> age{99, 0};  // unassigned: newer than any version
};

std::pair<int, int> ParseVersion(const std::string& text) {
    std::pair<int, int> version{0, 0};
    std::sscanf(text.c_str(), "%d.%d", &version.first, &version.second);
    return version;
}

std::vector<std::string> SplitFields(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, separator))
        fields.push_back(field);
    if (!line.empty() && line.back() == separator) fields.emplace_back();
    return fields;
}

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Reads DerivedAge.txt into `plane`; returns the version named on its first line.
std::string ReadAges(std::vector<DatabaseEntry>& plane) {
    std::ifstream in(std::string(kDatabaseDir) + "DerivedAge.txt");
    std::string line, version;
    std::getline(in, line);
    const std::string prefix = "# DerivedAge-";
    if (line.rfind(prefix, 0) == 0)
        version = line.substr(prefix.size(), line.find(".txt") - prefix.size());
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        if (Trim(line).empty()) continue;
        const std::vector<std::string> fields = SplitFields(line, ';');
        const std::string span = Trim(fields[0]);
        const size_t dots = span.find("..");
        const uint32_t first = std::stoul(span.substr(0, dots), nullptr, 16);
        const uint32_t last =
            dots == std::string::npos ? first : std::stoul(span.substr(dots + 2), nullptr, 16);
        for (uint32_t c = first; c <= last && c < kPlaneSize; ++c)
            plane[c].age = ParseVersion(Trim(fields[1]));
    }
    return version;
}

void ReadUnicodeData(std::vector<DatabaseEntry>& plane) {
    std::ifstream in(std::string(kDatabaseDir) + "UnicodeData.txt");
    std::string line;
    uint32_t range_first = 0;
    while (std::getline(in, line)) {
        const std::vector<std::string> fields = SplitFields(line, ';');
        const uint32_t c = std::stoul(fields[0], nullptr, 16);
        if (c >= kPlaneSize) continue;
        const std::string& name = fields[1];
        if (name.find(", First>") != std::string::npos) {
            range_first = c;
            continue;
        }
        const uint32_t first = name.find(", Last>") != std::string::npos ? range_first : c;
        for (uint32_t member = first; member <= c; ++member)
            plane[member].category = fields[2];
        auto mapping = [&](size_t i) -> std::optional<uint32_t> {
            if (fields[i].empty()) return std::nullopt;
            return std::stoul(fields[i], nullptr, 16);
        };
        plane[c].upper = mapping(12);
        plane[c].lower = mapping(13);
        plane[c].title = mapping(14);
    }
}

// The mappings too far for the shared delta, which the tables give up on.
const std::set<std::pair<uint32_t, char>> kLeftOut = {
    {0xB5, 'U'}, {0x1FBE, 'U'}, {0x2126, 'L'}, {0x212A, 'L'}, {0x212B, 'L'}};

TEST(UnicodeDatabase, EveryCodePointOfThePlane) {
    std::ifstream probe(std::string(kDatabaseDir) + "UnicodeData.txt");
    if (!probe) GTEST_SKIP() << "no " << kDatabaseDir << "UnicodeData.txt (Debian: unicode-data)";
    std::vector<DatabaseEntry> plane(kPlaneSize);
    const std::string version = ReadAges(plane);
    if (version != unicode_data_version)
        GTEST_SKIP() << "installed database is " << version << ", tables are from "
                     << unicode_data_version;
    ReadUnicodeData(plane);

    const std::pair<int, int> covered = ParseVersion(unicode_repertoire_version);
    auto in_repertoire = [&](uint32_t c) { return plane[c].age <= covered; };
    // A mapping that leads out of the repertoire is not one the tables know.
    auto target = [&](uint32_t c, std::optional<uint32_t> to) {
        return to && in_repertoire(*to) ? *to : c;
    };
    int failures = 0;
    for (uint32_t c = 0; c < kPlaneSize && failures < 10; ++c) {
        const DatabaseEntry& entry = plane[c];
        const bool covered_here = in_repertoire(c);
        const std::string category = covered_here ? entry.category : "Cn";
        uint32_t upper = covered_here ? target(c, entry.upper) : c;
        uint32_t lower = covered_here ? target(c, entry.lower) : c;
        uint32_t title = covered_here && entry.title ? target(c, entry.title) : upper;
        if (kLeftOut.count({c, 'U'})) {
            if (title == upper) title = c;
            upper = c;
        }
        if (kLeftOut.count({c, 'L'})) lower = c;

        const wchar_t wc = wchar_t(c);
        const bool agree = CategoryName(UnicodeCategory(wc)) == category &&
                           uint32_t(UnicodeToUpper(wc)) == upper &&
                           uint32_t(UnicodeToLower(wc)) == lower &&
                           uint32_t(UnicodeToTitle(wc)) == title;
        if (!agree) {
            ADD_FAILURE() << Hex(c) << ": expected " << category << " upper " << Hex(upper)
                          << " lower " << Hex(lower) << " title " << Hex(title) << ", got "
                          << CategoryName(UnicodeCategory(wc)) << " upper "
                          << Hex(UnicodeToUpper(wc)) << " lower " << Hex(UnicodeToLower(wc))
                          << " title " << Hex(UnicodeToTitle(wc));
            ++failures;
        }
    }
}

}  // namespace
