// What the event tap's callback costs per event. Key events are decided on
// the tap's thread while the keyboard is frozen (the budget is 20 µs), so
// their decision must be cheap and must not allocate; mouse events only hand
// themselves to the main queue.
//
//   - decideKeyEvent alone, over memory-only and file-backed settings, for
//     the events that reach it: the hot key's press and release, an extra
//     shortcut with its setting off, and a key that passes;
//   - the delegate's whole callback for the hot key's press (swallowed, no
//     action), its release (the bar's opening queued on the main queue), and a
//     title-bar click (queued; the main queue is drained outside the timing).
// Each reports the heap allocations per event ("allocs").
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "app/ActivationEvents.h"
#include "app/Alerts.h"
#include "app/Application.h"
#include "app/EnvironmentCheck.h"
#include "app/FileManagerProcess.h"
#include "app/JorvaneApp.h"
#include "filemanager/FileManagerCommands.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"
#include "updater/Updater.h"
#include "util/Dispatch.h"

// Counts every allocation of the program, to show which paths allocate. GCC
// takes the replaced operators' malloc and free for a mismatch once they
// are inlined into the registration code; they are the matching pair here.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
std::atomic<std::uint64_t> gAllocations{0};
}
void* operator new(std::size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace jorvane;

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

std::unique_ptr<settings::UserDefaults> makeDefaults(const ScratchFolder* folder) {
    auto defaults = std::make_unique<settings::UserDefaults>(
        folder ? std::make_unique<settings::FileDefaultsStorage>(folder->file()) : nullptr, [](const std::string&) {});
    defaults->registerDefaults(settings::shippedDefaults());
    defaults->setBool(true, settings::keys::notFirstLaunch);
    return defaults;
}

TapEvent keyEvent(KeyCode code, bool down, Modifiers flags) { return TapEvent::keyboardEvent(code, down, flags); }

const TapEvent kHotKeyDown = keyEvent(kKeyG, true, kModifierCommand);
const TapEvent kHotKeyUp = keyEvent(kKeyG, false, kModifierCommand);
const TapEvent kReloadShortcut = keyEvent(kKeyR, true, kModifierCommand);
const TapEvent kOtherKey = keyEvent(kKeyJ, true, kModifierCommand);

void decide(benchmark::State& state, const TapEvent& event, bool fileBacked) {
    ScratchFolder folder;
    auto defaults = makeDefaults(fileBacked ? &folder : nullptr);
    const std::uint64_t before = gAllocations.load();
    activation::HotKeyChord chord;
    for (auto _ : state) {
        // A release is decided against the press that armed the hot key.
        if (event.type == kEventKeyUp) chord = {activation::HotKeyChord::Phase::armed, event.keyCode};
        benchmark::DoNotOptimize(activation::decideKeyEvent(event, *defaults, chord));
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(gAllocations.load() - before), benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(decide, hotKeyPress_memory, kHotKeyDown, false);
BENCHMARK_CAPTURE(decide, hotKeyPress_file, kHotKeyDown, true);
BENCHMARK_CAPTURE(decide, hotKeyRelease_file, kHotKeyUp, true);
BENCHMARK_CAPTURE(decide, shortcutOff_file, kReloadShortcut, true);
BENCHMARK_CAPTURE(decide, passingKey_file, kOtherKey, true);

// ---- the delegate around it, with ports that do nothing

class NullTap final : public EventTap {
public:
    bool install(std::int32_t, Callback) override { return true; }
    void uninstall() override {}
    bool isInstalled() const override { return false; }
    void setEnabled(bool) override {}
    bool isEnabled() const override { return true; }
    void setSwallowableKeys(std::vector<KeyCombo>) override {}
    bool post(const TapEvent&) override { return true; }
    Point mouseLocation() override { return {}; }
};
class NullAccessibility final : public AccessibilityAPI {
public:
    ElementRef systemWideElement() override { return nullptr; }
    ElementRef applicationElement(std::int32_t) override { return nullptr; }
    ElementRef elementAtPosition(float, float) override { return nullptr; }
    std::vector<WindowInfo> windowList() override { return {}; }
    Point mouseLocation() override { return {}; }
};
class NullWorkspace final : public WorkspaceObserver {
public:
    bool setCallback(Callback) override { return true; }
};
class NullAlerts final : public Alerts {
public:
    int runModal(const AlertSpec&) override { return kAlertFirstButton; }
};
class NullApplication final : public Application {
public:
    void activateIgnoringOtherApps() override {}
    void deactivate() override {}
    void terminate() override {}
};
class NullEnvironment final : public EnvironmentCheck {
public:
    std::vector<std::string> missingRequirements() override { return {}; }
};
class NullFileManager final : public FileManagerProcess {
public:
    std::int32_t runningApplicationPid() override { return 4242; }
    bool processExists(std::int32_t) override { return false; }
    bool showsAllFiles() override { return false; }
    void setShowsAllFiles(bool) override {}
    int quitApplication(std::string_view) override { return noErr; }
    bool launch() override { return true; }
    bool bringToFront(std::int32_t) override { return true; }
};

void callback(benchmark::State& state, const TapEvent& event) {
    dispatch::mainQueue().bindToCurrentThread();
    ScratchFolder folder;
    auto defaults = makeDefaults(&folder);
    NullTap tap;
    NullAccessibility accessibility;
    NullWorkspace workspace;
    NullAlerts alerts;
    NullApplication application;
    NullEnvironment environment;
    NullFileManager fileManager;
    NullUpdater updater;
    FileManagerCommands bridge;
    JorvaneApp delegate({*defaults,
                         accessibility,
                         tap,
                         workspace,
                         alerts,
                         application,
                         environment,
                         fileManager,
                         updater,
                         bridge,
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr,
                         PlatformNames{},
                         {},
                         "bench"});
    std::uint64_t allocations = 0;
    std::int64_t n = 0;
    for (auto _ : state) {
        const std::uint64_t before = gAllocations.load(std::memory_order_relaxed);
        benchmark::DoNotOptimize(delegate.eventTapCallback(event));
        allocations += gAllocations.load(std::memory_order_relaxed) - before;
        if (++n % 4096 == 0) {
            state.PauseTiming();
            dispatch::mainQueue().drain();
            state.ResumeTiming();
        }
    }
    dispatch::mainQueue().drain();
    state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(callback, hotKeyPress, kHotKeyDown);
BENCHMARK_CAPTURE(callback, hotKeyRelease, kHotKeyUp);
BENCHMARK_CAPTURE(callback, titleClick, TapEvent::mouseEvent(kEventLeftMouseUp, {400, 60}));

}  // namespace

BENCHMARK_MAIN();
