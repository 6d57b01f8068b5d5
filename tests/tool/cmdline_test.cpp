// The option store: how single words become records, how command text is
// split into words, and the lookups over a parsed table.

#include "cmdline.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace Orlo {
namespace {

std::vector<std::string> RawWords(const CCmdLine& cmd) {
    std::vector<std::string> words;
    for (const CCmdArg& arg : cmd.args)
        words.emplace_back(arg.raw.view());
    return words;
}

// ---- one word -------------------------------------------------------------------

struct WordCase {
    std::string word;
    std::string name = {};
    std::string value = {};
    bool counted = false;  // taken for a switch by the parser
    bool free = true;      // reported by IsFreeArg
    const char* prefixes = "-/";
    const char* suffixes = ":=";
    const char* why = "";
};

TEST(CmdLineWord, Records) {
    const WordCase cases[] = {
        {.word = "-f:a=b", .name = "f", .value = "a=b", .counted = true, .free = false},
        {.word = "-r=a:b",
         .name = "r",
         .value = "a:b",
         .counted = true,
         .free = false,
         .why = "the first suffix byte wins, whichever it is"},
        {.word = "-r::", .name = "r", .value = ":", .counted = true, .free = false},
        {.word = "-s", .name = "s", .counted = true, .free = false},
        {.word = "-X", .name = "X", .counted = true, .free = false, .why = "case is kept"},
        {.word = "-f:", .name = "f", .counted = true, .free = false},
        {.word = "/t:x", .name = "t", .value = "x", .counted = true, .free = false},
        {.word = "--x",
         .name = "-x",
         .counted = true,
         .free = false,
         .why = "the prefix is one byte"},
        {.word = "-a b", .name = "a b", .counted = true, .free = false},
        {.word = "-:x",
         .value = "x",
         .counted = true,
         .free = true,
         .why = "counted as a switch, yet no name can find it"},
        {.word = "-=", .counted = true, .free = true},
        {.word = "-", .why = "a lone prefix is free"},
        {.word = "", .why = "an empty word is free"},
        {.word = "a-b", .why = "a prefix byte only counts in the first place"},
        {.word = "*.txt"},
        {.word = "-f:a",
         .name = "f:a",
         .counted = true,
         .free = false,
         .suffixes = "",
         .why = "without suffixes the name runs to the end"},
        {.word = "-f:a", .prefixes = "", .why = "without prefixes nothing is a switch"},
        {.word = "-a-b",
         .name = "a",
         .value = "b",
         .counted = true,
         .free = false,
         .prefixes = "-",
         .suffixes = "-:",
         .why = "the suffix search begins behind the prefix"},
        {.word = "+f", .name = "f", .counted = true, .free = false, .prefixes = "+"},
    };
    for (const WordCase& c : cases) {
        SCOPED_TRACE("word |" + c.word + "| prefixes |" + c.prefixes + "| " + c.why);
        CCmdLine cmd(c.prefixes, c.suffixes, 1);
        const char* argv[] = {"-prog", c.word.c_str()};
        ASSERT_TRUE(cmd.Init(2, argv));
        ASSERT_EQ(cmd.args.size(), 2u);
        EXPECT_EQ(cmd.args[1].raw.view(), c.word);
        EXPECT_EQ(cmd.args[1].name.view(), c.name);
        EXPECT_EQ(cmd.args[1].value.view(), c.value);
        EXPECT_EQ(cmd.switchCount, c.counted ? 1u : 0u);
        EXPECT_EQ(cmd.IsFreeArg(1), c.free);
        EXPECT_EQ(cmd.IsSwitch(1), !c.free);
        // The skipped word is never parsed, though it starts with a prefix.
        EXPECT_TRUE(cmd.args[0].name.empty());
    }
}

// ---- command text ------------------------------------------------------------------

struct TextCase {
    std::string text;
    std::vector<std::string> words = {};
    bool expandEnv = false;
    const char* why = "";
};

TEST(CmdLineText, Splitting) {
    const TextCase cases[] = {
        {.text = "", .words = {}},
        {.text = "a b  c", .words = {"a", "b", "c"}},
        {.text = "   lead trail   ", .words = {"lead", "trail"}},
        {.text = "a\tb", .words = {"a\tb"}, .why = "only the blank separates"},
        {.text = R"(a"b c"d)", .words = {"ab cd"}, .why = "quotes join into the same word"},
        {.text = R"(a'b c'd)", .words = {"ab cd"}},
        {.text = R"('say "hi"' "it's")", .words = {R"(say "hi")", "it's"}},
        {.text = R"("")", .words = {}, .why = "an empty word is not stored"},
        {.text = R"('' x "")", .words = {"x"}},
        {.text = R"(a\ b)", .words = {"a b"}, .why = "an escaped blank joins"},
        {.text = R"("a\ b")", .words = {R"(a\ b)"}, .why = "inside quotes a blank isn't escapable"},
        {.text = R"(\"q\" \'s\')", .words = {R"("q")", "'s'"}},
        {.text = R"(a\\b \\)", .words = {R"(a\b)", R"(\)"}},
        {.text = R"(a\nb "\d")",
         .words = {R"(a\nb)", R"(\d)"},
         .why = "a backslash before anything else stands for itself"},
        {.text = R"('it\'s')", .words = {"it's"}, .why = "escapes work in single quotes too"},
        {.text = R"("unterminated word)", .words = {"unterminated word"}},
        {.text = R"(x 'open)", .words = {"x", "open"}},
        {.text = R"(end\)", .words = {R"(end\)"}, .why = "a dangling backslash stands for itself"},
        {.text = R"(-r:"(ab)+c" -t:"[\1]" *.txt)", .words = {"-r:(ab)+c", R"(-t:[\1])", "*.txt"}},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE("text |" + c.text + "| " + c.why);
        CCmdLine cmd("-", ":", 0);
        EXPECT_EQ(cmd.ParseText(stringEx(c.text.c_str()), c.expandEnv), !c.words.empty());
        EXPECT_EQ(RawWords(cmd), c.words);
    }
}

TEST(CmdLineText, EnvironmentExpansion) {
    ASSERT_EQ(setenv("MENDO_CMDLINE_TEST", "val", 1), 0);
    unsetenv("MENDO_CMDLINE_TEST_UNSET");
    const TextCase cases[] = {
        {.text = "x$MENDO_CMDLINE_TEST ${MENDO_CMDLINE_TEST}y",
         .words = {"xval", "valy"},
         .expandEnv = true},
        {.text = R"("$MENDO_CMDLINE_TEST" '$MENDO_CMDLINE_TEST')",
         .words = {"val", "$MENDO_CMDLINE_TEST"},
         .expandEnv = true,
         .why = "single quotes are never expanded"},
        {.text = "a'$MENDO_CMDLINE_TEST'$MENDO_CMDLINE_TEST",
         .words = {"a$MENDO_CMDLINE_TESTval"},
         .expandEnv = true},
        {.text = "<$MENDO_CMDLINE_TEST_UNSET>", .words = {"<>"}, .expandEnv = true},
        {.text = "$ $1 ${MENDO_CMDLINE_TEST ${}",
         .words = {"$", "$1", "${MENDO_CMDLINE_TEST", "${}"},
         .expandEnv = true,
         .why = "a $ that opens no reference stands for itself"},
        {.text = "$MENDO_CMDLINE_TEST", .words = {"$MENDO_CMDLINE_TEST"}, .expandEnv = false},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE("text |" + c.text + "| " + c.why);
        CCmdLine cmd("-", ":", 0);
        cmd.ParseText(stringEx(c.text.c_str()), c.expandEnv);
        EXPECT_EQ(RawWords(cmd), c.words);
    }
}

TEST(CmdLineText, WordsAreParsed) {
    CCmdLine cmd("-", ":", 0);
    ASSERT_TRUE(cmd.ParseText(stringEx(R"(-r:"a b" file)"), false));
    EXPECT_EQ(cmd.GetValue(stringEx("r")).view(), "a b");
    EXPECT_EQ(cmd.GetFreeArg(0).view(), "file");
    EXPECT_EQ(cmd.switchCount, 1u);
}

// ---- lookups -----------------------------------------------------------------------

class CmdLineLookup : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* argv[] = {"-prog",  "-s",    "file1", "-S", "-r:one",
                              "-R:two", "file2", "-:x",   "-",  "-FIC"};
        ASSERT_TRUE(cmd.Init(10, argv));
    }
    static stringEx S(const char* text) { return stringEx(text); }

