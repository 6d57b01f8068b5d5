// Plain and case-blind search, count and replace on the shared buffer.
//
// Two strategies. The memory expand forms (ReplaceTo...) append the result
// to a second buffer: each byte moves once. The in-place forms (Replace,
// ReplaceIC) change the buffer itself. Their results are those of the
// classic loop that replaces one match at a time and moves the whole tail
// behind it, but they get there in linear time: a replacement not longer
// than the needle compacts the buffer in one forward pass; a longer one
// counts the matches, grows the block once, moves the content to its end
// and rebuilds it from the front, the write position never overtaking the
// unread text. Matches are the same as in the classic loop, because that
// loop also searches only the original text behind each replacement.
//
// Replacement text is never searched again and matches never overlap.

#include <algorithm>
#include <cwctype>

#include "orlo/buffer.h"
#include "string/emit.h"
#include "string/prims.h"
#include "string/search.h"

namespace Orlo {

template <class CharT>
using P = IMPL::Prims<CharT>;

namespace {

// Finds a needle in [from, end), exactly or case-blind, for either width.
template <class CharT>
class Finder;

template <>
class Finder<char> {
  public:
    Finder(const char* needle, uint32_t length, bool ignoreCase)
        : m_ignoreCase(ignoreCase),
          m_plain(needle, length),
          m_folded(needle, ignoreCase ? length : 0) {}
    const char* Find(const char* from, const char* end) const {
        return m_ignoreCase ? m_folded.Find(from, end) : m_plain.Find(from, end);
    }

  private:
    bool m_ignoreCase;
    IMPL::PlainFinder m_plain;
    IMPL::FoldedFinder m_folded;
};

template <>
class Finder<wchar_t> {
  public:
    Finder(const wchar_t* needle, uint32_t length, bool ignoreCase)
        : m_needle(needle), m_length(length), m_ignoreCase(ignoreCase) {}
    const wchar_t* Find(const wchar_t* from, const wchar_t* end) const {
        if (from >= end || size_t(end - from) < m_length) return nullptr;
        const wchar_t* last = end - m_length;
        for (const wchar_t* s = from; s <= last; ++s) {
            if (!m_ignoreCase) {
                s = std::wmemchr(s, m_needle[0], size_t(last - s) + 1);
                if (!s) return nullptr;
                if (std::wmemcmp(s + 1, m_needle + 1, m_length - 1) == 0) return s;
            } else if (MatchesFolded(s)) {
                return s;
            }
        }
        return nullptr;
    }

  private:
    bool MatchesFolded(const wchar_t* s) const {
        for (uint32_t i = 0; i < m_length; ++i)
            if (std::towlower(wint_t(s[i])) != std::towlower(wint_t(m_needle[i]))) return false;
        return true;
    }

    const wchar_t* m_needle;
    uint32_t m_length;
    bool m_ignoreCase;
};

// Membership test for the byte-set forms.
template <class CharT>
class ElementSet {
  public:
    explicit ElementSet(const basic_buffer<CharT>& set) : m_set(set.c_str()), m_size(set.size()) {}
    bool Contains(CharT ch) const { return std::find(m_set, m_set + m_size, ch) != m_set + m_size; }

  private:
    const CharT* m_set;
    uint32_t m_size;
};

template <>
class ElementSet<char> {
  public:
    explicit ElementSet(const basic_buffer<char>& set) : m_member() {
        for (uint32_t i = 0; i < set.size(); ++i)
            m_member[static_cast<unsigned char>(set[i])] = true;
    }
    bool Contains(char ch) const { return m_member[static_cast<unsigned char>(ch)]; }

