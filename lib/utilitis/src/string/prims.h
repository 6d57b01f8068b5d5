// Element block primitives for the two widths of the shared buffer: the
// byte forms are the C library's mem* functions, the wide forms its wmem*
// twins. Implementation details only.

#ifndef ORLO_SRC_STRING_PRIMS_H
#define ORLO_SRC_STRING_PRIMS_H

#include <cstring>
#include <cwchar>

namespace Orlo::IMPL {

template <class CharT>
struct Prims;

template <>
struct Prims<char> {
    static void copy(char* d, const char* s, size_t n) { std::memcpy(d, s, n); }
    static void move(char* d, const char* s, size_t n) { std::memmove(d, s, n); }
    static void fill(char* d, char c, size_t n) { std::memset(d, c, n); }
    static const char* chr(const char* s, char c, size_t n) {
        return static_cast<const char*>(std::memchr(s, c, n));
    }
    static int cmp(const char* a, const char* b, size_t n) { return std::memcmp(a, b, n); }
    static size_t len(const char* s) { return std::strlen(s); }
};

template <>
struct Prims<wchar_t> {
    static void copy(wchar_t* d, const wchar_t* s, size_t n) { std::wmemcpy(d, s, n); }
    static void move(wchar_t* d, const wchar_t* s, size_t n) { std::wmemmove(d, s, n); }
    static void fill(wchar_t* d, wchar_t c, size_t n) { std::wmemset(d, c, n); }
    static const wchar_t* chr(const wchar_t* s, wchar_t c, size_t n) {
        return std::wmemchr(s, c, n);
    }
    static int cmp(const wchar_t* a, const wchar_t* b, size_t n) { return std::wmemcmp(a, b, n); }
    static size_t len(const wchar_t* s) { return std::wcslen(s); }
};

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_STRING_PRIMS_H
