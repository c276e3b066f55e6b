// Fuzzy ranking of the names of a large folder, as when neither a prefix nor
// a pattern finds anything: 100,000 names against typed text that matches
// few of them, many of them, and non-ASCII text.
//
// `bench_fuzzy_match --write-names=FILE` writes the same names, one per
// line, and exits: for measuring another fuzzy catalogue on the same input.

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "places/FuzzyMatch.h"

namespace {

using namespace jorvane::places;

// Names shaped like a big folder's: words joined by separators and camel
// case, numbers, extensions, some of them not ASCII.
const std::vector<std::string>& names() {
    static const std::vector<std::string> all = [] {
        static const char* const words[] = {
            "report",  "Meeting", "notes",   "draft", "Invoice",  "photo", "backup", "final",   "Übersicht", "budget",
            "project", "data",    "summary", "scan",  "Rechnung", "image", "video",  "archive", "readme",    "config"};
        static const char* const separators[] = {"-", "_", ".", " ", ""};
        static const char* const extensions[] = {".txt", ".pdf", ".jpg", ".tar.gz", ".odt", "/", ".cpp", ""};
        constexpr unsigned kWords = sizeof words / sizeof words[0];
        std::vector<std::string> out;
        out.reserve(100000);
        unsigned seed = 2026;
        auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
        for (int i = 0; i < 100000; ++i) {
            std::string name = words[next() % kWords];
            const unsigned parts = 1 + next() % 3;
            for (unsigned p = 0; p < parts; ++p) {
                name += separators[next() % 5];
                name += words[next() % kWords];
            }
            name += "-" + std::to_string(next() % 10000);
            name += extensions[next() % 8];
            out.push_back(std::move(name));
        }
        return out;
    }();
    return all;
}

void BM_RankHundredThousandNames(benchmark::State& state, const char* typed) {
    const std::vector<std::string>& all = names();
    std::size_t found = 0;
    for (auto _ : state) {
        found = rankFuzzy(all, typed, 50).size();
        benchmark::DoNotOptimize(found);
    }
    // How many matched at all, not only the 50 kept.
    const FuzzyQuery query(typed);
    std::size_t matching = 0;
    for (const std::string& name : all) matching += query.score(name).has_value();
    state.counters["matching"] = static_cast<double>(matching);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * all.size()));
}
BENCHMARK_CAPTURE(BM_RankHundredThousandNames, rprt, "rprt")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankHundredThousandNames, mtg_notes, "mtg notes")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankHundredThousandNames, one_letter, "e")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankHundredThousandNames, non_ascii, "übrsch")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RankHundredThousandNames, no_match, "zzq")->Unit(benchmark::kMillisecond);

void BM_MatchedPositions(benchmark::State& state) {
    const FuzzyQuery query("mtg notes");
    for (auto _ : state) benchmark::DoNotOptimize(query.matchedPositions("Meeting-Notes-2026-final.txt"));
}
BENCHMARK(BM_MatchedPositions);

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--write-names=", 14) == 0) {
            std::ofstream out(argv[i] + 14, std::ios::binary);
            for (const std::string& name : names()) out << name << '\n';
            return out ? 0 : 1;
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
