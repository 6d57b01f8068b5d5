// The text services of stringEx and wstringEx other than numbers and
// escapes: trims, case change, formatting, comparison, widening, hexadecimal
// text and the array dump, and the wildcard match, which is also checked
// against a tiny recursive matcher over generated patterns.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::as_view;
using Orlo::npos;
using Orlo::stringEx;
using Orlo::wstringEx;
using text_test::Make;
using text_test::Narrow;
using text_test::Str;
using text_test::Wide;

template <class S>
class TextServices : public ::testing::Test {};
using BothWidths = ::testing::Types<stringEx, wstringEx>;
TYPED_TEST_SUITE(TextServices, BothWidths);

// ---- trims ---------------------------------------------------------------------

enum class Trim { kRight, kLeft, kRightSet, kLeftSet, kRightChar, kLeftChar };

struct TrimCase {
    Trim op;
    std::string text;
    std::string expected;
    std::string set = "";  // the set, or its first byte for the char forms
};

const TrimCase kTrimCases[] = {
    {Trim::kRight, std::string("ab \t\n\v\r\0", 8), "ab"},  // a zero byte is white space
    {Trim::kLeft, std::string("\0 \tab ", 6), "ab "},
    {Trim::kRight, "ab\f", "ab\f"},  // a form feed is not
    {Trim::kLeft, "\fab", "\fab"},
    {Trim::kRight, " \t ", ""},
    {Trim::kLeft, " \t ", ""},
    {Trim::kRight, "", ""},
    {Trim::kRight, "a b", "a b"},
    {Trim::kRightSet, "xxabyx", "xxab", "xy"},
    {Trim::kLeftSet, "xyabyx", "abyx", "xy"},
    {Trim::kRightSet, "ab  ", "ab  ", ""},  // an empty set removes nothing
    {Trim::kLeftSet, "xxx", "", "x"},
    {Trim::kRightSet, std::string("ab\0\0", 4), "ab", std::string("\0", 1)},
    {Trim::kRightChar, "000120", "00012", "0"},
    {Trim::kLeftChar, "000120", "120", "0"},
    {Trim::kLeftChar, "abc", "abc", "0"},
};

template <class S>
void ApplyTrim(S& s, const TrimCase& c) {
    const S set = Make<S>(c.set);
    switch (c.op) {
        case Trim::kRight:
            s.TrimRight();
            break;
        case Trim::kLeft:
            s.TrimLeft();
            break;
        case Trim::kRightSet:
            s.TrimRight(set);
            break;
        case Trim::kLeftSet:
            s.TrimLeft(set);
            break;
        case Trim::kRightChar:
            s.TrimRight(set.c_str()[0]);
            break;
        case Trim::kLeftChar:
            s.TrimLeft(set.c_str()[0]);
            break;
    }
}

TYPED_TEST(TextServices, TrimsUseTheLibraryWhiteSpaceSet) {
    for (const TrimCase& c : kTrimCases) {
        SCOPED_TRACE("case " + std::to_string(&c - kTrimCases));
        TypeParam s = Make<TypeParam>(c.text);
        const TypeParam before(s);  // shares the block
        ApplyTrim(s, c);
        EXPECT_EQ(Str(s), c.expected);
        EXPECT_EQ(Str(before), c.text) << "a sharer must keep its content";
        const bool removed = c.expected.size() != c.text.size();
        EXPECT_EQ(s.data() == before.data(), !removed)
            << "unshare when something is removed, and only then";
    }
}

// ---- case ------------------------------------------------------------------------

TYPED_TEST(TextServices, CaseChangeUnsharesAndClipsTheCount) {
    TypeParam s = Make<TypeParam>("Hello, World! 42");
    const TypeParam sharer(s);
    s.ToUpper();
    EXPECT_EQ(Str(s), "HELLO, WORLD! 42");
    EXPECT_EQ(Str(sharer), "Hello, World! 42");
    s.ToLower();
    EXPECT_EQ(Str(s), "hello, world! 42");

    TypeParam part = Make<TypeParam>("abcdef");
    part.ToUpper(0, 3);
    EXPECT_EQ(Str(part), "ABCdef");
    // The position only clips the count; the walk starts at the first element.
    part = Make<TypeParam>("abcdef");
    part.ToUpper(4, 3);
    EXPECT_EQ(Str(part), "ABcdef");
    part.ToUpper(9, 3);
    EXPECT_EQ(Str(part), "ABcdef");
}

TYPED_TEST(TextServices, CaseChangeOfNullLeavesAValidEmptyText) {
    TypeParam s;
    s.ToUpper();
    EXPECT_EQ(s.size(), 0u);
    EXPECT_EQ(s.c_str()[0], 0);
}

// ---- Format --------------------------------------------------------------------------

