#include "fakes/FakeEventTap.h"

#include <cstdio>

namespace jorvane::test {

namespace {

const char* typeName(EventType type) {
    switch (type) {
        case kEventLeftMouseDown: return "leftDown";
        case kEventLeftMouseUp: return "leftUp";
        case kEventRightMouseDown: return "rightDown";
        case kEventRightMouseUp: return "rightUp";
        case kEventMouseMoved: return "moved";
        case kEventLeftMouseDragged: return "leftDragged";
        case kEventKeyDown: return "keyDown";
        case kEventKeyUp: return "keyUp";
        case kEventFlagsChanged: return "flagsChanged";
        case kEventOtherMouseDown: return "otherDown";
        case kEventOtherMouseUp: return "otherUp";
        case kEventTapDisabledByTimeout: return "disabledByTimeout";
        case kEventTapDisabledByUserInput: return "disabledByUserInput";
        default: return "event";
    }
}

std::string hex(std::uint64_t value) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%llx", static_cast<unsigned long long>(value));
    return buffer;
}

std::string number(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

}  // namespace

FakeEventTap::FakeEventTap(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}

bool FakeEventTap::install(std::int32_t pid, Callback callback) {
    log_->add("tap.install " + std::to_string(pid));
    std::lock_guard lock(mutex_);
    installs_.push_back(pid);
    if (failInstalls_ || pid <= 0 || !callback) return false;
    pid_ = pid;
    callback_ = std::move(callback);
    enabled_ = true;
    return true;
}

void FakeEventTap::uninstall() {
    log_->add("tap.uninstall");
    std::lock_guard lock(mutex_);
    pid_ = 0;
    callback_ = nullptr;
}

bool FakeEventTap::isInstalled() const {
    std::lock_guard lock(mutex_);
    return pid_ != 0;
}

void FakeEventTap::setEnabled(bool enabled) {
    log_->add(std::string("tap.setEnabled ") + (enabled ? "1" : "0"));
    setEnabledSilently(enabled);
}

bool FakeEventTap::isEnabled() const {
    std::lock_guard lock(mutex_);
    return enabled_;
}

void FakeEventTap::setSwallowableKeys(std::vector<KeyCombo> keys) {
    log_->add("tap.setSwallowableKeys " + describe(keys));
    std::lock_guard lock(mutex_);
    keys_ = std::move(keys);
    ++keysCalls_;
}

bool FakeEventTap::post(const TapEvent& event) {
    log_->add("tap.post " + describe(event));
    std::lock_guard lock(mutex_);
    return true;
}

Point FakeEventTap::mouseLocation() {
    std::lock_guard lock(mutex_);
    return mouse_;
}

EventTap::Decision FakeEventTap::push(const TapEvent& event) {
    Callback callback;
    {
        std::lock_guard lock(mutex_);
        const bool notice = event.type == kEventTapDisabledByTimeout || event.type == kEventTapDisabledByUserInput;
        if (pid_ == 0 || (!enabled_ && !notice)) return Decision::Pass;
        callback = callback_;
    }
    return callback(event);
}

void FakeEventTap::failInstalls(bool fail) {
    std::lock_guard lock(mutex_);
    failInstalls_ = fail;
}

void FakeEventTap::setMouseLocation(Point location) {
    std::lock_guard lock(mutex_);
    mouse_ = location;
}

void FakeEventTap::setEnabledSilently(bool enabled) {
    std::lock_guard lock(mutex_);
    enabled_ = enabled;
}

std::vector<std::int32_t> FakeEventTap::installs() const {
    std::lock_guard lock(mutex_);
    return installs_;
}

std::vector<EventTap::KeyCombo> FakeEventTap::swallowableKeys() const {
    std::lock_guard lock(mutex_);
    return keys_;
}

std::size_t FakeEventTap::swallowableKeysCalls() const {
    std::lock_guard lock(mutex_);
    return keysCalls_;
}

std::string FakeEventTap::describe(const TapEvent& event) {
    std::string text = typeName(event.type);
    if (event.type == kEventKeyDown || event.type == kEventKeyUp)
        return text + " " + std::to_string(event.keyCode) + " flags " + hex(event.flags);
    return text + " " + number(event.location.x) + "," + number(event.location.y) + " click " +
           std::to_string(event.clickState) + " flags " + hex(event.flags);
}

std::string FakeEventTap::describe(const std::vector<KeyCombo>& keys) {
    std::string text;
    for (const KeyCombo& key : keys) {
        if (!text.empty()) text += " ";
        text += std::to_string(key.keyCode) + "/" + hex(key.flags);
    }
    return text;
}

}  // namespace jorvane::test
