// Latency of the Thunar handlers against the real Thunar, on the end-to-end
// desktop (Xvfb, openbox, a private session): "folder_path" (the title),
// "show_folder" (the location entry through AT-SPI, until the title shows
// the folder), "reveal_in_current_folder" in the Details and Icon views,
// "select_names" of 100 to 2,000 names (how many Return on a pattern may
// ask for), and "show_folder" asked for while a reveal in the Icon view
// runs (the reveal gives way).
//
// Each benchmark times single calls, 20 of them (10 for the slow ones), and
// reports their mean, median and spread.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <thread>

#include "BenchMain.h"
#include "Desktop.h"
#include "platform/thunar/ThunarHandlerCatalogue.h"

namespace {

namespace fs = std::filesystem;
using jorvane::ThunarHandlerCatalogue;
using jorvane::e2e::Desktop;

struct Fixture {
    std::unique_ptr<Desktop> desktop;
    std::unique_ptr<ThunarHandlerCatalogue> catalogue;
    fs::path a, b, many;
};

Fixture& fixture() {
    static Fixture f = [] {
        Fixture made;
        made.desktop = std::make_unique<Desktop>();
        made.a = made.desktop->dataDir() / "bench a";
        made.b = made.desktop->dataDir() / "bench b";
        fs::create_directories(made.a);
        fs::create_directories(made.b);
        for (int i = 0; i < 100; ++i) std::ofstream(made.a / ("file" + std::to_string(i) + ".txt")) << i;
        made.many = made.desktop->dataDir() / "bench many";
        fs::create_directories(made.many);
        for (int i = 0; i < 2000; ++i) std::ofstream(made.many / ("item" + std::to_string(i))) << i;
        std::optional<std::uint32_t> window = made.desktop->openThunarWindow(made.a);
        if (!window) throw std::runtime_error("no Thunar window");
        made.catalogue = std::make_unique<ThunarHandlerCatalogue>();
        made.catalogue->setFrontWindow(*window);
        // Warm up: AT-SPI's first contact finds the window's elements.
        made.catalogue->call("show_folder", {made.b.string()});
        made.catalogue->call("show_folder", {made.a.string()});
        return made;
    }();
    return f;
}

void BM_FolderPath(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        std::optional<std::string> path = f.catalogue->call("folder_path", {});
        if (!path) state.SkipWithError("folder_path answered nothing");
        benchmark::DoNotOptimize(path);
    }
}
BENCHMARK(BM_FolderPath)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(20)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void BM_ShowFolder(benchmark::State& state) {
    Fixture& f = fixture();
    static bool toB = true;
    for (auto _ : state) {
        std::optional<std::string> done = f.catalogue->call("show_folder", {(toB ? f.b : f.a).string()});
        if (!done) state.SkipWithError("show_folder answered nothing");
        toB = !toB;
    }
}
BENCHMARK(BM_ShowFolder)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(20)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void revealInView(benchmark::State& state, const char* view) {
    Fixture& f = fixture();
    f.catalogue->call("show_folder", {f.a.string()});
    f.catalogue->call(view, {});
    static int i = 0;
    for (auto _ : state) {
        std::optional<std::string> done =
            f.catalogue->call("reveal_in_current_folder", {"file" + std::to_string((i++ * 37) % 100) + ".txt"});
        if (!done) state.SkipWithError("reveal_in_current_folder answered nothing");
    }
}

void BM_RevealInCurrentFolderDetailsView(benchmark::State& state) { revealInView(state, "list_view"); }
BENCHMARK(BM_RevealInCurrentFolderDetailsView)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(10)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void BM_RevealInCurrentFolderIconView(benchmark::State& state) { revealInView(state, "icon_view"); }
BENCHMARK(BM_RevealInCurrentFolderIconView)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(10)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

// Selecting n names in a folder of 2,000 that the window already shows.
void BM_SelectMany(benchmark::State& state) {
    Fixture& f = fixture();
    std::string names;
    for (int i = 0; i < state.range(0); ++i) names += (i ? "|!|" : "") + ("item" + std::to_string(i));
    f.catalogue->call("list_view", {});
    int failed = 0;
    for (auto _ : state) {
        f.catalogue->call("show_folder", {f.many.string()});
        const auto start = std::chrono::steady_clock::now();
        if (!f.catalogue->call("select_names", {f.many.string(), names})) ++failed;
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        f.catalogue->call("show_folder", {f.a.string()});
    }
    state.counters["failed"] = failed;
}
BENCHMARK(BM_SelectMany)
    ->Arg(50)
    ->Arg(100)
    ->Arg(200)
    ->Arg(400)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true)
    ->UseManualTime();

// "show_folder" asked for 30 ms into a reveal in the Icon view.
void BM_ShowFolderBehindARevealInTheIconView(benchmark::State& state) {
    Fixture& f = fixture();
    f.catalogue->call("show_folder", {f.a.string()});
    f.catalogue->call("icon_view", {});
    static int i = 0;
    int failed = 0;
    for (auto _ : state) {
        std::thread reveal([&f] {
            f.catalogue->call("reveal_in_current_folder", {"file" + std::to_string((i++ * 37) % 100) + ".txt"});
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const auto start = std::chrono::steady_clock::now();
        if (!f.catalogue->call("show_folder", {f.b.string()})) ++failed;
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        reveal.join();
        f.catalogue->call("show_folder", {f.a.string()});
    }
    state.counters["failed"] = failed;
    f.catalogue->call("list_view", {});
}
BENCHMARK(BM_ShowFolderBehindARevealInTheIconView)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(10)
    ->ReportAggregatesOnly(true)
    ->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    return jorvane::e2e::runDesktopBenchmarks(argc, argv, "bench_thunar_handlers", [] {
        fixture().catalogue.reset();
        fixture().desktop->stop();
    });
}
