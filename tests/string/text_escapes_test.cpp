// Escape expansion, delimited expansion and the markup and JSON escape and
// restore services, for both widths. The delimited expansion is swept across
// its four paths (fresh output, output with content, output that is the
// source itself, in place), which must agree on every row.

#include <gtest/gtest.h>

#include <random>
#include <string>

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

// ---- ExpandEscapes -------------------------------------------------------------

// One-letter escapes: x -> "[X]"; r -> "%x", to show that inserted text is
// not scanned again; n -> "<n>" using no element, so the letter stays; L ->
// "<long>" claiming five elements; s -> stop; anything else: no match.
template <class S>
class LetterCmd : public Orlo::IStrMatchCmd<S> {
  public:
    int Match(const S& view, S& out) override {
        m_length = 1;
        switch (view.c_str()[0]) {
            case 'x':
                out = Make<S>("[X]");
                return 1;
            case 'r':
                out = Make<S>("%x");
                return 1;
            case 'n':
                out = Make<S>("<n>");
                m_length = 0;
                return 1;
            case 'L':
                out = Make<S>("<long>");
                m_length = 5;
                return 1;
            case 's':
                return 2;
            default:
                return 0;
        }
    }
    uint32_t MatchLength() override { return m_length; }

  private:
    uint32_t m_length = 1;
};

struct EscapeCase {
    std::string input;
    bool dropDangling;
    bool keepDouble;
    std::string expected;
    const char* why = "";
};

const EscapeCase kEscapeCases[] = {
    {"100%%", false, false, "100%", "a doubled escape collapses"},
    {"100%%", false, true, "100%%"},
    {"%%x", false, false, "%x", "the element behind a collapsed pair is not looked at again"},
    {"%%%x", false, false, "%[X]"},
    {"a%", true, false, "a", "dangling escape dropped"},
    {"a%", false, false, "a%"},
    {"%x%y%x", false, false, "[X]%y[X]", "an unknown escape stays and the scan goes on"},
    {"%r", false, false, "%x", "inserted text is not scanned again"},
    {"%nq", false, false, "<n>nq", "a match length of 0 replaces the escape alone"},
    {"%Lab", false, false, "<long>", "the match length is clipped to the end"},
    {"%x%s%x", false, false, "[X]%s%x", "an answer of 2 stops at once"},
    {"", true, false, ""},
    {"plain", true, false, "plain"},
};

TYPED_TEST(TextEscapes, ExpandEscapesTable) {
    for (const EscapeCase& c : kEscapeCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        LetterCmd<TypeParam> cmd;
        TypeParam s = Make<TypeParam>(c.input);
        const TypeParam sharer(s);
        s.ExpandEscapes('%', cmd, c.dropDangling, c.keepDouble);
        EXPECT_EQ(Str(s), c.expected);
        EXPECT_EQ(Str(sharer), c.input);
    }
}

// ---- ExpandDelimited ---------------------------------------------------------------

// Names: HOME, EMPTY, LOOP (whose value is itself a reference), STOP.
template <class S>
class NameCmd : public Orlo::IStrMatchCmd<S> {
  public:
    int Match(const S& name, S& out) override {
        const std::string n = Str(name);
        if (n == "HOME") return Answer(out, "/home/u");
        if (n == "EMPTY") return Answer(out, "");
        if (n == "LOOP") return Answer(out, "${HOME}");
        if (n == "STOP") return 2;
        return 0;
    }

  private:
    static int Answer(S& out, const char* value) {
        out = Make<S>(value);
        return 1;
    }
};

struct DelimitedCase {
    std::string input;
    bool keepDouble;
    std::string expected;
    const char* why = "";
};

const DelimitedCase kDelimitedCases[] = {
    {"x ${HOME} y", false, "x /home/u y"},
    {"${HOME}${HOME}", false, "/home/u/home/u"},
    {"${NOPE}", false, "${NOPE}", "an unknown name stays"},
    {"${NOPE}${HOME}", false, "${NOPE}/home/u"},
    {"${EMPTY}z", false, "z"},
    {"${LOOP}", false, "${HOME}", "inserted text is not scanned again"},
    {"$${HOME}", false, "${HOME}", "a doubled first element collapses..."},
    {"$${HOME}", true, "$${HOME}", "... or is kept"},
    {"a$$", false, "a$"},
    {"a$", false, "a", "a lone open element at the end is dropped"},
    {"${HOME} $", true, "/home/u "},
    {"$", false, ""},
    {"${HOME", false, "${HOME", "no close: the rest stays"},
    {"${NOPE} $$ ${HOME", false, "${NOPE} $ ${HOME"},
    {"no close ${HOME $$", false, "no close ${HOME $$",
     "nothing behind a missing close is touched"},
    {"${HOME${HOME}", false, "${HOME${HOME}", "the name runs to the first close"},
    {"${HOME}${STOP}${HOME}", false, "/home/u${STOP}${HOME}", "an answer of 2 stops"},
    {"$x ${HOME}", false, "$x /home/u", "a first element without the rest of open"},
    {"$}", false, "$}"},
    {"${", false, "${", "no room for open and close"},
    {"${}", false, "${}", "an empty name is asked for, and unknown"},
    {"${HOME}}", false, "/home/u}"},
    {"", false, ""},
};

