// mendo's four regular-expression switches, run as a user runs them, in
// both strategies: the default memory-expand and the in-place -noexp.
// Piped input comes out with the tool's stray 0xFF behind it, which the
// patterns see too.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "cli/run_mendo.h"

namespace {

using mendo_test::CommandLine;
using mendo_test::Printable;
using mendo_test::RunMendo;
using Args = std::vector<std::string>;

const std::string kFF = "\xFF";

enum Strategies { kBoth, kExpandOnly, kInPlaceOnly };

struct Case {
    const char* name;
    Args args;
    std::string input;
    std::string out;  // without the trailing 0xFF
    Strategies where = kBoth;
    bool exact = false;  // `out` is the whole output, 0xFF included
};

void ExpectPiped(const Case& c) {
    for (bool inPlace : {false, true}) {
        if ((inPlace && c.where == kExpandOnly) || (!inPlace && c.where == kInPlaceOnly)) continue;
        Args args = c.args;
        if (inPlace) args.push_back("-noexp");
        auto r = RunMendo(args, c.input);
        const std::string expected = c.exact ? c.out : c.out + kFF;
        EXPECT_EQ(r.out, expected) << c.name << ": " << CommandLine(args) << "\n--- got\n"
                                   << Printable(r.out);
        EXPECT_EQ(r.err, "") << c.name;
        EXPECT_EQ(r.status, 0) << c.name;
    }
}

TEST(MendoRegex, TheFourSwitches) {
    const Case cases[] = {
        {"-r: extended syntax", {"-r:(ab|cd)+", "-t:<\\0>"}, "xabcdy", "x<abcd>y"},
        {"-r is case-sensitive", {"-r:a", "-t:x"}, "aA", "xA"},
        {"-ric ignores case", {"-ric:a", "-t:x"}, "aA", "xx"},
        {"-r: . stops at a line feed", {"-r:a.b", "-t:x"}, "a\nb ab", "a\nb ab"},
        {"-rnnl: . takes a line feed", {"-rnnl:a.b", "-t:x"}, "a\nb", "x"},
        {"-rnnlic", {"-rnnlic:A.B", "-t:x"}, "a\nb", "x"},
        {"-r: [^x] stops at a line feed", {"-r:a[^x]b", "-t:x"}, "a\nb", "a\nb"},
        {"-r: ^ at every line", {"-r:^", "-t:>"}, "a\nb", ">a\n>b"},
        {"-rnnl: ^ at the start only", {"-rnnl:^", "-t:>"}, "a\nb", ">a\nb"},
        {"-r: $ before each line feed, and at the very end behind the 0xFF",
         {"-r:$", "-t:!"},
         "a\nb",
         "a!\nb" + kFF + "!",
         kBoth,
         true},
        {"-r: leftmost-longest", {"-r:a|ab|abc", "-t:x"}, "abcd", "xd"},
        {"a multi-line match with -rnnl", {"-rnnl:b.*d", "-t:x"}, "ab\nc\nde", "axe"},
    };
    for (const Case& c : cases)
        ExpectPiped(c);
}

TEST(MendoRegex, ReplacementForms) {
    const Case cases[] = {
        {"\\0 is the whole match", {"-r:[0-9]+", "-t:<\\0>"}, "a12b3", "a<12>b<3>"},
        {"groups by number", {"-r:(a)(b)", "-t:\\2\\1"}, "abab", "baba"},
        {"a group past the pattern's vanishes", {"-r:(a)", "-t:[\\2]"}, "a", "[]"},
        {"a group that took no part is empty", {"-r:(a)|b", "-t:[\\1]"}, "ab", "[a][]"},
        {"\\\\1 is a backslash and 1", {"-r:a", "-t:\\\\1"}, "a", "\\1"},
        {"a backslash last vanishes", {"-r:a", "-t:x\\"}, "a", "x"},
        {"\\t becomes a tab", {"-r:a", "-t:\\t"}, "a", "\t"},
        {"\\n becomes a line feed", {"-r:a", "-t:1\\n2"}, "a", "1\n2"},
        {"an unknown escape gives its letter", {"-r:a", "-t:\\q"}, "a", "q"},
        {"-t alone deletes", {"-r:[0-9]", "-t"}, "a1b2", "ab"},
        {"-tu changes the template, not the groups", {"-r:(a)b", "-tu:x\\1"}, "ab", "Xa"},
        {"aliases in the replacement", {"-r:a", "-t:[:nl:]"}, "a", "\n"},
        {"a group past the ninth cannot be named",
         {"-r:(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)", "-t:\\9\\10"},
         "abcdefghij",
         "ia0"},
    };
    for (const Case& c : cases)
        ExpectPiped(c);
}

TEST(MendoRegex, EmptyMatchesAndLineStarts) {
    const Case cases[] = {
        {"x* matches before every byte", {"-r:x*", "-t:-"}, "abc", "-a-b-c-"},
        {"^a deleted over and over stays at a line start", {"-r:^a", "-t"}, "aaa", ""},
        {"the same without newline sensitivity", {"-rnnl:^a", "-t"}, "aaa", ""},
        {"a replacement ending in a line feed starts a line", {"-r:^a", "-t:\\n"}, "aaa", "\n\n\n"},
        {"not without newline sensitivity", {"-rnnl:^a", "-t:\\n"}, "aaa", "\naa"},
        {"a replacement that does not end a line", {"-r:^a", "-t:b"}, "aaa", "baa"},
    };
    for (const Case& c : cases)
        ExpectPiped(c);
}

// The class letters are translated before the engine sees the pattern;
// "***" patterns are not translated and speak for themselves.
TEST(MendoRegex, ClassLettersAndDirectorPrefixes) {
    const Case cases[] = {
        {"\\d is a digit", {"-r:\\d+", "-t:#"}, "a12b", "a#b"},
        {"\\w and \\W (the stray 0xFF is no word byte)",
         {"-r:\\w+\\W", "-t:|"},
         "ab_1 c",
         "||",
         kBoth,
         true},
        {"\\A is not a letter", {"-r:\\A", "-t:_"}, "a1b", "a_b_", kBoth, true},
        {"\\b is a backspace", {"-r:\\b", "-t:B"}, "a\bb", "aBb"},
        {"\\< is neither letter nor underscore", {"-r:\\<", "-t:."}, "a_1", "a_..", kBoth, true},
        {"[\\d] is a bracket of [ and digits, then ]",
         {"-r:[\\d]", "-t:x"},
         "1] 2 [] ]",
         "x 2 x ]"},
        {"\\\\d stays a backslash and d", {"-r:\\\\d", "-t:x"}, "\\dd", "xd"},
        {"***: is the advanced syntax, untranslated", {"-r:***:\\d{2}", "-t:x"}, "1234", "xx"},
        // \A is the start of every search, whatever the line-start decision.
        {"***:\\A is the search start there", {"-r:***:\\Aa", "-t:x"}, "aa", "xx"},
        {"***: non-greedy", {"-r:***:a.*?b", "-t:x"}, "aabab", "xx"},
        {"***: back references", {"-r:***:(.)\\1", "-t:<\\1>"}, "aabcc", "<a>b<c>"},
        {"***: look-ahead", {"-r:***:a(?=b)", "-t:x"}, "acab", "acxb"},
        {"***= is a literal", {"-r:***=a.b", "-t:x"}, "axb a.b", "axb x"},
        {"***:(?n) asks for line starts even under -rnnl",
         {"-rnnl:***:(?n)^b", "-t:x"},
         "a\nb",
         "a\nx"},
        {"***: without (?n) is not newline-sensitive, even under -r",
         {"-r:***:^b", "-t:x"},
         "a\nb",
         "a\nb"},
        {"***:(?i) ignores case", {"-r:***:(?i)A", "-t:x"}, "aA", "xx"},
    };
    for (const Case& c : cases)
        ExpectPiped(c);
}

// An empty match after a replacement: in place, the search goes on one byte
// past the replacement and looks at the source byte it stepped over; the
// expand form looks at the end of its output.
TEST(MendoRegex, StrategiesDifferOnlyWhereTheyAreMeantTo) {
    const Case cases[] = {
        {"expand: the output decides", {"-r:^x*", "-t:\\n"}, "ab", "\na\nb\n", kExpandOnly},
        {"in place: the buffer decides", {"-r:^x*", "-t:\\n"}, "ab", "\nab", kInPlaceOnly},
        {"an invalid pattern empties the output", {"-r:a(", "-t:x"}, "abc", "", kExpandOnly},
        {"an invalid pattern leaves the input", {"-r:a(", "-t:x"}, "abc", "abc", kInPlaceOnly},
    };
    for (const Case& c : cases) {
        if (c.where == kExpandOnly && c.out.empty()) {
            // No output at all, not even the stray byte.
            auto r = RunMendo(c.args, c.input);
            EXPECT_EQ(r.out, "") << c.name;
            EXPECT_EQ(r.status, 0) << c.name;
            continue;
        }
        ExpectPiped(c);
    }
}

TEST(MendoRegex, FilesAreRewrittenInBothStrategies) {
    char name[] = "/tmp/mendo-regex-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string dir = name;
    for (bool inPlace : {false, true}) {
        std::ofstream(dir + "/a.txt", std::ios::binary) << "10.0.0.1 x\n192.168.1.20 y\n";
        std::ofstream(dir + "/b.txt", std::ios::binary) << "no address\n";
        Args args = {"*.txt", "-r:([0-9]+)\\.([0-9]+)\\.([0-9]+)\\.([0-9]+)", "-t:\\4.\\3.\\2.\\1",
                     "-frc"};
        if (inPlace) args.push_back("-noexp");
        auto r = RunMendo(args, "", dir);
        EXPECT_EQ(r.out, "\n## 2 replacements in file: " + dir + "/a.txt\n") << inPlace;
        std::stringstream a, b;
        a << std::ifstream(dir + "/a.txt", std::ios::binary).rdbuf();
        b << std::ifstream(dir + "/b.txt", std::ios::binary).rdbuf();
        EXPECT_EQ(a.str(), "1.0.0.10 x\n20.1.168.192 y\n") << inPlace;
        EXPECT_EQ(b.str(), "no address\n") << inPlace;
    }
    std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
