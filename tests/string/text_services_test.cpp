// The text services other than numbers and escapes, for both widths where
// cheap; the wildcard match is also checked against a tiny reference matcher.

#include <gtest/gtest.h>

#include <bit>
#include <random>
#include <string>

#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::stringEx;
using Orlo::wstringEx;
using text_test::Make;
using text_test::Str;

template <class S>
class TextServices : public ::testing::Test {};
using BothWidths = ::testing::Types<stringEx, wstringEx>;
TYPED_TEST_SUITE(TextServices, BothWidths);

enum class TrimBy { kWhiteSpace, kSet, kChar };  // kChar: the first byte of the set

struct TrimCase {
    TrimBy by;
    bool left;
    std::string text, expected, set = "";
};

const TrimCase kTrimCases[] = {
    {TrimBy::kWhiteSpace, false, std::string("ab\f \t\n\v\r\0", 9), "ab\f"},  // \0 is, \f not
    {TrimBy::kWhiteSpace, true, std::string("\0 \t\n\v\r\fab ", 10), "\fab "},
    {TrimBy::kWhiteSpace, true, " \t ", ""},
    {TrimBy::kWhiteSpace, false, "", ""},
    {TrimBy::kSet, false, std::string("xab\0yx", 6), "xab", std::string("xy\0", 3)},
    {TrimBy::kSet, true, "xyabyx", "abyx", "xy"},
    {TrimBy::kSet, false, "ab  ", "ab  ", ""},  // an empty set removes nothing
    {TrimBy::kChar, false, "000120", "00012", "0"},
    {TrimBy::kChar, true, "000120", "120", "0"},
};

TYPED_TEST(TextServices, TrimsUnshareOnlyWhenTheyRemove) {
    for (const TrimCase& c : kTrimCases) {
        SCOPED_TRACE("case " + std::to_string(&c - kTrimCases));
        TypeParam s = Make<TypeParam>(c.text);
        const TypeParam before(s), set = Make<TypeParam>(c.set);
        if (c.by == TrimBy::kWhiteSpace) c.left ? s.TrimLeft() : s.TrimRight();
        if (c.by == TrimBy::kSet) c.left ? s.TrimLeft(set) : s.TrimRight(set);
        if (c.by == TrimBy::kChar) c.left ? s.TrimLeft(set[0]) : s.TrimRight(set[0]);
        EXPECT_EQ(Str(s), c.expected);
        EXPECT_EQ(Str(before), c.text) << "a sharer keeps its content";
        EXPECT_EQ(s.data() == before.data(), c.expected == c.text);
    }
}

TYPED_TEST(TextServices, CaseChangeUnsharesAndPosOnlyClipsTheCount) {
    TypeParam s = Make<TypeParam>("Hello, World! 42");
    const TypeParam sharer(s);
    EXPECT_EQ(Str(s.ToUpper()), "HELLO, WORLD! 42");
    EXPECT_EQ(Str(sharer), "Hello, World! 42");
    EXPECT_EQ(Str(s.ToLower()), "hello, world! 42");
    // The walk starts at the first element; pos only shortens it.
    EXPECT_EQ(Str(Make<TypeParam>("abcdef").ToUpper(4, 3)), "ABcdef");
    EXPECT_EQ(Str(Make<TypeParam>("abcdef").ToUpper(9, 3)), "abcdef");
    TypeParam null;
    EXPECT_EQ(null.ToUpper().c_str()[0], 0);
}

TEST(TextFormat, OneCallIntoBoundedRoom) {
    stringEx s(std::string(1000, 'z').c_str());
    EXPECT_EQ(Str(s.Format("x=%d %s", 5, "ab")), "x=5 ab");
    EXPECT_EQ(Str(s.Format(10, "%s", "abcdefghijkl")), "abcdefghi");
    const stringEx sharer(s);
    s.AppendFormat(4, "%s", "xyz123").AppendFormat("%s", "");
    EXPECT_EQ(Str(s), "abcdefghixyz");
    EXPECT_EQ(Str(sharer), "abcdefghi");
    const std::string longer(300, 'b');  // cut at 255, with no retry
    EXPECT_EQ(Str(s.AppendFormat("%s", longer.c_str())), "abcdefghixyz" + longer.substr(45));
    EXPECT_EQ(Str(s.Format("%s", longer.c_str())), longer.substr(45));

    wstringEx w;
    EXPECT_EQ(Str(w.Format(L"%d-%ls", 5, L"ab").AppendFormat(L"%lc", L'z')), "5-abz");
    // The wide call fails outright on output that does not fit: the length
    // stays, and must never run past the room.
    EXPECT_EQ(w.Format(4, L"%ls", L"abcdef").size(), 5u);
}

