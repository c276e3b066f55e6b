// Small decision tables of the app layer: Thunar's lifecycle on virtual time, the command line, window coverage.
#include "app/ActivationEvents.h"
#include "app/CommandLine.h"
#include "app/FileManagerLifecycle.h"
#include "app/SingleInstance.h"
#include "app/WindowCoverage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "fakes/VirtualTime.h"
#include "unit/TableSupport.h"

namespace jorvane {
namespace {

struct Step {
    enum Kind { start, appears, windowsGone, exits, ends, waits } kind;
    std::int32_t pid = 0;
};

struct LifecycleRow {
    const char* name;
    std::vector<Step> steps;
    std::vector<std::string> calls;
    std::int32_t attachedAtEnd;
};

class Lifecycle : public testing::TestWithParam<LifecycleRow> {
protected:
    test::VirtualTime time_;
    std::set<std::int32_t> alive_;
    std::vector<std::string> calls_;
    FileManagerLifecycle owner_{FileManagerLifecycle::Hooks{
        .attach = [this](std::int32_t pid) { calls_.push_back("attach " + std::to_string(pid)); },
        .detach = [this](std::int32_t pid) { calls_.push_back("detach " + std::to_string(pid)); },
        .processExists = [this](std::int32_t pid) { return alive_.count(pid) > 0; },
    }};
};

TEST_P(Lifecycle, Row) {
    for (const Step& step : GetParam().steps) {
        if (step.kind == Step::start || step.kind == Step::appears) {
            if (step.pid) alive_.insert(step.pid);
            step.kind == Step::start ? owner_.started(step.pid) : owner_.appeared(step.pid);
        } else if (step.kind == Step::windowsGone) {
            owner_.windowsGone(step.pid);
        } else if (step.kind == Step::exits || step.kind == Step::ends) {
            alive_.erase(step.pid);
            if (step.kind == Step::ends) owner_.ended(step.pid);
        } else {
            time_.pass(FileManagerLifecycle::kEndCheckDelay + std::chrono::seconds(1));
        }
    }
    EXPECT_EQ(calls_, GetParam().calls);
    EXPECT_EQ(owner_.pid(), GetParam().attachedAtEnd);
}

using S = Step;
// clang-format off
const LifecycleRow kRows[] = {
    {"a file manager running at the start is attached at once", {{S::start, 10}}, {"attach 10"}, 10},
    {"without one the program waits and attaches the first that comes", {{S::start}, {S::appears, 10}},
     {"attach 10"}, 10},
    {"a restart after a crash detaches the dead one and attaches the new one",
     {{S::start, 10}, {S::exits, 10}, {S::windowsGone, 10}, {S::appears, 11}}, {"attach 10", "detach 10", "attach 11"},
     11},
    {"a new process whose windows came first replaces the old one",
     {{S::start, 10}, {S::appears, 11}}, {"attach 10", "detach 10", "attach 11"}, 11},
    {"a restart with a process id used before is attached anew",
     {{S::start, 10}, {S::exits, 10}, {S::windowsGone, 10}, {S::appears, 10}}, {"attach 10", "detach 10", "attach 10"},
     10},
    {"a daemon that closed its last window stays attached", {{S::start, 10}, {S::windowsGone, 10}, {S::waits}},
     {"attach 10"}, 10},
    {"a quit that ends the process a moment later detaches it then",
     {{S::start, 10}, {S::windowsGone, 10}, {S::exits, 10}, {S::waits}}, {"attach 10", "detach 10"}, 0},
    {"a daemon's new window after all were closed attaches it anew",
     {{S::start, 10}, {S::windowsGone, 10}, {S::appears, 10}, {S::exits, 10}, {S::waits}},
     {"attach 10", "attach 10"}, 10},
    {"a daemon without windows that ends is detached at once", {{S::start, 10}, {S::ends, 10}},
     {"attach 10", "detach 10"}, 0},
    {"the end of a process already replaced changes nothing", {{S::start, 10}, {S::appears, 11}, {S::ends, 10}},
     {"attach 10", "detach 10", "attach 11"}, 11},
    {"process 1 (Thunar alone in a container) is attached and its end detaches it",
     {{S::start}, {S::appears, 1}, {S::ends, 1}}, {"attach 1", "detach 1"}, 0},
    {"process 1 whose windows went with it is detached at once",
     {{S::start}, {S::appears, 1}, {S::exits, 1}, {S::windowsGone, 1}}, {"attach 1", "detach 1"}, 0},
    {"another program's windows going changes nothing", {{S::start, 10}, {S::windowsGone, 77}, {S::waits}},
     {"attach 10"}, 10},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, Lifecycle, testing::ValuesIn(kRows), test::SentenceName{});

TEST(LifecycleOwner, AnEndCheckQueuedBeforeItWentDoesNothing) {
    test::VirtualTime time;
    FileManagerLifecycle::Hooks hooks;
    hooks.processExists = [](std::int32_t) { return true; };
    auto owner = std::make_unique<FileManagerLifecycle>(hooks);
    owner->started(10);
    owner->windowsGone(10);
    time.clock.advance(FileManagerLifecycle::kEndCheckDelay + std::chrono::seconds(1));  // queued, not yet run
    owner.reset();
    dispatch::mainQueue().drain();
}

TEST(CommandLine, ParsesOneOptionAndRefusesTheRest) {
    using commandline::Action;
    const std::string see = "; see jorvane --help";
    const std::tuple<std::vector<std::string_view>, Action, std::string> rows[] = {
        {{}, Action::run, ""},
        {{"--help"}, Action::help, ""},
        {{"-h"}, Action::help, ""},
        {{"--version"}, Action::version, ""},
        {{"--preferences"}, Action::preferences, ""},
        {{"--quit"}, Action::quit, ""},
        {{"-platform"}, Action::error, "jorvane: unknown option '-platform'" + see},
        {{"/tmp"}, Action::error, "jorvane: unexpected argument '/tmp'" + see},
        {{"--\x1b[2J"}, Action::error, "jorvane: unknown option '--?[2J'" + see},
        {{"--help", "--version"}, Action::error, "jorvane: one option at most (got 2)" + see}};
    for (const auto& [arguments, action, error] : rows) {
        const commandline::Parsed parsed = commandline::parse(arguments);
        EXPECT_EQ(parsed.action, action) << error;
        EXPECT_EQ(parsed.error, error);
    }
    for (const char* option : {"--preferences", "--quit", "--help", "--version"})
        EXPECT_NE(commandline::usage().find(option), std::string::npos) << option;
}

TEST(WindowCoverage, DecidesWhetherTheTitleBandIsCovered) {
    const auto entry = [](std::string owner, std::int32_t pid, std::int32_t x, std::int32_t y, std::int32_t w,
                          std::int32_t h) { return WindowInfo{std::move(owner), pid, "", x, y, w, h}; };
    const std::int32_t self = static_cast<std::int32_t>(::getpid());
    const std::pair<std::vector<WindowInfo>, bool> rows[] = {
        {{}, false},
        {{entry("xterm", 77, 300, 90, 200, 50)}, true},
        {{entry("xterm", 77, 300, 200, 200, 50)}, false},
        {{entry("xterm", 77, 300, 123, 200, 50)}, false},  // starts where the band (99 to 123) ends
        {{entry("Dock", 77, 0, 90, 1280, 30)}, false},
        {{entry("Jorvane", self, 200, 99, 400, 24)}, false},
        {{entry("xterm", 77, 300, 110, 200, 0)}, false},  // no height, no cover
        // Another window of the file manager at the same x is
        // not this one: the xterm behind it covers the band.
        {{entry("Thunar", 4242, 100, 500, 600, 400), entry("xterm", 77, 300, 90, 200, 50)}, true}};
    for (const auto& [inFront, covered] : rows) {
        std::vector<WindowInfo> list = inFront;
        list.push_back(entry("Thunar", 4242, 100, 100, 600, 400));
        EXPECT_EQ(isTitleBandCovered(list, 4242, {{100, 100}, {600, 400}}, 24), covered) << list.front().ownerName;
    }
    // The click area: the title text, 20 points more to the left (the folder icon) and 30 more in all.
    EXPECT_EQ(activation::widenedTitleFrame({{340, 53}, {120, 16}}), (Rect{{320, 53}, {150, 16}}));
}

// A second start hands its message to the running one; the running one acts on the three it knows.
TEST(SingleInstance, ALaterStartHandsOverAndTheRunningOneActsOnWhatItKnows) {
    struct Channel final : InstanceChannel {
        Claim answer;
        bool reachable;
        std::string sent;
        Channel(Claim a, bool r) : answer(a), reachable(r) {}
        Claim claim() override { return answer; }
        bool send(std::string_view message) override { return sent = message, reachable; }
    };
    using SingleInstance::Start;
    const std::tuple<InstanceChannel::Claim, bool, Start> starts[] = {
        {InstanceChannel::Claim::claimed, true, Start::run},
        {InstanceChannel::Claim::unavailable, true, Start::runUnguarded},
        {InstanceChannel::Claim::heldByAnother, true, Start::handedOver},
        {InstanceChannel::Claim::heldByAnother, false, Start::otherUnreachable}};
    for (const auto& [claim, reachable, start] : starts) {
        Channel channel(claim, reachable);
        EXPECT_EQ(SingleInstance::atStart(channel, SingleInstance::kQuitMessage), start);
        EXPECT_EQ(channel.sent, claim == InstanceChannel::Claim::heldByAnother ? "quit" : "");
    }
    std::string acted;
    const SingleInstance::Requests requests{[&] { acted += "reopen "; }, [&] { acted += "preferences "; },
                                            [&] { acted += "quit "; }};
    for (const char* message : {"reopen\n", "preferences", "quit\n", "reopen\n\n", "Quit", ""})
        SingleInstance::received(message, requests);
    EXPECT_EQ(acted, "reopen preferences quit ");
}

}  // namespace
}  // namespace jorvane
