// Table-driven escape translation, on the library's escape expansion.

#include "orlo/escape_table.h"

#include <cstring>
#include <cwchar>

#include "orlo/match_cmd.h"
#include "string/text_impl.h"

namespace Orlo {
namespace {

size_t text_length(const char* s) {
    return std::strlen(s);
}
size_t text_length(const wchar_t* s) {
    return std::wcslen(s);
}

// Matches the text behind an escape against the rows, in order.
template <class CharT>
class table_cmd : public IMPL::text_match_cmd<CharT> {
  public:
    explicit table_cmd(const escape_entry<CharT>* table) : m_table(table) {}

    int Match(const IMPL::text_string_t<CharT>& view, IMPL::text_string_t<CharT>& out) override {
        for (const escape_entry<CharT>* row = m_table; row->written[0]; ++row) {
            const size_t n = text_length(row->written);
            if (n <= view.size() &&
                std::char_traits<CharT>::compare(view.c_str(), row->written, n) == 0) {
                out.assign(row->meant, uint32_t(text_length(row->meant)));
                m_used = uint32_t(n);
                return 1;
            }
        }
        return 0;
    }
    uint32_t MatchLength() override { return m_used; }

  private:
    const escape_entry<CharT>* m_table;
    uint32_t m_used = 0;
};

}  // namespace

template <class CharT>
void EscapeTranslate(basic_buffer<CharT>& text, CharT escape, const escape_entry<CharT>* table,
                     bool dropUnknown, bool keepDouble) {
    table_cmd<CharT> cmd(table);
    IMPL::ExpandEscapesFrom<CharT>(text, 0, escape, cmd, dropUnknown, keepDouble, dropUnknown);
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