struct CompareCase {
    std::string text, other;
    bool equalsNoCase, startsWith, endsWith, startsWithNoCase, endsWithNoCase;
};

const CompareCase kCompareCases[] = {
    {"Hello", "hello", true, false, false, true, true},
    {"Hello", "He", false, true, false, true, false},
    {"Hello", "LO", false, false, false, false, true},
    {"Hello", "HelP", false, false, false, false, false},
    {"Hello", "", false, true, true, true, true},
    {"", "", true, true, true, true, true},
    {"He", "Hello", false, false, false, false, false},
    {std::string("a\0b", 3), std::string("A\0B", 3), true, false, false, true, true},
};

TYPED_TEST(TextServices, CompareFamily) {
    for (const CompareCase& c : kCompareCases) {
        SCOPED_TRACE("\"" + c.text + "\" against \"" + c.other + "\"");
        const TypeParam s = Make<TypeParam>(c.text), o = Make<TypeParam>(c.other);
        EXPECT_EQ(s.EqualsNoCase(o), c.equalsNoCase);
        EXPECT_EQ(s.StartsWith(o), c.startsWith);
        EXPECT_EQ(s.EndsWith(o), c.endsWith);
        EXPECT_EQ(s.StartsWithNoCase(o), c.startsWithNoCase);
        EXPECT_EQ(s.EndsWithNoCase(o), c.endsWithNoCase);
    }
}

TEST(TextWiden, NarrowKeepsTheLowByteAndWideTakesBytesUnsigned) {
    stringEx narrow("n:");
    narrow.AppendOtherWidth(wstringEx(L"A\u263A\u00E9"));
    narrow.AppendOtherWidth(static_cast<const wchar_t*>(nullptr));
    narrow.AppendOtherWidth(narrow);  // the same width is a plain append, also from itself
    EXPECT_EQ(Str(narrow), "n:A\x3A\xE9n:A\x3A\xE9");

    wstringEx wide(L"w:");
    wide.AppendOtherWidth(stringEx("a\xE9"));
    wide.AppendOtherWidth(static_cast<const char*>(nullptr));
    wide.AppendOtherWidth(std::string(1000, 'k').c_str());  // long input goes in pieces
    EXPECT_EQ(Str(wide), "w:a\xE9" + std::string(1000, 'k'));
}

struct HexCase {
    std::string bytes, separator;
    bool upper;
    std::string expected;
};

const HexCase kHexCases[] = {
    {"\x01\xAB\xFF", ":", true, "01:AB:FF"},
    {"\x80\x7F", "", false, "807f"},  // high bytes: the shift is unsigned
    {std::string("a\0", 2), ", ", true, "61, 00"},
    {"", ":", true, ""},
};

