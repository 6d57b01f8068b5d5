// Regular-expression search and replace on strings.

#include "orlo/regex_replace.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "string/emit.h"

namespace Orlo {
namespace {

template <class CharT>
bool newline_sensitive(const basic_regex_handle<CharT>& handle) {
    return (handle.flags() & REG_NEWLINE) != 0;
}

// Whether a search starting at `start` of `text` starts a line, as far as
// the handle's rules go: without newline sensitivity only the text's start
// does; with it, also the place behind a line feed.
template <class CharT>
int line_start_flag(const basic_regex_handle<CharT>& handle, const CharT* text, uint32_t start) {
    if (newline_sensitive(handle) && text[start - 1] == CharT('\n')) return 0;
    return REG_NOTBOL;
}

}  // namespace

template <class CharT>
bool RegFind(const basic_buffer<CharT>& subject, CRegMatch& match,
             const basic_regex_handle<CharT>& handle, uint32_t nth, uint32_t start, bool notbol,
             bool noteol, bool rescan) {
    match.clear();
    const uint32_t length = subject.size();
    if (handle.empty() || start >= length) return false;
    int flags = REG_STARTEND | (notbol ? REG_NOTBOL : 0) | (noteol ? REG_NOTEOL : 0);
    const CharT* text = subject.c_str();
    regmatch_t m[kRegexPairs];
    uint32_t lastEnd = 0;
    bool lastEmpty = false;
    for (uint32_t found = 0;;) {
        start += lastEnd;
        if (lastEmpty && ++start >= length) return false;
        if (start != 0 && (rescan || found != 0))
            flags = (flags & ~REG_NOTBOL) | line_start_flag(handle, text, start);
        if (engine_exec(handle.get(), text + start, length - start, nullptr, kRegexPairs, m,
                        flags) != 0)
            return false;
        lastEnd = uint32_t(m[0].rm_eo);
        lastEmpty = m[0].rm_eo == 0;
        if (++found <= nth) continue;
        append_match_pairs(match, m, handle.get()->re_nsub, start);
        return true;
    }
}

template <class CharT>
basic_buffer<CharT> ExpandTemplate(const basic_buffer<CharT>& tmpl, const CRegMatch& match,
                                   const basic_buffer<CharT>& subject) {
    basic_buffer<CharT> out =
        tmpl.is_view() ? basic_buffer<CharT>(tmpl.c_str(), tmpl.size()) : tmpl;
    uint32_t pos = 0;
    for (;;) {
        const uint32_t at = out.find(CharT('\\'), pos);
        if (at == npos) break;
        if (at + 1 == out.size()) {
            out.erase(at, 1);
            break;
        }
        const CharT next = out.c_str()[at + 1];
        if (next < CharT('0') || next > CharT('9')) {
            out.erase(at, 1);
            pos = at + 1;
            continue;
        }
        const size_t d = size_t(next - CharT('0'));
        if (d >= match.size()) {
            out.erase(at, 2);
            pos = at;
            continue;
        }
        const auto [offset, len] = match[d];
        const uint32_t n = offset < subject.size() ? std::min(len, subject.size() - offset) : 0;
        out.replace(at, 2, subject.c_str() + (n ? offset : 0), n);
        pos = at + n;
    }
    return out;
}

namespace {

template <class CharT>
uint32_t RegReplaceEmitting(const basic_buffer<CharT>& source, basic_buffer<CharT>& dest,
                            const basic_regex_handle<CharT>& handle,
                            basic_buffer<CharT> replacement, bool notbol, bool noteol, bool prepare,
                            basic_drain<CharT>* drain) {
    if (handle.empty()) return 0;
    if (prepare)
        EscapeTranslate(replacement, CharT('\\'), plain_escape_table<CharT>(), false, true);
    const uint32_t length = source.size();
    IMPL::Emitter<CharT> out(dest, drain);
    out.Reserve(uint64_t(length) + dest.size() + 1 + (length >> 3));

    const bool sensitive = newline_sensitive(handle);
    const CharT* text = source.c_str();
    CRegMatch match;
    uint32_t copied = 0;
    uint32_t pos = 0;
    uint32_t count = 0;
    while (RegFind(source, match, handle, 0, pos, notbol, noteol, false)) {
        const auto [offset, len] = match[0];
        out.Put(text + copied, std::min(length - copied, offset - copied));
        out.Put(ExpandTemplate(replacement, match, source));
        copied = offset + len;
        pos = copied + (len == 0 ? 1 : 0);
        // The next search sees the output, not the source: what was just
        // written decides whether it starts a line.
        if (!sensitive)
            notbol = out.Grown();
        else
            notbol = out.Grown() && out.Last() != CharT('\n');
        ++count;
    }
    if (copied < length) out.Put(text + copied, length - copied);
    return count;
}

}  // namespace

template <class CharT>
uint32_t RegReplaceTo(const basic_buffer<CharT>& source, basic_buffer<CharT>& dest,
                      const basic_regex_handle<CharT>& handle, basic_buffer<CharT> replacement,
                      bool notbol, bool noteol, bool prepare) {
    return RegReplaceEmitting(source, dest, handle, std::move(replacement), notbol, noteol, prepare,
                              static_cast<basic_drain<CharT>*>(nullptr));
}

template <class CharT>
uint32_t RegReplaceTo(const basic_buffer<CharT>& source, basic_buffer<CharT>& dest,
                      const basic_regex_handle<CharT>& handle, basic_buffer<CharT> replacement,
                      bool notbol, bool noteol, bool prepare, basic_drain<CharT>& drain) {
    return RegReplaceEmitting(source, dest, handle, std::move(replacement), notbol, noteol, prepare,
                              &drain);
}

namespace {

// The result of an in-place replace, built as the text is read from left to
// right. While no replacement has been longer than its match, the result is
// written into the text's own block behind the read position; the first
// that would overtake it moves the result to a block of its own.
template <class CharT>
class InPlaceResult {
  public:
    explicit InPlaceResult(basic_buffer<CharT>& text) : m_text(text) {
        // A view borrows memory it may not write, and a shared block is
        // someone else's too.
        if (m_text.is_view()) m_text = basic_buffer<CharT>(m_text.c_str(), m_text.size());
        m_text.grow_for_write(m_text.size() + 1);
    }

