// Helpers shared by the text-service tests: one table of byte literals runs
// through both widths, and results come back as std::string.

#ifndef ORLO_TESTS_STRING_TEXT_HELPERS_H
#define ORLO_TESTS_STRING_TEXT_HELPERS_H

#include <string>
#include <string_view>
#include <type_traits>

#include "orlo/stringEx.h"

namespace text_test {

// A string of either width holding exactly these bytes, zeros included.
template <class S>
S Make(std::string_view bytes) {
    S s;
    for (unsigned char c : bytes)
        s.push_back(typename S::value_type(c));
    return s;
}

// The content, binary-safe. A wide element outside 0..255 shows as '?' rather
// than be truncated into a byte that might pass a comparison.
template <class CharT>
std::string Str(const Orlo::basic_buffer<CharT>& s) {
    std::string out;
    for (uint32_t i = 0; i < s.size(); ++i) {
        const auto c = std::make_unsigned_t<CharT>(s.c_str()[i]);
        out.push_back(c < 256 ? char(c) : '?');
    }
    return out;
}

}  // namespace text_test

#endif  // ORLO_TESTS_STRING_TEXT_HELPERS_H
