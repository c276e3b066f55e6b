// The visit history: a query as the user types (10,000 folders), and the
// history file read at start and written after visits (10,000 lines).

#include <benchmark/benchmark.h>

#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "places/HistoryFile.h"
#include "places/VisitHistory.h"

namespace {

using namespace jorvane::places;
namespace fs = std::filesystem;

constexpr UnixSeconds kNow = 1'800'000'000;

// Folders shaped like a home's: a few levels of ordinary words, some of them
// not ASCII, with scores and visit times spread out.
VisitHistory makeHistory(int count) {
    static const char* const words[] = {"Projects",  "Documents", "Reports", "src",   "build",   "Photos",     "Musik",
                                        "Übersicht", "archive",   "2026",    "notes", "clients", "Rechnungen", "tmp"};
    constexpr int kWords = sizeof words / sizeof words[0];
    VisitHistory history;
    unsigned seed = 12345;
    // The upper bits: the low bits of this generator repeat with short periods.
    auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    for (int i = 0; i < count; ++i) {
        std::string path = "/home/user";
        const int depth = 2 + static_cast<int>(next() % 4);
        for (int d = 0; d < depth; ++d) path += std::string("/") + words[next() % kWords];
        path += "-" + std::to_string(i);
        history.add(
            {path, 1 + static_cast<double>(next() % 8), kNow - static_cast<UnixSeconds>(next() % (30 * 86400))});
    }
    return history;
}

void BM_QueryTenThousandFolders(benchmark::State& state, const char* typed) {
    const VisitHistory history = makeHistory(10000);
    std::size_t found = 0;
    for (auto _ : state) {
        found = history.query(typed, kNow, 10).size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = static_cast<double>(found);
}
BENCHMARK_CAPTURE(BM_QueryTenThousandFolders, two_words, "proj rep")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_QueryTenThousandFolders, one_letter, "r")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_QueryTenThousandFolders, no_words_all_match, "")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_QueryTenThousandFolders, non_ascii, "übersicht rechnungen")->Unit(benchmark::kMicrosecond);

// Load and save through the file on disk (the save includes its fsync), in
// $TMPDIR or /tmp: TMPDIR=/dev/shm leaves the disk's flush out.
class OnDisk {
public:
    OnDisk() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/jorvane-bench-history-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
    }
    ~OnDisk() {
        std::error_code ec;
        fs::remove_all(folder_, ec);
    }
    fs::path file() const { return folder_ / "history"; }

private:
    fs::path folder_;
};

void BM_LoadTenThousandLines(benchmark::State& state) {
    OnDisk disk;
    HistoryFile(disk.file()).save(makeHistory(10000));
    for (auto _ : state) {
        HistoryFile file(disk.file());
        benchmark::DoNotOptimize(file.load().history.size());
    }
}
BENCHMARK(BM_LoadTenThousandLines)->Unit(benchmark::kMillisecond);

void BM_SaveTenThousandLines(benchmark::State& state) {
    OnDisk disk;
    const VisitHistory history = makeHistory(10000);
    HistoryFile file(disk.file());
    for (auto _ : state) benchmark::DoNotOptimize(file.save(history));
}
BENCHMARK(BM_SaveTenThousandLines)->Unit(benchmark::kMillisecond);

// The text form alone, without the disk.
void BM_ParseTenThousandLines(benchmark::State& state) {
    const std::string text = serialiseHistory(makeHistory(10000));
    for (auto _ : state) benchmark::DoNotOptimize(parseHistory(text).history.size());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParseTenThousandLines)->Unit(benchmark::kMillisecond);

void BM_SerialiseTenThousandLines(benchmark::State& state) {
    const VisitHistory history = makeHistory(10000);
    for (auto _ : state) benchmark::DoNotOptimize(serialiseHistory(history));
}
BENCHMARK(BM_SerialiseTenThousandLines)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
