#pragma once

// One running program per session. The first start claims the session's
// rendezvous and keeps it while it runs; a later start finds it held, asks
// the running program to show its "already running" alert, and ends at
// once. A rendezvous left behind by a program that crashed counts as free
// (the adapter's business).

#include <functional>
#include <string_view>

namespace jorvane {

// The session's rendezvous of the program's instances.
class InstanceChannel {
public:
    enum class Claim {
        claimed,        // this process is now the running one
        heldByAnother,  // another process runs
        unavailable,    // no rendezvous can be had here
    };

    virtual ~InstanceChannel() = default;
    virtual Claim claim() = 0;
    // Hands the message to the running process; false when it cannot be
    // reached.
    virtual bool send(std::string_view message) = 0;
};

namespace SingleInstance {

// What a later start sends: "show that you are already running", "open
// your preferences", "quit".
inline constexpr std::string_view kReopenMessage = "reopen";
inline constexpr std::string_view kPreferencesMessage = "preferences";
inline constexpr std::string_view kQuitMessage = "quit";

enum class Start {
    run,               // the first: go on
    runUnguarded,      // no rendezvous: go on, a second start will not be noticed
    handedOver,        // another runs and was told: end with success
    otherUnreachable,  // another runs but does not answer: end with an error
};

// `message`: what to tell a running one.
Start atStart(InstanceChannel& channel, std::string_view message = kReopenMessage);

struct Requests {
    std::function<void()> reopen;
    std::function<void()> openPreferences;
    std::function<void()> quit;
};

// A message from a later start runs its request; anything else is ignored
// (logged). True when it was understood.
bool received(std::string_view message, const Requests& requests);

}  // namespace SingleInstance

}  // namespace jorvane
