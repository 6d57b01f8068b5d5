// The match command interface and the percent-decoding command, driven
// through the escape expansion the way the tool's percent-decoding drives it:
// escape '%', drop-dangling true, keep-double false.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "orlo/match_cmd.h"
#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::byteEx;
using Orlo::CQueryStrEscapeCmd;
using Orlo::IStrMatchCmd;
using Orlo::stringEx;
using text_test::Narrow;
using text_test::Str;

struct DecodeCase {
    std::string input;
    std::string expected;
    const char* why = "";
};

const DecodeCase kDecodeCases[] = {
    {"%41", "A"},
    {"%0a", "\n"},
    {"%0A", "\n"},
    {"%00", std::string("\0", 1), "a zero byte is content like any other"},
    {"%%", "%", "the doubled escape collapses"},
    {"%%41", "%41", "the byte behind a collapsed pair is not looked at again"},
    {"%", "", "a trailing escape is removed"},
    {"%4", "\x04"},
    {"%4g", "\x04", "the g is consumed with it"},
    {"%zz", std::string("\0", 1), "no digit gives 0"},
    {"% 7", "\x07", "the parser skips white space"},
    {"%-1", "\xFF", "the parser takes a sign"},
    {"a%2Bb", "a+b"},
    {"%2541", "%41", "decoded bytes are not decoded again"},
    {"%41%42%43", "ABC"},
    {"a+b", "a+b", "a plus stands for itself"},
    {"%e9t%C3%A9", "\xE9t\xC3\xA9"},
};

TEST(QueryStrEscape, DecodesThroughTheEscapeExpansion) {
    for (const DecodeCase& c : kDecodeCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        CQueryStrEscapeCmd cmd;
        stringEx s = Narrow(c.input);
        s.ExpandEscapes('%', cmd, true, false);
        EXPECT_EQ(Str(s), c.expected);
    }
}

TEST(QueryStrEscape, EmptiesItsOutputAndAlwaysClaimsTwoBytes) {
    CQueryStrEscapeCmd cmd;
    stringEx out("junk");
    EXPECT_EQ(cmd.Match(stringEx("7f and more"), out), 1);
    EXPECT_EQ(Str(out), "\x7F");
    EXPECT_EQ(cmd.MatchLength(), 2u);
    EXPECT_EQ(cmd.Match(stringEx(""), out), 1);
    EXPECT_EQ(Str(out), std::string("\0", 1));
}

// A command that keeps the default MatchLength of 0 replaces the escape alone.
class UpperCmd : public IStrMatchCmd<stringEx> {
  public:
    int Match(const stringEx& view, stringEx& out) override {
        out = stringEx(view.c_str(), 1);
        out.ToUpper();
        return 1;
    }
};

TEST(MatchCmd, DefaultLengthReplacesTheEscapeAlone) {
    UpperCmd cmd;
    stringEx s("a^bc^d");
    s.ExpandEscapes('^', cmd, true, false);
    EXPECT_EQ(Str(s), "aBbcDd");
}

// The interface serves the plain byte string too, and commands are deleted
// through it.
class ByteCmd : public IStrMatchCmd<byteEx> {
  public:
    explicit ByteCmd(bool* destroyed) : m_destroyed(destroyed) {}
    ~ByteCmd() override { *m_destroyed = true; }
    int Match(const byteEx& view, byteEx& out) override {
        out = view;
        return 1;
    }

  private:
    bool* m_destroyed;
};

TEST(MatchCmd, ByteStringCommandsAreDeletedThroughTheInterface) {
    bool destroyed = false;
    std::unique_ptr<IStrMatchCmd<byteEx>> cmd = std::make_unique<ByteCmd>(&destroyed);
    byteEx out;
    EXPECT_EQ(cmd->Match(byteEx("xy"), out), 1);
    EXPECT_EQ(Str(out), "xy");
    EXPECT_EQ(cmd->MatchLength(), 0u);
    cmd.reset();
    EXPECT_TRUE(destroyed);
}

}  // namespace
