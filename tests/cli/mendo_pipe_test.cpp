// mendo as a pipe filter, run as a user runs it: argv in, exact bytes out.
//
// Every input on standard input comes out with one extra byte 0xFF behind
// it (the tool's end-of-input read stores it), so the expected outputs here
// end in "\xFF".

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cli/run_mendo.h"

namespace {

using mendo_test::CommandLine;
using mendo_test::Printable;
using mendo_test::RunMendo;
using Args = std::vector<std::string>;

const std::string kFF = "\xFF";

std::string UsageScreen() {
    std::ifstream golden(ORLO_SOURCE_DIR "/tests/cli/usage.golden", std::ios::binary);
    std::stringstream text;
    text << golden.rdbuf();
    return text.str();
}

struct PipeCase {
    const char* name;
    Args args;
    std::string input;
    std::string out;  // "" with usage = true: the usage screen
    bool usage = false;
};

void ExpectRun(const PipeCase& c) {
    auto r = RunMendo(c.args, c.input);
    std::string expected = c.usage ? UsageScreen() : c.out;
    EXPECT_EQ(r.out, expected) << c.name << ": " << CommandLine(c.args) << "\n--- got\n"
                               << Printable(r.out) << "\n--- expected\n"
                               << Printable(expected);
    EXPECT_EQ(r.err, "") << c.name;
    EXPECT_EQ(r.status, 0) << c.name;
}

TEST(MendoUsage, IncompleteCommandLinesShowTheUsageScreen) {
    const PipeCase cases[] = {
        {"no argument at all", {}, "x", "", true},
        {"find without replace switch", {"-f:a"}, "a", "", true},
        {"empty -tu", {"-f:a", "-tu:"}, "a", "", true},
        {"empty -tl", {"-f:a", "-tl:"}, "a", "", true},
        {"empty find text", {"-f:", "-t:b"}, "a", "", true},
        {"-h wins over a complete command", {"-f:a", "-t:b", "-h"}, "a", "", true},
        {"-H is -h", {"-f:a", "-t:b", "-H"}, "a", "", true},
        {"-? asks for the screen", {"-f:a", "-t:b", "-?"}, "a", "", true},
        {"a replace switch but no find switch", {"-t:b"}, "a", "", true},
        {"--f is the switch named -f, unknown", {"--f:a", "-t:b"}, "a", "", true},
        {"/f is a file pattern, not a switch", {"/f:a", "-t:b"}, "a", "", true},
        {"-ue decodes the find text to nothing", {"-f:%", "-t:x", "-ue"}, "a", "", true},
        {"-ue decodes -tu to nothing", {"-f:a", "-tu:%", "-ue"}, "a", "", true},
        {"-t wins over -tu, and is empty", {"-f:a", "-tu:x", "-t"}, "bab", "bb" + kFF},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoUsage, ScreenStartsWithTwoLineFeedsAndNamesTheVersion) {
    auto r = RunMendo({});
    ASSERT_EQ(r.out, UsageScreen());
    EXPECT_EQ(r.out.rfind("\n\n=====", 0), 0u);
    EXPECT_NE(r.out.find("\n      mendo Ver 2.1.7.0424"), std::string::npos);
    EXPECT_NE(r.out.find("More info at:\n    docs/regex.md"), std::string::npos);
}

TEST(MendoPipe, PlainFindAndReplace) {
    const PipeCase cases[] = {
        {"first run of the README", {"-f:teh", "-t:the"}, "teh cat\n", "the cat\n" + kFF},
        {"every match", {"-f:a", "-t:b"}, "banana", "bbnbnb" + kFF},
        {"empty -t deletes", {"-f:a", "-t"}, "banana", "bnn" + kFF},
        {"empty -t: deletes", {"-f:a", "-t:"}, "banana", "bnn" + kFF},
        {"no match: input and the stray byte", {"-f:zz", "-t:y"}, "abc", "abc" + kFF},
        {"empty input: the stray byte alone", {"-f:a", "-t:b"}, "", kFF},
        {"the stray byte is searched too", {"-f:c\xFF", "-t:!"}, "abc", "ab!"},
        {"matches do not overlap", {"-f:aa", "-t:X"}, "aaaaa", "XXa" + kFF},
        {"replacement is not searched again", {"-f:a", "-t:aa"}, "aaa", "aaaaaa" + kFF},
        {"case matters for -f", {"-f:a", "-t:x"}, "aA", "xA" + kFF},
        {"switch names ignore case", {"-F:a", "-T:x"}, "aA", "xA" + kFF},
        {"= is a suffix too", {"-f=a", "-t=b=c"}, "a", "b=c" + kFF},
        {"first suffix wins", {"-f:a:b", "-t:c"}, "a:b", "c" + kFF},
        {"first occurrence gives the value", {"-f:a", "-f:b", "-t:c"}, "ab", "cb" + kFF},
        {"f goes before r whatever the order", {"-r:a", "-f:b", "-t:c"}, "ab", "ac" + kFF},
        {"f goes before fic", {"-fic:a", "-f:b", "-t:c"}, "ab", "ac" + kFF},
        {"unknown switches are ignored", {"-zzz", "-f:a", "-t:b"}, "a", "b" + kFF},
        {"-exp names the default", {"-exp", "-f:a", "-t:b"}, "a", "b" + kFF},
        {"-stdio is accepted", {"-stdio", "-f:a", "-t:b"}, "a", "b" + kFF},
        {"a lone - is free but -stdio wins", {"-stdio", "-", "-f:a", "-t:b"}, "a", "b" + kFF},
        {"-:x counts as a switch", {"-:x", "-f:a", "-t:b"}, "a", "b" + kFF},
        {"aliases are literal in plain find", {"-f:[:nl:]", "-t:x"}, "a[:nl:]b\n", "axb\n" + kFF},
        {"aliases are literal in a plain replacement", {"-f:a", "-t:[:tb:]"}, "a", "[:tb:]" + kFF},
        {"a match may span lines", {"-f:a\nb", "-t:-"}, "a\nb a\nb", "- -" + kFF},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoPipe, CaseBlindFind) {
    const PipeCase cases[] = {
        {"every case", {"-fic:error", "-t:x"}, "Error ERROR error eRRoR", "x x x x" + kFF},
        {"upper-case find text", {"-fic:ERROR", "-t:x"}, "error", "x" + kFF},
        {"bytes above 0x7F compare exactly", {"-fic:\xC9", "-t:x"}, "\xC9\xE9", "x\xE9" + kFF},
        {"digits and punctuation", {"-fic:a-1", "-t:_"}, "A-1 a-1 a_1", "_ _ a_1" + kFF},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoPipe, ReplacementCaseSwitches) {
    const PipeCase cases[] = {
        {"-tu", {"-f:a", "-tu:xYz"}, "a", "XYZ" + kFF},
        {"-tl", {"-f:a", "-tl:XyZ"}, "a", "xyz" + kFF},
        {"-t before -tu", {"-f:a", "-tu:x", "-t:y"}, "a", "y" + kFF},
        {"-tu before -tl", {"-f:a", "-tl:X", "-tu:y"}, "a", "Y" + kFF},
        {"-tu then decode: decoded bytes keep their case",
         {"-f:a", "-tu:%6a", "-ue"},
         "a",
         "j" + kFF},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoPipe, PercentDecodingWithUe) {
    const PipeCase cases[] = {
        {"plus stands for itself", {"-f:a%2Bb", "-t:c", "-ue"}, "a+b", "c" + kFF},
        {"line feed", {"-f:%0a", "-t:%20", "-ue"}, "a\nb", "a b" + kFF},
        {"zero bytes", {"-f:%00", "-t:X", "-ue"}, std::string("a\0b", 3), "aXb" + kFF},
        {"doubled escape", {"-f:100%%", "-t:all", "-ue"}, "100%", "all" + kFF},
        {"no hex check", {"-f:%zz", "-t:0", "-ue"}, std::string("a\0", 2), "a0" + kFF},
        {"without -ue nothing is decoded", {"-f:%41", "-t:x"}, "A%41", "Ax" + kFF},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoPipe, TotalCount) {
    const PipeCase cases[] = {
        {"total line after the output",
         {"-f:a", "-t:b", "-trc"},
         "aXa",
         "bXb" + kFF + "\n## total replaced 2 matchs\n"},
        {"no total line without a match", {"-f:q", "-t:b", "-trc"}, "aXa", "aXa" + kFF},
        {"-frc has no effect on a pipe", {"-f:a", "-t:b", "-frc"}, "a", "b" + kFF},
        {"in place too",
         {"-f:a", "-t:bb", "-trc", "-noexp"},
         "aaa",
         "bbbbbb" + kFF + "\n## total replaced 3 matchs\n"},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

TEST(MendoPipe, UnusableRegexReplacesNothingInEitherStrategy) {
    // A pattern that does not compile: the default strategy prints nothing
    // for the input, -noexp prints it unchanged; neither says a word.
    const PipeCase cases[] = {
        {"default strategy", {"-r:(", "-t:x"}, "abc", ""},
        {"in place", {"-r:(", "-t:x", "-noexp"}, "abc", "abc" + kFF},
        {"no total line", {"-r:(", "-t:x", "-trc"}, "abc", ""},
    };
    for (const auto& c : cases)
        ExpectRun(c);
}

// Both strategies must agree byte for byte, on inputs large enough to cross
// every block boundary of the search and the pipe.
TEST(MendoPipe, StrategiesAgreeOnLargeInput) {
    std::string input;
    uint32_t seed = 12345;
    for (int i = 0; i < 400000; ++i) {
        seed = seed * 1103515245 + 12345;
        const char* words[] = {"ERROR ", "error ", "Err ", "info ", "\n", "ERRORERROR", "E"};
        input += words[(seed >> 16) % 7];
    }
    std::string plain, blind;
    for (size_t pos = 0;;) {
        size_t hit = input.find("ERROR", pos);
        plain += input.substr(pos, hit == std::string::npos ? std::string::npos : hit - pos);
        if (hit == std::string::npos) break;
        plain += "FAILURE";
        pos = hit + 5;
    }
    plain += kFF;
    auto r = RunMendo({"-f:ERROR", "-t:FAILURE"}, input);
    EXPECT_TRUE(r.out == plain) << "expand output differs from the reference";

    const Args variants[] = {
        {"-f:ERROR", "-t:FAILURE"}, {"-f:ERROR", "-t:E"},       {"-f:ERROR", "-t"},
        {"-fic:error", "-t:x"},     {"-fic:err", "-t:WARNING"},
    };
    for (Args args : variants) {
        auto expand = RunMendo(args, input);
        args.push_back("-noexp");
        auto inPlace = RunMendo(args, input);
        EXPECT_GT(expand.out.size(), 0u);
        EXPECT_TRUE(expand.out == inPlace.out) << CommandLine(args);
    }
}

}  // namespace
