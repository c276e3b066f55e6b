// The case-insensitive wildcard matcher and prefix test, which completion runs
// on every name of a folder at each keystroke: ordinary names and patterns,
// pathological star patterns on long names, and non-ASCII text.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "util/Paths.h"

namespace {

using jorvane::paths::hasCaseInsensitivePrefix;
using jorvane::paths::isCaseInsensitiveLike;

// A name of `length` characters: "a" repeated, or alternating "ä"/"Ä".
std::string repeated(std::int64_t length, bool umlauts) {
    std::string s;
    for (std::int64_t i = 0; i < length; ++i) s += umlauts ? (i % 2 ? "ä" : "Ä") : "a";
    return s;
}

void BM_OrdinaryNameSuffixPattern(benchmark::State& state) {
    const std::string name = "Quarterly Report 2023-Final.TXT";
    for (auto _ : state) benchmark::DoNotOptimize(isCaseInsensitiveLike(name, "*.txt"));
}
BENCHMARK(BM_OrdinaryNameSuffixPattern);

void BM_OrdinaryNameMixedPattern(benchmark::State& state) {
    const std::string name = "Quarterly Report 2023-Final.TXT";
    for (auto _ : state) benchmark::DoNotOptimize(isCaseInsensitiveLike(name, "quar*rep?rt*20??*.t?t"));
}
BENCHMARK(BM_OrdinaryNameMixedPattern);

void BM_NonAsciiNamePattern(benchmark::State& state) {
    const std::string name = "Überweisungsbestätigung Ärztekammer.PDF";
    for (auto _ : state) benchmark::DoNotOptimize(isCaseInsensitiveLike(name, "über*ÄRZTE*.pdf"));
}
BENCHMARK(BM_NonAsciiNamePattern);

void BM_PrefixAscii(benchmark::State& state) {
    const std::string name = "Documents and Settings";
    for (auto _ : state) benchmark::DoNotOptimize(hasCaseInsensitivePrefix(name, "docum"));
}
BENCHMARK(BM_PrefixAscii);

void BM_PrefixNonAscii(benchmark::State& state) {
    const std::string name = "Ärztekammer Rundschreiben";
    for (auto _ : state) benchmark::DoNotOptimize(hasCaseInsensitivePrefix(name, "ärzte"));
}
BENCHMARK(BM_PrefixNonAscii);

// Star patterns that cannot match a long run of one letter: every star could
// take any run, which makes a careless backtracking matcher exponential.
// With a literal end ("...*b") the end is checked first and fails at once;
// with a star at the end ("...*b*") the greedy scan does the work; the
// "*aaaa...ab*" form is the greedy matcher's O(|text| * |pattern|) worst case.
void BM_Pathological(benchmark::State& state, const char* pattern, bool umlauts) {
    const std::string name = repeated(state.range(0), umlauts);
    for (auto _ : state) benchmark::DoNotOptimize(isCaseInsensitiveLike(name, pattern));
}
BENCHMARK_CAPTURE(BM_Pathological, ascii_literal_end, "*a*a*a*a*a*a*a*a*b", false)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(BM_Pathological, ascii_star_end, "*a*a*a*a*a*a*a*a*b*", false)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(BM_Pathological, ascii_long_literal, "*aaaaaaaaaaaaaaaaaaaab*", false)
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10000);
// The same through the Unicode path, on alternating "ä" and "Ä".
BENCHMARK_CAPTURE(BM_Pathological, umlaut_literal_end, "*ä*Ä*ä*Ä*ä*Ä*ä*Ä*b", true)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(BM_Pathological, umlaut_star_end, "*ä*Ä*ä*Ä*ä*Ä*ä*Ä*b*", true)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(BM_Pathological, umlaut_long_literal, "*äÄäÄäÄäÄäÄäÄäÄäÄäÄäÄb*", true)
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10000);

// One keystroke of completion in a big folder: 100,000 names filtered by the
// prefix test and the wildcard test, as completion does.
void BM_FilterHundredThousandNames(benchmark::State& state) {
    std::vector<std::string> names;
    names.reserve(100000);
    for (int i = 0; i < 100000; ++i) {
        names.push_back((i % 10 == 0 ? "Ärger-" : "file-") + std::to_string(i) + (i % 3 ? ".txt" : ".log"));
    }
    const std::string prefix = "FILE-42";
    std::size_t accepted = 0;
    for (auto _ : state) {
        accepted = 0;
        for (const std::string& name : names) {
            if (hasCaseInsensitivePrefix(name, prefix) || isCaseInsensitiveLike(name, prefix)) ++accepted;
        }
        benchmark::DoNotOptimize(accepted);
    }
    state.counters["accepted"] = static_cast<double>(accepted);
}
BENCHMARK(BM_FilterHundredThousandNames)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
