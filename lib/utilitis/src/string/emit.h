// Where the expand-form replaces put their result.

#ifndef ORLO_STRING_EMIT_H
#define ORLO_STRING_EMIT_H

#include <algorithm>
#include <cstdint>

#include "orlo/buffer.h"

namespace Orlo::IMPL {

// Appends the pieces of a result to the destination buffer. With a drain,
// the destination is handed on each time it reaches a slice, and a piece
// of a slice or more goes to the drain directly, uncopied, so that the
// destination's block stays small and warm in the cache.
template <class CharT>
class Emitter {
  public:
    static constexpr uint32_t kSlice = uint32_t(256 * 1024 / sizeof(CharT));

    Emitter(basic_buffer<CharT>& dest, basic_drain<CharT>* drain)
        : m_dest(dest), m_drain(drain), m_base(dest.size()) {}

    // Asks for `room` elements up front: all of it without a drain, which
    // spares copies as the result grows; with one, what a slice needs.
    void Reserve(uint64_t room) {
        if (m_drain) room = std::min<uint64_t>(room, uint64_t(m_dest.size()) + 2 * kSlice + 1);
        m_dest.reserve_exact(uint32_t(std::min<uint64_t>(room, basic_buffer<CharT>::max_size())));
    }

    void Put(const CharT* p, uint32_t n) {
        if (!m_drain) {
            m_dest.append(p, n);
            return;
        }
        if (n >= kSlice) {
            Flush();
            m_drain->Take(p, n);
            m_taken += n;
            m_last = p[n - 1];
            return;
        }
        m_dest.append(p, n);
        if (m_dest.size() >= kSlice) Flush();
    }
    void Put(const basic_buffer<CharT>& piece) { Put(piece.c_str(), piece.size()); }

    // Whether the result has grown beyond what the destination held first.
    bool Grown() const { return m_taken + m_dest.size() > m_base; }
    // The result's last element so far; the result must not be empty.
    CharT Last() const { return m_dest.empty() ? m_last : m_dest.c_str()[m_dest.size() - 1]; }

  private:
    void Flush() {
        const uint32_t n = m_dest.size();
        if (n == 0) return;
        m_last = m_dest.c_str()[n - 1];
        m_drain->Take(m_dest.c_str(), n);
        m_taken += n;
        m_dest.clear();
    }

    basic_buffer<CharT>& m_dest;
    basic_drain<CharT>* m_drain;
    uint64_t m_base;
    uint64_t m_taken = 0;
    CharT m_last = CharT();
};

}  // namespace Orlo::IMPL

#endif  // ORLO_STRING_EMIT_H
