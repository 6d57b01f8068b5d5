// Block substring search; see search.h for the design.

#include "string/search.h"

#include <cctype>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Orlo::IMPL {
namespace {

// A rough rank of how common each byte is in text, logs and source code;
// higher is more common. Only the order matters: it picks the needle bytes
// whose pair is least likely to occur by chance.
struct ByteRank {
    unsigned char rank[256];
    constexpr ByteRank() : rank() {
        for (int b = 0; b < 256; ++b)
            rank[b] = b < 0x80 ? 60 : 20;
        const char* lower = "etaoinsrhldcumfpgwybvkxjqz";
        for (int i = 0; lower[i]; ++i)
            rank[static_cast<unsigned char>(lower[i])] = 245 - 3 * i;
        const char* upper = "ETAOINSRHLDCUMFPGWYBVKXJQZ";
        for (int i = 0; upper[i]; ++i)
            rank[static_cast<unsigned char>(upper[i])] = 140 - 2 * i;
        for (int d = '0'; d <= '9'; ++d)
            rank[d] = 200;
        const char* punct = " \n.,/:-_=\"'()[];<>{}*#&%+!?|@$\\~`^\t\r";
        for (int i = 0; punct[i]; ++i)
            rank[static_cast<unsigned char>(punct[i])] = 250 - 5 * i;
    }
};
constexpr ByteRank kByteRank;

// Offsets of the two least common bytes of the needle, in text order.
template <class RankOf>
void PickRarePair(size_t length, RankOf rankOf, size_t& first, size_t& second) {
    size_t best = 0;
    for (size_t i = 1; i < length; ++i)
        if (rankOf(i) < rankOf(best)) best = i;
    size_t next = best == 0 ? 1 : 0;
    if (length == 1) next = 0;
    for (size_t i = 0; i < length; ++i)
        if (i != best && rankOf(i) < rankOf(next)) next = i;
    first = best < next ? best : next;
    second = best < next ? next : best;
}

#if defined(__SSE2__)
// Bit i of the result is set when the bytes at p + off1 + i and p + off2 + i
// are each one of their two accepted values.
inline unsigned PairMask(const char* p, size_t off1, size_t off2, __m128i a1, __m128i b1,
                         __m128i a2, __m128i b2) {
    __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + off1));
    __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + off2));
    __m128i m1 = _mm_or_si128(_mm_cmpeq_epi8(v1, a1), _mm_cmpeq_epi8(v1, b1));
    __m128i m2 = _mm_or_si128(_mm_cmpeq_epi8(v2, a2), _mm_cmpeq_epi8(v2, b2));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(m1, m2)));
}
#endif

#if defined(__x86_64__)
#define ORLO_SEARCH_AVX2 1
// PairMask for 32 starts at once, with the wider vectors.
__attribute__((target("avx2"))) inline uint32_t WidePairMask(const char* p, size_t off1,
                                                             size_t off2,
                                                             const unsigned char alt1[2],
                                                             const unsigned char alt2[2]) {
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + off1));
    const __m256i v2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + off2));
    const __m256i m1 =
        _mm256_or_si256(_mm256_cmpeq_epi8(v1, _mm256_set1_epi8(static_cast<char>(alt1[0]))),
                        _mm256_cmpeq_epi8(v1, _mm256_set1_epi8(static_cast<char>(alt1[1]))));
    const __m256i m2 =
        _mm256_or_si256(_mm256_cmpeq_epi8(v2, _mm256_set1_epi8(static_cast<char>(alt2[0]))),
                        _mm256_cmpeq_epi8(v2, _mm256_set1_epi8(static_cast<char>(alt2[1]))));
    return uint32_t(_mm256_movemask_epi8(_mm256_and_si256(m1, m2)));
}

// The same filter 64 candidate starts at a time, for processors that have
// the wider vectors. Returns where the 16-byte loop should go on: the first
// confirmed candidate (`found` set), or the first start not yet filtered.
template <class Verify>
__attribute__((target("avx2"))) const char* ScanPairsWide(const char* s, const char* last,
                                                          size_t off1, size_t off2,
                                                          const unsigned char alt1[2],
                                                          const unsigned char alt2[2],
                                                          Verify verify, bool& found) {
    while (last - s >= 63) {
        uint64_t mask = WidePairMask(s, off1, off2, alt1, alt2) |
                        (uint64_t(WidePairMask(s + 32, off1, off2, alt1, alt2)) << 32);
        while (mask) {
            const char* candidate = s + __builtin_ctzll(mask);
            if (verify(candidate)) {
                found = true;
                return candidate;
            }
            mask &= mask - 1;
        }
        s += 64;
    }
    return s;
}

bool HasWideVectors() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}
#endif