    CCmdLine cmd{"-", ":", 1};
};

TEST_F(CmdLineLookup, FindAndCount) {
    struct {
        const char* name;
        uint32_t nth;
        uint32_t any;    // FindSwitch
        uint32_t exact;  // FindSwitchCase
    } const cases[] = {
        {"s", 0, 1, 1},      {"s", 1, 3, npos},       {"S", 0, 1, 3},   {"s", 2, npos, npos},
        {"r", 1, 5, npos},   {"fic", 0, 9, npos},     {"FIC", 0, 9, 9}, {"ss", 0, npos, npos},
        {"", 0, npos, npos}, {"prog", 0, npos, npos},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " nth " + std::to_string(c.nth));
        EXPECT_EQ(cmd.FindSwitch(S(c.name), c.nth), c.any);
        EXPECT_EQ(cmd.FindSwitchCase(S(c.name), c.nth), c.exact);
    }
    EXPECT_EQ(cmd.CountSwitch(S("s")), 2u);
    EXPECT_EQ(cmd.CountSwitchCase(S("s")), 1u);
    EXPECT_EQ(cmd.CountSwitchCase(S("S")), 1u);
    EXPECT_EQ(cmd.CountSwitch(S("")), 0u);
    EXPECT_EQ(cmd.CountSwitch(S("prog")), 0u);
}

