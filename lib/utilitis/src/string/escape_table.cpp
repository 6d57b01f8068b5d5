// Table-driven escape translation.

#include "orlo/escape_table.h"

#include <cstring>
#include <cwchar>

namespace Orlo {
namespace {

size_t text_length(const char* s) {
    return std::strlen(s);
}
size_t text_length(const wchar_t* s) {
    return std::wcslen(s);
}

// The row whose written form stands at `at` in `text`, or null.
template <class CharT>
const escape_entry<CharT>* find_row(const basic_buffer<CharT>& text, uint32_t at,
                                    const escape_entry<CharT>* table) {
    const uint32_t rest = text.size() - at;
    for (const escape_entry<CharT>* row = table; row->written[0]; ++row) {
        const size_t n = text_length(row->written);
        if (n <= rest && std::char_traits<CharT>::compare(text.c_str() + at, row->written, n) == 0)
            return row;
    }
    return nullptr;
}

}  // namespace

template <class CharT>
void EscapeTranslate(basic_buffer<CharT>& text, CharT escape, const escape_entry<CharT>* table,
                     bool dropUnknown, bool keepDouble) {
    uint32_t pos = 0;
    for (;;) {
        const uint32_t at = text.find(escape, pos);
        if (at == npos) return;
        if (at + 1 == text.size()) {
            if (dropUnknown) text.erase(at, 1);
            return;
        }
        if (text.c_str()[at + 1] == escape) {
            if (keepDouble) {
                pos = at + 2;
            } else {
                text.erase(at, 1);
                pos = at + 1;
            }
            continue;
        }
        if (const escape_entry<CharT>* row = find_row(text, at + 1, table)) {
            const uint32_t written = uint32_t(text_length(row->written));
            const uint32_t meant = uint32_t(text_length(row->meant));
            text.replace(at, written + 1, row->meant, meant);
            pos = at + meant;
        } else if (dropUnknown) {
            text.erase(at, 1);
            pos = at;
        } else {
            pos = at + 1;
        }
    }
}

template <>
const escape_entry<char>* plain_escape_table<char>() {
    static constexpr escape_entry<char> table[] = {
        {"r", "\r"}, {"n", "\n"},  {"b", "\b"}, {"t", "\t"},
        {"v", "\v"}, {"\"", "\""}, {"'", "'"},  {"", ""},
    };
    return table;
}

template <>
const escape_entry<wchar_t>* plain_escape_table<wchar_t>() {
    static constexpr escape_entry<wchar_t> table[] = {
        {L"r", L"\r"}, {L"n", L"\n"},  {L"b", L"\b"}, {L"t", L"\t"},
        {L"v", L"\v"}, {L"\"", L"\""}, {L"'", L"'"},  {L"", L""},
    };
    return table;
}

template void EscapeTranslate(basic_buffer<char>&, char, const escape_entry<char>*, bool, bool);
template void EscapeTranslate(basic_buffer<wchar_t>&, wchar_t, const escape_entry<wchar_t>*, bool,
                              bool);

}  // namespace Orlo
