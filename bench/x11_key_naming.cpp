// Key naming over a keymap compiled from names ("us"): the name of a letter
// (one xkbcommon translation), the reverse lookup of a name no key has (all
// 128 codes), and the validation of a free combination (names for the menu
// search, no desktop port).
#include <benchmark/benchmark.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>

#include "platform/x11/X11KeyboardLayout.h"
#include "shortcut/ShortcutKeyNames.h"
#include "shortcut/ShortcutValidator.h"

namespace {

using namespace jorvane;

struct CompiledUS {
    CompiledUS() : context(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
        const xkb_rule_names names{"evdev", "pc105", "us", "", nullptr};
        xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        setCurrentKeyboardLayout(std::make_shared<x11::XkbKeyboardLayout>(keymap, 0));
        xkb_keymap_unref(keymap);
    }
    ~CompiledUS() {
        setCurrentKeyboardLayout(nullptr);
        xkb_context_unref(context);
    }
    xkb_context* context;
};

void BM_NameOfALetter(benchmark::State& state) {
    const CompiledUS us;
    for (auto _ : state) benchmark::DoNotOptimize(shortcutKeyName(kKeyG));
}
BENCHMARK(BM_NameOfALetter);

void BM_ReverseLookupOfAMissingName(benchmark::State& state) {
    const CompiledUS us;
    const ShortcutKeyNames transformer;
    for (auto _ : state) benchmark::DoNotOptimize(transformer.reverseTransformedValue("No such key"));
}
BENCHMARK(BM_ReverseLookupOfAMissingName);

void BM_ValidateAFreeCombination(benchmark::State& state) {
    const CompiledUS us;
    ShortcutValidator validator;
    for (auto _ : state) benchmark::DoNotOptimize(validator.isKeyCodeAndFlagsTaken(kKeyG, kRecorderCommand));
}
BENCHMARK(BM_ValidateAFreeCombination);

}  // namespace
BENCHMARK_MAIN();
