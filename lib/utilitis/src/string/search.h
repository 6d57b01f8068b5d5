// Substring search for the byte strings: the inner loop of every plain
// find and replace, applied to whole files.
//
// Both finders report the first occurrence at or after a position, exactly as
// a naive scan would (earliest start wins), but run at block speed: they test
// two needle bytes at a fixed distance for sixteen positions at a time and
// verify the whole needle only where both agree. The two bytes are chosen
// as the rarest of the needle by a rough frequency rank of text bytes, so
// that a needle like "ERROR" is not slowed by frequent leading letters.
//
// The case-blind finder compares `tolower` of each byte taken as a signed
// value, as the C library's ctype receives a plain char; it builds its fold
// table from the current locale when it is made.
//
// Implementation details only, past the class declarations.

#ifndef ORLO_SRC_STRING_SEARCH_H
#define ORLO_SRC_STRING_SEARCH_H

#include <cstddef>
#include <cstdint>

namespace Orlo::IMPL {

class PlainFinder {
  public:
    // `needle` must outlive the finder and hold at least one byte.
    PlainFinder(const char* needle, size_t length);
    // First occurrence starting in [from, end - length], or nullptr.
    const char* Find(const char* from, const char* end) const;

  private:
    const char* m_needle;
    size_t m_length;
    size_t m_rare1, m_rare2;  // offsets of the two bytes tested in blocks
};

class FoldedFinder {
  public:
    FoldedFinder(const char* needle, size_t length);
    const char* Find(const char* from, const char* end) const;
    // True when the `length` bytes at `p` equal the needle case-blind.
    bool MatchesAt(const char* p) const;

  private:
    const char* m_needle;
    size_t m_length;
    int m_fold[256];  // tolower of each byte taken as signed, by unsigned index
    size_t m_rare1, m_rare2;
    // Up to two bytes that fold like the needle byte at m_rare1 / m_rare2;
    // when a fold class is larger the block scan is off and a plain loop runs.
    unsigned char m_alt1[2], m_alt2[2];
    bool m_blockScan;
};

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_STRING_SEARCH_H
