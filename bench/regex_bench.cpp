// Micro benchmarks of the regular-expression engine: compile time of typical
// patterns and of a long word list, and engine_exec walking a large log the
// way a replace does (one call per match, each starting where the last match
// ended).
//
// The text is bench/data/access.log when `make bench` has generated it (the
// 200 MB log), else a synthetic 64 MB log of the same shape.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "orlo/regex_engine.h"
#include "regex/word_list.h"

namespace {

using namespace Orlo;

std::string SyntheticLog(size_t bytes) {
    static const char* const kMethods[] = {"GET", "GET", "GET", "POST", "PUT", "DELETE", "HEAD"};
    static const char* const kPaths[] = {"/", "/index.html", "/api/v1/items", "/login",
                                         "/static/app.js"};
    std::string s;
    s.reserve(bytes + 256);
    uint32_t seed = 20261121;
    auto next = [&seed](uint32_t n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) % n;
    };
    char line[256];
    while (s.size() < bytes) {
        int n = std::snprintf(line, sizeof line,
                              "2026-11-%02u %02u:%02u:%02u INFO %u.%u.%u.%u \"%s %s HTTP/1.1\" "
                              "200 %u \"curl/8.5.0\"\n",
                              next(28) + 1, next(24), next(60), next(60), next(254) + 1, next(256),
                              next(256), next(254) + 1, kMethods[next(7)], kPaths[next(5)],
                              next(100000));
        s.append(line, size_t(n));
    }
    return s;
}

const std::string& LogText() {
    static const std::string text = [] {
        std::ifstream in(ORLO_SOURCE_DIR "/bench/data/access.log", std::ios::binary);
        if (in) {
            std::ostringstream all;
            all << in.rdbuf();
            return all.str();
        }
        return SyntheticLog(64u << 20);
    }();
    return text;
}

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "benchmark result is wrong: %s\n", what);
        std::abort();
    }
}

// Every match in `text`, as a replace would find them; returns the count.
size_t CountMatches(regex_t* re, const std::string& text, size_t groups) {
    std::vector<regmatch_t> m(groups + 1);
    size_t count = 0;
    size_t at = 0;
    while (at <= text.size()) {
        int flags = (at > 0 && text[at - 1] != '\n') ? REG_NOTBOL : 0;
        int rc =
            engine_exec(re, text.data() + at, text.size() - at, nullptr, m.size(), m.data(), flags);
        if (rc == REG_NOMATCH) break;
        Require(rc == REG_OKAY, "engine_exec failed");
        ++count;
        size_t end = at + size_t(m[0].rm_eo);
        at = (m[0].rm_eo == m[0].rm_so) ? end + 1 : end;
    }
    return count;
}

void BM_Exec(benchmark::State& state, const char* pattern, int flags, bool expectMatches) {
    const std::string& text = LogText();
    regex_t re{};
    Require(engine_compile(&re, pattern, std::strlen(pattern), flags) == REG_OKAY, "compile");
    size_t matches = 0;
    for (auto _ : state) {
        matches = CountMatches(&re, text, re.re_nsub);
        benchmark::DoNotOptimize(matches);
    }
    Require((matches > 0) == expectMatches, "match count");
    engine_free(&re);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    state.counters["matches"] = double(matches);
    if (matches)
        state.counters["ns_per_match"] =
            benchmark::Counter(double(matches) * double(state.iterations()),
                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK_CAPTURE(BM_Exec, never_matches, "qqq[0-9]+zzz", REG_EXTENDED, false)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
BENCHMARK_CAPTURE(BM_Exec, rare_alternation, "(POST|DELETE) /login", REG_EXTENDED, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
BENCHMARK_CAPTURE(BM_Exec, four_groups_every_line, "([0-9]+)\\.([0-9]+)\\.([0-9]+)\\.([0-9]+)",
                  REG_EXTENDED, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_Exec, four_groups_whole_match_only,
                  "(?:[0-9]+)\\.(?:[0-9]+)\\.(?:[0-9]+)\\.(?:[0-9]+)", REG_ADVANCED, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_Exec, line_anchored, "^2026-11-0([1-9])", REG_EXTENDED | REG_NLANCH, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);

void BM_Compile(benchmark::State& state, const char* pattern, int flags) {
    for (auto _ : state) {
        regex_t re{};
        Require(engine_compile(&re, pattern, std::strlen(pattern), flags) == REG_OKAY, "compile");
        engine_free(&re);
    }
}

BENCHMARK_CAPTURE(BM_Compile, literal, "ERROR", REG_EXTENDED);
BENCHMARK_CAPTURE(BM_Compile, ip_address, "([0-9]+)\\.([0-9]+)\\.([0-9]+)\\.([0-9]+)",
                  REG_EXTENDED);
BENCHMARK_CAPTURE(BM_Compile, alternation, "(POST|DELETE|PUT|PATCH) /(login|logout|api)",
                  REG_EXTENDED);
BENCHMARK_CAPTURE(BM_Compile, classes_and_bounds, "\\m[[:alpha:]_]\\w{2,8}\\M\\s*=\\s*\\d+",
                  REG_ADVANCED);
BENCHMARK_CAPTURE(BM_Compile, back_reference, "(['\"])[^'\"]*\\1", REG_ADVANCED);
BENCHMARK_CAPTURE(BM_Compile, wide_class, "[[:alpha:]]+[[:digit:]]{1,3}", REG_ADVANCED);

using re_test::WordList;

// A user's word list of range(0) words as one alternation, between `open`
// and `close`. Compile time should grow about linearly with the words: the
// two states every alternative hangs off hold an arc per word.
void BM_CompileWordList(benchmark::State& state, const char* open, const char* close, int flags) {
    const std::vector<std::string> words = WordList(size_t(state.range(0)));
    std::string pattern = open;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i) pattern += '|';
        pattern += words[i];
    }
    pattern += close;
    for (auto _ : state) {
        regex_t re{};
        Require(engine_compile(&re, pattern.data(), pattern.size(), flags) == REG_OKAY, "compile");
        engine_free(&re);
    }
    regex_t re{};
    Require(engine_compile(&re, pattern.data(), pattern.size(), flags) == REG_OKAY, "compile");
    const std::string& middle = words[words.size() / 2];
    const std::string subject = "-" + middle + "-";
    regmatch_t m[1];
    Require(engine_exec(&re, subject.data(), subject.size(), nullptr, 1, m, 0) == REG_OKAY &&
                m[0].rm_so == 1 && m[0].rm_eo == long(1 + middle.size()),
            "a word of the list is found");
    Require(engine_exec(&re, "0123 4567", 9, nullptr, 1, m, 0) == REG_NOMATCH,
            "no word is found where there is none");
    engine_free(&re);
    state.counters["words"] = double(words.size());
}

BENCHMARK_CAPTURE(BM_CompileWordList, bare_extended, "", "", REG_EXTENDED)
    ->Arg(2000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CompileWordList, group_advanced, "(", ")", REG_ADVANCED)
    ->Arg(2000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
