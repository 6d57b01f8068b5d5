// mendo under hostile input: zero and high bytes everywhere, odd words,
// and an input larger than the memory it may use. Each ends with the
// documented message or a clean success, never a crash.

#include <gtest/gtest.h>

#include "cli/run_mendo.h"

namespace {

using mendo_test::RunMendo;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUnderAddressSanitizer = true;
#else
constexpr bool kUnderAddressSanitizer = false;
#endif

TEST(MendoBadInput, EveryByteValuePassesThrough) {
    std::string input;
    for (int round = 0; round < 64; ++round)
        for (int b = 0; b < 256; ++b)
            input += char(b);
    for (const char* strategy : {"-exp", "-noexp"}) {
        auto r = RunMendo({"-f:%00%FF", "-t:%FF%00%00", "-ue", strategy}, input);
        std::string expected;
        for (size_t i = 0; i < input.size(); ++i) {
            if (input[i] == '\0' && i + 1 < input.size() && input[i + 1] == '\xFF') {
                expected += std::string("\xFF\0\0", 3);
                ++i;
            } else {
                expected += input[i];
            }
        }
        expected += '\xFF';
        EXPECT_TRUE(r.out == expected) << strategy;
        EXPECT_EQ(r.status, 0);
    }
}

TEST(MendoBadInput, LackOfMemoryIsAFatalErrorWithStatusZero) {
    if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer needs its own address space";
    std::string input(96u << 20, 'a');
    auto r = RunMendo({"-f:a", "-t:bb"}, input, "", size_t(64) << 20);
    EXPECT_EQ(r.err, "[FATAL ERROR] vc runtime lib error: std::bad_alloc\n");
    EXPECT_EQ(r.status, 0);
}

TEST(MendoBadInput, OddWordsAreHarmless) {
    const std::vector<std::string> words[] = {
        {"-", "-f:a", "-t:b", "-stdio"},
        {"--", "-f:a", "-t:b"},
        {"-:", "-::", "-=", "-f:a", "-t:b"},
        {std::string(100000, 'x'), "-f:a", "-t:b", "-stdio"},
        {"-f:" + std::string(70000, 'a'), "-t:b"},
        {"-f:\xFF\xFE", "-t:\x01", "-stdio"},
    };
    for (const auto& args : words) {
        auto r = RunMendo(args, std::string(100000, 'a'));
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
    }
}

}  // namespace
