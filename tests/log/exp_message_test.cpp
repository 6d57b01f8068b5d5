// The exception text builder: line layout, value renderings, system-error
// lines and the wrapping of caught exceptions, compared byte for byte.

#include "orlo/exp_message.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace Orlo {
namespace {

using namespace std::string_literals;

constexpr SysErrorText kOpenErrors[] = {{ENOENT, "path not exist"}, {EACCES, "access denied"}};

TEST(ExpMessage, Layouts) {
    const struct {
        const char* what;
        stringEx built;
        std::string expected;
    } cases[] = {
        {"a head line alone is the whole text, with no line feed",
         ExpMessage("CLog::PopLogger - nothing to pop"), "CLog::PopLogger - nothing to pop"},
        {"labels are taken whole; the last line has no line feed",
         ExpMessage("CDir::MakeDir - failed make dir")
             .Detail("  dir to create = ", "/tmp/a b")
             .Bool("  is recursive  = ", true)
             .Line("  path is a file")
             .Detail("  pattern       = \"", "x+")
             .Append("\""),
         "CDir::MakeDir - failed make dir\n  dir to create = /tmp/a b\n  is recursive  = true\n"
         "  path is a file\n  pattern       = \"x+\""},
        {"a name is taken as it stands, zero bytes included",
         ExpMessage("H").Detail("  name = ", stringEx("a\0b", 3)).Detail("  null = ", nullptr),
         "H\n  name = a\0b\n  null = "s},
        {"decimal, hex with zero unprefixed, octal",
         ExpMessage("H")
             .Int("  a = ", -2147483647 - 1)
             .UInt("  b = ", 4294967295u)
             .Hex("  flag = ", 0x42)
             .Hex("  zero = ", 0)
             .Octal("  mode = ", 0644)
             .Octal("  none = ", 0),
         "H\n  a = -2147483648\n  b = 4294967295\n  flag = 0x42\n  zero = 0\n"
         "  mode = 0644\n  none = 0"},
        {"a listed number gives its sentence, others the system's text, as does an empty list",
         ExpMessage("H")
             .SysError("  error code = ", "  error desc = ", ENOENT, kOpenErrors)
             .SysError("  e = ", "  d = ", EPERM, kOpenErrors)
             .SysError("  e = ", "  d = ", EACCES),
         "H\n  error code = 2\n  error desc = path not exist\n"
         "  e = 1\n  d = unexpect system error: "s +
             strerror(EPERM) + "\n  e = 13\n  d = unexpect system error: " + strerror(EACCES)},
        {"the terse form uses the list, but has no system text",
         ExpMessage("H")
             .SysErrorOrUnknown("  e = ", "  d = ", EACCES, kOpenErrors)
             .SysErrorOrUnknown("  e = ", "  d = ", EPERM, kOpenErrors),
         "H\n  e = 13\n  d = access denied\n  e = 1\n  d = unknown system error"},
        {"wrapping reads from the outermost operation inward, inner @ lines kept",
         ExpMessage("CDir::ReadFile - failed read file")
             .Wraps(sysfileExp(ExpMessage("CSysFile::Open - failed open file")
                                   .Detail("  file path = ", "/etc/x")
                                   .Wraps(stringEx("PosixOpenFile - failed\n  error code = 2")),
                               FileCode::Open)),
         "CDir::ReadFile - failed read file\n@ CSysFile::Open - failed open file\n"
         "  file path = /etc/x\n@ PosixOpenFile - failed\n  error code = 2"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(std::string(c.built.view()), c.expected) << c.what;
    }
}

}  // namespace
}  // namespace Orlo
