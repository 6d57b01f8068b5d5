// Micro benchmarks of the plain replace on a log-like buffer. Each checks
// its own result before timing, so a fast wrong answer aborts the run.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "orlo/buffer.h"

namespace {

using Orlo::byteEx;

// About 16 MB of log lines, one in twenty holding "ERROR".
const byteEx& LogText() {
    static const byteEx text = [] {
        std::string s;
        uint32_t seed = 1;
        while (s.size() < (16u << 20)) {
            seed = seed * 1103515245u + 12345u;
            s += "2026-11-21 10:00:00 ";
            s += (seed >> 16) % 20 == 0 ? "ERROR" : "INFO ";
            s += " 10.0.0.1 \"GET /index.html HTTP/1.1\" 200 1234 \"curl/8.5.0\"\n";
        }
        return byteEx(s.data(), uint32_t(s.size()));
    }();
    return text;
}

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "benchmark result is wrong: %s\n", what);
        std::abort();
    }
}

void BM_ReplaceTo(benchmark::State& state, const char* find, const char* with, bool ignoreCase) {
    const byteEx& source = LogText();
    byteEx dest;
    uint32_t expected = source.CountParts(byteEx(find)) - 1;
    for (auto _ : state) {
        dest.clear();
        uint32_t n = ignoreCase ? source.ReplaceToIC(dest, byteEx(find), byteEx(with))
                                : source.ReplaceTo(dest, byteEx(find), byteEx(with));
        Require(ignoreCase || n == expected, "count");
        benchmark::DoNotOptimize(dest.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * source.size());
}

void BM_ReplaceInPlace(benchmark::State& state, const char* find, const char* with) {
    const byteEx& source = LogText();
    uint32_t expected = source.CountParts(byteEx(find)) - 1;
    for (auto _ : state) {
        state.PauseTiming();
        byteEx work(source.data(), source.size());
        state.ResumeTiming();
        Require(work.Replace(byteEx(find), byteEx(with)) == expected, "count");
        benchmark::DoNotOptimize(work.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * source.size());
}

BENCHMARK_CAPTURE(BM_ReplaceTo, longer, "ERROR", "FAILURE", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplaceTo, caseblind, "error", "FAILURE", true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplaceTo, absent, "qqqzzz", "x", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplaceInPlace, longer, "ERROR", "FAILURE")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplaceInPlace, shorter, "ERROR", "E")->Unit(benchmark::kMillisecond);

}  // namespace
