// What a start does when the program may run already, and what the running
// program makes of a later start's message.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AppDelegateFixture.h"
#include "app/SingleInstance.h"

namespace jorvane::test {
namespace {

using appcore::SentenceName;
using Start = SingleInstance::Start;

class FakeChannel final : public InstanceChannel {
public:
    FakeChannel(Claim claim, bool reachable) : claim_(claim), reachable_(reachable) {}
    Claim claim() override { return claim_; }
    bool send(std::string_view message) override {
        sent.emplace_back(message);
        return reachable_;
    }
    std::vector<std::string> sent;

private:
    Claim claim_;
    bool reachable_;
};

struct StartRow {
    const char* name;
    InstanceChannel::Claim claim;
    bool reachable;
    Start start;
    std::vector<std::string> sent;
};

void PrintTo(const StartRow& row, std::ostream* out) { *out << row.name; }

class AtStart : public testing::TestWithParam<StartRow> {};

TEST_P(AtStart, Row) {
    const StartRow& row = GetParam();
    FakeChannel channel(row.claim, row.reachable);
    EXPECT_EQ(SingleInstance::atStart(channel), row.start);
    EXPECT_EQ(channel.sent, row.sent);
}

using Claim = InstanceChannel::Claim;
INSTANTIATE_TEST_SUITE_P(Rows, AtStart, testing::Values(
    StartRow{"the first start runs and sends nothing", Claim::claimed, true, Start::run, {}},
    StartRow{"a later start asks the running one to reopen and ends", Claim::heldByAnother, true, Start::handedOver,
             {"reopen"}},
    StartRow{"a running one that does not answer ends the later start with an error", Claim::heldByAnother, false,
             Start::otherUnreachable, {"reopen"}},
    StartRow{"no rendezvous at all runs unguarded", Claim::unavailable, true, Start::runUnguarded, {}}),
    SentenceName{});

struct MessageRow {
    const char* name;
    const char* message;
    bool understood;
};

void PrintTo(const MessageRow& row, std::ostream* out) { *out << row.name; }

class Received : public testing::TestWithParam<MessageRow> {};

TEST_P(Received, Row) {
    int reopens = 0;
    EXPECT_EQ(SingleInstance::received(GetParam().message, [&] { ++reopens; }), GetParam().understood);
    EXPECT_EQ(reopens, GetParam().understood ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, Received, testing::Values(
    MessageRow{"the reopen line reopens", "reopen\n", true},
    MessageRow{"the reopen word without a line break reopens", "reopen", true},
    MessageRow{"an empty message from a start that gave up does nothing", "", false},
    MessageRow{"anything else does nothing", "reopen now\n", false},
    MessageRow{"two line breaks are not one message", "reopen\n\n", false}), SentenceName{});

}  // namespace
}  // namespace jorvane::test
