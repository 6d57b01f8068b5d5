// Escape expansion, delimited expansion and the markup and JSON escape and
// restore services, for both widths; every row also runs into the source itself.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "orlo/match_cmd.h"
#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::stringEx;
using Orlo::wstringEx;
using text_test::Make;
using text_test::Str;

template <class S>
class TextEscapes : public ::testing::Test {};
using BothWidths = ::testing::Types<stringEx, wstringEx>;
TYPED_TEST_SUITE(TextEscapes, BothWidths);

// Answers by key; a one-letter key is matched against the first element
// behind an escape, a longer one against a whole delimited name. "r" and LOOP
// answer with a reference, to show that inserted text is not scanned again;
// "n" uses no element, so the letter stays; "l" claims five elements; a null
// value stops the expansion.
const std::pair<const char*, const char*> kAnswers[] = {
    {"x", "[X]"},        {"r", "%x"},   {"n", "<n>"},        {"l", "<long>"},   {"s", nullptr},
    {"HOME", "/home/u"}, {"EMPTY", ""}, {"LOOP", "${HOME}"}, {"STOP", nullptr},
};

template <class S>
class ListCmd : public Orlo::IStrMatchCmd<S> {
  public:
    int Match(const S& view, S& out) override {
        const std::string text = Str(view);
        m_length = text[0] == 'n' ? 0 : text[0] == 'l' ? 5 : 1;
        for (const auto& [key, value] : kAnswers) {
            if (key[1] == 0 ? text[0] != key[0] : text != key) continue;
            if (!value) return 2;
            out = Make<S>(value);
            return 1;
        }
        return 0;
    }
    uint32_t MatchLength() override { return m_length; }

  private:
    uint32_t m_length = 1;
};

struct ExpandCase {
    std::string input;
    bool dropDangling, keepDouble;
    std::string expected;
    const char* why = "";
};

const ExpandCase kExpandCases[] = {
    {"%%x", false, true, "%%x", "a kept pair is stepped over whole"},
    {"%%%x", false, false, "%[X]", "a doubled escape collapses"},
    {"%%x", false, false, "%x", "the element behind a collapsed pair is not looked at again"},
    {"a%", true, false, "a", "dangling escape dropped"},
    {"a%", false, false, "a%"},
    {"%x%y%x", false, false, "[X]%y[X]", "an unknown escape stays and the scan goes on"},
    {"%r", false, false, "%x", "inserted text is not scanned again"},
    {"%nq", false, false, "<n>nq", "a match length of 0 replaces the escape alone"},
    {"%lab", false, false, "<long>", "the match length is clipped to the end"},
    {"%x%s%x", false, false, "[X]%s%x", "an answer of 2 stops at once"},
    {"", true, false, ""},
};

TYPED_TEST(TextEscapes, ExpandEscapesTable) {
    for (const ExpandCase& c : kExpandCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        ListCmd<TypeParam> cmd;
        TypeParam s = Make<TypeParam>(c.input);
        const TypeParam sharer(s);
        s.ExpandEscapes('%', cmd, c.dropDangling, c.keepDouble);
        EXPECT_EQ(Str(s), c.expected);
        EXPECT_EQ(Str(sharer), c.input);
    }
}

struct DelimitedCase {
    std::string input;
    bool keepDouble;
    std::string expected;
    const char* why = "";
    std::string open = "${", close = "}";
};

const DelimitedCase kDelimitedCases[] = {
    {"${NOPE}${EMPTY}${HOME}", false, "${NOPE}/home/u", "an unknown name stays"},
    {"${LOOP}", false, "${HOME}", "inserted text is not scanned again"},
    {"$${HOME}", false, "${HOME}", "a doubled first element collapses..."},
    {"$${HOME}", true, "$${HOME}", "... or is kept"},
    {"${HOME} $", true, "/home/u ", "a lone open element at the end is dropped"},
    {"${NOPE} $$ ${HOME", false, "${NOPE} $ ${HOME", "no close: the rest stays"},
    {"no close ${HOME $$", false, "no close ${HOME $$", "nothing behind it is touched"},
    {"${HOME${HOME}", false, "${HOME${HOME}", "the name runs to the first close"},
    {"${HOME}${STOP}${HOME}", false, "/home/u${STOP}${HOME}", "an answer of 2 stops"},
    {"$x ${HOME}", false, "$x /home/u", "a first element without the rest of open"},
    {"${", false, "${", "no room for open and close"},
    {"${}", false, "${}", "an empty name is asked for, and unknown"},
    {"", false, ""},
    {"${HOME}", false, "${HOME}", "empty delimiters copy", "", "}"},
    {"${HOME}", false, "${HOME}", "", "${", ""},
};

