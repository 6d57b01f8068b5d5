// The shared buffer: record states, room arithmetic, and the
// std::basic_string-like content operations. See orlo/buffer.h.
//
// Every writer follows one pattern: compute the new length in 64 bits,
// check it against max_size, ask grow_for_write for length + 1, then move
// elements and write the terminator. A source that may lie inside the
// content is turned into an offset before the room request, because growth
// may move the block.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <istream>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include <sys/mman.h>

#include "orlo/buffer.h"
#include "string/prims.h"

namespace Orlo {

namespace {

// Blocks this large hold whole files. Asking the kernel for huge pages
// there cuts the page faults of a first touch by a factor of 512, which
// is most of the cost of reading a large input; elsewhere it is a no-op.
constexpr size_t kHugePageWorthy = size_t(8) << 20;

void AdviseLargeBlock(void* block, size_t bytes) {
#ifdef MADV_HUGEPAGE
    if (bytes < kHugePageWorthy) return;
    const uintptr_t page = 4096;
    uintptr_t start = (reinterpret_cast<uintptr_t>(block) + page - 1) & ~(page - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(page - 1);
    if (end > start) (void)madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
#else
    (void)block;
    (void)bytes;
#endif
}

template <class CharT>
CharT* AllocateElements(uint32_t count) {
    size_t bytes = size_t(count) * sizeof(CharT);
    void* block = std::malloc(bytes);
    if (!block) throw std::bad_alloc();
    AdviseLargeBlock(block, bytes);
    return static_cast<CharT*>(block);
}

// Grows a unique block. A large block is a mapping of its own, which
// realloc moves without copying a byte; it is deliberately not advised
// towards huge pages, which the kernel cannot move that way (the block
// would be copied, and memory doubled, at every growth).
template <class CharT>
CharT* ReallocateElements(CharT* data, uint32_t count) {
    void* block = std::realloc(data, size_t(count) * sizeof(CharT));
    if (!block) throw std::bad_alloc();
    return static_cast<CharT*>(block);
}

template <class CharT>
uint32_t TextLength(const CharT* text) {
    if (!text) return 0;
    size_t n = IMPL::Prims<CharT>::len(text);
    return n > basic_buffer<CharT>::max_size() ? basic_buffer<CharT>::max_size() : uint32_t(n);
}

}  // namespace

template <class CharT>
using P = IMPL::Prims<CharT>;

// ---- creation and sharing ----------------------------------------------------

template <class CharT>
const CharT* basic_buffer<CharT>::empty_text() noexcept {
    static const CharT empty[1] = {CharT()};
    return empty;
}

template <class CharT>
uint32_t basic_buffer<CharT>::checked_size(uint64_t n) {
    if (n > max_size()) throw std::bad_alloc();
    return uint32_t(n);
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(const CharT* text) : basic_buffer(text, TextLength(text)) {}

template <class CharT>
basic_buffer<CharT>::basic_buffer(const CharT* text, uint32_t count) {
    assign_discard(checked_size(uint64_t(count) + 1));
    if (count) P<CharT>::copy(m_data, text, count);
    set_length(count);
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(uint32_t count, CharT ch) {
    assign_discard(checked_size(uint64_t(count) + 1));
    P<CharT>::fill(m_data, ch, count);
    set_length(count);
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(as_view_t, const CharT* text) noexcept
    : m_data(const_cast<CharT*>(text)), m_length(TextLength(text)), m_capacity(view_sentinel) {}

template <class CharT>
basic_buffer<CharT>::basic_buffer(as_view_t, const CharT* text, uint32_t count) noexcept
    : m_data(const_cast<CharT*>(text)), m_length(count), m_capacity(view_sentinel) {}

template <class CharT>
basic_buffer<CharT>::basic_buffer(as_view_t, const basic_buffer& other, uint32_t pos,
                                  uint32_t n) noexcept {
    pos = std::min(pos, other.m_length);
    m_data = other.m_data ? other.m_data + pos : nullptr;
    m_length = std::min(n, other.m_length - pos);
    m_capacity = view_sentinel;
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(const basic_buffer& other) noexcept {
    share(other);
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(basic_buffer&& other) noexcept
    : m_data(other.m_data),
      m_refs(other.m_refs),
      m_length(other.m_length),
      m_capacity(other.m_capacity) {
    other.m_data = nullptr;
    other.m_refs = nullptr;
    other.m_length = other.m_capacity = 0;
}

template <class CharT>
basic_buffer<CharT>::basic_buffer(const basic_buffer& other, uint32_t pos, uint32_t n) {
    pos = std::min(pos, other.m_length);
    if (pos == 0 && n >= other.m_length) {
        share(other);
        return;
    }
    uint32_t count = std::min(other.m_length - pos, n);
    assign_discard(count + 1);
    if (count) P<CharT>::copy(m_data, other.m_data + pos, count);
    set_length(count);
}

template <class CharT>
void basic_buffer<CharT>::share(const basic_buffer& other) noexcept {
    m_data = other.m_data;
    m_refs = other.m_refs;
    if (m_refs) m_refs->fetch_add(1, std::memory_order_acq_rel);
    m_length = other.m_length;
    m_capacity = other.m_capacity;
}

template <class CharT>
void basic_buffer<CharT>::release() noexcept {
    if (!m_refs) return;
    if (m_refs->fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete m_refs;
        std::free(m_data);
    }
    m_refs = nullptr;
    m_data = nullptr;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::operator=(const basic_buffer& other) noexcept {
    if (this == &other) return *this;
    if (m_data != other.m_data) {
        release();
        m_data = other.m_data;
        m_refs = other.m_refs;
        if (m_refs) m_refs->fetch_add(1, std::memory_order_acq_rel);
    }
    m_length = other.m_length;
    m_capacity = other.m_capacity;
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::operator=(basic_buffer&& other) noexcept {
    if (this == &other) return *this;
    basic_buffer taken(std::move(other));
    swap(taken);
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::assign(const CharT* text, uint32_t count) {
    uint32_t offset = offset_in_content(text);
    if (offset != npos && is_unique()) {
        // Keep only the range: drop the tail, then move the head away. Also
        // serves a pointer at data with a count reaching past the length.
        if (uint64_t(offset) + count > m_length && !(offset == 0 && count < m_capacity)) {
            basic_buffer copy(text, count);
            swap(copy);
            return *this;
        }
        if (offset) P<CharT>::move(m_data, m_data + offset, count);
        set_length(count);
        return *this;
    }
    if (offset != npos) {
        // Shared block: a fresh block is made before ours is let go.
        basic_buffer copy(text, count);
        swap(copy);
        return *this;
    }
    assign_discard(checked_size(uint64_t(count) + 1));
    if (count) P<CharT>::copy(m_data, text, count);
    set_length(count);
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::assign(const CharT* text) {
    return assign(text ? text : empty_text(), TextLength(text));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::assign(const basic_buffer& other, uint32_t pos,
                                                 uint32_t n) {
    if (&other != this) {
        basic_buffer part(other, pos, n);
        return *this = part;
    }
    pos = std::min(pos, m_length);
    uint32_t count = std::min(m_length - pos, n);
    if (pos == 0 && count == m_length) return *this;
    erase(pos + count);
    return erase(0, pos);
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::assign(uint32_t count, CharT ch) {
    assign_discard(checked_size(uint64_t(count) + 1));
    P<CharT>::fill(m_data, ch, count);
    set_length(count);
    return *this;
}

template <class CharT>
void basic_buffer<CharT>::assign_view(const CharT* text, uint32_t length) {
    if (text && text == m_data && m_refs) {
        // Give up ownership of our own block without freeing it.
        delete m_refs;
        m_refs = nullptr;
    } else {
        release();
    }
    m_data = const_cast<CharT*>(text);
    m_length = length;
    m_capacity = view_sentinel;
}

template <class CharT>
void basic_buffer<CharT>::assign_view(const CharT* text) {
    assign_view(text, TextLength(text));
}

template <class CharT>
void basic_buffer<CharT>::assign_view(const basic_buffer& other, uint32_t pos, uint32_t n) {
    pos = std::min(pos, other.m_length);
    uint32_t length = std::min(n, other.m_length - pos);
    assign_view(other.m_data ? other.m_data + pos : nullptr, length);
}

template <class CharT>
void basic_buffer<CharT>::attach(CharT* block, uint32_t length, uint32_t capacity) {
    if (block != m_data) {
        counter_type* refs = block ? new counter_type(1) : nullptr;
        release();
        m_data = block;
        m_refs = refs;
    }
    m_length = length;
    m_capacity = capacity;
}

template <class CharT>
void basic_buffer<CharT>::unview() {
    if (!is_view()) return;
    CharT* block = AllocateElements<CharT>(checked_size(uint64_t(m_length) + 1));
    counter_type* refs;
    try {
        refs = new counter_type(1);
    } catch (...) {
        std::free(block);
        throw;
    }
    if (m_length) P<CharT>::copy(block, m_data, m_length);
    block[m_length] = CharT();
    m_data = block;
    m_refs = refs;
    m_capacity = m_length + 1;
}

template <class CharT>
void basic_buffer<CharT>::clear() noexcept {
    if (!m_data) return;
    if (!is_unique()) {
        release();
        m_length = m_capacity = 0;
        return;
    }
    m_length = 0;
    m_data[0] = CharT();
}

template <class CharT>
void basic_buffer<CharT>::swap(basic_buffer& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_refs, other.m_refs);
    std::swap(m_length, other.m_length);
    std::swap(m_capacity, other.m_capacity);
}

// ---- room ---------------------------------------------------------------------

namespace {

// A counter holding 1 for a new block; frees the block if the counter can't
// be had, so that a failed room request leaves the record as it was.
template <class CharT>
typename basic_buffer<CharT>::counter_type* NewCounterFor(CharT* block) {
    try {
        return new typename basic_buffer<CharT>::counter_type(1);
    } catch (...) {
        std::free(block);
        throw;
    }
}

}  // namespace

template <class CharT>
void basic_buffer<CharT>::copy_to_private_block(uint32_t size) {
    CharT* block = AllocateElements<CharT>(size);
    counter_type* refs = NewCounterFor(block);
    if (m_length) P<CharT>::copy(block, m_data, m_length);
    release();
    m_data = block;
    m_refs = refs;
    m_capacity = size;
}

template <class CharT>
void basic_buffer<CharT>::grow_for_write(uint32_t n) {
    if (n > max_size()) throw std::bad_alloc();
    if (!is_unique()) {
        copy_to_private_block(std::min<uint32_t>(std::max(n, m_length) | round_mask, max_size()));
        return;
    }
    if (n <= m_capacity) return;
    uint64_t wanted = uint64_t(n | round_mask) + (m_capacity >> 1);
    uint32_t size = uint32_t(std::min<uint64_t>(wanted, max_size()));
    CharT* block = ReallocateElements(m_data, size);
    // Only a Null record reaches here without a counter (a view's capacity
    // passes every request); on failure the record stays Null.
    if (!m_refs) m_refs = NewCounterFor(block);
    m_data = block;
    m_capacity = size;
}

template <class CharT>
void basic_buffer<CharT>::reserve_exact(uint32_t n) {
    if (n > max_size()) throw std::bad_alloc();
    if (!is_unique()) {
        copy_to_private_block(std::max(n, m_length));
        return;
    }
    if (n <= m_capacity) return;
    CharT* block = ReallocateElements(m_data, n);
    if (!m_refs) m_refs = NewCounterFor(block);
    m_data = block;
    m_capacity = n;
}

template <class CharT>
void basic_buffer<CharT>::assign_discard(uint32_t n) {
    if (n > max_size()) throw std::bad_alloc();
    if (is_unique() && n <= m_capacity) return;
    CharT* block = AllocateElements<CharT>(n);
    counter_type* refs = NewCounterFor(block);
    release();
    m_data = block;
    m_refs = refs;
    m_capacity = n;
}

template <class CharT>
void basic_buffer<CharT>::resize(uint32_t n, CharT fill) {
    reserve_exact(checked_size(uint64_t(m_length) + 1));
    m_data[m_length] = CharT();
    if (n > m_length)
        append(n - m_length, fill);
    else
        set_length(n);
}

// ---- access ---------------------------------------------------------------------

template <class CharT>
CharT& basic_buffer<CharT>::at(uint32_t pos) {
    if (pos >= m_length) throw std::out_of_range("basic_buffer::at - offset out of range");
    reserve_exact(m_length + 1);
    m_data[m_length] = CharT();
    return m_data[pos];
}

template <class CharT>
const CharT& basic_buffer<CharT>::at(uint32_t pos) const {
    if (pos >= m_length) throw std::out_of_range("basic_buffer::at - offset out of range");
    return m_data[pos];
}

template <class CharT>
typename basic_buffer<CharT>::iterator basic_buffer<CharT>::begin() {
    reserve_exact(checked_size(uint64_t(m_length) + 1));
    m_data[m_length] = CharT();
    return m_data;
}

template <class CharT>
typename basic_buffer<CharT>::iterator basic_buffer<CharT>::end() {
    return begin() + m_length;
}

// ---- content operations ------------------------------------------------------------

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::append(const CharT* text, uint32_t count) {
    if (count == 0) return *this;
    uint32_t offset = offset_in_content(text);
    uint32_t length = checked_size(uint64_t(m_length) + count);
    grow_for_write(checked_size(uint64_t(length) + 1));
    const CharT* source = offset != npos ? m_data + offset : text;
    P<CharT>::move(m_data + m_length, source, count);
    set_length(length);
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::append(const CharT* text) {
    return append(text, TextLength(text));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::append(const basic_buffer& other, uint32_t pos,
                                                 uint32_t n) {
    pos = std::min(pos, other.m_length);
    return append(other.c_str() + pos, std::min(n, other.m_length - pos));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::append(uint32_t count, CharT ch) {
    if (count == 0) return *this;
    uint32_t length = checked_size(uint64_t(m_length) + count);
    grow_for_write(checked_size(uint64_t(length) + 1));
    P<CharT>::fill(m_data + m_length, ch, count);
    set_length(length);
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::insert(uint32_t pos, const CharT* text) {
    return replace(pos, 0, text, TextLength(text));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::insert(uint32_t pos, const basic_buffer& other,
                                                 uint32_t subpos, uint32_t n) {
    return replace(pos, 0, other, subpos, n);
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::erase(uint32_t pos, uint32_t n) {
    pos = std::min(pos, m_length);
    n = std::min(n, m_length - pos);
    if (n == 0) return *this;
    grow_for_write(m_length + 1);
    P<CharT>::move(m_data + pos, m_data + pos + n, m_length - pos - n);
    set_length(m_length - n);
    return *this;
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::replace(uint32_t pos, uint32_t n, const CharT* text,
                                                  uint32_t count) {
    pos = std::min(pos, m_length);
    n = std::min(n, m_length - pos);
    uint32_t offset = offset_in_content(text);
    if (offset != npos) {
        replace_from_self(pos, n, offset, std::min(count, m_length - offset));
        return *this;
    }
    if (n == 0 && count == 0) return *this;
    uint32_t length = checked_size(uint64_t(m_length) - n + count);
    grow_for_write(checked_size(uint64_t(length) + 1));
    if (count != n) P<CharT>::move(m_data + pos + count, m_data + pos + n, m_length - pos - n);
    if (count) P<CharT>::copy(m_data + pos, text, count);
    set_length(length);
    return *this;
}

// The source is `count` elements of our own content at offset `src`. After
// the room request the offsets still hold (the content moves as a whole);
// the order of the two moves is chosen so that no source element is
// overwritten before it is read.
template <class CharT>
void basic_buffer<CharT>::replace_from_self(uint32_t pos, uint32_t n, uint32_t src,
                                            uint32_t count) {
    uint32_t length = m_length - n + count;
    uint32_t tail = m_length - pos - n;
    grow_for_write(checked_size(uint64_t(length) + 1));
    CharT* d = m_data;
    if (count <= n) {
        P<CharT>::move(d + pos, d + src, count);
        P<CharT>::move(d + pos + count, d + pos + n, tail);
    } else if (src <= pos) {
        P<CharT>::move(d + pos + count, d + pos + n, tail);
        P<CharT>::move(d + pos, d + src, count);
    } else if (src < pos + n) {
        P<CharT>::move(d + pos, d + src, n);
        P<CharT>::move(d + pos + count, d + pos + n, tail);
        P<CharT>::move(d + pos + n, d + src + count, count - n);
    } else {
        P<CharT>::move(d + pos + count, d + pos + n, tail);
        P<CharT>::move(d + pos, d + src - n + count, count);
    }
    set_length(length);
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::replace(uint32_t pos, uint32_t n, const CharT* text) {
    return replace(pos, n, text, TextLength(text));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::replace(uint32_t pos, uint32_t n,
                                                  const basic_buffer& other, uint32_t subpos,
                                                  uint32_t subn) {
    subpos = std::min(subpos, other.m_length);
    return replace(pos, n, other.c_str() + subpos, std::min(subn, other.m_length - subpos));
}

template <class CharT>
basic_buffer<CharT>& basic_buffer<CharT>::replace(uint32_t pos, uint32_t n, uint32_t count,
                                                  CharT ch) {
    pos = std::min(pos, m_length);
    n = std::min(n, m_length - pos);
    if (n == 0 && count == 0) return *this;
    uint32_t length = checked_size(uint64_t(m_length) - n + count);
    grow_for_write(checked_size(uint64_t(length) + 1));
    if (count != n) P<CharT>::move(m_data + pos + count, m_data + pos + n, m_length - pos - n);
    P<CharT>::fill(m_data + pos, ch, count);
    set_length(length);
    return *this;
}

// ---- search -------------------------------------------------------------------------

template <class CharT>
uint32_t basic_buffer<CharT>::find(const CharT* needle, uint32_t pos,
                                   uint32_t count) const noexcept {
    if (count == 0) return pos <= m_length ? pos : npos;
    if (pos >= m_length || count > m_length - pos) return npos;
    const CharT* base = m_data;
    const CharT* last = base + m_length - count;
    for (const CharT* s = base + pos; s <= last; ++s) {
        s = P<CharT>::chr(s, needle[0], size_t(last - s) + 1);
        if (!s) return npos;
        if (P<CharT>::cmp(s + 1, needle + 1, count - 1) == 0) return uint32_t(s - base);
    }
    return npos;
}

template <class CharT>
uint32_t basic_buffer<CharT>::find(const CharT* needle, uint32_t pos) const noexcept {
    return find(needle ? needle : empty_text(), pos, TextLength(needle));
}

template <class CharT>
uint32_t basic_buffer<CharT>::find(CharT ch, uint32_t pos) const noexcept {
    if (pos >= m_length) return npos;
    const CharT* hit = P<CharT>::chr(m_data + pos, ch, m_length - pos);
    return hit ? uint32_t(hit - m_data) : npos;
}

template <class CharT>
uint32_t basic_buffer<CharT>::rfind(const CharT* needle, uint32_t pos,
                                    uint32_t count) const noexcept {
    if (count == 0) return std::min(pos, m_length);
    if (count > m_length) return npos;
    uint32_t i = std::min(pos, m_length - count);
    for (;; --i) {
        if (m_data[i] == needle[0] && P<CharT>::cmp(m_data + i, needle, count) == 0) return i;
        if (i == 0) return npos;
    }
}

template <class CharT>
uint32_t basic_buffer<CharT>::rfind(const CharT* needle, uint32_t pos) const noexcept {
    return rfind(needle ? needle : empty_text(), pos, TextLength(needle));
}

template <class CharT>
uint32_t basic_buffer<CharT>::rfind(CharT ch, uint32_t pos) const noexcept {
    return find_last_of(&ch, pos, 1);
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_first_of(const CharT* set, uint32_t pos,
                                            uint32_t count) const noexcept {
    if (count == 0) return npos;
    for (uint32_t i = pos; i < m_length; ++i)
        if (P<CharT>::chr(set, m_data[i], count)) return i;
    return npos;
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_first_of(const CharT* set, uint32_t pos) const noexcept {
    return find_first_of(set, pos, TextLength(set));
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_first_not_of(const CharT* set, uint32_t pos,
                                                uint32_t count) const noexcept {
    for (uint32_t i = pos; i < m_length; ++i)
        if (count == 0 || !P<CharT>::chr(set, m_data[i], count)) return i;
    return npos;
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_first_not_of(const CharT* set, uint32_t pos) const noexcept {
    return find_first_not_of(set, pos, TextLength(set));
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_last_of(const CharT* set, uint32_t pos,
                                           uint32_t count) const noexcept {
    if (m_length == 0 || count == 0) return npos;
    for (uint32_t i = std::min(pos, m_length - 1);; --i) {
        if (P<CharT>::chr(set, m_data[i], count)) return i;
        if (i == 0) return npos;
    }
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_last_of(const CharT* set, uint32_t pos) const noexcept {
    return find_last_of(set, pos, TextLength(set));
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_last_not_of(const CharT* set, uint32_t pos,
                                               uint32_t count) const noexcept {
    if (m_length == 0) return npos;
    for (uint32_t i = std::min(pos, m_length - 1);; --i) {
        if (count == 0 || !P<CharT>::chr(set, m_data[i], count)) return i;
        if (i == 0) return npos;
    }
}

template <class CharT>
uint32_t basic_buffer<CharT>::find_last_not_of(const CharT* set, uint32_t pos) const noexcept {
    return find_last_not_of(set, pos, TextLength(set));
}

// ---- comparison, copy, hash -------------------------------------------------------------

template <class CharT>
int basic_buffer<CharT>::compare(uint32_t pos, uint32_t n, const CharT* text,
                                 uint32_t count) const noexcept {
    pos = std::min(pos, m_length);
    n = std::min(n, m_length - pos);
    uint32_t common = std::min(n, count);
    int r = common ? P<CharT>::cmp(c_str() + pos, text, common) : 0;
    if (r != 0) return r;
    return n < count ? -1 : (n > count ? 1 : 0);
}

template <class CharT>
int basic_buffer<CharT>::compare(const CharT* text) const noexcept {
    return compare(0, m_length, text ? text : empty_text(), TextLength(text));
}

template <class CharT>
uint32_t basic_buffer<CharT>::copy_to(CharT* dest, uint32_t size, uint32_t pos) const noexcept {
    if (size == 0) return 0;
    pos = std::min(pos, m_length);
    uint32_t n = std::min(size - 1, m_length - pos);
    if (n) P<CharT>::copy(dest, m_data + pos, n);
    dest[n] = CharT();
    return n;
}

template <class CharT>
uint32_t basic_buffer<CharT>::hash() const noexcept {
    uint32_t h = 0x811C9DC5u;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(c_str());
    size_t n = size_t(m_length) * sizeof(CharT);
    for (size_t i = 0; i < n; ++i) {
        h ^= bytes[i];
        h *= 16777619u;
    }
    return h;
}

// ---- streams ----------------------------------------------------------------------------

namespace {

template <class CharT>
std::basic_ostream<CharT>& Insert(std::basic_ostream<CharT>& os, const basic_buffer<CharT>& s) {
    return os << std::basic_string_view<CharT>(s.c_str(), s.size());
}

// The largest number of elements a read may store: the stream width, or
// max_size - 1 when the width is 0 or too large.
template <class CharT>
uint32_t ReadLimit(std::ios_base& stream) {
    std::streamsize width = stream.width();
    uint32_t limit = basic_buffer<CharT>::max_size() - 1;
    if (width > 0 && uint64_t(width) < limit) limit = uint32_t(width);
    return limit;
}

template <class CharT>
std::basic_istream<CharT>& Extract(std::basic_istream<CharT>& is, basic_buffer<CharT>& s) {
    using Traits = std::char_traits<CharT>;
    typename std::basic_istream<CharT>::sentry ok(is);
    if (!ok) return is;
    s.clear();
    const uint32_t limit = ReadLimit<CharT>(is);
    const auto& ctype = std::use_facet<std::ctype<CharT>>(is.getloc());
    std::ios_base::iostate state = std::ios_base::goodbit;
    uint32_t taken = 0;
    auto* buf = is.rdbuf();
    typename Traits::int_type c = buf->sgetc();
    for (; taken < limit; ++taken, c = buf->snextc()) {
        if (Traits::eq_int_type(c, Traits::eof())) {
            state |= std::ios_base::eofbit;
            break;
        }
        CharT ch = Traits::to_char_type(c);
        if (ctype.is(std::ctype_base::space, ch)) break;
        s.push_back(ch);
    }
    is.width(0);
    if (taken == 0) state |= std::ios_base::failbit;
    is.setstate(state);
    return is;
}

template <class CharT>
std::basic_istream<CharT>& GetLine(std::basic_istream<CharT>& is, basic_buffer<CharT>& s,
                                   CharT delim) {
    using Traits = std::char_traits<CharT>;
    typename std::basic_istream<CharT>::sentry ok(is, true);
    if (!ok) return is;
    s.clear();
    const uint32_t limit = basic_buffer<CharT>::max_size() - 1;
    std::ios_base::iostate state = std::ios_base::goodbit;
    uint32_t taken = 0;
    auto* buf = is.rdbuf();
    for (;;) {
        typename Traits::int_type c = buf->sbumpc();
        if (Traits::eq_int_type(c, Traits::eof())) {
            state |= std::ios_base::eofbit;
            if (taken == 0) state |= std::ios_base::failbit;
            break;
        }
        ++taken;
        if (Traits::eq(Traits::to_char_type(c), delim)) break;
        if (s.size() >= limit) {
            state |= std::ios_base::failbit;
            break;
        }
        s.push_back(Traits::to_char_type(c));
    }
    is.setstate(state);
    return is;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const basic_buffer<char>& s) {
    return Insert(os, s);
}
std::wostream& operator<<(std::wostream& os, const basic_buffer<wchar_t>& s) {
    return Insert(os, s);
}
std::istream& operator>>(std::istream& is, basic_buffer<char>& s) {
    return Extract(is, s);
}
std::wistream& operator>>(std::wistream& is, basic_buffer<wchar_t>& s) {
    return Extract(is, s);
}
std::istream& getline(std::istream& is, basic_buffer<char>& s, char delim) {
    return GetLine(is, s, delim);
}
std::wistream& getline(std::wistream& is, basic_buffer<wchar_t>& s, wchar_t delim) {
    return GetLine(is, s, delim);
}

template class basic_buffer<char>;
template class basic_buffer<wchar_t>;

}  // namespace Orlo
