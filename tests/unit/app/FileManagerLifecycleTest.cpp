// The file manager's lifecycle as a table: what comes in (the program's
// start, a process's first window, its last window going, time passing) and
// what goes out (attach and detach of a process), on virtual time.

#include "app/FileManagerLifecycle.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "fakes/VirtualTime.h"
#include "unit/TableSupport.h"
#include "util/Dispatch.h"

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
    std::unique_ptr<FileManagerLifecycle> owner_ = std::make_unique<FileManagerLifecycle>(FileManagerLifecycle::Hooks{
        .attach = [this](std::int32_t pid) { calls_.push_back("attach " + std::to_string(pid)); },
        .detach = [this](std::int32_t pid) { calls_.push_back("detach " + std::to_string(pid)); },
        .processExists = [this](std::int32_t pid) { return alive_.count(pid) > 0; },
    });
};

TEST_P(Lifecycle, Row) {
    for (const Step& step : GetParam().steps) {
        switch (step.kind) {
            case Step::start:
                if (step.pid) alive_.insert(step.pid);
                owner_->started(step.pid);
                break;
            case Step::appears:
                alive_.insert(step.pid);
                owner_->appeared(step.pid);
                break;
            case Step::windowsGone: owner_->windowsGone(step.pid); break;
            case Step::exits: alive_.erase(step.pid); break;
            case Step::ends:
                alive_.erase(step.pid);
                owner_->ended(step.pid);
                break;
            case Step::waits:
                time_.clock.advance(FileManagerLifecycle::kEndCheckDelay + std::chrono::seconds(1));
                dispatch::mainQueue().drain();
                break;
        }
    }
    EXPECT_EQ(calls_, GetParam().calls);
    EXPECT_EQ(owner_->pid(), GetParam().attachedAtEnd);
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
    {"a daemon without windows that ends is detached at once", {{S::start, 10}, {S::ends, 10}}, {"attach 10", "detach 10"},
     0},
    {"the end of a process already replaced changes nothing", {{S::start, 10}, {S::appears, 11}, {S::ends, 10}},
     {"attach 10", "detach 10", "attach 11"}, 11},
    {"another program's windows going changes nothing", {{S::start, 10}, {S::windowsGone, 77}, {S::waits}},
     {"attach 10"}, 10},
    {"quit entirely and started again later", {{S::start, 10}, {S::exits, 10}, {S::windowsGone, 10}, {S::waits},
                                               {S::appears, 12}},
     {"attach 10", "detach 10", "attach 12"}, 12},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, Lifecycle, testing::ValuesIn(kRows), test::SentenceName{});

}  // namespace
}  // namespace jorvane
