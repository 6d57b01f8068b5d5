// mendo writing into a pipe whose reader leaves early, as in
// `mendo -f:a -t:b < big | head -c1`. The tool references nothing of the
// library's error handling, yet the handlers installed before main make the
// write fail with EPIPE instead of the signal killing the process.

#include <gtest/gtest.h>

#include "cli/run_mendo.h"

namespace {

using mendo_test::Printable;
using mendo_test::RunMendo;

TEST(MendoBrokenPipe, AReaderThatClosesAfterOneByteDoesNotKillTheTool) {
    // Far more than a pipe holds, so the tool is still writing when the
    // reader goes away.
    const std::string input(32u << 20, 'a');
    auto r = RunMendo({"-f:a", "-t:b"}, input, "", 0, 1);
    EXPECT_EQ(r.status, 0) << "-1 means the process was killed, by SIGPIPE";
    EXPECT_EQ(r.out, "b");
    EXPECT_EQ(r.err, "") << Printable(r.err);
}

}  // namespace
