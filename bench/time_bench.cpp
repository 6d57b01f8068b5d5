// Micro benchmarks of CTime::Format with the time form of the file and
// stream loggers, which runs once for every log record. Each checks its
// result: the exact text once before timing, and the length on every
// iteration, so a fast wrong answer aborts the run.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "orlo/stringEx.h"
#include "orlo/time.h"

namespace {

using Orlo::CTime;
using Orlo::stringEx;

// The loggers' time form.
constexpr const char* kLogTimeFormat = "%Y-%M-%d %H:%T:%S.%us UTC%Z";
// A fixed zone keeps the expected text the same on every machine.
constexpr int16_t kZone = 480;
// 2024-03-05 06:07:09.250123 UTC; each iteration moves on by about a second,
// as consecutive log records do.
constexpr int64_t kStart = 1709618829250123;
constexpr int64_t kStep = 1000003;
constexpr const char* kExpectedFirst = "2024-03-05 14:07:09.250123 UTC+0800";

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "benchmark result is wrong: %s\n", what);
        std::abort();
    }
}

void CheckFirstText(const stringEx& text) {
    Require(text.view() == kExpectedFirst, "logger time text");
}

// Into one reused string, as a logger that keeps its line buffer does.
void BM_FormatLogTimeReused(benchmark::State& state) {
    const stringEx format = stringEx::view(kLogTimeFormat);
    const uint32_t length = uint32_t(std::strlen(kExpectedFirst));
    stringEx output;
    CTime time(kStart);
    time.FormatTo(output, format, kZone);
    CheckFirstText(output);
    for (auto _ : state) {
        time.us += kStep;
        time.FormatTo(output, format, kZone);
        Require(output.size() == length, "length");
        benchmark::DoNotOptimize(output.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}

// A new string per record.
void BM_FormatLogTimeFresh(benchmark::State& state) {
    const stringEx format = stringEx::view(kLogTimeFormat);
    const uint32_t length = uint32_t(std::strlen(kExpectedFirst));
    CTime time(kStart);
    CheckFirstText(time.Format(format, kZone));
    for (auto _ : state) {
        time.us += kStep;
        const stringEx text = time.Format(format, kZone);
        Require(text.size() == length, "length");
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}

BENCHMARK(BM_FormatLogTimeReused);
BENCHMARK(BM_FormatLogTimeFresh);

}  // namespace
