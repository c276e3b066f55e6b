#include "app/SingleInstance.h"

#include <string>

#include "util/Diagnostics.h"

namespace jorvane::SingleInstance {

namespace {
constexpr const char* kLog = "SingleInstance";
}

Start atStart(InstanceChannel& channel) {
    switch (channel.claim()) {
        case InstanceChannel::Claim::claimed: return Start::run;
        case InstanceChannel::Claim::unavailable:
            KMLogInDomain(KMLogLevelWarn, kLog, "cannot tell whether Jorvane runs already: starting anyway");
            return Start::runUnguarded;
        case InstanceChannel::Claim::heldByAnother: break;
    }
    return channel.send(kReopenMessage) ? Start::handedOver : Start::otherUnreachable;
}

bool received(std::string_view message, const std::function<void()>& reopen) {
    // Senders end their message with a line break.
    if (message.ends_with('\n')) message.remove_suffix(1);
    if (message != kReopenMessage) {
        const std::string shown(message.substr(0, 64));
        KMLogInDomain(KMLogLevelWarn, kLog, "ignoring a message from another start: \"%s\"", shown.c_str());
        return false;
    }
    if (reopen) reopen();
    return true;
}

}  // namespace jorvane::SingleInstance