// Runs the two-byte block filter over the candidate starts [from, last] and
// confirms candidates with `verify`; the scalar tail uses the same test.
template <class Accept1, class Accept2, class Verify>
const char* ScanPairs(const char* from, const char* last, size_t off1, size_t off2,
                      [[maybe_unused]] const unsigned char alt1[2],
                      [[maybe_unused]] const unsigned char alt2[2], Accept1 accept1,
                      Accept2 accept2, Verify verify) {
    const char* s = from;
#if defined(ORLO_SEARCH_AVX2)
    if (last - s >= 63 && HasWideVectors()) {
        bool found = false;
        s = ScanPairsWide(s, last, off1, off2, alt1, alt2, verify, found);
        if (found) return s;
    }
#endif
#if defined(__SSE2__)
    const __m128i a1 = _mm_set1_epi8(static_cast<char>(alt1[0]));
    const __m128i b1 = _mm_set1_epi8(static_cast<char>(alt1[1]));
    const __m128i a2 = _mm_set1_epi8(static_cast<char>(alt2[0]));
    const __m128i b2 = _mm_set1_epi8(static_cast<char>(alt2[1]));
    while (last - s >= 15) {
        unsigned mask = PairMask(s, off1, off2, a1, b1, a2, b2);
        while (mask) {
            const char* candidate = s + __builtin_ctz(mask);
            if (verify(candidate)) return candidate;
            mask &= mask - 1;
        }
        s += 16;
    }
#endif
    for (; s <= last; ++s)
        if (accept1(s[off1]) && accept2(s[off2]) && verify(s)) return s;
    return nullptr;
}

}  // namespace

PlainFinder::PlainFinder(const char* needle, size_t length) : m_needle(needle), m_length(length) {
    PickRarePair(
        length, [&](size_t i) { return kByteRank.rank[static_cast<unsigned char>(needle[i])]; },
        m_rare1, m_rare2);
}

const char* PlainFinder::Find(const char* from, const char* end) const {
    if (from >= end || size_t(end - from) < m_length) return nullptr;
    if (m_length == 1) return static_cast<const char*>(std::memchr(from, m_needle[0], end - from));
    const char* last = end - m_length;
    const unsigned char c1 = static_cast<unsigned char>(m_needle[m_rare1]);
    const unsigned char c2 = static_cast<unsigned char>(m_needle[m_rare2]);
    const unsigned char alt1[2] = {c1, c1};
    const unsigned char alt2[2] = {c2, c2};
    return ScanPairs(
        from, last, m_rare1, m_rare2, alt1, alt2,
        [c1](char b) { return static_cast<unsigned char>(b) == c1; },
        [c2](char b) { return static_cast<unsigned char>(b) == c2; },
        [this](const char* s) { return std::memcmp(s, m_needle, m_length) == 0; });
}

FoldedFinder::FoldedFinder(const char* needle, size_t length)
    : m_needle(needle), m_length(length), m_blockScan(true) {
    // An unused finder (length 0) costs nothing: no fold table is built.
    if (length == 0) return;
    for (int b = 0; b < 256; ++b)
        m_fold[b] = std::tolower(static_cast<signed char>(b));

    auto classRank = [&](size_t i) {
        int folded = m_fold[static_cast<unsigned char>(needle[i])];
        int rank = 0;
        for (int b = 0; b < 256; ++b)
            if (m_fold[b] == folded && kByteRank.rank[b] > rank) rank = kByteRank.rank[b];
        return rank;
    };
    PickRarePair(length, classRank, m_rare1, m_rare2);

    auto fillClass = [&](size_t offset, unsigned char alt[2]) {
        int folded = m_fold[static_cast<unsigned char>(needle[offset])];
        int members = 0;
        for (int b = 0; b < 256; ++b) {
            if (m_fold[b] != folded) continue;
            if (members < 2) alt[members] = static_cast<unsigned char>(b);
            ++members;
        }
        if (members == 1) alt[1] = alt[0];
        if (members > 2) m_blockScan = false;
    };
    fillClass(m_rare1, m_alt1);
    fillClass(m_rare2, m_alt2);
}

bool FoldedFinder::MatchesAt(const char* p) const {
    for (size_t i = 0; i < m_length; ++i)
        if (m_fold[static_cast<unsigned char>(p[i])] !=
            m_fold[static_cast<unsigned char>(m_needle[i])])
            return false;
    return true;
}

const char* FoldedFinder::Find(const char* from, const char* end) const {
    if (from >= end || size_t(end - from) < m_length) return nullptr;
    const char* last = end - m_length;
    const int f1 = m_fold[static_cast<unsigned char>(m_needle[m_rare1])];
    const int f2 = m_fold[static_cast<unsigned char>(m_needle[m_rare2])];
    auto accept1 = [this, f1](char b) { return m_fold[static_cast<unsigned char>(b)] == f1; };
    auto accept2 = [this, f2](char b) { return m_fold[static_cast<unsigned char>(b)] == f2; };
    auto verify = [this](const char* s) { return MatchesAt(s); };
    if (!m_blockScan) {
        for (const char* s = from; s <= last; ++s)
            if (accept1(s[m_rare1]) && accept2(s[m_rare2]) && verify(s)) return s;
        return nullptr;
    }
    return ScanPairs(from, last, m_rare1, m_rare2, m_alt1, m_alt2, accept1, accept2, verify);
}

}  // namespace Orlo::IMPL
