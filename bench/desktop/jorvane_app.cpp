// The whole program's latency and idle cost, on the end-to-end desktop
// (Xvfb, openbox, Thunar) with the built jorvane binary, seen from outside:
//
//  - BM_TitleClickToFocusedBar: from the XTEST click on a Thunar window's
//    title to the bar being mapped with the X input focus;
//  - BM_ReturnToFolderShown: from Return in the bar on an absolute folder to
//    Thunar's title naming that folder;
//  - BM_Idle: 10 s of nothing: the context switches of all the program's
//    threads (each wake-up is one), and its resident memory.
//
// Times are manual (the span between the two X events), 20 repetitions each,
// reported as mean, median and spread. The program runs without Qt's
// accessibility bridge, as users run it.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "BenchMain.h"
#include "Desktop.h"
#include "JorvaneDriver.h"

namespace {

namespace fs = std::filesystem;
using jorvane::e2e::Desktop;
using jorvane::e2e::JorvaneDriver;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kWait{5000};

struct Fixture {
    std::unique_ptr<Desktop> desktop;
    std::unique_ptr<JorvaneDriver> jorvane;
    fs::path demo;
    std::uint32_t window = 0;
};

Fixture& fixture() {
    static Fixture f = [] {
        Fixture made;
        made.desktop = std::make_unique<Desktop>();
        made.demo = made.desktop->dataDir() / "demo";
        for (const char* folder : {"Projects", "Music"}) fs::create_directories(made.demo / folder);
        for (int i = 0; i < 50; ++i) std::ofstream(made.demo / ("file" + std::to_string(i) + ".txt")) << i;
        std::optional<std::uint32_t> window = made.desktop->openThunarWindow(made.demo);
        if (!window) throw std::runtime_error("no Thunar window");
        made.window = *window;
        made.jorvane = std::make_unique<JorvaneDriver>(*made.desktop);
        JorvaneDriver::Options options;
        options.accessible = false;
        options.logLevel = "warn";
        if (!made.jorvane->start(options)) throw std::runtime_error(made.jorvane->why());
        if (!made.jorvane->waitForGrab(made.window, "g", kWait))
            throw std::runtime_error("the tap never grabbed Ctrl+G");
        made.desktop->activate(made.window);
        jorvane::e2e::waitUntil([&] { return made.jorvane->focusIsIn(made.window); }, kWait);
        return made;
    }();
    return f;
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void closeBar(Fixture& f) {
    if (!f.jorvane->bar()) return;
    f.jorvane->key("Escape");
    if (f.jorvane->bar()) f.jorvane->key("Escape");
    f.jorvane->waitForBarHidden(kWait);
    jorvane::e2e::waitUntil([&] { return f.desktop->activeWindow() == f.window; }, kWait);
}

void BM_TitleClickToFocusedBar(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        closeBar(f);
        const std::optional<std::pair<int, int>> point = f.jorvane->titlePoint(f.window);
        if (!point) {
            state.SkipWithError("no title bar");
            break;
        }
        f.jorvane->moveTo(point->first, point->second);
        const Clock::time_point start = Clock::now();
        f.jorvane->clickAt(point->first, point->second);
        if (!f.jorvane->waitForFocusedBar(kWait)) {
            state.SkipWithError("no focused bar after the click");
            break;
        }
        state.SetIterationTime(secondsSince(start));
    }
}
BENCHMARK(BM_TitleClickToFocusedBar)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(20)
    ->ReportAggregatesOnly(true)
    ->UseManualTime();

void BM_ReturnToFolderShown(benchmark::State& state) {
    Fixture& f = fixture();
    static int turn = 0;
    for (auto _ : state) {
        if (!f.jorvane->barHasFocus()) {
            closeBar(f);
            f.jorvane->hotKey();
            if (!f.jorvane->waitForFocusedBar(kWait)) {
                state.SkipWithError("no bar after Ctrl+G");
                break;
            }
        }
        const fs::path folder = f.demo / (turn++ % 2 == 0 ? "Projects" : "Music");
        f.jorvane->key("a", {"Control_L"});
        f.jorvane->type(folder.string());
        // The bar has taken every typed key (each completes inline); Return
        // then accepts the field as it stands.
        std::this_thread::sleep_for(milliseconds(300));
        const std::string title = folder.string() + " - Thunar";
        const Clock::time_point start = Clock::now();
        f.jorvane->key("Return");
        if (!f.desktop->waitForTitle(f.window, title, kWait)) {
            state.SkipWithError("Thunar did not show the folder");
            break;
        }
        state.SetIterationTime(secondsSince(start));
    }
}
BENCHMARK(BM_ReturnToFolderShown)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(20)
    ->ReportAggregatesOnly(true)
    ->UseManualTime();

// Voluntary and involuntary context switches of every thread of the process.
std::uint64_t contextSwitches(pid_t pid) {
    std::uint64_t total = 0;
    std::error_code error;
    for (const fs::directory_entry& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
        std::ifstream status(task.path() / "status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0 || line.rfind("nonvoluntary_ctxt_switches:", 0) == 0)
                total += std::stoull(line.substr(line.find(':') + 1));
        }
    }
    return total;
}

double residentMegabytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
    return 0;
}

void BM_Idle(benchmark::State& state) {
    Fixture& f = fixture();
    closeBar(f);
    const pid_t pid = f.jorvane->pid();
    for (auto _ : state) {
        // Whatever the last action set off has settled.
        std::this_thread::sleep_for(milliseconds(1000));
        const std::uint64_t before = contextSwitches(pid);
        const Clock::time_point start = Clock::now();
        std::this_thread::sleep_for(milliseconds(10000));
        const std::uint64_t after = contextSwitches(pid);
        state.SetIterationTime(secondsSince(start));
        state.counters["wakeups_in_10s"] = static_cast<double>(after - before);
        state.counters["rss_MB"] = residentMegabytes(pid);
    }
}
BENCHMARK(BM_Idle)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    return jorvane::e2e::runDesktopBenchmarks(argc, argv, "bench_jorvane_app", [] {
        fixture().jorvane.reset();
        fixture().desktop->stop();
    });
}