TEST(TextFormat, FormatsIntoRoomOf256WithoutRetry) {
    stringEx s;
    s.Format("x=%d %s", 5, "ab");
    EXPECT_EQ(Str(s), "x=5 ab");
    EXPECT_EQ(s.capacity(), 256u);

    s.Format("%s", std::string(300, 'a').c_str());
    EXPECT_EQ(Str(s), std::string(255, 'a'));

    s.Format(10, "%s", "abcdefghijkl");
    EXPECT_EQ(Str(s), "abcdefghi");

    stringEx longer(std::string(1000, 'z').c_str());
    longer.Format("%c", 'q');  // replaces longer content
    EXPECT_EQ(Str(longer), "q");
}

TEST(TextFormat, AppendFormatGrowsByTheCount) {
    stringEx s("ab");
    const stringEx sharer(s);
    s.AppendFormat("%d", 12);
    EXPECT_EQ(Str(s), "ab12");
    EXPECT_EQ(Str(sharer), "ab");
    s.AppendFormat(4, "%s", "xyz123");
    EXPECT_EQ(Str(s), "ab12xyz");
    s.AppendFormat("%s", std::string(400, 'b').c_str());
    EXPECT_EQ(Str(s), "ab12xyz" + std::string(255, 'b'));
}

TEST(TextFormat, EmptyOutputLeavesTheLength) {
    stringEx s("keep");
    s.AppendFormat("%s", "");
    EXPECT_EQ(Str(s), "keep");
}

TEST(TextFormat, WideFormUsesWidePrimitives) {
    wstringEx w;
    w.Format(L"%d-%ls", 5, L"ab");
    EXPECT_EQ(Str(w), "5-ab");
    w.AppendFormat(L"%lc", L'z');
    EXPECT_EQ(Str(w), "5-abz");
    // The wide call fails outright on output that does not fit: the length
    // stays, and must never run past the room.
    wstringEx cut;
    cut.Format(4, L"%ls", L"abcdef");
    EXPECT_EQ(cut.size(), 0u);
}

// ---- comparison --------------------------------------------------------------------------

struct CompareCase {
    std::string text, other;
    bool equalsNoCase, startsWith, endsWith, startsWithNoCase, endsWithNoCase;
};

const CompareCase kCompareCases[] = {
    {"Hello", "hello", true, false, false, true, true},
    {"Hello", "Hello", true, true, true, true, true},
    {"Hello", "He", false, true, false, true, false},
    {"Hello", "LO", false, false, false, false, true},
    {"Hello", "", false, true, true, true, true},
    {"", "", true, true, true, true, true},
    {"He", "Hello", false, false, false, false, false},
    {std::string("a\0b", 3), std::string("A\0B", 3), true, false, false, true, true},
    {std::string("a\0b", 3), "a", false, true, false, true, false},
};

TYPED_TEST(TextServices, CompareFamily) {
    for (const CompareCase& c : kCompareCases) {
        SCOPED_TRACE("\"" + c.text + "\" against \"" + c.other + "\"");
        const TypeParam s = Make<TypeParam>(c.text);
        const TypeParam o = Make<TypeParam>(c.other);
        EXPECT_EQ(s.EqualsNoCase(o), c.equalsNoCase);
        EXPECT_EQ(s.StartsWith(o), c.startsWith);
        EXPECT_EQ(s.EndsWith(o), c.endsWith);
        EXPECT_EQ(s.StartsWithNoCase(o), c.startsWithNoCase);
        EXPECT_EQ(s.EndsWithNoCase(o), c.endsWithNoCase);
    }
}

// ---- widening -------------------------------------------------------------------------------

