#pragma once

// An event tap for tests: records what the core asked of it (installs,
// enabling, the keys it may have to swallow, posted events) into an
// EventLog, and lets the test push events through the installed callback
// and read the decision.
// push() calls the callback on the calling thread, whatever keys were
// declared swallowable (the X11 tap would only show those; tests check the
// declared list separately). Log entries: "tap.install <pid>",
// "tap.uninstall", "tap.setEnabled 0|1", "tap.setSwallowableKeys <key>/<flags
// hex> ...", "tap.post <event>" (describe()).

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/EventTap.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeEventTap final : public EventTap {
public:
    explicit FakeEventTap(std::shared_ptr<EventLog> log = std::make_shared<EventLog>());

    bool install(std::int32_t pid, Callback callback) override;
    void uninstall() override;
    bool isInstalled() const override;
    void setEnabled(bool enabled) override;
    bool isEnabled() const override;
    void setSwallowableKeys(std::vector<KeyCombo> keys) override;
    bool post(const TapEvent& event) override;
    Point mouseLocation() override;

    // ---- test side
    // The event as the tap would deliver it: tap notices whenever a tap is
    // installed, input only while it is also enabled; Pass when the callback
    // is not called.
    Decision push(const TapEvent& event);
    // Later installs fail (no tap, the callback is dropped).
    void failInstalls(bool fail);
    void setMouseLocation(Point location);
    // Changes the state without recording anything.
    void setEnabledSilently(bool enabled);

    std::vector<std::int32_t> installs() const;
    std::vector<KeyCombo> swallowableKeys() const;
    std::size_t swallowableKeysCalls() const;

    // "leftDown 300,200 click 1 flags 0x100000"; key events "keyDown 5 flags 0x100000".
    static std::string describe(const TapEvent& event);
    static std::string describe(const std::vector<KeyCombo>& keys);

private:
    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    Callback callback_;
    std::int32_t pid_ = 0;
    bool enabled_ = false;
    bool failInstalls_ = false;
    Point mouse_;
    std::vector<std::int32_t> installs_;
    std::vector<KeyCombo> keys_;
    std::size_t keysCalls_ = 0;
};

}  // namespace jorvane::test
