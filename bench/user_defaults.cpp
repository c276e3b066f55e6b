// What the defaults domain costs its callers: the key-event thread reads the
// hot-key settings at every key press, so reads must stay cheap and must not
// wait for a save's fsync; saves happen when the user changes a preference.
#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using namespace jorvane::settings;

namespace {

class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "jorvane-bench-XXXXXX").string();
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (::mkdtemp(buffer.data())) path_ = buffer.data();
    }
    ~ScratchFolder() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    std::filesystem::path file() const { return path_ / "settings.json"; }

private:
    std::filesystem::path path_;
};

std::unique_ptr<UserDefaults> fileBacked(const ScratchFolder& folder) {
    auto defaults =
        std::make_unique<UserDefaults>(std::make_unique<FileDefaultsStorage>(folder.file()), [](const std::string&) {});
    defaults->registerDefaults(shippedDefaults());
    defaults->setBool(true, keys::notFirstLaunch);
    return defaults;
}

// The three reads of one key event.
void readHotKey(const UserDefaults& defaults) {
    benchmark::DoNotOptimize(defaults.boolForKey(keys::activateByHotkey));
    benchmark::DoNotOptimize(defaults.integerForKey(keys::hotkeyFlags));
    benchmark::DoNotOptimize(defaults.integerForKey(keys::hotkeyKeycode));
}

void BM_HotKeyReadsMemoryOnly(benchmark::State& state) {
    UserDefaults defaults(nullptr);
    defaults.registerDefaults(shippedDefaults());
    for (auto _ : state) readHotKey(defaults);
}
BENCHMARK(BM_HotKeyReadsMemoryOnly);

void BM_HotKeyReadsFileBacked(benchmark::State& state) {
    ScratchFolder folder;
    auto defaults = fileBacked(folder);
    for (auto _ : state) readHotKey(*defaults);
}
BENCHMARK(BM_HotKeyReadsFileBacked);

// Reads on one thread while another saves a new value as fast as it can.
void BM_HotKeyReadsWhileAnotherThreadSaves(benchmark::State& state) {
    ScratchFolder folder;
    auto defaults = fileBacked(folder);
    std::atomic<bool> stop{false};
    std::atomic<long> saves{0};
    std::thread writer([&] {
        for (std::int64_t i = 0; !stop.load(std::memory_order_relaxed); ++i) {
            defaults->setInteger(i, keys::updateCheckInterval);
            saves.fetch_add(1, std::memory_order_relaxed);
        }
    });
    for (auto _ : state) readHotKey(*defaults);
    stop = true;
    writer.join();
    state.counters["saves"] = static_cast<double>(saves.load());
}
BENCHMARK(BM_HotKeyReadsWhileAnotherThreadSaves)->UseRealTime();

// One preference change: the value, a complete file written, flushed to disk
// and renamed into place.
void BM_SetIntegerFileBacked(benchmark::State& state) {
    ScratchFolder folder;
    auto defaults = fileBacked(folder);
    std::int64_t i = 0;
    for (auto _ : state) defaults->setInteger(++i, keys::hotkeyKeycode);
}
BENCHMARK(BM_SetIntegerFileBacked)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