TYPED_TEST(TextEscapes, ExpandDelimitedAgreesOnEveryPath) {
    for (const DelimitedCase& c : kDelimitedCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        const TypeParam open = Make<TypeParam>(c.open), close = Make<TypeParam>(c.close);
        ListCmd<TypeParam> cmd;
        TypeParam appended = Make<TypeParam>("pre:"), self = Make<TypeParam>(c.input);
        Make<TypeParam>(c.input).ExpandDelimited(appended, open, close, cmd, c.keepDouble);
        self.ExpandDelimited(self, open, close, cmd, c.keepDouble);
        EXPECT_EQ(Str(appended), "pre:" + c.expected) << "behind existing output";
        EXPECT_EQ(Str(self), c.input + c.expected) << "into itself";

        TypeParam inPlace = Make<TypeParam>(c.input);
        const TypeParam sharer(inPlace);
        inPlace.ExpandDelimitedInPlace(open, close, cmd, c.keepDouble);
        EXPECT_EQ(Str(inPlace), c.expected) << "in place";
        EXPECT_EQ(Str(sharer), c.input) << "a sharer of the in-place string";
    }
}

// Expected html, xml and json results; kSame: the source unchanged.
using Flavoured = std::optional<std::string>;
constexpr std::nullopt_t kSame = std::nullopt;

struct FlavourCase {
    std::string source;
    Flavoured html, xml, json;
    const char* why = "";
};

const FlavourCase kEscapeCases[] = {
    {"a&b<>", "a&amp;b&lt;&gt;", "a&amp;b&lt;&gt;", kSame},
    {"\"'", "&quot;'", "&quot;&apos;", "\\\"'"},
    {"\\\r\n\t", kSame, kSame, "\\\\\\r\\n\t",
     "JSON leaves the tab, though its restorer knows \\t"},
    {std::string("\0&", 2), std::string("\0&amp;", 6), std::string("\0&amp;", 6), kSame},
    {"", kSame, kSame, kSame},
};

const FlavourCase kRestoreCases[] = {
    {"a&lt;b&quot;&gt;&amp;", "a<b\">&", "a<b\">&", kSame},
    {"a&bogus;b&#65;", kSame, kSame, kSame, "unknown names and numeric references stay"},
    {"a&lt", kSame, kSame, kSame, "no close"},
    {"&apos;", kSame, "'", kSame, "only XML knows apos"},
    {"&AMP;&ampx;", kSame, kSame, kSame, "names are case-sensitive and compared whole"},
    {"&&", kSame, kSame, kSame, "a doubled & is kept"},
    {"a&", "a", "a", kSame, "a & at the very end is lost"},
    {"&amp;lt;", "&lt;", "&lt;", kSame, "restored text is not restored again"},
    {"a\\tb\\n\\r\\\"", kSame, kSame, "a\tb\n\r\""},
    {"a\\", kSame, kSame, "a", "a backslash at the end is dropped"},
    {"\\\\n", kSame, kSame, "\\n", "a doubled backslash gives one, and the n stays"},
    {"\\u0041\\/", kSame, kSame, kSame, "neither \\u nor \\/ is understood"},
};

template <class S>
using AppendTo = void (S::*)(typename S::buffer_type&) const;

// Runs every row through the three services, behind output that already holds
// escapes (which are not this call's business) and into the source itself.
template <class S>
void CheckFlavours(const auto& cases, const AppendTo<S> (&services)[3]) {
    for (const FlavourCase& c : cases) {
        SCOPED_TRACE("\"" + c.source + "\" " + c.why);
        const Flavoured expected[] = {c.html, c.xml, c.json};
        for (int i = 0; i < 3; ++i) {
            const std::string want = expected[i].value_or(c.source);
            const S source = Make<S>(c.source);
            S out = Make<S>("&lt;\\n:"), self = source;
            (source.*services[i])(out);
            (self.*services[i])(self);
            EXPECT_EQ(Str(out), "&lt;\\n:" + want) << "service " << i;
            EXPECT_EQ(Str(self), c.source + want) << "service " << i << " into itself";
        }
    }
}

TYPED_TEST(TextEscapes, EscapeAndRestoreTables) {
    using S = TypeParam;
    CheckFlavours<S>(kEscapeCases, {&S::html_escape_append_to, &S::xml_escape_append_to,
                                    &S::json_escape_append_to});
    CheckFlavours<S>(kRestoreCases, {&S::html_restore_append_to, &S::xml_restore_append_to,
                                     &S::json_restore_append_to});
}

}  // namespace
