// Helpers shared by the text-service tests: conversions between the library's
// strings and std::string, so that expectations read as plain literals, and
// an ASCII widening that lets one table run through stringEx and wstringEx.

#ifndef ORLO_TESTS_STRING_TEXT_HELPERS_H
#define ORLO_TESTS_STRING_TEXT_HELPERS_H

#include <string>
#include <string_view>
#include <type_traits>

#include "orlo/stringEx.h"

namespace text_test {

// The content, binary-safe.
inline std::string Str(const Orlo::basic_buffer<char>& s) {
    return std::string(s.c_str(), s.size());
}

// A string of either width holding exactly these bytes (zeros included), so
// that one table can be run through stringEx and wstringEx alike.
inline Orlo::stringEx Narrow(std::string_view bytes) {
    return Orlo::stringEx(bytes.data(), uint32_t(bytes.size()));
}

inline Orlo::wstringEx Wide(std::string_view bytes) {
    Orlo::wstringEx w;
    for (unsigned char c : bytes)
        w.push_back(wchar_t(c));
    return w;
}

template <class S>
S Make(std::string_view bytes) {
    if constexpr (std::is_same_v<S, Orlo::stringEx>) {
        return Narrow(bytes);
    } else {
        return Wide(bytes);
    }
}

// Back from wide; an element outside 0..255 shows as '?' rather than be
// truncated into a byte that might pass a comparison.
inline std::string Str(const Orlo::basic_buffer<wchar_t>& w) {
    std::string out;
    for (uint32_t i = 0; i < w.size(); ++i) {
        const wchar_t c = w.c_str()[i];
        out.push_back(c >= 0 && c < 256 ? char(c) : '?');
    }
    return out;
}

}  // namespace text_test

#endif  // ORLO_TESTS_STRING_TEXT_HELPERS_H
