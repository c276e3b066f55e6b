#pragma once

// The session's rendezvous of the program's instances (SingleInstance.h) as
// two files in $XDG_RUNTIME_DIR (or a private folder in /tmp), named after
// the X display: "jorvane-<display>.lock" and "jorvane-<display>.socket".
//  - The running program holds an flock(2) on the lock file. The kernel lets
//    go of it when the process ends, however it ends, so a crash leaves
//    nothing that counts: the next claimant takes the lock and replaces the
//    socket file left behind.
//  - The holder listens on the Unix socket; a later start connects and
//    writes one line ("reopen\n").
// Descriptors are close-on-exec: programs we start do not keep the lock.

#include <filesystem>
#include <optional>
#include <string>

#include "app/SingleInstance.h"

namespace jorvane {

class UnixInstanceChannel final : public InstanceChannel {
public:
    // The files' folder and the display they are for (DISPLAY when empty).
    explicit UnixInstanceChannel(std::filesystem::path folder = defaultFolder(), std::string display = {});
    // Lets go of the socket and the lock.
    ~UnixInstanceChannel() override;
    UnixInstanceChannel(const UnixInstanceChannel&) = delete;
    UnixInstanceChannel& operator=(const UnixInstanceChannel&) = delete;

    // $XDG_RUNTIME_DIR when it is set and absolute, else /tmp/jorvane-<uid>
    // (made private to the user; a folder of someone else's is refused).
    static std::filesystem::path defaultFolder();

    Claim claim() override;
    // Connects, writes the message and a line break. Tries for a short while:
    // the holder may be between taking the lock and listening.
    bool send(std::string_view message) override;

    // After a successful claim: the listening socket, readable when a later
    // start connects; -1 before.
    int listeningDescriptor() const { return listener_; }
    // The message of one waiting connection, read with a short bound;
    // nothing when no connection waits.
    std::optional<std::string> takeMessage();

    const std::filesystem::path& socketPath() const { return socket_; }

private:
    std::filesystem::path lock_;
    std::filesystem::path socket_;
    int lockFd_ = -1;
    int listener_ = -1;
};

}  // namespace jorvane