TEST(TextHex, HexTextAndArrayDump) {
    for (const HexCase& c : kHexCases) {
        SCOPED_TRACE("case " + std::to_string(&c - kHexCases));
        const auto s = Make<stringEx>(c.bytes), separator = Make<stringEx>(c.separator);
        stringEx replaced("old"), kept("old:"), self(s), selfReplaced(s);
        s.ToHexText(replaced, separator, c.upper);
        s.AppendHexText(kept, separator, c.upper);  // takes back only its own separator
        self.AppendHexText(self, separator, c.upper);
        selfReplaced.ToHexText(selfReplaced, separator, c.upper);
        EXPECT_EQ(Str(replaced), c.expected);
        EXPECT_EQ(Str(selfReplaced), c.expected);
        EXPECT_EQ(Str(kept), "old:" + c.expected);
        EXPECT_EQ(Str(self), c.bytes + c.expected);
    }

    wstringEx wide;  // wide elements are taken bytewise, in memory order
    wstringEx(L"A").ToHexText(wide, wstringEx(L" "), true);
    static_assert(sizeof(wchar_t) == 4);
    EXPECT_EQ(Str(wide),
              std::endian::native == std::endian::little ? "41 00 00 00" : "00 00 00 41");

    // The array dump: twelve items to a line and no comma after the last.
    const std::string bytes = "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\xFF";
    const std::string row =
        "\t0X01, 0X02, 0X03, 0X04, 0X05, 0X06, 0X07, 0X08, 0X09, 0X0A, 0X0B, 0X0C";
    EXPECT_EQ(Str(stringEx(bytes.c_str()).ToHexArray(stringEx("tbl"), true)),
              "const unsigned char tbl[] = {\n" + row + ", \n\t0XFF\n};\n");
    EXPECT_EQ(Str(Make<stringEx>(bytes.substr(0, 12)).ToHexArray(stringEx("t"), false)),
              "unsigned char t[] = {\n" + row + "\n};\n");
    EXPECT_EQ(Str(stringEx().ToHexArray(stringEx("e"), true)), "const unsigned char e[] = {\n};\n");
    EXPECT_TRUE(stringEx("abc").ToHexArray(stringEx(), true).is_null());
}

struct WildCase {
    std::string text;
    std::string pattern;
    bool expected;
    const char* why = "";
    bool ignoreCase = false;
    uint32_t pos = 0;
    char anyOne = '?', anyRun = '*';
};

const WildCase kWildCases[] = {
    {"a.txt", "a.txt*", true, "a final star matches the empty rest"},
    {"a.txt", "*.TXT", false},
    {"a.txt", "*.TXT", true, "", true},
    {"", "*", false, "an empty text matches nothing"},
    {"abc", "*", false, "pos at the end reads as an empty text", false, 3},
    {"xxa.txt", "a.txt", true, "", false, 2},
    {"aab", "*ab", true, "the last star takes one more element"},
    {"ab\x80", "ab?", true},
    {std::string("ab\0cd", 5), "ab", true, "a zero element ends the text"},
    {"a*c", "a.%", true, "", false, 0, '.', '%'},
    {"abc", "a*c", false, "'*' is literal here", false, 0, '.', '%'},
    {"xyz", "X", false, "the any-run byte is compared exactly", true, 0, '?', 'x'},
};

TYPED_TEST(TextServices, WildMatchTable) {
    for (const WildCase& c : kWildCases) {
        SCOPED_TRACE("\"" + c.text + "\" against \"" + c.pattern + "\" " + c.why);
        const TypeParam text = Make<TypeParam>(c.text), pattern = Make<TypeParam>(c.pattern);
        EXPECT_EQ(text.WildMatch(pattern.c_str(), c.pos, c.anyOne, c.anyRun, c.ignoreCase),
                  c.expected);
    }
    const TypeParam owner = Make<TypeParam>("abcdef");  // a view ends at its own length
    const TypeParam part(Orlo::as_view, owner, 0, 3);
    EXPECT_FALSE(part.WildMatch(owner.c_str(), 0, '?', '*', false));
    EXPECT_FALSE(owner.WildMatch(nullptr, 0, '?', '*', false)) << "a null pattern reads as empty";
}

// A deliberately simple recursive matcher: test oracle only.
bool ReferenceWildMatch(const char* p, const char* s) {
    if (*p == 0) return *s == 0;
    if (*p == '*') return ReferenceWildMatch(p + 1, s) || (*s != 0 && ReferenceWildMatch(p, s + 1));
    return *s != 0 && (*p == '?' || *p == *s) && ReferenceWildMatch(p + 1, s + 1);
}

TEST(TextWildMatch, AgreesWithTheReferenceOnGeneratedPatterns) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 20000; ++round) {
        std::string pattern, text(1 + rng() % 8, 'a');
        for (char& c : text)
            c = "ab"[rng() % 2];
        for (int i = int(rng() % 7); i > 0; --i)
            pattern += "ab?*"[rng() % 4];
        ASSERT_EQ(stringEx(text.c_str()).WildMatch(pattern.c_str(), 0, '?', '*', false),
                  ReferenceWildMatch(pattern.c_str(), text.c_str()))
            << "text \"" << text << "\" pattern \"" << pattern << "\"";
    }
}

}  // namespace
