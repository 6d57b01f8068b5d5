// The match command interface and the percent-decoding command, driven
// through the escape expansion the way the tool's percent-decoding drives it:
// escape '%', drop-dangling true, keep-double false.

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "orlo/match_cmd.h"
#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::byteEx;
using Orlo::stringEx;
using text_test::Make;
using text_test::Str;

struct DecodeCase {
    std::string input, expected;
    const char* why = "";
};

const DecodeCase kDecodeCases[] = {
    {"a%2Bb", "a+b"},
    {"a+b", "a+b", "a plus stands for itself"},
    {"%e9t%C3%A9", "\xE9t\xC3\xA9"},
    {"%%41", "%41", "the byte behind a collapsed pair is not looked at again"},
    {"%2541", "%41", "decoded bytes are not decoded again"},
    {"%", "", "a trailing escape is removed"},
    {"%4g", "\x04", "the g is consumed with it"},
    {"a%4", "a\x04", "the claim is clipped at the end"},
    {"%zz", std::string("\0", 1), "no digit gives 0, a byte like any other"},
    {"% 7", "\x07", "the parser skips white space"},
    {"%-1", "\xFF", "the parser takes a sign"},
};

TEST(QueryStrEscape, DecodesThroughTheEscapeExpansion) {
    Orlo::CQueryStrEscapeCmd cmd;  // one object serves every expansion
    for (const DecodeCase& c : kDecodeCases) {
        SCOPED_TRACE("\"" + c.input + "\" " + c.why);
        EXPECT_EQ(Str(Make<stringEx>(c.input).ExpandEscapes('%', cmd, true, false)), c.expected);
    }
    stringEx out("junk");  // it empties its output and claims two bytes even when short
    EXPECT_EQ(cmd.Match(stringEx(""), out), 1);
    EXPECT_EQ(Str(out), std::string("\0", 1));
    EXPECT_EQ(cmd.MatchLength(), 2u);
}

// The interface serves the plain byte string too, with a default match length
// of 0, and commands may be deleted through it.
class ByteCmd : public Orlo::IStrMatchCmd<byteEx> {
  public:
    int Match(const byteEx&, byteEx&) override { return 1; }
};
static_assert(std::has_virtual_destructor_v<Orlo::IStrMatchCmd<byteEx>>);

TEST(MatchCmd, ByteCommandsHaveTheDefaultLength) {
    EXPECT_EQ(ByteCmd().MatchLength(), 0u);
}

}  // namespace
