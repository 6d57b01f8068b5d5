// Helpers shared by the fuzz targets (one source per target includes this
// once): the input reader, the cost filter for patterns, the check that
// stops a run when an invariant fails, and the signal set-up.
//
// Signals: the library installs its own handlers for the fatal signals, a
// new-handler and a terminate handler when the process starts; they write a
// record and leave with _exit, which hides a crash from the fuzzer and from
// the sanitizers. The handlers present before the library's (the
// sanitizers') are saved by a constructor that runs ahead of ordinary static
// initialisation and put back by LLVMFuzzerInitialize, which libFuzzer (and
// the replay driver) calls before the first input.

#ifndef ORLO_FUZZ_SUPPORT_H
#define ORLO_FUZZ_SUPPORT_H

#include <signal.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

namespace orlo_fuzz {

inline constexpr int kFatalSignals[] = {SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};
inline struct sigaction g_savedActions[sizeof kFatalSignals / sizeof kFatalSignals[0]];

__attribute__((constructor(101))) inline void SaveSignalActions() {
    for (size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i)
        sigaction(kFatalSignals[i], nullptr, &g_savedActions[i]);
}

inline void RestoreSignalActions() {
    for (size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i)
        sigaction(kFatalSignals[i], &g_savedActions[i], nullptr);
    std::set_new_handler(nullptr);
    std::set_terminate([] { std::abort(); });
}

// An invariant that must hold whatever the input: a failure aborts, which
// the fuzzer records as a crash and the replay test as a failed run.
#define ORLO_FUZZ_CHECK(cond)                                                             \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

// Reads the input front to back; past the end every read gives zero.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    uint8_t Byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
    // Multi-byte reads are little-endian, read in sequence (the order of
    // evaluation of `Byte() | Byte() << 8` would differ between compilers).
    uint16_t U16() {
        const uint16_t lo = Byte();
        return static_cast<uint16_t>(lo | (Byte() << 8));
    }
    uint32_t U32() {
        const uint32_t lo = U16();
        return lo | (static_cast<uint32_t>(U16()) << 16);
    }
    uint64_t U64() {
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i)
            v |= static_cast<uint64_t>(Byte()) << (8 * i);
        return v;
    }
    // The bytes up to (not including) the next `sep`, which is consumed;
    // the rest of the input when there is none.
    void Until(uint8_t sep, const uint8_t*& begin, size_t& length) {
        begin = m_data + m_pos;
        size_t end = m_pos;
        while (end < m_size && m_data[end] != sep)
            ++end;
        length = end - m_pos;
        m_pos = end < m_size ? end + 1 : end;
    }
    void Rest(const uint8_t*& begin, size_t& length) {
        begin = m_data + m_pos;
        length = m_size - m_pos;
        m_pos = m_size;
    }

  private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

inline constexpr size_t kMaxPattern = 200;
inline constexpr uint64_t kMaxBoundProduct = 1000;

// True for a pattern that is merely expensive: too long, or whose bounds
// (the largest number inside each {...}) multiply beyond the limit. Such a
// pattern is a legitimate slow input, not a fault, so it is not run.
inline bool TooExpensive(const uint8_t* p, size_t n) {
    if (n > kMaxPattern) return true;
    uint64_t product = 1;
    for (size_t i = 0; i < n; ++i) {
        if (p[i] != '{') continue;
        uint64_t largest = 0, number = 0;
        size_t j = i + 1;
        for (; j < n && p[j] != '}' && p[j] != '{'; ++j) {
            if (p[j] >= '0' && p[j] <= '9') {
                number = number * 10 + (p[j] - '0');
                if (number > kMaxBoundProduct) return true;
            } else {
                number = 0;
            }
            if (number > largest) largest = number;
        }
        if (largest > 1) {
            product *= largest;
            if (product > kMaxBoundProduct) return true;
        }
        i = j - 1;
    }
    return false;
}

// A byte as a wide character: ASCII stays, higher bytes are spread over the
// 16-bit range and beyond so that the wide colour map's upper levels are
// reached.
inline wchar_t Widen(uint8_t b) {
    if (b < 0x80) return static_cast<wchar_t>(b);
    if (b == 0xff) return static_cast<wchar_t>(0x1f600);
    return static_cast<wchar_t>(0x80 + (b - 0x80) * 0x1f3);
}

}  // namespace orlo_fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    orlo_fuzz::RestoreSignalActions();
    return 0;
}

#endif  // ORLO_FUZZ_SUPPORT_H
