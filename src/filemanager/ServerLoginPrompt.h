#pragma once

// Asking the user how to log in to a server while it is being connected: the
// server (through the desktop's mount machinery) says what it needs, the
// prompt shows a small dialog and answers once. The connection code calls it
// from its own thread and never blocks on it: the answer comes back through
// `reply`, and a connection that is given up withdraws its question.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace jorvane {

struct ServerLoginRequest {
    // The server's own words ("Enter password for “ann” on “example.org”").
    std::string message;
    // Filled in for the user to change.
    std::string user;
    std::string domain;
    bool needsUser = false;
    bool needsPassword = false;
    bool needsDomain = false;
    // The server lets the user in without a name.
    bool anonymousAllowed = false;
    // The password can be stored in the desktop's keyring.
    bool savingAllowed = false;
    // An earlier answer was refused.
    bool retry = false;
};

struct ServerLoginAnswer {
    enum class Choice { connect, anonymous, cancel };
    Choice choice = Choice::cancel;
    std::string user;
    std::string password;
    std::string domain;
    // Keep the password in the desktop's keyring.
    bool remember = false;
};

// A question of the server's with fixed answers ("The identity of the remote
// computer is unknown …": "Log In Anyway", "Cancel Login").
struct ServerQuestion {
    std::string message;
    std::vector<std::string> choices;
};

class ServerLoginPrompt {
public:
    using Reply = std::function<void(ServerLoginAnswer)>;
    // The index of the chosen answer; nothing for none.
    using ChoiceReply = std::function<void(std::optional<std::size_t>)>;
    using Ticket = std::uint64_t;

    virtual ~ServerLoginPrompt() = default;
    // Shows the question; callable from any thread. `reply` runs exactly once,
    // on the prompt's own thread, with the user's answer, or with
    // Choice::cancel when the question is withdrawn or cannot be shown.
    virtual Ticket ask(const ServerLoginRequest& request, Reply reply) = 0;
    // The same for a question with fixed answers; withdrawn or unshown
    // questions answer nothing.
    virtual Ticket choose(const ServerQuestion& question, ChoiceReply reply) = 0;
    // Takes the question away (the connection was given up); a question
    // already answered is left alone. Callable from any thread.
    virtual void withdraw(Ticket ticket) = 0;
};

}  // namespace jorvane
