#pragma once

// An event tap for tests: records what the core asked of it into an EventLog ("tap.install <pid>",
// "tap.uninstall", "tap.setEnabled 0|1", "tap.setSwallowableKeys <key>/<flags> ...", "tap.post <event>"),
// and push() runs an event through the installed callback on the calling thread, whatever keys were
// declared swallowable (tests check the declared list separately).

#include <cstdio>
#include <mutex>
#include <type_traits>

#include "app/EventTap.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeEventTap final : public EventTap {
public:
    explicit FakeEventTap(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    bool install(std::int32_t pid, Callback callback) override {
        log_->add("tap.install " + std::to_string(pid));
        std::lock_guard lock(mutex_);
        installs_.push_back(pid);
        if (failInstalls_ || pid <= 0 || !callback) return false;
        pid_ = pid;
        callback_ = std::move(callback);
        return enabled_ = true;
    }
    void uninstall() override {
        log_->add("tap.uninstall");
        std::lock_guard lock(mutex_);
        pid_ = 0;
        callback_ = nullptr;
    }
    bool isInstalled() const override {
        return locked([&] { return pid_ != 0; });
    }
    void setEnabled(bool enabled) override {
        log_->add(std::string("tap.setEnabled ") + (enabled ? "1" : "0"));
        setEnabledSilently(enabled);
    }
    bool isEnabled() const override {
        return locked([&] { return enabled_; });
    }
    void setSwallowableKeys(std::vector<KeyCombo> keys) override {
        log_->add("tap.setSwallowableKeys " + describe(keys));
        locked([&] { keys_ = std::move(keys), ++keysCalls_; });
    }
    bool post(const TapEvent& event) override {
        log_->add("tap.post " + describe(event));
        return true;
    }
    Point mouseLocation() override {
        return locked([&] { return mouse_; });
    }

    // ---- test side
    // The event as the tap would deliver it: notices whenever installed, input only while also enabled;
    // Pass when the callback is not called.
    Decision push(const TapEvent& event) {
        Callback callback;
        {
            std::lock_guard lock(mutex_);
            const bool notice = event.type == kEventTapDisabledByTimeout || event.type == kEventTapDisabledByUserInput;
            if (pid_ == 0 || (!enabled_ && !notice)) return Decision::Pass;
            callback = callback_;
        }
        return callback(event);
    }
    // Later installs fail (no tap, the callback is dropped).
    void failInstalls(bool fail) {
        locked([&] { failInstalls_ = fail; });
    }
    void setMouseLocation(Point location) {
        locked([&] { mouse_ = location; });
    }
    void setEnabledSilently(bool enabled) {
        locked([&] { enabled_ = enabled; });
    }
    std::vector<std::int32_t> installs() const {
        return locked([&] { return installs_; });
    }
    std::vector<KeyCombo> swallowableKeys() const {
        return locked([&] { return keys_; });
    }
    std::size_t swallowableKeysCalls() const {
        return locked([&] { return keysCalls_; });
    }

    // "leftDown 300,200 click 1 flags 0x100000"; key events "keyDown 5 flags 0x100000".
    static std::string describe(const TapEvent& event) {
        static const std::pair<EventType, const char*> names[] = {{kEventLeftMouseDown, "leftDown"},
                                                                  {kEventLeftMouseUp, "leftUp"},
                                                                  {kEventKeyDown, "keyDown"},
                                                                  {kEventKeyUp, "keyUp"}};
        std::string text = "event";
        for (const auto& [type, name] : names)
            if (type == event.type) text = name;
        if (event.type == kEventKeyDown || event.type == kEventKeyUp)
            return text + " " + std::to_string(event.keyCode) + " flags " + hex(event.flags);
        return text + " " + number(event.location.x) + "," + number(event.location.y) + " click " +
               std::to_string(event.clickState) + " flags " + hex(event.flags);
    }
    static std::string describe(const std::vector<KeyCombo>& keys) {
        std::string text;
        for (const KeyCombo& key : keys)
            text += (text.empty() ? "" : " ") + std::to_string(key.keyCode) + "/" + hex(key.flags);
        return text;
    }

private:
    static std::string hex(std::uint64_t value) {
        char buffer[24];
        std::snprintf(buffer, sizeof buffer, "0x%llx", static_cast<unsigned long long>(value));
        return buffer;
    }
    template <class F>
    std::invoke_result_t<F> locked(F f) const {
        std::lock_guard lock(mutex_);
        return f();
    }

    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    Callback callback_;
    std::int32_t pid_ = 0;
    bool enabled_ = false, failInstalls_ = false;
    Point mouse_;
    std::vector<std::int32_t> installs_;
    std::vector<KeyCombo> keys_;
    std::size_t keysCalls_ = 0;
};

}  // namespace jorvane::test