template <class S>
void CheckDelimitedPaths(const DelimitedCase& c) {
    const S open = Make<S>("${");
    const S close = Make<S>("}");
    NameCmd<S> cmd;
    const S source = Make<S>(c.input);

    S fresh;
    source.ExpandDelimited(fresh, open, close, cmd, c.keepDouble);
    EXPECT_EQ(Str(fresh), c.expected) << "into a fresh output";

    S appended = Make<S>("pre:");
    source.ExpandDelimited(appended, open, close, cmd, c.keepDouble);
    EXPECT_EQ(Str(appended), "pre:" + c.expected) << "behind existing output";

    S self = Make<S>(c.input);
    self.ExpandDelimited(self, open, close, cmd, c.keepDouble);
    EXPECT_EQ(Str(self), c.input + c.expected) << "into itself";

    S inPlace = Make<S>(c.input);
    const S sharer(inPlace);
    inPlace.ExpandDelimitedInPlace(open, close, cmd, c.keepDouble);
    EXPECT_EQ(Str(inPlace), c.expected) << "in place";
    EXPECT_EQ(Str(sharer), c.input) << "a sharer of the in-place string";
}

TYPED_TEST(TextEscapes, ExpandDelimitedAgreesOnEveryPath) {
    for (const DelimitedCase& c : kDelimitedCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        CheckDelimitedPaths<TypeParam>(c);
    }
}

TYPED_TEST(TextEscapes, ExpandDelimitedWithEmptyDelimitersCopies) {
    NameCmd<TypeParam> cmd;
    const TypeParam source = Make<TypeParam>("${HOME}");
    TypeParam out;
    source.ExpandDelimited(out, TypeParam(), Make<TypeParam>("}"), cmd, false);
    source.ExpandDelimited(out, Make<TypeParam>("${"), TypeParam(), cmd, false);
    EXPECT_EQ(Str(out), "${HOME}${HOME}");
    TypeParam inPlace = source;
    inPlace.ExpandDelimitedInPlace(TypeParam(), Make<TypeParam>("}"), cmd, false);
    EXPECT_EQ(Str(inPlace), "${HOME}");
}

TEST(TextEscapesOther, ExpandDelimitedReservesTheEstimate) {
    NameCmd<stringEx> cmd;
    const stringEx source("abcdefgh ${NOPE}");  // 16 bytes
    stringEx out;
    source.ExpandDelimited(out, stringEx("${"), stringEx("}"), cmd, false);
    EXPECT_EQ(out.capacity(), 16u + 0 + 1 + (16 >> 3));
}

// ---- escape tables -------------------------------------------------------------------

struct TableCase {
    std::string source, html, xml, json;
};

const TableCase kEscapeTable[] = {
    {"a&b", "a&amp;b", "a&amp;b", "a&b"},
    {"<>", "&lt;&gt;", "&lt;&gt;", "<>"},
    {"\"", "&quot;", "&quot;", "\\\""},
    {"'", "'", "&apos;", "'"},
    {"\\", "\\", "\\", "\\\\"},
    {"\r\n", "\r\n", "\r\n", "\\r\\n"},
    {"\t", "\t", "\t", "\t"},  // JSON leaves the tab, though its restorer knows \t
    {"plain", "plain", "plain", "plain"},
    {std::string("\0&", 2), std::string("\0&amp;", 6), std::string("\0&amp;", 6),
     std::string("\0&", 2)},
    {"", "", "", ""},
};

TYPED_TEST(TextEscapes, EscapeTablesAppendToTheOutput) {
    for (const TableCase& c : kEscapeTable) {
        SCOPED_TRACE("case " + std::to_string(&c - kEscapeTable));
        const TypeParam s = Make<TypeParam>(c.source);
        TypeParam html = Make<TypeParam>("pre"), xml = Make<TypeParam>("pre"),
                  json = Make<TypeParam>("pre");
        s.html_escape_append_to(html);
        s.xml_escape_append_to(xml);
        s.json_escape_append_to(json);
        EXPECT_EQ(Str(html), "pre" + c.html);
        EXPECT_EQ(Str(xml), "pre" + c.xml);
        EXPECT_EQ(Str(json), "pre" + c.json);
    }
}

