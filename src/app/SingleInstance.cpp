#include "app/SingleInstance.h"

#include <string>

#include "util/Diagnostics.h"

namespace jorvane::SingleInstance {

namespace {
constexpr const char* kLog = "SingleInstance";
}

Start atStart(InstanceChannel& channel, std::string_view message) {
    switch (channel.claim()) {
        case InstanceChannel::Claim::claimed: return Start::run;
        case InstanceChannel::Claim::unavailable:
            log::inDomain(log::Warn, kLog, "cannot tell whether Jorvane runs already: starting anyway");
            return Start::runUnguarded;
        case InstanceChannel::Claim::heldByAnother: break;
    }
    return channel.send(message) ? Start::handedOver : Start::otherUnreachable;
}

bool received(std::string_view message, const Requests& requests) {
    // Senders end their message with a line break.
    if (message.ends_with('\n')) message.remove_suffix(1);
    const std::function<void()>* request = message == kReopenMessage        ? &requests.reopen
                                           : message == kPreferencesMessage ? &requests.openPreferences
                                           : message == kQuitMessage        ? &requests.quit
                                                                            : nullptr;
    if (!request) {
        const std::string shown(message.substr(0, 64));
        log::inDomain(log::Warn, kLog, "ignoring a message from another start: \"%s\"", shown.c_str());
        return false;
    }
    if (*request) (*request)();
    return true;
}

}  // namespace jorvane::SingleInstance
