// The X11 event tap's own cost per event, without the core's decision (the
// callback here decides at once):
//   - key translation alone (no display needed);
//   - a grabbed key: translate, deliver, answer the grab (AllowEvents and a
//     flush on a live connection);
//   - a click: the QueryPointer round trip that raw events need, the lookup of
//     the window under the pointer, translate, deliver.
// The display benchmarks use $DISPLAY and are skipped without one.
#include <benchmark/benchmark.h>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>

#include "platform/x11/X11Keys.h"

namespace {

using jorvane::EventTap;
using jorvane::TapEvent;
using jorvane::x11::ModifierMap;
using jorvane::x11::X11Keys;

struct UsKeyboard {
    UsKeyboard() {
        context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        const xkb_rule_names names{"evdev", "pc105", "us", "", nullptr};
        keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        ModifierMap map;
        map[0] = {xkb_keymap_key_by_name(keymap, "LFSH")};
        map[1] = {xkb_keymap_key_by_name(keymap, "CAPS")};
        map[2] = {xkb_keymap_key_by_name(keymap, "LCTL")};
        map[3] = {xkb_keymap_key_by_name(keymap, "LALT")};
        map[4] = {xkb_keymap_key_by_name(keymap, "NMLK")};
        map[6] = {xkb_keymap_key_by_name(keymap, "LWIN")};
        keys = std::make_unique<X11Keys>(keymap, map);
        for (const char* name : {"AC05", "AC09", "RTRN", "UP", "AE01", "LCTL", "KP7", "FK05"}) {
            sample.push_back(xkb_keymap_key_by_name(keymap, name));
        }
    }
    ~UsKeyboard() {
        keys.reset();
        xkb_keymap_unref(keymap);
        xkb_context_unref(context);
    }
    xkb_context* context;
    xkb_keymap* keymap;
    std::unique_ptr<X11Keys> keys;
    std::vector<xkb_keycode_t> sample;
};

UsKeyboard& keyboard() {
    static UsKeyboard instance;
    return instance;
}

// A callback that decides at once, as a stand-in for the core.
EventTap::Callback instantCallback() {
    return [](const TapEvent& event) {
        return event.keyCode == jorvane::kKeyG ? EventTap::Decision::Swallow : EventTap::Decision::Pass;
    };
}

void BM_KeyTranslation(benchmark::State& state) {
    UsKeyboard& k = keyboard();
    std::size_t i = 0;
    for (auto _ : state) {
        const xkb_keycode_t key = k.sample[i++ % k.sample.size()];
        benchmark::DoNotOptimize(k.keys->keyEvent(key, 0x04, true, false, {10, 20}));
    }
}
BENCHMARK(BM_KeyTranslation);

struct Display {
    Display() {
        if (!std::getenv("DISPLAY")) return;
        c = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(c)) {
            xcb_disconnect(c);
            c = nullptr;
            return;
        }
        root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    }
    ~Display() {
        if (c) xcb_disconnect(c);
    }
    xcb_connection_t* c = nullptr;
    xcb_window_t root = XCB_NONE;
};

void BM_GrabbedKeyPath(benchmark::State& state) {
    Display display;
    if (!display.c) {
        state.SkipWithError("no X display ($DISPLAY)");
        return;
    }
    UsKeyboard& k = keyboard();
    const EventTap::Callback callback = instantCallback();
    std::size_t i = 0;
    for (auto _ : state) {
        const xkb_keycode_t key = k.sample[i++ % k.sample.size()];
        const std::optional<TapEvent> event = k.keys->keyEvent(key, 0x04, true, false, {10, 20});
        const EventTap::Decision decision = event ? callback(*event) : EventTap::Decision::Pass;
        // Without a frozen keyboard the server ignores it, at the same cost to us.
        xcb_allow_events(display.c,
                         decision == EventTap::Decision::Swallow ? XCB_ALLOW_ASYNC_KEYBOARD : XCB_ALLOW_REPLAY_KEYBOARD,
                         XCB_CURRENT_TIME);
        xcb_flush(display.c);
    }
}
BENCHMARK(BM_GrabbedKeyPath);

void BM_ClickPath(benchmark::State& state) {
    Display display;
    if (!display.c) {
        state.SkipWithError("no X display ($DISPLAY)");
        return;
    }
    UsKeyboard& k = keyboard();
    const EventTap::Callback callback = instantCallback();
    // The tap keeps the frames of the tapped process's client windows.
    std::map<xcb_window_t, xcb_window_t> clientFrames;
    for (xcb_window_t w = 1; w <= 8; ++w) clientFrames[0x400000 + w] = 0x200000 + w;
    for (auto _ : state) {
        auto* pointer = xcb_query_pointer_reply(display.c, xcb_query_pointer(display.c, display.root), nullptr);
        bool ours = false;
        for (const auto& [client, frame] : clientFrames) ours = ours || frame == pointer->child;
        TapEvent event =
            TapEvent::mouseEvent(jorvane::kEventLeftMouseUp, {double(pointer->root_x), double(pointer->root_y)});
        event.flags = k.keys->flagsForState(pointer->mask & 0xff);
        benchmark::DoNotOptimize(ours);
        benchmark::DoNotOptimize(callback(event));
        std::free(pointer);
    }
}
BENCHMARK(BM_ClickPath);

}  // namespace

BENCHMARK_MAIN();