TEST_F(CmdLineLookup, Values) {
    EXPECT_EQ(cmd.GetValue(S("r")).view(), "one");
    EXPECT_EQ(cmd.GetValue(S("R"), 1).view(), "two");
    EXPECT_EQ(cmd.GetValueCase(S("R")).view(), "two");
    EXPECT_TRUE(cmd.GetValue(S("r"), 2).empty());
    EXPECT_TRUE(cmd.GetValueCase(S("x")).empty());
    EXPECT_TRUE(cmd.GetValue(S("s")).empty());
}

TEST_F(CmdLineLookup, FreeWords) {
    // "-:x" was counted as a switch, so the user's count of free words is one
    // short of what GetFreeArg reaches.
    EXPECT_EQ(cmd.switchCount, 6u);
    EXPECT_EQ(cmd.args.size() - cmd.switchCount - cmd.skip, 3u);
    const char* expected[] = {"file1", "file2", "-:x", "-"};
    for (uint32_t i = 0; i < 4; ++i)
        EXPECT_EQ(cmd.GetFreeArg(i).view(), expected[i]) << i;
    EXPECT_TRUE(cmd.GetFreeArg(4).empty());
    EXPECT_TRUE(cmd.GetFreeArg(npos).empty());
}

TEST_F(CmdLineLookup, ByIndex) {
    EXPECT_FALSE(cmd.IsSwitch(0));
    EXPECT_FALSE(cmd.IsFreeArg(0));
    EXPECT_TRUE(cmd.NameAt(0).empty());
    EXPECT_TRUE(cmd.IsSwitch(4));
    EXPECT_EQ(cmd.NameAt(4).view(), "r");
    EXPECT_EQ(cmd.ValueAt(4).view(), "one");
    EXPECT_TRUE(cmd.IsFreeArg(2));
    EXPECT_FALSE(cmd.IsSwitch(10));
    EXPECT_FALSE(cmd.IsFreeArg(10));
    EXPECT_TRUE(cmd.NameAt(10).empty());
    EXPECT_TRUE(cmd.ValueAt(npos).empty());
}

TEST_F(CmdLineLookup, GetAllAppendsFromSkip) {
    std::vector<CCmdArg> out(1);
    EXPECT_EQ(cmd.GetAll(out), 9u);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_EQ(out[1].raw.view(), "-s");
    EXPECT_EQ(out[9].name.view(), "FIC");
}

// ---- parsing again ----------------------------------------------------------------

TEST(CmdLineReparse, SkipAndDelimiters) {
    CCmdLine cmd("-", ":", 0);
    const char* argv[] = {"-a", "-b:1", "c"};
    ASSERT_TRUE(cmd.Init(3, argv));
    EXPECT_EQ(cmd.FindSwitch(stringEx("a")), 0u);
    EXPECT_EQ(cmd.switchCount, 2u);

    ASSERT_TRUE(cmd.SetSkip(1));
    EXPECT_EQ(cmd.FindSwitch(stringEx("a")), npos);
    EXPECT_TRUE(cmd.args[0].name.empty()) << "a skipped word keeps no stale name";
    EXPECT_EQ(cmd.switchCount, 1u);
    EXPECT_EQ(cmd.GetFreeArg(0).view(), "c");

    ASSERT_TRUE(cmd.SetDelimiters(stringEx("+"), stringEx(":")));
    EXPECT_EQ(cmd.switchCount, 0u);
    EXPECT_EQ(cmd.GetFreeArg(0).view(), "-b:1");

    ASSERT_TRUE(cmd.SetDelimiters(stringEx("-"), stringEx(""), 0));
    EXPECT_EQ(cmd.NameAt(1).view(), "b:1");
    EXPECT_EQ(cmd.switchCount, 2u);

    ASSERT_TRUE(cmd.SetSkip(7));
    EXPECT_EQ(cmd.switchCount, 0u);
    std::vector<CCmdArg> out;
    EXPECT_EQ(cmd.GetAll(out), 0u);
    EXPECT_TRUE(cmd.GetFreeArg(0).empty());
}

TEST(CmdLineReparse, InitReplacesTheTable) {
    CCmdLine cmd("-", ":", 1);
    EXPECT_TRUE(cmd.SetSkip(1)) << "an empty table answers true";
    EXPECT_FALSE(cmd.Parse());

    const char* argv[] = {"prog", "-a", "-b"};
    ASSERT_TRUE(cmd.Init(3, argv));
    EXPECT_EQ(cmd.switchCount, 2u);
    ASSERT_TRUE(cmd.Init(1, argv));
    EXPECT_EQ(cmd.args.size(), 1u);
    EXPECT_EQ(cmd.switchCount, 0u);
    EXPECT_FALSE(cmd.Init(0, argv));
    EXPECT_TRUE(cmd.args.empty());
    EXPECT_FALSE(cmd.SetDelimiters(stringEx("-"), stringEx(":")));
}

}  // namespace
}  // namespace Orlo
