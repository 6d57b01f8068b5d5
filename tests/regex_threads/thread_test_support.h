// Helpers for the regex thread tests: texts in both widths, deterministic
// subjects, threads that start together, and the comparison of what each
// thread saw with what a single thread sees doing the same work.

#ifndef ORLO_TESTS_REGEX_THREADS_THREAD_TEST_SUPPORT_H
#define ORLO_TESTS_REGEX_THREADS_THREAD_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <latch>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "orlo/buffer.h"

namespace Orlo::regex_threads {

// Each code point as one element; narrow callers only pass ASCII.
template <class CharT>
basic_buffer<CharT> Text(std::u32string_view s) {
    basic_buffer<CharT> out;
    for (char32_t c : s)
        out.push_back(CharT(c));
    return out;
}

inline bool IsAscii(std::u32string_view s) {
    for (char32_t c : s)
        if (c >= 0x80) return false;
    return true;
}

// Appends `s` readably: ASCII as is, anything else as \u{hex}.
template <class CharT>
void AppendReadable(std::string& out, const basic_buffer<CharT>& s) {
    static constexpr char kHex[] = "0123456789abcdef";
    for (uint32_t i = 0; i < s.size(); ++i) {
        const uint32_t c = uint32_t(s.c_str()[i]) & (sizeof(CharT) == 1 ? 0xffu : 0xffffffffu);
        if (c < 0x80) {
            out.push_back(char(c));
            continue;
        }
        out += "\\u{";
        bool digits = false;
        for (int shift = 28; shift >= 0; shift -= 4) {
            const uint32_t d = (c >> shift) & 0xf;
            if (d == 0 && !digits && shift > 0) continue;
            digits = true;
            out.push_back(kHex[d]);
        }
        out.push_back('}');
    }
}

inline void AppendNumber(std::string& out, long n) {
    out += std::to_string(n);
}

// `count` pieces drawn from `pieces` by a fixed generator: the same text
// for the same seed, whichever thread asks.
inline std::u32string Subject(const std::vector<std::u32string_view>& pieces, int count,
                              uint32_t seed) {
    std::mt19937 rng(seed);
    std::u32string out;
    for (int i = 0; i < count; ++i)
        out += pieces[rng() % pieces.size()];
    return out;
}

// Runs body(0) .. body(threads - 1) on threads of their own, released
// together so that their work overlaps as much as the machine allows.
inline void RunTogether(int threads, const std::function<void(int)>& body) {
    std::latch start(threads);
    std::vector<std::thread> pool;
    pool.reserve(size_t(threads));
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            start.arrive_and_wait();
            body(t);
        });
    }
    for (std::thread& thread : pool)
        thread.join();
}

// Where two transcripts first differ, with a little context: a whole
// transcript is too long to print.
inline std::string FirstDifference(const std::string& got, const std::string& expected) {
    size_t at = 0;
    while (at < got.size() && at < expected.size() && got[at] == expected[at])
        ++at;
    const size_t from = at > 40 ? at - 40 : 0;
    std::string out = "first difference at ";
    out += std::to_string(at);
    out += "\n  got:      ...";
    out += got.substr(from, 80);
    out += "\n  expected: ...";
    out += expected.substr(from, 80);
    return out;
}

// Runs `work` for each of `threads` threads at once, then again for each
// in turn on this thread, and expects every transcript to be the same both
// times: sharing must change nothing that a caller can see.
inline void ExpectSameAsAlone(int threads, const std::function<std::string(int)>& work) {
    std::vector<std::string> together(static_cast<size_t>(threads));
    RunTogether(threads, [&](int t) { together[size_t(t)] = work(t); });
    for (int t = 0; t < threads; ++t) {
        const std::string alone = work(t);
        EXPECT_FALSE(alone.empty()) << "thread " << t << " did nothing";
        EXPECT_TRUE(together[size_t(t)] == alone)
            << "thread " << t << ": " << FirstDifference(together[size_t(t)], alone);
    }
}

}  // namespace Orlo::regex_threads

#endif  // ORLO_TESTS_REGEX_THREADS_THREAD_TEST_SUPPORT_H
