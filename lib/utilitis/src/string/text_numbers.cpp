// The library's own number parsers and printers.
//
// The integer parsers share one scan: white space, one sign, the base (given,
// or taken from a prefix), then digits accumulated in 32 bits with an
// overflow test before each step. After an overflow the scan still runs to
// the end of the digits, so that the stop position is the same whether or not
// the value fits. The signed and unsigned parsers differ only in how they map
// magnitude, sign and overflow to a result.
//
// The real parser does not use the C library either: it accumulates in the
// platform's extended type and applies the exponent by one multiplication
// per unit, testing the double range after each step. The last digits of a
// result may therefore differ from strtod's; what matters is that every
// platform build of the library reads a text the same way.
//
// None of them throws; an out-of-range value sets errno to ERANGE, and errno
// is left alone otherwise.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>

#include "string/text_impl.h"

namespace Orlo::IMPL {

namespace {

constexpr int kNotADigit = 99;

template <class CharT>
int DigitValue(CharT c) {
    if (c >= '0' && c <= '9') return int(c - '0');
    if (c >= 'a' && c <= 'z') return int(c - 'a') + 10;
    if (c >= 'A' && c <= 'Z') return int(c - 'A') + 10;
    return kNotADigit;
}

template <class CharT>
bool IsDecimalDigit(CharT c) {
    return c >= '0' && c <= '9';
}

struct IntegerScan {
    uint32_t magnitude = 0;
    bool negative = false;
    bool overflow = false;
};

// Reads a base prefix at `p` and steps over it. "x" and "b" alone are
// prefixes too; a leading "0" before anything else selects octal.
template <class CharT>
int TakeBasePrefix(const CharT*& p, const CharT* last) {
    const CharT c = *p;
    if (c == 'x' || c == 'X') {
        ++p;
        return 16;
    }
    if (c == 'b' || c == 'B') {
        ++p;
        return 2;
    }
    if (c != '0') return 10;
    ++p;
    if (p == last) return 8;
    if (*p == 'x' || *p == 'X') {
        ++p;
        return 16;
    }
    if (*p == 'b' || *p == 'B') {
        ++p;
        return 2;
    }
    return 8;
}

template <class CharT>
IntegerScan ScanInteger(const CharT* p, const CharT* last, int base, const CharT*& stop) {
    IntegerScan scan;
    while (p < last && IsTextSpace(*p))
        ++p;
    stop = p;
    if (p == last) return scan;

    if (*p == '-' || *p == '+') {
        scan.negative = *p == '-';
        stop = ++p;
        if (p == last) return IntegerScan{};
    }

    if (base == -1) {
        base = TakeBasePrefix(p, last);
        stop = p;
        if (p == last) return IntegerScan{};
    } else if (base < 2 || base > 36) {
        return IntegerScan{};
    }

    const uint32_t limit = 0xFFFFFFFFu / uint32_t(base);
    const uint32_t rest = 0xFFFFFFFFu % uint32_t(base);
    for (; p < last; ++p) {
        const int digit = DigitValue(*p);
        if (digit >= base) break;
        if (scan.magnitude > limit || (scan.magnitude == limit && uint32_t(digit) > rest)) {
            scan.overflow = true;
        }
        if (!scan.overflow) scan.magnitude = scan.magnitude * uint32_t(base) + uint32_t(digit);
    }
    stop = p;
    return scan;
}

// Applies a decimal exponent one unit at a time; leaves the double range
// with ERANGE and infinity or zero.
long double ScaleByPowerOfTen(long double value, int64_t exponent) {
    // The limits are the double's own, largest finite and smallest normal.
    constexpr long double kLargest = 1.7976931348623157e308;
    constexpr long double kSmallest = 2.2250738585072014e-308;
    for (; exponent > 0; --exponent) {
        if (value == 0) return value;  // stays 0; no need to run the whole count
        value *= 10;
        if (value > kLargest) {
            errno = ERANGE;
            return std::numeric_limits<long double>::infinity();
        }
    }
    for (; exponent < 0; ++exponent) {
        value *= 0.1L;
        if (value < kSmallest) {
            errno = ERANGE;
            return 0;
        }
    }
    return value;
}

}  // namespace

template <class CharT>
int32_t ParseInt32(const CharT* first, const CharT* last, int base, const CharT*& stop) {
    const IntegerScan scan = ScanInteger(first, last, base, stop);
    const uint32_t bound = scan.negative ? 0x80000000u : 0x7FFFFFFFu;
    if (scan.overflow || scan.magnitude > bound) {
        errno = ERANGE;
        return scan.negative ? std::numeric_limits<int32_t>::min()
                             : std::numeric_limits<int32_t>::max();
    }
    return scan.negative ? int32_t(0u - scan.magnitude) : int32_t(scan.magnitude);
}

template <class CharT>
uint32_t ParseUInt32(const CharT* first, const CharT* last, int base, const CharT*& stop) {
    const IntegerScan scan = ScanInteger(first, last, base, stop);
    if (scan.overflow) {
        errno = ERANGE;
        return 0xFFFFFFFFu;
    }
    return scan.negative ? 0u - scan.magnitude : scan.magnitude;
}

template <class CharT>
double ParseDouble(const CharT* first, const CharT* last, const CharT*& stop) {
    stop = first;
    const CharT* p = first;
    while (p < last && IsTextSpace(*p))
        ++p;
    bool negative = false;
    if (p < last && (*p == '-' || *p == '+')) negative = *p++ == '-';

    long double value = 0;
    bool anyDigit = false;
    for (; p < last && IsDecimalDigit(*p); ++p) {
        value = value * 10 + DigitValue(*p);
        anyDigit = true;
    }
    // A point counts only with a digit behind it; otherwise it ends the
    // number, and with it any chance of an exponent.
    bool pointEnded = false;
    if (p < last && *p == '.') {
        if (p + 1 < last && IsDecimalDigit(p[1])) {
            long double factor = 1;
            for (++p; p < last && IsDecimalDigit(*p); ++p) {
                factor *= 0.1L;
                value += DigitValue(*p) * factor;
            }
            anyDigit = true;
        } else {
            pointEnded = true;
        }
    }
    if (!anyDigit) return 0;

    if (!pointEnded && p < last && (*p == 'e' || *p == 'E')) {
        ++p;
        bool negativeExponent = false;
        if (p < last && (*p == '-' || *p == '+')) negativeExponent = *p++ == '-';
        int64_t exponent = 0;
        bool exponentOverflow = false;
        for (; p < last && IsDecimalDigit(*p); ++p) {
            exponent = exponent * 10 + DigitValue(*p);
            if (exponent > std::numeric_limits<int32_t>::max()) {
                exponentOverflow = true;
                exponent = 0;  // keep scanning the digits, the value is lost
            }
        }
        if (exponentOverflow) {
            errno = ERANGE;
            value = std::numeric_limits<long double>::infinity();
        } else {
            value = ScaleByPowerOfTen(value, negativeExponent ? -exponent : exponent);
        }
    }
    stop = p;
    return double(negative ? -value : value);
}

template <class CharT>
void AppendInteger(basic_buffer<CharT>& out, uint32_t magnitude, bool negative, int base) {
    if (base < 2 || base > 36) {
        out.push_back('0');
        return;
    }
    if (negative && base == 10) out.push_back('-');
    const uint32_t firstDigit = out.size();
    do {
        out.push_back(CharT("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"[magnitude % uint32_t(base)]));
        magnitude /= uint32_t(base);
    } while (magnitude != 0);
    std::reverse(out.data() + firstDigit, out.data() + out.size());
}

#define ORLO_INSTANTIATE_NUMBERS(CharT)                                            \
    template int32_t ParseInt32(const CharT*, const CharT*, int, const CharT*&);   \
    template uint32_t ParseUInt32(const CharT*, const CharT*, int, const CharT*&); \
    template double ParseDouble(const CharT*, const CharT*, const CharT*&);        \
    template void AppendInteger(basic_buffer<CharT>&, uint32_t, bool, int);

ORLO_INSTANTIATE_NUMBERS(char)
ORLO_INSTANTIATE_NUMBERS(wchar_t)

#undef ORLO_INSTANTIATE_NUMBERS

}  // namespace Orlo::IMPL