TEST(TextEscapesOther, EscapeReservations) {
    const stringEx plain("0123456789abcdef");  // nothing to escape: no growth
    stringEx html("pre"), json("pre");
    plain.html_escape_append_to(html);
    plain.json_escape_append_to(json);
    EXPECT_EQ(html.capacity(), 16u + 3 + 1);
    EXPECT_EQ(json.capacity(), 16u + 3 + 1 + (16 >> 3));
}

TEST(TextEscapesOther, EscapeIntoTheSourceItself) {
    stringEx s("<a>");
    s.html_escape_append_to(s);
    EXPECT_EQ(Str(s), "<a>&lt;a&gt;");
    stringEx r("&lt;");
    r.html_restore_append_to(r);
    EXPECT_EQ(Str(r), "&lt;<");
    stringEx j("\\n");
    j.json_restore_append_to(j);
    EXPECT_EQ(Str(j), "\\n\n");
}

// ---- restore -----------------------------------------------------------------------------

struct MarkupRestoreCase {
    std::string source, html, xml;
    const char* why = "";
};

const MarkupRestoreCase kMarkupRestore[] = {
    {"a&lt;b", "a<b", "a<b"},
    {"&quot;&gt;&amp;", "\">&", "\">&"},
    {"a&bogus;b", "a&bogus;b", "a&bogus;b", "an unknown name stays"},
    {"a&lt", "a&lt", "a&lt", "no close"},
    {"&apos;", "&apos;", "'", "only XML knows apos"},
    {"&#65;", "&#65;", "&#65;", "no numeric references"},
    {"&AMP;", "&AMP;", "&AMP;", "names are case-sensitive"},
    {"&ampx;", "&ampx;", "&ampx;", "names are compared whole"},
    {"&&", "&&", "&&", "a doubled & is kept"},
    {"a&", "a", "a", "a & at the very end is lost"},
    {"&amp;lt;", "&lt;", "&lt;", "restored text is not restored again"},
    {"&lt;&lt", "<&lt", "<&lt"},
};

TYPED_TEST(TextEscapes, MarkupRestore) {
    for (const MarkupRestoreCase& c : kMarkupRestore) {
        SCOPED_TRACE("\"" + c.source + "\" " + c.why);
        const TypeParam s = Make<TypeParam>(c.source);
        TypeParam html = Make<TypeParam>(">"), xml = Make<TypeParam>(">");
        s.html_restore_append_to(html);
        s.xml_restore_append_to(xml);
        EXPECT_EQ(Str(html), ">" + c.html);
        EXPECT_EQ(Str(xml), ">" + c.xml);
    }
}

struct JsonRestoreCase {
    std::string source, expected;
    const char* why = "";
};

const JsonRestoreCase kJsonRestore[] = {
    {"a\\tb", "a\tb"},
    {"\\n\\r\\\"", "\n\r\""},
    {"a\\", "a", "a backslash at the end is dropped"},
    {"\\\\n", "\\n", "a doubled backslash gives one, and the n stays"},
    {"\\u0041", "\\u0041", "\\u is not understood"},
    {"\\/", "\\/"},
    {"plain", "plain"},
};

TYPED_TEST(TextEscapes, JsonRestore) {
    for (const JsonRestoreCase& c : kJsonRestore) {
        SCOPED_TRACE("\"" + c.source + "\" " + c.why);
        const TypeParam s = Make<TypeParam>(c.source);
        // Escapes already in the output are not the business of this call.
        TypeParam out = Make<TypeParam>("\\n:");
        s.json_restore_append_to(out);
        EXPECT_EQ(Str(out), "\\n:" + c.expected);
    }
}

TYPED_TEST(TextEscapes, RestoreUndoesEscapeOnGeneratedTexts) {
    std::mt19937 rng(7321);
    const char alphabet[] = "a&<>\"'\\\r\n\t;#lt";
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        const int length = int(rng() % 12);
        for (int i = 0; i < length; ++i)
            text += alphabet[rng() % (sizeof(alphabet) - 1)];
        const TypeParam source = Make<TypeParam>(text);

        TypeParam escaped, restored;
        source.html_escape_append_to(escaped);
        escaped.html_restore_append_to(restored);
        ASSERT_EQ(Str(restored), text) << "html, via \"" << Str(escaped) << "\"";

        escaped = TypeParam();
        restored = TypeParam();
        source.xml_escape_append_to(escaped);
        escaped.xml_restore_append_to(restored);
        ASSERT_EQ(Str(restored), text) << "xml, via \"" << Str(escaped) << "\"";

        escaped = TypeParam();
        restored = TypeParam();
        source.json_escape_append_to(escaped);
        escaped.json_restore_append_to(restored);
        ASSERT_EQ(Str(restored), text) << "json, via \"" << Str(escaped) << "\"";
    }
}

}  // namespace
