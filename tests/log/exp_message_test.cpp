// The exception text builder: line layout, value renderings, system-error
// lines and the wrapping of caught exceptions, compared byte for byte.

#include "orlo/exp_message.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace Orlo {
namespace {

using namespace std::string_literals;

constexpr SysErrorText kOpenErrors[] = {
    {ENOENT, "path not exist"},
    {EACCES, "access denied"},
};

std::string Unexpected(int error) {
    return std::string("unexpect system error: ") + strerror(error);
}

struct Case {
    const char* what;
    stringEx built;
    std::string expected;
};

TEST(ExpMessage, Layout) {
    const stringEx withZero("a\0b", 3);
    const Case cases[] = {
        {"a head line alone is the whole text, with no line feed",
         ExpMessage("CLog::PopLogger - nothing to pop"), "CLog::PopLogger - nothing to pop"},
        {"labels are taken whole; the last line has no line feed",
         ExpMessage("CDir::MakeDir - failed make dir")
             .Detail("  dir to create = ", "/tmp/a b")
             .Bool("  is recursive  = ", true)
             .Bool("  overwrite     = ", false),
         "CDir::MakeDir - failed make dir\n  dir to create = /tmp/a b\n"
         "  is recursive  = true\n  overwrite     = false"},
        {"a bare line and a label that quotes its value",
         ExpMessage("TTextConv::GetEncInfo - can't retrieve the encoding's infomation")
             .Line("  encoding doesn't exist")
             .Detail("  expression    = \"", "x+")
             .Append("\""),
         "TTextConv::GetEncInfo - can't retrieve the encoding's infomation\n"
         "  encoding doesn't exist\n  expression    = \"x+\""},
        {"a value continues the head line",
         ExpMessage("CSysFile::Open - unknown console type: ").AppendInt(-7),
         "CSysFile::Open - unknown console type: -7"},
        {"a name is taken as it stands, zero bytes included",
         ExpMessage("H").Detail("  name = ", withZero).Detail("  null = ", nullptr),
         "H\n  name = a\0b\n  null = "s},
        {"integers in decimal",
         ExpMessage("H")
             .Int("  a = ", -2147483647 - 1)
             .UInt("  b = ", 4294967295u)
             .Int64("  c = ", -5000000000LL)
             .Int("  d = ", 0),
         "H\n  a = -2147483648\n  b = 4294967295\n  c = -5000000000\n  d = 0"},
        {"flags and sizes in hex, modes in octal, zero without a prefix",
         ExpMessage("H")
             .Hex("  flag = ", 0x42)
             .Hex("  zero = ", 0)
             .Hex("  size = ", 0x123456789ULL)
             .Octal("  mode = ", 0644)
             .Octal("  none = ", 0),
         "H\n  flag = 0x42\n  zero = 0\n  size = 0x123456789\n  mode = 0644\n  none = 0"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(std::string(c.built.view()), c.expected) << c.what;
    }
}

TEST(ExpMessage, AddressRendersAsPercentP) {
    int object = 0;
    char expected[64];
    std::snprintf(expected, sizeof expected, "H\n  address = %p", static_cast<void*>(&object));
    const stringEx built = ExpMessage("H").Pointer("  address = ", &object);
    EXPECT_EQ(built.view(), expected);
}

TEST(ExpMessage, SystemErrorLines) {
    const Case cases[] = {
        {"a listed number gives its own sentence",
         ExpMessage("PosixOpenFile - failed open specified file")
             .Detail("  file path  = ", "/x")
             .SysError("  error code = ", "  error desc = ", ENOENT, kOpenErrors),
         "PosixOpenFile - failed open specified file\n  file path  = /x\n"
         "  error code = 2\n  error desc = path not exist"},
        {"an unlisted number gives the system's text",
         ExpMessage("H").SysError("  error code     = ", "  error desc     = ", EPERM, kOpenErrors),
         "H\n  error code     = 1\n  error desc     = " + Unexpected(EPERM)},
        {"an empty list always gives the system's text",
         ExpMessage("H").SysError("  error code = ", "  error desc = ", EACCES),
         "H\n  error code = 13\n  error desc = " + Unexpected(EACCES)},
        {"the terse form still uses the list",
         ExpMessage("H").SysErrorOrUnknown("  e = ", "  d = ", EACCES, kOpenErrors),
         "H\n  e = 13\n  d = access denied"},
        {"the terse form has no system text",
         ExpMessage("H").SysErrorOrUnknown("  e = ", "  d = ", EPERM, kOpenErrors),
         "H\n  e = 1\n  d = unknown system error"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(std::string(c.built.view()), c.expected) << c.what;
    }
}

// Three levels, as a file read failing inside a directory operation does:
// the outermost operation comes first, the first system error last, and
// each level keeps its own class and code.
void OpenRaw() {
    throw sysfileExp(ExpMessage("PosixOpenFile - failed open specified file")
                         .Detail("  file path  = ", "/etc/x")
                         .SysError("  error code = ", "  error desc = ", ENOENT, kOpenErrors),
                     FileCode::Open);
}

void OpenFile() {
    try {
        OpenRaw();
    } catch (const sysfileExp& e) {
        throw sysfileExp(ExpMessage("CSysFile::Open - failed open file")
                             .Detail("  file path = ", "/etc/x")
                             .Wraps(e),
                         FileCode::Open);
    }
}

void ReadFile() {
    try {
        OpenFile();
    } catch (const fileExp& e) {
        throw dirExp(ExpMessage("CDir::ReadFile - failed read file").Wraps(e), DirCode::EnumFiles);
    }
}

TEST(ExpMessage, WrappingReadsFromTheOutermostOperationInward) {
    try {
        ReadFile();
    } catch (const dirExp& e) {
        EXPECT_EQ(e.code, DirCode::EnumFiles);
        EXPECT_EQ(e.message.view(),
                  "CDir::ReadFile - failed read file\n"
                  "@ CSysFile::Open - failed open file\n"
                  "  file path = /etc/x\n"
                  "@ PosixOpenFile - failed open specified file\n"
                  "  file path  = /etc/x\n"
                  "  error code = 2\n"
                  "  error desc = path not exist");
        return;
    }
    FAIL() << "not caught as dirExp";
}

TEST(ExpMessage, WrapsAPlainText) {
    const stringEx built = ExpMessage("TThread::Kill - unexpected error on auto destroy")
                               .Wraps(stringEx("unknown error"));
    EXPECT_EQ(built.view(), "TThread::Kill - unexpected error on auto destroy\n@ unknown error");
}

}  // namespace
}  // namespace Orlo