TEST(TextWiden, NarrowKeepsTheLowByteAndWideTakesBytesUnsigned) {
    stringEx narrow("n:");
    narrow.AppendOtherWidth(wstringEx(L"A\u263A\u00E9"));
    EXPECT_EQ(Str(narrow), "n:A\x3A\xE9");
    narrow.AppendOtherWidth(L"!");
    narrow.AppendOtherWidth(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(Str(narrow), "n:A\x3A\xE9!");

    wstringEx wide(L"w:");
    wide.AppendOtherWidth(stringEx("a\xE9"));
    ASSERT_EQ(wide.size(), 4u);
    EXPECT_EQ(wide.c_str()[3], wchar_t(0xE9)) << "no sign extension";
    wide.AppendOtherWidth("z");
    wide.AppendOtherWidth(static_cast<const char*>(nullptr));
    EXPECT_EQ(Str(wide), "w:a\xE9z");

    // The same width is a plain append, also from itself.
    stringEx self("ab");
    self.AppendOtherWidth(self);
    EXPECT_EQ(Str(self), "abab");

    // Long input goes through in pieces.
    wstringEx big;
    big.AppendOtherWidth(stringEx(std::string(1000, 'k').c_str()));
    EXPECT_EQ(Str(big), std::string(1000, 'k'));
}

// ---- hexadecimal text ------------------------------------------------------------------------

struct HexCase {
    std::string bytes;
    std::string separator;
    bool upper;
    std::string expected;
};

const HexCase kHexCases[] = {
    {"\x01\xAB\xFF", ":", true, "01:AB:FF"},
    {"\x01\xAB\xFF", ":", false, "01:ab:ff"},
    {"\x80\x7F", "", true, "807F"},  // high bytes: the shift is unsigned
    {"ab", ", ", true, "61, 62"},
    {std::string("\0", 1), "-", true, "00"},
    {"", ":", true, ""},
};

TEST(TextHex, ToHexTextReplacesAndAppendHexTextAppends) {
    for (const HexCase& c : kHexCases) {
        SCOPED_TRACE("case " + std::to_string(&c - kHexCases));
        const stringEx s = Narrow(c.bytes);
        stringEx out("old");
        s.ToHexText(out, Narrow(c.separator), c.upper);
        EXPECT_EQ(Str(out), c.expected);

        // Only a separator written by this call is taken back.
        stringEx kept("old:");
        s.AppendHexText(kept, Narrow(c.separator), c.upper);
        EXPECT_EQ(Str(kept), "old:" + c.expected);
    }
}

TEST(TextHex, OutputMayBeTheSourceItself) {
    stringEx s("ab");
    s.ToHexText(s, stringEx(":"), true);
    EXPECT_EQ(Str(s), "61:62");
    stringEx t("ab");
    t.AppendHexText(t, stringEx(""), true);
    EXPECT_EQ(Str(t), "ab6162");
}

TEST(TextHex, WideElementsAreTakenBytewiseInMemoryOrder) {
    const wstringEx w(L"A");
    wstringEx out;
    w.ToHexText(out, wstringEx(L" "), true);
    const wchar_t element = L'A';
    const unsigned char* raw = reinterpret_cast<const unsigned char*>(&element);
    std::string expected;
    for (size_t i = 0; i < sizeof(wchar_t); ++i) {
        static const char digits[] = "0123456789ABCDEF";
        if (i) expected += ' ';
        expected += digits[raw[i] >> 4];
        expected += digits[raw[i] & 15];
    }
    EXPECT_EQ(Str(out), expected);
}

// ---- array dump -------------------------------------------------------------------------------

TEST(TextHexArray, TwelveItemsToALineAndNoCommaAfterTheLast) {
    std::string bytes;
    for (int i = 1; i <= 13; ++i)
        bytes += char(i);
    EXPECT_EQ(Str(Narrow(bytes).ToHexArray(stringEx("tbl"), true)),
              "const unsigned char tbl[] = {\n"
              "\t0X01, 0X02, 0X03, 0X04, 0X05, 0X06, 0X07, 0X08, 0X09, 0X0A, 0X0B, 0X0C, \n"
              "\t0X0D\n"
              "};\n");

    bytes.resize(12);
    EXPECT_EQ(Str(Narrow(bytes).ToHexArray(stringEx("t"), false)),
              "unsigned char t[] = {\n"
              "\t0X01, 0X02, 0X03, 0X04, 0X05, 0X06, 0X07, 0X08, 0X09, 0X0A, 0X0B, 0X0C\n"
              "};\n");
}

TEST(TextHexArray, HighBytesEmptyContentAndEmptyName) {
    EXPECT_EQ(Str(Narrow("\x80\xFF").ToHexArray(stringEx("h"), false)),
              "unsigned char h[] = {\n\t0X80, 0XFF\n};\n");
    EXPECT_EQ(Str(stringEx().ToHexArray(stringEx("e"), true)), "const unsigned char e[] = {\n};\n");
    EXPECT_TRUE(Narrow("abc").ToHexArray(stringEx(), true).is_null());
    EXPECT_EQ(Str(wstringEx(L"\u00FF").ToHexArray(Wide("w"), false)).substr(0, 27),
              "unsigned char w[] = {\n\t0XFF");
}

// ---- room requests ------------------------------------------------------------------------------

TEST(TextRoom, ReservationsFollowTheirFormulas) {
    stringEx hex;
    Narrow("abc").ToHexText(hex, stringEx(":"), true);
    EXPECT_EQ(hex.capacity(), (3u + 1) * 1 + 3 * 2 + 2);

    const stringEx name("n");
    const stringEx dump = Narrow("abcdefg").ToHexArray(name, false);
    EXPECT_EQ(dump.capacity(), 1u + 33 + 7 * 6 + 7 / 6);
}

// ---- wildcard match
// ------------------------------------------------------------------------------

struct WildCase {
    std::string text;
    const char* pattern;
    bool expected;
    bool ignoreCase = false;
    uint32_t pos = 0;
    const char* why = "";
};

const WildCase kWildCases[] = {
    {"a.txt", "*.txt", true},
    {"a.txt", "a?txt", true},
    {"a.txt", "*", true},
    {"a.txt", "a.txt*", true, false, 0, "a final star matches the empty rest"},
    {"a.txt", "*.TXT", false},
    {"a.txt", "*.TXT", true, true},
    {"A.TXT", "*.txt", true, true},
    {"", "*", false, false, 0, "an empty text matches nothing"},
    {"abc", "*", false, false, 3, "pos at the end reads as an empty text"},
    {"abc", "", false},
    {"abc", nullptr, false, false, 0, "a null pattern reads as empty"},
    {"abc", "ab", false, false, 0, "the whole text must be used"},
    {"ab", "abc", false},
    {"ab", "ab?", false, false, 0, "? needs an element"},
    {"a", "**a", true, false, 0, "runs of stars fold into one"},
    {"xxa.txt", "a.txt", true, false, 2},
    {"aab", "*ab", true, false, 0, "the last star takes one more element"},
    {"abcabd", "a*bd", true},
    {"mississippi", "m*iss*ppi", true},
    {"mississippi", "m*si*pi", true},
    {"abab", "*ab*ab", true},
    {"aXbXc", "a*b*c", true},
    {"abcbxd", "a*b?d", true},
    {"abcbxe", "a*b?d", false},
    {"ab\x80", "ab?", true},
    {std::string("ab\0cd", 5), "ab", true, false, 0, "a zero element ends the text"},
    {std::string("ab\0cd", 5), "ab?d", false},
    {"a*c", "a\\*c", false, false, 0, "no escape for the wildcard bytes"},
};

TYPED_TEST(TextServices, WildMatchTable) {
    using CharT = typename TypeParam::value_type;
    for (const WildCase& c : kWildCases) {
        SCOPED_TRACE("\"" + c.text + "\" against \"" + (c.pattern ? c.pattern : "(null)") + "\" " +
                     c.why);
        const TypeParam text = Make<TypeParam>(c.text);
        const TypeParam pattern = Make<TypeParam>(c.pattern ? c.pattern : "");
        const CharT* p = c.pattern ? pattern.c_str() : nullptr;
        EXPECT_EQ(text.WildMatch(p, c.pos, '?', '*', c.ignoreCase), c.expected);
    }
}

TEST(TextWildMatch, WildcardBytesAreParameters) {
    const stringEx s("a*c");
    EXPECT_TRUE(s.WildMatch("a%", 0, '.', '%', false));
    EXPECT_TRUE(s.WildMatch("a.c", 0, '.', '%', false));
    EXPECT_TRUE(s.WildMatch("a*c", 0, '.', '%', false)) << "'*' is literal here";
    EXPECT_FALSE(stringEx("abc").WildMatch("a*c", 0, '.', '%', false));
    // The any-run byte is compared exactly, even when case is ignored.
    EXPECT_FALSE(stringEx("xyz").WildMatch("X", 0, '?', 'x', true));
}

TEST(TextWildMatch, ViewOfPartOfABlockEndsAtItsLength) {
    const stringEx owner("abcdef");
    const stringEx part(as_view, owner, 0, 3);
    EXPECT_TRUE(part.WildMatch("abc", 0, '?', '*', false));
    EXPECT_FALSE(part.WildMatch("abcdef", 0, '?', '*', false));
}

// A deliberately simple recursive matcher: test oracle only.
bool ReferenceWildMatch(const char* p, const char* s) {
    if (*p == 0) return *s == 0;
    if (*p == '*') return ReferenceWildMatch(p + 1, s) || (*s != 0 && ReferenceWildMatch(p, s + 1));
    if (*s == 0) return false;
    return (*p == '?' || *p == *s) && ReferenceWildMatch(p + 1, s + 1);
}

TEST(TextWildMatch, AgreesWithTheReferenceOnGeneratedPatterns) {
    std::mt19937 rng(20240611);
    const char patternAlphabet[] = "ab?*";
    const char textAlphabet[] = "ab";
    for (int round = 0; round < 20000; ++round) {
        std::string pattern, text;
        const int patternLength = int(rng() % 7);
        const int textLength = 1 + int(rng() % 8);
        for (int i = 0; i < patternLength; ++i)
            pattern += patternAlphabet[rng() % 4];
        for (int i = 0; i < textLength; ++i)
            text += textAlphabet[rng() % 2];
        ASSERT_EQ(stringEx(text.c_str()).WildMatch(pattern.c_str(), 0, '?', '*', false),
                  ReferenceWildMatch(pattern.c_str(), text.c_str()))
            << "text \"" << text << "\" pattern \"" << pattern << "\"";
    }
}

}  // namespace