  private:
    bool m_member[256];
};

// First room request of the expand forms: the estimate plus what the
// destination holds plus the terminator, clipped to what a buffer can hold.
uint32_t ExpandRoom(uint64_t destLength, uint64_t estimate, uint32_t maxSize) {
    return uint32_t(std::min<uint64_t>(destLength + estimate + 1, maxSize));
}

}  // namespace

// ---- memory expand forms --------------------------------------------------------

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceTo(basic_buffer& dest, const basic_buffer& find,
                                        const basic_buffer& with, uint32_t start) const {
    return ReplaceTextTo(dest, find, with, start, false, nullptr);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceToIC(basic_buffer& dest, const basic_buffer& find,
                                          const basic_buffer& with, uint32_t start) const {
    return ReplaceTextTo(dest, find, with, start, true, nullptr);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceTo(basic_buffer& dest, const basic_buffer& find,
                                        const basic_buffer& with, uint32_t start,
                                        basic_drain<CharT>& drain) const {
    return ReplaceTextTo(dest, find, with, start, false, &drain);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceToIC(basic_buffer& dest, const basic_buffer& find,
                                          const basic_buffer& with, uint32_t start,
                                          basic_drain<CharT>& drain) const {
    return ReplaceTextTo(dest, find, with, start, true, &drain);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceTextTo(basic_buffer& dest, const basic_buffer& find,
                                            const basic_buffer& with, uint32_t start,
                                            bool ignoreCase, basic_drain<CharT>* drain) const {
    if (start >= m_length || find.empty() || empty()) return 0;
    // Shared copies keep the inputs stable should `dest` be one of them.
    const basic_buffer source(*this), needle(find), replacement(with);

    uint64_t estimate = m_length;
    if (with.m_length > find.m_length) estimate += uint64_t(with.m_length - find.m_length) << 4;
    IMPL::Emitter<CharT> out(dest, drain);
    out.Reserve(ExpandRoom(dest.m_length, estimate, max_size()));

    const CharT* base = source.m_data;
    const CharT* end = base + source.m_length;
    const CharT* copied = base;
    Finder<CharT> finder(needle.m_data, needle.m_length, ignoreCase);
    uint32_t count = 0;
    for (const CharT* hit = finder.Find(base + start, end); hit; hit = finder.Find(copied, end)) {
        out.Put(copied, uint32_t(hit - copied));
        out.Put(replacement);
        ++count;
        copied = hit + needle.m_length;
    }
    out.Put(copied, uint32_t(end - copied));
    return count;
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceSetTo(basic_buffer& dest, const basic_buffer& set,
                                           const basic_buffer& with, uint32_t start,
                                           bool runs) const {
    if (start >= m_length || set.empty() || empty()) return 0;
    const basic_buffer source(*this), members(set), replacement(with);

    uint64_t estimate = m_length;
    if (!runs && with.m_length > 1) estimate = (uint64_t(with.m_length) << 4) + m_length - 16;
    dest.reserve_exact(ExpandRoom(dest.m_length, estimate, max_size()));

    const ElementSet<CharT> inSet(members);
    const CharT* base = source.m_data;
    const CharT* end = base + source.m_length;
    const CharT* copied = base;
    uint32_t count = 0;
    for (const CharT* p = base + start; p < end; ++p) {
        if (!inSet.Contains(*p)) continue;
        dest.append(copied, uint32_t(p - copied));
        dest.append(replacement);
        ++count;
        if (runs)
            while (p + 1 < end && inSet.Contains(p[1]))
                ++p;
        copied = p + 1;
    }
    dest.append(copied, uint32_t(end - copied));
    return count;
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceAnyTo(basic_buffer& dest, const basic_buffer& set,
                                           const basic_buffer& with, uint32_t start) const {
    return ReplaceSetTo(dest, set, with, start, false);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceRunTo(basic_buffer& dest, const basic_buffer& set,
                                           const basic_buffer& with, uint32_t start) const {
    return ReplaceSetTo(dest, set, with, start, true);
}

// ---- in-place forms ------------------------------------------------------------------

template <class CharT>
uint32_t basic_buffer<CharT>::Replace(const basic_buffer& find, const basic_buffer& with,
                                      uint32_t start, bool all) {
    return ReplaceInPlace(find, with, start, all, false);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceIC(const basic_buffer& find, const basic_buffer& with,
                                        uint32_t start, bool all) {
    return ReplaceInPlace(find, with, start, all, true);
}

template <class CharT>
uint32_t basic_buffer<CharT>::ReplaceInPlace(const basic_buffer& find, const basic_buffer& with,
                                             uint32_t start, bool all, bool ignoreCase) {
    if (start >= m_length || find.empty()) return 0;
    // Private holds on the inputs: if either is this very buffer, the
    // replacement stays what it was when the call began.
    const basic_buffer needle(find), replacement(with);
    const uint32_t findLength = needle.m_length, withLength = replacement.m_length;
    Finder<CharT> finder(needle.c_str(), findLength, ignoreCase);

    const CharT* first = finder.Find(m_data + start, m_data + m_length);
    if (!first) return 0;
    uint32_t hit = uint32_t(first - m_data);

    if (!all) {
        replace(hit, findLength, replacement.c_str(), withLength);
        return 1;
    }

    if (withLength <= findLength) {
        // Compaction: the write position trails the read position.
        grow_for_write(m_length + 1);
        CharT* data = m_data;
        const CharT* end = data + m_length;
        CharT* write = data + hit;
        const CharT* read = data + hit;
        uint32_t count = 0;
        for (const CharT* match = read; match; match = finder.Find(read, end)) {
            if (write != read) P<CharT>::move(write, read, size_t(match - read));
            write += match - read;
            P<CharT>::copy(write, replacement.c_str(), withLength);
            write += withLength;
            read = match + findLength;
            ++count;
        }
        P<CharT>::move(write, read, size_t(end - read));
        write += end - read;
        set_length(uint32_t(write - data));
        return count;
    }

    // Growth: count, make room once, park the content at the end of the
    // block and rebuild it from the front.
    uint32_t count = 0;
    for (const CharT* match = first; match;
         match = finder.Find(match + findLength, m_data + m_length))
        ++count;
    const uint32_t oldLength = m_length;
    const uint32_t newLength =
        checked_size(uint64_t(oldLength) + uint64_t(count) * (withLength - findLength));
    grow_for_write(checked_size(uint64_t(newLength) + 1));
    CharT* data = m_data;
    const uint32_t parked = newLength - oldLength;
    P<CharT>::move(data + parked, data, oldLength);
    CharT* write = data;
    const CharT* read = data + parked;
    const CharT* end = data + newLength;
    for (const CharT* match = read + hit; match; match = finder.Find(read, end)) {
        P<CharT>::move(write, read, size_t(match - read));
        write += match - read;
        P<CharT>::copy(write, replacement.c_str(), withLength);
        write += withLength;
        read = match + findLength;
    }
    P<CharT>::move(write, read, size_t(end - read));
    set_length(newLength);
    return count;
}

// ---- counting and splitting -------------------------------------------------------------

template <class CharT>
uint32_t basic_buffer<CharT>::CountParts(const basic_buffer& delimiter) const noexcept {
    uint32_t parts = 1;
    if (delimiter.empty()) return parts;
    for (uint32_t pos = find(delimiter, 0); pos != npos;
         pos = find(delimiter, pos + delimiter.m_length))
        ++parts;
    return parts;
}

template <class CharT>
uint32_t basic_buffer<CharT>::CountPairs(const basic_buffer& open,
                                         const basic_buffer& close) const noexcept {
    if (open.empty() || close.empty()) return 0;
    uint32_t pairs = 0;
    for (uint32_t at = find(open, 0); at != npos;) {
        uint32_t closing = find(close, at + open.m_length);
        if (closing == npos) break;
        ++pairs;
        at = find(open, closing + close.m_length);
    }
    return pairs;
}

template <class CharT>
uint32_t basic_buffer<CharT>::FindPairs(span_list& spans, const basic_buffer& open,
                                        const basic_buffer& close) const {
    spans.clear();
    if (open.empty() || close.empty()) return 0;
    for (uint32_t at = find(open, 0); at != npos;) {
        uint32_t inside = at + open.m_length;
        uint32_t closing = find(close, inside);
        if (closing == npos) break;
        spans.emplace_back(inside, closing - inside);
        at = find(open, closing + close.m_length);
    }
    return uint32_t(spans.size());
}

template <class CharT>
uint32_t basic_buffer<CharT>::SplitOffsets(span_list& spans, const basic_buffer& delimiter) const {
    spans.clear();
    if (delimiter.empty()) return 0;
    uint32_t piece = 0;
    for (uint32_t at = find(delimiter, 0); at != npos; at = find(delimiter, piece)) {
        spans.emplace_back(piece, at - piece);
        piece = at + delimiter.m_length;
    }
    spans.emplace_back(piece, m_length - piece);
    return uint32_t(spans.size());
}

#define ORLO_INSTANTIATE_REPLACE(CharT)                                                         \
    template uint32_t basic_buffer<CharT>::ReplaceTo(basic_buffer&, const basic_buffer&,        \
                                                     const basic_buffer&, uint32_t) const;      \
    template uint32_t basic_buffer<CharT>::ReplaceToIC(basic_buffer&, const basic_buffer&,      \
                                                       const basic_buffer&, uint32_t) const;    \
    template uint32_t basic_buffer<CharT>::ReplaceTo(                                           \
        basic_buffer&, const basic_buffer&, const basic_buffer&, uint32_t, basic_drain<CharT>&) \
        const;                                                                                  \
    template uint32_t basic_buffer<CharT>::ReplaceToIC(                                         \
        basic_buffer&, const basic_buffer&, const basic_buffer&, uint32_t, basic_drain<CharT>&) \
        const;                                                                                  \
    template uint32_t basic_buffer<CharT>::ReplaceAnyTo(basic_buffer&, const basic_buffer&,     \
                                                        const basic_buffer&, uint32_t) const;   \
    template uint32_t basic_buffer<CharT>::ReplaceRunTo(basic_buffer&, const basic_buffer&,     \
                                                        const basic_buffer&, uint32_t) const;   \
    template uint32_t basic_buffer<CharT>::Replace(const basic_buffer&, const basic_buffer&,    \
                                                   uint32_t, bool);                             \
    template uint32_t basic_buffer<CharT>::ReplaceIC(const basic_buffer&, const basic_buffer&,  \
                                                     uint32_t, bool);                           \
    template uint32_t basic_buffer<CharT>::CountParts(const basic_buffer&) const noexcept;      \
    template uint32_t basic_buffer<CharT>::CountPairs(const basic_buffer&, const basic_buffer&) \
        const noexcept;                                                                         \
    template uint32_t basic_buffer<CharT>::FindPairs(span_list&, const basic_buffer&,           \
                                                     const basic_buffer&) const;                \
    template uint32_t basic_buffer<CharT>::SplitOffsets(span_list&, const basic_buffer&) const; \
    template uint32_t basic_buffer<CharT>::ReplaceTextTo(basic_buffer&, const basic_buffer&,    \
                                                         const basic_buffer&, uint32_t, bool,   \
                                                         basic_drain<CharT>*) const;            \
    template uint32_t basic_buffer<CharT>::ReplaceSetTo(                                        \
        basic_buffer&, const basic_buffer&, const basic_buffer&, uint32_t, bool) const;         \
    template uint32_t basic_buffer<CharT>::ReplaceInPlace(                                      \
        const basic_buffer&, const basic_buffer&, uint32_t, bool, bool);

ORLO_INSTANTIATE_REPLACE(char)
ORLO_INSTANTIATE_REPLACE(wchar_t)

}  // namespace Orlo
