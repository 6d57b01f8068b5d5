// The number services of stringEx and wstringEx: the integer and real
// parsers (limits, errno, base prefixes, white space, stop offset) and the
// integer printers. Every table runs through both widths, since the two share
// one body of code and must read every text alike.

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
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

// errno is preset to this before each parse: a parse that does not overflow
// must leave it alone, not clear it.
constexpr int kUntouched = EDOM;
constexpr uint32_t kEndUntouched = 777;

struct IntCase {
    std::string text;
    int base;
    int64_t expected;  // wide enough for both parsers' results
    uint32_t end;      // kEndUntouched: the parser must not write it
    bool erange;
    uint32_t pos = 0;
    uint32_t max = npos;
};

// ---- ToInt ---------------------------------------------------------------------

const IntCase kToIntCases[] = {
    // white space and signs
    {"  42", 10, 42, 4, false},
    {"\t\n\v\r 7", 10, 7, 6, false},
    {std::string("\0\0"
                 "5",
                 3),
     10, 5, 3, false},          // a zero byte is white space
    {"\f42", 10, 0, 0, false},  // a form feed is not
    {"   ", 10, 0, 3, false},
    {"+12", 10, 12, 3, false},
    {"-12", 10, -12, 3, false},
    {"-", 10, 0, 1, false},    // a sign as the last byte
    {"--1", 10, 0, 1, false},  // one sign only
    {"12abc", 10, 12, 2, false},
    {"abc", 10, 0, 0, false},
    // bases given by the caller: no prefix is accepted
    {"ff", 16, 255, 2, false},
    {"FF", 16, 255, 2, false},
    {"0x1F", 16, 0, 1, false},  // the x stops the scan
    {"zz", 36, 1295, 2, false},
    {"102", 2, 2, 2, false},  // a digit at or above the base ends the number
    {"10", 1, 0, 0, false},
    {"10", 37, 0, 0, false},
    // bases taken from the text
    {"0x1F", -1, 31, 4, false},
    {"0X1f", -1, 31, 4, false},
    {"x1F", -1, 31, 3, false},
    {"b101", -1, 5, 4, false},
    {"0b101", -1, 5, 5, false},
    {"B11", -1, 3, 3, false},
    {"017", -1, 15, 3, false},
    {"09", -1, 0, 1, false},  // octal, and 9 is no octal digit
    {"17", -1, 17, 2, false},
    {"-0x10", -1, -16, 5, false},
    {"0", -1, 0, 1, false},
    {"0x", -1, 0, 2, false},  // a prefix that ends the text
    {"  x", -1, 0, 3, false},
    // limits
    {"2147483647", 10, 2147483647, 10, false},
    {"2147483648", 10, 2147483647, 10, true},
    {"-2147483648", 10, -2147483648LL, 11, false},
    {"-2147483649", 10, -2147483648LL, 11, true},
    {"4294967296", 10, 2147483647, 10, true},
    {"-4294967296", 10, -2147483648LL, 11, true},
    {"99999999999x", 10, 2147483647, 11, true},  // the scan runs on past the overflow
    {"7FFFFFFF", 16, 2147483647, 8, false},
    {"80000000", 16, 2147483647, 8, true},
    // the range read
    {"1234", 10, 12, 2, false, 0, 2},
    {"ab12", 10, 12, 4, false, 2},
    {" -5", 10, 0, 2, false, 0, 2},  // the sign is the last byte of the range
    {"12", 10, 0, kEndUntouched, false, 2},
    {"12", 10, 0, kEndUntouched, false, 9},
};

TYPED_TEST(TextNumbers, ToIntReadsLimitsBasesAndStop) {
    for (const IntCase& c : kToIntCases) {
        SCOPED_TRACE("text \"" + c.text + "\" base " + std::to_string(c.base));
        const TypeParam s = Make<TypeParam>(c.text);
        uint32_t end = kEndUntouched;
        errno = kUntouched;
        EXPECT_EQ(s.ToInt(c.pos, c.max, c.base, &end), c.expected);
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(errno, c.erange ? ERANGE : kUntouched);
    }
}

// ---- ToUInt ----------------------------------------------------------------------

const IntCase kToUIntCases[] = {
    {"4294967295", 10, 0xFFFFFFFF, 10, false},
    {"4294967296", 10, 0xFFFFFFFF, 10, true},
    {"-4294967296", 10, 0xFFFFFFFF, 11, true},  // overflow wins over the sign
    {"-1", 10, 0xFFFFFFFF, 2, false},           // negated modulo 2^32, no error
    {"-4294967295", 10, 1, 11, false},
    {"FFFFFFFF", 16, 0xFFFFFFFF, 8, false},
    {"100000000", 16, 0xFFFFFFFF, 9, true},
    {"0b11111111111111111111111111111111", -1, 0xFFFFFFFF, 34, false},
    {"077", -1, 63, 3, false},
    {"  +8", 10, 8, 4, false},
    {"\f8", 10, 0, 0, false},
};