    // Appends text[from, from + n), which lies at or behind the read
    // position and so is still as it was.
    void PutText(uint32_t from, uint32_t n) {
        if (m_apart) {
            m_result.append(m_text.c_str() + from, n);
        } else {
            if (m_written != from)
                std::memmove(m_text.data() + m_written, m_text.c_str() + from,
                             size_t(n) * sizeof(CharT));
            m_written += n;
        }
    }
    // Appends a replacement; `readFrom` is where reading goes on after it.
    void PutReplacement(const basic_buffer<CharT>& piece, uint32_t readFrom) {
        if (!m_apart && m_written + piece.size() > readFrom) MoveApart();
        if (m_apart) {
            m_result.append(piece);
        } else {
            std::copy(piece.c_str(), piece.c_str() + piece.size(), m_text.data() + m_written);
            m_written += piece.size();
        }
    }

    uint32_t Size() const { return m_apart ? m_result.size() : m_written; }
    CharT Last() const {
        return m_apart ? m_result.c_str()[m_result.size() - 1] : m_text.c_str()[m_written - 1];
    }

    // Makes the text the result.
    void Finish() {
        if (m_apart)
            m_text.swap(m_result);
        else
            m_text.set_length(m_written);
    }

  private:
    void MoveApart() {
        m_apart = true;
        const uint64_t room = uint64_t(m_text.size()) + m_text.size() / 8 + 1;
        m_result.reserve_exact(uint32_t(std::min<uint64_t>(room, basic_buffer<CharT>::max_size())));
        m_result.append(m_text.c_str(), m_written);
    }

