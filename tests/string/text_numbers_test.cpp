// The number services of stringEx and wstringEx: the integer and real
// parsers (limits, errno, base prefixes, white space, stop offset) and the
// integer printers, each table run through both widths.

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>

#include "orlo/stringEx.h"
#include "text_helpers.h"

namespace {

using Orlo::npos;
using text_test::Make;
using text_test::Str;

template <class S>
class TextNumbers : public ::testing::Test {};
using BothWidths = ::testing::Types<Orlo::stringEx, Orlo::wstringEx>;
TYPED_TEST_SUITE(TextNumbers, BothWidths);

enum Parser { kInt, kUInt, kDouble };
constexpr uint32_t kEndUntouched = 777;

struct ParseCase {
    Parser parser;
    std::string text;
    int base;  // ignored by ToDouble
    double expected;
    uint32_t end;  // kEndUntouched: the parser must not write it
    bool erange = false;
    uint32_t pos = 0, max = npos;
};

const ParseCase kParseCases[] = {
    {kInt, std::string("\0\0-5", 4), 10, -5, 4},  // a zero byte is white space
    {kInt, "\f42", 10, 0, 0},                     // a form feed is not
    {kInt, "--1", 10, 0, 1},
    {kInt, "+12abc", 10, 12, 3},
    // bases given by the caller: no prefix is accepted
    {kInt, "0x1F", 16, 0, 1},
    {kInt, "fF", 16, 255, 2},
    {kInt, "zz", 36, 1295, 2},
    {kInt, "102", 2, 2, 2},
    {kInt, "10", 37, 0, 0},
    // bases taken from the text
    {kInt, "0X1f", -1, 31, 4},
    {kInt, "x1F", -1, 31, 3},
    {kInt, "B101", -1, 5, 4},
    {kInt, "0b101", -1, 5, 5},
    {kInt, "017", -1, 15, 3},
    {kInt, "09", -1, 0, 1},  // octal, and 9 is no octal digit
    {kInt, "17", -1, 17, 2},
    {kInt, "-0x10", -1, -16, 5},
    {kInt, "  X", -1, 0, 3},  // a prefix that ends the text
    // limits: the scan runs on past an overflow
    {kInt, "2147483647", 10, 2147483647, 10},
    {kInt, "2147483648", 10, 2147483647, 10, true},
    {kInt, "-2147483648", 10, -2147483648.0, 11},
    {kInt, "-2147483649", 10, -2147483648.0, 11, true},
    {kInt, "42949672960", 10, 2147483647, 11, true},  // would wrap to 0 in 32 bits
    {kInt, "80000000x", 16, 2147483647, 8, true},
    // the range read
    {kInt, "1234", 10, 12, 2, false, 0, 2},
    {kInt, "ab12", 10, 12, 4, false, 2},
    {kInt, " -5", 10, 0, 2, false, 0, 2},  // the sign is the last byte of the range
    {kInt, "12", 10, 0, kEndUntouched, false, 2},
    // unsigned: a minus negates modulo 2^32, overflow saturates
    {kUInt, "4294967295", 10, 0xFFFFFFFF, 10},
    {kUInt, "4294967296", 10, 0xFFFFFFFF, 10, true},
    {kUInt, "-4294967296", 10, 0xFFFFFFFF, 11, true},  // overflow wins over the sign
    {kUInt, "-1", 10, 0xFFFFFFFF, 2},
    {kUInt, "-4294967295", 10, 1, 11},
    {kUInt, "100000000", 16, 0xFFFFFFFF, 9, true},
    // real
    {kDouble, " \t+.5", 0, 0.5, 5},
    {kDouble, "-25E-1", 0, -2.5, 6},
    {kDouble, "1e+3", 0, 1000, 4},
    {kDouble, "1e", 0, 1, 2},    // no exponent digits: exponent 0
    {kDouble, ".", 0, 0, 0},     // no digit at all: the end stays at pos
    {kDouble, "5.e3", 0, 5, 1},  // a point with no digit behind it ends the number
    {kDouble, "1.25", 0, 1.2, 3, false, 0, 3},
    {kDouble, "1e308", 0, 1e308, 5},
    {kDouble, "-2e308", 0, -HUGE_VAL, 6, true},         // past the largest double
    {kDouble, "1e99999999999", 0, HUGE_VAL, 13, true},  // the exponent itself overflows
    {kDouble, "1e-400", 0, 0, 6, true},
    {kDouble, "0e-1", 0, 0, 4, true},  // a value that starts at 0 underflows at once
    {kDouble, "0e5", 0, 0, 3},
};

// errno is preset: a parse that does not overflow must leave it alone.
TYPED_TEST(TextNumbers, ParsersReadLimitsBasesAndStop) {
    for (const ParseCase& c : kParseCases) {
        SCOPED_TRACE("\"" + c.text + "\" base " + std::to_string(c.base));
        const TypeParam s = Make<TypeParam>(c.text);
        uint32_t end = kEndUntouched;
        errno = EDOM;
        const double value = c.parser == kInt    ? s.ToInt(c.pos, c.max, c.base, &end)
                             : c.parser == kUInt ? s.ToUInt(c.pos, c.max, c.base, &end)
                                                 : s.ToDouble(c.pos, c.max, &end);
        EXPECT_DOUBLE_EQ(value, c.expected);
        EXPECT_EQ(std::isinf(value), std::isinf(c.expected));
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(errno, c.erange ? ERANGE : EDOM);
    }
    // The exponent is applied one unit at a time; a zero mantissa with a huge
    // exponent must not run the whole count.
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(Make<TypeParam>("0e2000000000").ToDouble(), 0.0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
}

struct AppendCase {
    int64_t value;
    int base;
    std::string expected;
    bool isSigned = true;
};

const AppendCase kAppendCases[] = {
    {-255, 16, "FF"},  // no sign outside base 10
    {-2147483648LL, 10, "-2147483648"},
    {-2147483648LL, 16, "80000000"},
    {7, 37, "0"},
    {0, 10, "0"},
    {35, 36, "Z"},
    {4294967295LL, 10, "4294967295", false},
    {1, 1, "0", false},
};

TYPED_TEST(TextNumbers, AppendIntWritesDigitsBehindExistingText) {
    for (const AppendCase& c : kAppendCases) {
        SCOPED_TRACE(std::to_string(c.value) + " in base " + std::to_string(c.base));
        TypeParam s = Make<TypeParam>("x=");  // only the new digits are reversed
        c.isSigned ? s.AppendInt(int32_t(c.value), c.base)
                   : s.AppendUInt(uint32_t(c.value), c.base);
        EXPECT_EQ(Str(s), "x=" + c.expected);
    }
    for (int base = 2; base <= 36; ++base) {  // and every printed number parses back
        for (uint32_t v : {0u, 1u, 42u, 65535u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            TypeParam s;
            EXPECT_EQ(s.AppendUInt(v, base).ToUInt(0, npos, base), v) << Str(s) << " base " << base;
        }
    }
}

}  // namespace
