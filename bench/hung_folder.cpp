// The bar over a folder that never answers (a network mount whose server went
// away): how long the main thread is busy per key. One bar with fake views
// and file manager (tests/fakes); completion reads the folder through a source
// that never gives anything, and the navigations' file-system question about
// the folder never comes back either.
//
// Each iteration types "/hung/fi", "l", "e", two BackSpaces, then Up (to
// the hung folder), Escape, and Return on an absolute local folder, one key
// every 60 ms; between keys the main thread runs what the workers hand it.
//
// Counters (milliseconds): max_stall_ms and p99_stall_ms over every key and
// every batch of main-queue work, and the worst of each key kind
// (type_ms, backspace_ms, up_ms, escape_ms, return_ms). The bar's own target
// is one frame, 16 ms, for the worst.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "addressbar/PathWindowController.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/FakePathWindowDelegate.h"
#include "fakes/FakePathWindowViews.h"
#include "fakes/GatedFolderSource.h"
#include "fakes/MemoryDefaults.h"
#include "filemanager/FileManagerCommands.h"
#include "util/Dispatch.h"

namespace {

using namespace jorvane;
using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Paths under "/hung" never say what they are until the program ends.
class HungFolder {
public:
    bool isDirectory(const std::string& path) {
        if (!path.starts_with("/hung")) return std::filesystem::is_directory(path);
        std::unique_lock lock(mutex_);
        never_.wait(lock, [] { return false; });
        return false;
    }

private:
    std::mutex mutex_;
    std::condition_variable never_;
};

void HungFolderKeys(benchmark::State& state) {
    dispatch::mainQueue().bindToCurrentThread();
    // Never destroyed: the questions about it wait for ever on their threads.
    static auto* hung = new HungFolder();
    auto catalogue = std::make_shared<test::FakeHandlerCatalogue>();
    for (std::string_view command : {handlers::showFolder, handlers::reveal, handlers::revealInCurrentFolder})
        catalogue->answer(command, "");
    catalogue->answer(handlers::folderPath, "/hung");
    FileManagerCommands::Options navigation;
    navigation.isDirectory = [](const std::string& path) { return hung->isDirectory(path); };
    FileManagerCommands bridge(catalogue, navigation);
    auto log = std::make_shared<test::EventLog>();
    auto ax = std::make_shared<test::FakeAccessibility>();
    const auto application = ax->addApplication(4242);
    const auto window = ax->addWindow(application, "hung - Thunar", {{100, 50}, {600, 400}});
    ax->addStaticText(window, "hung - Thunar", {{340, 53}, {120, 16}});
    std::unique_ptr<settings::UserDefaults> defaults = test::makeMemoryDefaults();
    test::FakeWorkspace workspace(log);
    test::FakeScreens screens{std::vector<Rect>{Rect{{0, 0}, {1440, 900}}}};
    test::FakePathWindowDelegate delegate(log);
    // The folder gives nothing, ever.
    auto source = std::make_shared<test::GatedFolderSource>(std::vector<std::vector<std::string>>{{"file01"}});
    CompletionEngine::Options completion;
    completion.source = source;
    const std::string local = std::filesystem::temp_directory_path().string();

    std::vector<double> stalls;
    std::map<std::string, double> worst;
    for (auto _ : state) {
        test::FakePathWindowViews views(log);
        test::FakePathField& field = views.field();
        PathWindowController bar(ax->element(window), views.take(),
                                 {bridge, *defaults, workspace, screens, delegate, completion, nullptr});
        bar.show();
        const auto key = [&](const std::string& kind, auto&& press) {
            const auto start = Clock::now();
            press();
            const double took = msSince(start);
            stalls.push_back(took);
            worst[kind] = std::max(worst[kind], took);
            // The next key comes 60 ms later; meanwhile the main thread
            // runs what the workers hand it.
            const auto next = start + std::chrono::milliseconds(60);
            while (Clock::now() < next) {
                const auto drainStart = Clock::now();
                if (dispatch::mainQueue().drain() > 0) stalls.push_back(msSince(drainStart));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        };
        const auto type = [&](const std::string& text) {
            field.type(text);
            bar.textChanged();
            bar.completedString(text);
        };
        const auto erase = [&](const std::string& text) {
            field.type(text);
            bar.textChanged();
        };
        key("type_ms", [&] { type("/hung/fi"); });
        key("type_ms", [&] { type("/hung/fil"); });
        key("type_ms", [&] { type("/hung/file"); });
        key("backspace_ms", [&] { erase("/hung/fil"); });
        key("backspace_ms", [&] { erase("/hung/fi"); });
        key("up_ms", [&] { bar.handleEditCommand(TextCommand::moveUp); });
        key("escape_ms", [&] { bar.handleEditCommand(TextCommand::cancelOperation); });
        bar.show();
        field.type(local);
        key("return_ms", [&] { bar.handleEditCommand(TextCommand::insertNewline); });
        bar.close();
    }
    source->close();
    bridge.waitUntilIdle();
    dispatch::mainQueue().drain();
    std::sort(stalls.begin(), stalls.end());
    state.counters["max_stall_ms"] = stalls.empty() ? 0 : stalls.back();
    state.counters["p99_stall_ms"] = stalls.empty() ? 0 : stalls[std::min(stalls.size() - 1, stalls.size() * 99 / 100)];
    for (const auto& [kind, ms] : worst) state.counters[kind] = ms;
}

BENCHMARK(HungFolderKeys)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