    basic_buffer<CharT>& m_text;
    basic_buffer<CharT> m_result;
    uint32_t m_written = 0;
    bool m_apart = false;
};

}  // namespace

// The classic loop replaces one match at a time inside the text and searches
// on behind the replacement, so each search sees the unchanged rest of the
// text and, for its line start, the element before it in the changed text.
// This gives its result without moving the rest at every match: the changed
// part is built apart from the unread rest, and each search starts in the
// rest with the line start that the changed text's last element gives.
template <class CharT>
uint32_t RegReplace(basic_buffer<CharT>& text, const basic_regex_handle<CharT>& handle,
                    basic_buffer<CharT> replacement, bool notbol, bool noteol, bool prepare) {
    if (prepare)
        EscapeTranslate(replacement, CharT('\\'), plain_escape_table<CharT>(), false, true);
    CRegMatch match;
    if (!RegFind(text, match, handle, 0, 0, notbol, noteol, true)) return 0;

    const bool sensitive = newline_sensitive(handle);
    InPlaceResult<CharT> result(text);
    const uint32_t length = text.size();
    uint32_t read = 0;  // where the unread rest of the text begins
    uint32_t count = 0;
    do {
        const auto [offset, len] = match[0];
        const basic_buffer<CharT> expanded = ExpandTemplate(replacement, match, text);
        result.PutText(read, offset - read);
        read = offset + std::min(len, length - offset);
        result.PutReplacement(expanded, read);
        ++count;
        // An empty match lets the element behind it through unchanged.
        if (len == 0) {
            if (read >= length) break;
            result.PutText(read, 1);
            ++read;
        }
        if (read >= length) break;
        const bool lineStart =
            result.Size() == 0 ? !notbol : sensitive && result.Last() == CharT('\n');
        if (!RegFind(text, match, handle, 0, read, !lineStart, noteol, false)) break;
    } while (true);
    result.PutText(read, length - read);
    result.Finish();
    return count;
}

template <class CharT>
bool RegMatches(const basic_buffer<CharT>& subject, const basic_regex_handle<CharT>& handle,
                bool notbol, bool noteol) {
    if (handle.empty()) return false;
    const int flags = REG_STARTEND | (notbol ? REG_NOTBOL : 0) | (noteol ? REG_NOTEOL : 0);
    return engine_exec(handle.get(), subject.c_str(), subject.size(), nullptr, 0, nullptr, flags) ==
           REG_OKAY;
}

template <class CharT>
bool RegRange(const basic_buffer<CharT>& subject, const basic_regex_handle<CharT>& handle,
              uint32_t& start, uint32_t& end, bool notbol, bool noteol) {
    if (handle.empty()) return false;
    const int flags = REG_STARTEND | (notbol ? REG_NOTBOL : 0) | (noteol ? REG_NOTEOL : 0);
    regmatch_t m[1];
    if (engine_exec(handle.get(), subject.c_str(), subject.size(), nullptr, 1, m, flags) !=
        REG_OKAY)
        return false;
    start = uint32_t(m[0].rm_so);
    end = uint32_t(m[0].rm_eo);
    return true;
}

#define ORLO_INSTANTIATE_REGEX_REPLACE(CharT)                                                      \
    template bool RegFind(const basic_buffer<CharT>&, CRegMatch&,                                  \
                          const basic_regex_handle<CharT>&, uint32_t, uint32_t, bool, bool, bool); \
    template uint32_t RegReplaceTo(const basic_buffer<CharT>&, basic_buffer<CharT>&,               \
                                   const basic_regex_handle<CharT>&, basic_buffer<CharT>, bool,    \
                                   bool, bool);                                                    \
    template uint32_t RegReplaceTo(const basic_buffer<CharT>&, basic_buffer<CharT>&,               \
                                   const basic_regex_handle<CharT>&, basic_buffer<CharT>, bool,    \
                                   bool, bool, basic_drain<CharT>&);                               \
    template uint32_t RegReplace(basic_buffer<CharT>&, const basic_regex_handle<CharT>&,           \
                                 basic_buffer<CharT>, bool, bool, bool);                           \
    template basic_buffer<CharT> ExpandTemplate(const basic_buffer<CharT>&, const CRegMatch&,      \
                                                const basic_buffer<CharT>&);                       \
    template bool RegMatches(const basic_buffer<CharT>&, const basic_regex_handle<CharT>&, bool,   \
                             bool);                                                                \
    template bool RegRange(const basic_buffer<CharT>&, const basic_regex_handle<CharT>&,           \
                           uint32_t&, uint32_t&, bool, bool);

ORLO_INSTANTIATE_REGEX_REPLACE(char)
ORLO_INSTANTIATE_REGEX_REPLACE(wchar_t)

#undef ORLO_INSTANTIATE_REGEX_REPLACE

}  // namespace Orlo
