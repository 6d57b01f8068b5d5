// The option store: how single words become records, how command text is
// split into words, and the lookups over a parsed table.

#include "cmdline.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace Orlo {
namespace {

// ---- one word -------------------------------------------------------------------

enum Kind { kSwitch, kFree, kNameless };  // kNameless: counted as a switch, yet free

struct WordCase {
    std::string word;
    std::string name = {};
    std::string value = {};
    Kind kind = kSwitch;
    const char* prefixes = "-/";
    const char* suffixes = ":=";
    const char* why = "";
};

TEST(CmdLineWord, Records) {
    const WordCase cases[] = {
        {.word = "-f:a=b", .name = "f", .value = "a=b"},
        {.word = "-r=a:b", .name = "r", .value = "a:b", .why = "the first suffix byte wins"},
        {.word = "-f:", .name = "f", .why = "same record as -f"},
        {.word = "-f", .name = "f"},
        {.word = "/t:x", .name = "t", .value = "x"},
        {.word = "--x", .name = "-x", .why = "the prefix is one byte"},
        {.word = "-:x", .value = "x", .kind = kNameless, .why = "no name can find it"},
        {.word = "-", .kind = kFree, .why = "a lone prefix is free"},
        {.word = "", .kind = kFree},
        {.word = "a-b", .kind = kFree, .why = "a prefix only counts in the first place"},
        {.word = "-f:a", .name = "f:a", .suffixes = "", .why = "the name runs to the end"},
        {.word = "-f:a", .kind = kFree, .prefixes = "", .why = "without prefixes"},
        {.word = "-a-b", .name = "a", .value = "b", .prefixes = "-", .suffixes = "-:"},
    };
    for (const WordCase& c : cases) {
        SCOPED_TRACE("word |" + c.word + "| prefixes |" + c.prefixes + "| " + c.why);
        CCmdLine cmd(c.prefixes, c.suffixes, 1);
        const char* argv[] = {"-prog", c.word.c_str()};
        ASSERT_TRUE(cmd.Init(2, argv));
        EXPECT_EQ(cmd.args[1].name.view(), c.name);
        EXPECT_EQ(cmd.args[1].value.view(), c.value);
        EXPECT_EQ(cmd.switchCount, c.kind == kFree ? 0u : 1u);
        EXPECT_EQ(cmd.IsFreeArg(1), c.kind != kSwitch);
        EXPECT_EQ(cmd.IsSwitch(1), c.kind == kSwitch);
        EXPECT_TRUE(cmd.args[0].name.empty()) << "the skipped word is never parsed";
    }
}

// ---- command text ------------------------------------------------------------------

struct TextCase {
    std::string text;
    bool env = false;  // expand the environment
    std::vector<std::string> words = {};
    uint32_t switches = 0;
    const char* why = "";
};

TEST(CmdLineText, Splitting) {
    ASSERT_EQ(setenv("MENDO_V", "val", 1), 0);
    unsetenv("MENDO_U");
    const TextCase cases[] = {
        {.text = "", .words = {}},
        {.text = R"("")", .words = {}, .why = "an empty word is not stored"},
        {.text = R"('' x "")", .words = {"x"}},
        {.text = "  a  b\t c ", .words = {"a", "b\t", "c"}, .why = "only the blank separates"},
        {.text = R"(a"b c"d 'say "hi"')", .words = {"ab cd", R"(say "hi")"}},
        {.text = R"(a\ b "a\ b")", .words = {"a b", R"(a\ b)"}, .why = "escaped blank"},
        {.text = R"(\"q\" 'it\'s' a\\b)", .words = {R"("q")", "it's", R"(a\b)"}},
        {.text = R"(a\nb "\d" end\)", .words = {R"(a\nb)", R"(\d)", R"(end\)"}},
        {.text = R"(x "open 'word)", .words = {"x", "open 'word"}, .why = "closed at the end"},
        {.text = R"(-r:"(ab)+c" -t:"[\1]")", .words = {"-r:(ab)+c", R"(-t:[\1])"}, .switches = 2},
        {.text = "x$MENDO_V ${MENDO_V}y <$MENDO_U>", .env = true, .words = {"xval", "valy", "<>"}},
        {.text = R"("$MENDO_V" a'$MENDO_V'b)", .env = true, .words = {"val", "a$MENDO_Vb"}},
        {.text = "$ $1 ${MENDO_V ${}", .env = true, .words = {"$", "$1", "${MENDO_V", "${}"}},
        {.text = "$MENDO_V", .words = {"$MENDO_V"}, .why = "expansion is off"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE("text |" + c.text + "| " + c.why);
        CCmdLine cmd("-", ":", 0);
        EXPECT_EQ(cmd.ParseText(stringEx(c.text.c_str()), c.env), !c.words.empty());
        std::vector<std::string> words;
        for (const CCmdArg& arg : cmd.args)
            words.emplace_back(arg.raw.view());
        EXPECT_EQ(words, c.words);
        EXPECT_EQ(cmd.switchCount, c.switches) << "the words are parsed";
    }
}

// ---- lookups -----------------------------------------------------------------------

TEST(CmdLineLookup, SwitchesFreeWordsAndIndexes) {
    CCmdLine cmd("-", ":", 1);
    const char* argv[] = {"-prog",  "-s",    "file1", "-S", "-r:one",
                          "-R:two", "file2", "-:x",   "-",  "-FIC"};
    ASSERT_TRUE(cmd.Init(10, argv));
    struct {
        const char* name;
        uint32_t nth, any, exact;  // any: FindSwitch, exact: FindSwitchCase
    } const cases[] = {
        {"s", 0, 1, 1},        {"s", 1, 3, npos},   {"S", 0, 1, 3},          {"s", 2, npos, npos},
        {"r", 1, 5, npos},     {"R", 0, 4, 5},      {"fic", 0, 9, npos},     {"FIC", 0, 9, 9},
        {"ss", 0, npos, npos}, {"", 0, npos, npos}, {"prog", 0, npos, npos},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " nth " + std::to_string(c.nth));
        EXPECT_EQ(cmd.FindSwitch(c.name, c.nth), c.any);
        EXPECT_EQ(cmd.FindSwitchCase(c.name, c.nth), c.exact);
        EXPECT_EQ(cmd.GetValue(c.name, c.nth).view(), cmd.ValueAt(c.any).view());
        EXPECT_EQ(cmd.GetValueCase(c.name, c.nth).view(), cmd.ValueAt(c.exact).view());
    }
    EXPECT_EQ(cmd.ValueAt(4).view(), "one");
    EXPECT_EQ(cmd.ValueAt(5).view(), "two");
    EXPECT_EQ(cmd.CountSwitch("s"), 2u);
    EXPECT_EQ(cmd.CountSwitchCase("S"), 1u);
    EXPECT_EQ(cmd.CountSwitch(""), 0u);
    EXPECT_EQ(cmd.CountSwitch("prog"), 0u);

    // "-:x" was counted as a switch, yet GetFreeArg reaches it.
    EXPECT_EQ(cmd.switchCount, 6u);
    const char* expected[] = {"file1", "file2", "-:x", "-", ""};
    for (uint32_t i = 0; i < 5; ++i)
        EXPECT_EQ(cmd.GetFreeArg(i).view(), expected[i]) << i;
    EXPECT_TRUE(cmd.GetFreeArg(npos).empty());
    for (uint32_t outside : {0u, 10u, npos}) {  // skipped, past the end
        EXPECT_FALSE(cmd.IsSwitch(outside) || cmd.IsFreeArg(outside)) << outside;
        EXPECT_TRUE(cmd.NameAt(outside).empty() && cmd.ValueAt(outside).empty()) << outside;
    }
    EXPECT_EQ(cmd.NameAt(4).view(), "r");
    std::vector<CCmdArg> out(1);
    EXPECT_EQ(cmd.GetAll(out), 9u) << "appends from skip on";
    ASSERT_EQ(out.size(), 10u);
    EXPECT_EQ(out[1].raw.view(), "-s");
}

// ---- parsing again ----------------------------------------------------------------

TEST(CmdLineReparse, SkipAndDelimiters) {
    CCmdLine cmd("-", ":", 0);
    const char* argv[] = {"-a", "-b:1", "c"};
    ASSERT_TRUE(cmd.Init(3, argv));

    ASSERT_TRUE(cmd.SetSkip(1));
    EXPECT_TRUE(cmd.args[0].name.empty()) << "a skipped word keeps no stale name";
    EXPECT_EQ(cmd.switchCount, 1u);

    ASSERT_TRUE(cmd.SetDelimiters("+", ":"));
    EXPECT_EQ(cmd.switchCount, 0u);
    EXPECT_EQ(cmd.GetFreeArg(0).view(), "-b:1");

    ASSERT_TRUE(cmd.SetDelimiters("-", "", 0));
    EXPECT_EQ(cmd.NameAt(1).view(), "b:1");
    EXPECT_EQ(cmd.switchCount, 2u);

    ASSERT_TRUE(cmd.SetSkip(7));
    EXPECT_EQ(cmd.switchCount, 0u);
    EXPECT_TRUE(cmd.GetFreeArg(0).empty());

    ASSERT_TRUE(cmd.Init(1, argv)) << "Init replaces the table";
    EXPECT_EQ(cmd.args.size(), 1u);
    EXPECT_FALSE(cmd.Init(0, argv));
    EXPECT_TRUE(cmd.args.empty());
}

}  // namespace
}  // namespace Orlo
