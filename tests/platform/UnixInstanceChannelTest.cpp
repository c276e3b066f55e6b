// The session's rendezvous over real files and sockets in a temporary
// folder: what a holder leaves behind when it ends does not block the next
// one. (A second start handed to the running program is the whole-program
// tests'.)

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>

#include "fakes/TestSupport.h"
#include "platform/linux/UnixInstanceChannel.h"

namespace jorvane {
namespace {

using Claim = InstanceChannel::Claim;

TEST(UnixInstanceChannel, theNextStartClaimsOnceTheHolderHasEndedWhateverItLeftBehind) {
    test::TempDir folder;
    auto first = std::make_unique<UnixInstanceChannel>(folder.path(), ":7");
    ASSERT_EQ(first->claim(), Claim::claimed);
    const std::filesystem::path socketPath = first->socketPath();
    first.reset();
    EXPECT_FALSE(std::filesystem::exists(socketPath)) << "an orderly end removes the socket";

    // A crashed holder leaves its socket file (and the lock file) behind.
    const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(stale);
    ASSERT_TRUE(std::filesystem::exists(socketPath));

    UnixInstanceChannel next(folder.path(), ":7");
    ASSERT_EQ(next.claim(), Claim::claimed);
    UnixInstanceChannel later(folder.path(), ":7");
    ASSERT_TRUE(later.send("reopen"));
    EXPECT_EQ(next.takeMessage(), "reopen\n");
    UnixInstanceChannel otherDisplay(folder.path(), ":8");
    EXPECT_EQ(otherDisplay.claim(), Claim::claimed) << "one holder per display";
}

TEST(UnixInstanceChannel, aFolderThatCannotHoldTheLockLeavesTheProgramUnguarded) {
    UnixInstanceChannel channel("/nonexistent/jorvane-test", ":7");
    EXPECT_EQ(channel.claim(), Claim::unavailable);
}

}  // namespace
}  // namespace jorvane