TYPED_TEST(TextNumbers, ToUIntWrapsNegativesAndSaturatesOnOverflow) {
    for (const IntCase& c : kToUIntCases) {
        SCOPED_TRACE("text \"" + c.text + "\" base " + std::to_string(c.base));
        const TypeParam s = Make<TypeParam>(c.text);
        uint32_t end = kEndUntouched;
        errno = kUntouched;
        EXPECT_EQ(s.ToUInt(c.pos, c.max, c.base, &end), uint32_t(c.expected));
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(errno, c.erange ? ERANGE : kUntouched);
    }
}

// ---- ToDouble ----------------------------------------------------------------------

struct DoubleCase {
    std::string text;
    double expected;
    uint32_t end;
    bool erange;
    uint32_t max = npos;
};

const double kInf = std::numeric_limits<double>::infinity();

const DoubleCase kToDoubleCases[] = {
    {"1.5", 1.5, 3, false},
    {".5", 0.5, 2, false},
    {"-2.25", -2.25, 5, false},
    {"  +3", 3, 4, false},
    {"1e3", 1000, 3, false},
    {"1E+3", 1000, 4, false},
    {"25e-1", 2.5, 5, false},
    {"1e", 1, 2, false},  // no exponent digits: exponent 0
    {".", 0, 0, false},   // no digit at all: the end stays at pos
    {"abc", 0, 0, false},
    {"\f1", 0, 0, false},
    {"5.", 5, 1, false},    // a point with no digit behind it ends the number
    {"5.e3", 5, 1, false},  // ... and with it the exponent
    {"1.25", 1.2, 3, false, 3},
    {"1e400", kInf, 5, true},
    {"-1e400", -kInf, 6, true},
    {"1e99999999999", kInf, 13, true},  // the exponent itself overflows
    {"1e-400", 0, 6, true},
    {"0e-1", 0, 4, true},  // a value that starts at 0 underflows at once
    {"0e5", 0, 3, false},
    {"1e308", 1e308, 5, false},
};

TYPED_TEST(TextNumbers, ToDoubleReadsFractionsExponentsAndRange) {
    for (const DoubleCase& c : kToDoubleCases) {
        SCOPED_TRACE("text \"" + c.text + "\"");
        const TypeParam s = Make<TypeParam>(c.text);
        uint32_t end = kEndUntouched;
        errno = kUntouched;
        const double value = s.ToDouble(0, c.max, &end);
        if (std::isinf(c.expected)) {
            EXPECT_EQ(value, c.expected);
        } else {
            EXPECT_DOUBLE_EQ(value, c.expected);
        }
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(errno, c.erange ? ERANGE : kUntouched);
    }
}

// The exponent is applied one unit at a time; a zero mantissa with a huge
// exponent must not run the whole count.
TYPED_TEST(TextNumbers, ZeroWithHugeExponentReturnsAtOnce) {
    const TypeParam s = Make<TypeParam>("0e2000000000");
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(s.ToDouble(), 0.0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
}

// ---- AppendInt and AppendUInt ---------------------------------------------------------

struct AppendCase {
    int64_t value;
    int base;
    std::string expected;
    bool isSigned = true;
};

const AppendCase kAppendCases[] = {
    {-255, 16, "FF"},  // no sign outside base 10
    {-255, 10, "-255"},
    {7, 1, "0"},
    {7, 37, "0"},
    {0, 10, "0"},
    {0, 2, "0"},
    {5, 2, "101"},
    {35, 36, "Z"},
    {-2147483648LL, 10, "-2147483648"},
    {-2147483648LL, 16, "80000000"},
    {2147483647, 10, "2147483647"},
    {4294967295LL, 10, "4294967295", false},
    {4294967295LL, 16, "FFFFFFFF", false},
    {255, 2, "11111111", false},
    {0, 36, "0", false},
    {1, 0, "0", false},
};

TYPED_TEST(TextNumbers, AppendIntWritesDigitsBehindExistingText) {
    for (const AppendCase& c : kAppendCases) {
        SCOPED_TRACE(std::to_string(c.value) + " in base " + std::to_string(c.base));
        TypeParam s = Make<TypeParam>("x=");  // only the new digits are reversed
        if (c.isSigned) {
            s.AppendInt(int32_t(c.value), c.base);
        } else {
            s.AppendUInt(uint32_t(c.value), c.base);
        }
        EXPECT_EQ(Str(s), "x=" + c.expected);
    }
}

TYPED_TEST(TextNumbers, PrintedNumbersParseBack) {
    const int32_t values[] = {0, 1, -1, 42, -42, 2147483647, -2147483647 - 1, 65535};
    for (int base = 2; base <= 36; ++base) {
        for (int32_t v : values) {
            TypeParam s;
            s.AppendUInt(uint32_t(v), base);
            EXPECT_EQ(s.ToUInt(0, npos, base), uint32_t(v)) << Str(s) << " base " << base;
        }
    }
}

}  // namespace
