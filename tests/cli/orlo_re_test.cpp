// orlo-re end to end: each option reaches the engine as the flag it names
// (seen through what matches), spans and groups print in their fixed form,
// and compile errors, --about, -W and command-line mistakes give their
// lines and exit statuses.

#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/run_mendo.h"

namespace {

using mendo_test::CommandLine;
using mendo_test::Printable;
using mendo_test::RunProgram;

const char kUsageLine[] =
    "usage: orlo-re [-b|-e|-a|-q] [-i] [-n] [-p] [-w] [-x] [-B] [-E] [-W] [--about] PATTERN "
    "[SUBJECT ...]\n";

struct Row {
    std::vector<std::string> args;
    std::string out;
};

// Each row must print exactly its output, nothing on standard error, and
// end with `status`.
void ExpectRows(const std::vector<Row>& rows, int status) {
    for (const Row& row : rows) {
        SCOPED_TRACE(CommandLine(row.args, "orlo-re"));
        const auto r = RunProgram(ORLO_RE_BINARY, row.args);
        EXPECT_EQ(Printable(r.out), Printable(row.out));
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, status);
    }
}

TEST(OrloRe, OptionsReachTheEngineAsTheirFlags) {
    const std::string lines = "a\nb";
    ExpectRows({{{"-i", "abc", "xABC"}, "1,4\n"},
                {{"-b", "\\(a\\)b+", "ab+"}, "0,3 0,1\n"},
                {{"-e", "\\(a\\)b+", "(a)bb"}, "0,5\n"},
                {{"-e", "\\d", "d1"}, "0,1\n"},
                {{"\\d", "d1"}, "1,2\n"},
                {{"-e", "-a", "\\d", "d1"}, "1,2\n"},
                {{"-be", "\\(a\\)", "(a)"}, "0,3\n"},
                {{"-q", "a.c", "abc", "xa.c"}, "nomatch\n1,4\n"},
                {{"-x", "a b # c", "ab a b"}, "0,2\n"},
                {{"a.b", lines}, "0,3\n"},
                {{"-p", "a.b", lines}, "nomatch\n"},
                {{"-p", "[^x]b", lines}, "nomatch\n"},
                {{"^b", lines}, "nomatch\n"},
                {{"-w", "^b", lines}, "2,3\n"},
                {{"-n", "a.b|^b", lines}, "2,3\n"},
                {{"-B", "^a", "aa"}, "nomatch\n"},
                {{"-Bw", "^a", "a\na"}, "2,3\n"},
                {{"-E", "a$", "aa"}, "nomatch\n"},
                {{"-Ew", "a$", "a\na"}, "0,1\n"},
                {{"a"}, ""},
                {{"--", "-a", "x-a"}, "1,3\n"},
                {{"a", "-a", "", "--about"}, "1,2\nnomatch\n2,3\n"}},
               0);
}

TEST(OrloRe, EveryGroupPrintsAndAbsentGroupsAreMinusOne) {
    ExpectRows({{{"(a)|b", "b"}, "0,1 -1,-1\n"},
                {{"(a)|(b)", "b"}, "0,1 -1,-1 0,1\n"},
                {{"(a*)b", "b"}, "0,1 0,0\n"},
                {{"((a)b)?c", "c", "abc"}, "0,1 -1,-1 -1,-1\n0,3 0,2 0,1\n"},
                {{"(a|b)*c", "abc"}, "0,3 1,2\n"},
                {{"a|ab", "xab"}, "1,3\n"},
                {{"b*", "abb"}, "0,0\n"},
                {{"(a+)\\1", "aaaa", "ab"}, "0,4 0,2\nnomatch\n"},
                {{"(a|ab)(c|bcd)(d*)", "abcd"}, "0,4 0,2 2,3 3,4\n"}},
               0);
}

TEST(OrloRe, AboutPrintsGroupCountAndPropertiesFirst) {
    ExpectRows({{{"--about", "a"}, "nsub 0\ninfo\n"},
                {{"--about", "(a)\\1"}, "nsub 1\ninfo REG_UBACKREF REG_UNONPOSIX\n"},
                {{"-b", "--about", "\\(a\\)\\(b\\)\\2", "abb"},
                 "nsub 2\ninfo REG_UBACKREF\n0,3 0,1 1,2\n"}},
               0);
}

TEST(OrloRe, APatternThatDoesNotCompileIsNamedWithStatusTwo) {
    ExpectRows({{{"[a", "a", "b"}, "error REG_EBRACK\n"},
                {{"--about", "(a"}, "error REG_EPAREN\n"},
                {{"(a)\\2"}, "error REG_ESUBREG\n"},
                {{"(?z)a"}, "error REG_BADOPT\n"},
                {{"-qx", "a"}, "error REG_INVARG\n"}},
               2);
}

TEST(OrloRe, WideOffsetsCountCharacters) {
    ExpectRows(
        {{{"-W", "[é]+", "aéé"}, "1,3\n"},
         {{"[é]+", "aéé"}, "1,5\n"},
         {{"-W", "b", "ééb"}, "2,3\n"},
         {{"-W", "(.)(.)$", "a€😀"}, "1,3 1,2 2,3\n"},
         {{"-W", "-i", "É", "xé"}, "1,2\n"},
         // U+0800, U+FFFF and U+10FFFF: the edges of the longer forms.
         {{"-W", "^.$", "\xE0\xA0\x80", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"}, "0,1\n0,1\n0,1\n"},
         {{".", "\xFF"}, "0,1\n"}},
        0);
}

TEST(OrloRe, UsageErrorsGoToStandardErrorWithStatusOne) {
    const std::vector<std::vector<std::string>> commands = {
        {},
        {"-i"},
        {"--"},
        {"-iz", "a"},
        {"--bogus", "a"},
        {"-W", "\xFF"},
        {"-W", "a", "ok", "\xC3"},         // truncated at the end
        {"-W", "a", "\xE2\x82x"},          // truncated by a non-continuation byte
        {"-W", "a", "\xC0\xAF"},           // overlong
        {"-W", "a", "\xE0\x9F\xBF"},       // overlong
        {"-W", "a", "\xED\xA0\x80"},       // surrogate
        {"-W", "a", "\xF4\x90\x80\x80"}};  // above U+10FFFF
    for (const auto& args : commands) {
        SCOPED_TRACE(CommandLine(args, "orlo-re"));
        const auto r = RunProgram(ORLO_RE_BINARY, args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, 1);
        const size_t firstEnd = r.err.find('\n');
        ASSERT_NE(firstEnd, std::string::npos) << Printable(r.err);
        EXPECT_EQ(r.err.rfind("orlo-re: ", 0), 0u) << Printable(r.err);
        EXPECT_EQ(r.err.substr(firstEnd + 1), kUsageLine);
    }
}

TEST(OrloRe, UnwritableOutputIsStatusOne) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    const auto r = RunProgram(
        "/bin/sh", {"-c", "exec \"$0\" \"$@\" >/dev/full", ORLO_RE_BINARY, "a", "a", "b"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("orlo-re: ", 0), 0u) << Printable(r.err);
}

}  // namespace
