#pragma once

// One address bar over OneThunarWindow, every port faked: views and application record into its EventLog,
// the catalogue answers what the test scripts. The screen is 1440 x 900. "{T}" in texts is a temporary folder of
// docs/ (with sub/), notes.txt, a.log, bb.log, c.txt, empty/, three/ (a, bb, ccc) and nine/ (file1..9).

#include <gtest/gtest.h>

#include "addressbar/PathWindowController.h"
#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/FakePathWindowDelegate.h"
#include "fakes/FakePathWindowViews.h"
#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "filemanager/FileManagerCommands.h"
#include "places/VisitedFolders.h"
#include "unit/TableSupport.h"
#include "util/Dispatch.h"

namespace jorvane::test {

class PathWindowControllerFixture : public OneThunarWindow {
public:
    static constexpr Rect kScreen{{0, 0}, {1440, 900}};
    static constexpr double kPanelHeight = 22;

    PathWindowControllerFixture() : OneThunarWindow("folder - Thunar") {
        views_.panel().setFrameSilently({{0, 0}, {0, kPanelHeight}});
        views_.spinner().setOriginSilently({0, 3});

        tmp_.dir("docs/sub");
        tmp_.dir("empty");
        for (const char* name : {"notes.txt", "a.log", "bb.log", "c.txt", "three/a", "three/bb", "three/ccc"})
            tmp_.file(name);
        for (int i = 1; i <= 9; ++i) tmp_.file("nine/file" + std::to_string(i));
        // Commands succeed, as Thunar's do, unless a test says otherwise.
        for (std::string_view command :
             {handlers::showFolder, handlers::reveal, handlers::selectNames, handlers::newWindow, handlers::closeWindow,
              handlers::reload, handlers::iconView, handlers::listView, handlers::columnView, handlers::galleryView})
            catalogue_->answer(command, "");
    }

    virtual ~PathWindowControllerFixture() {
        catalogue_->releaseAll();
        bridge_.waitUntilIdle();
        controller_.reset();
        dispatch::mainQueue().drain();
    }

    PathWindowController& bar() {
        if (!controller_)
            controller_ = std::make_unique<PathWindowController>(
                ax_->element(window_), views_.take(),
                PathWindowController::Dependencies{bridge_, *defaults_, workspace_, screens_, delegate_, completion_,
                                                   visited_, bookmarks_});
        return *controller_;
    }

    // Completion waits until its folder is read: a busy machine must not make these small folders late.
    static CompletionEngine::Options completionOptions() {
        CompletionEngine::Options options;
        options.waitBudget = std::chrono::seconds(20);
        return options;
    }

    // Lets the bridge's background work finish and runs what it queued.
    void settle() {
        bridge_.waitUntilIdle();
        dispatch::mainQueue().drain();
    }

    void advance(double seconds) { time_.pass(dispatch::seconds(seconds)); }

    std::string t(const std::string& text) const { return replaceAll(text, "{T}", tmp_.str()); }
    std::vector<std::string> t(const std::vector<std::string>& texts) const {
        std::vector<std::string> out;
        for (const std::string& text : texts) out.push_back(t(text));
        return out;
    }

    // Compares the bar's own actions, in order, and the handler calls ("call ..." in `expected`), in order
    // too: commands run on the bridge's queues, so their moment among the actions is not fixed.
    // `background` is a further call made from a queue of its own, in any order.
    void expectActionsAndCalls(const std::vector<std::string>& logged, const std::vector<std::string>& expected,
                               const char* background = nullptr) const {
        const auto split = [](const std::vector<std::string>& entries) {
            std::pair<std::vector<std::string>, std::vector<std::string>> parts;
            for (const std::string& entry : entries)
                (entry.starts_with("call ") ? parts.second : parts.first).push_back(entry);
            return parts;
        };
        const auto [actions, unused] = split(logged);
        const auto [expectedActions, expectedCalls] = split(expected);
        EXPECT_EQ(actions, expectedActions);
        // Navigations (shown or revealed) are checked where they matter.
        const auto listed = [&](std::string_view name) {
            for (const std::string& call : expectedCalls)
                if (call.starts_with("call " + std::string(name) + " ") || call == "call " + std::string(name))
                    return true;
            return false;
        };
        std::vector<std::string> calls;
        for (const std::string& call : handlerCalls()) {
            if (background && call.starts_with(background)) continue;
            const std::string name = call.substr(0, call.find(' '));
            if ((name == handlers::showFolder || name == handlers::reveal) && !listed(name)) continue;
            calls.push_back("call " + call);
        }
        EXPECT_EQ(calls, expectedCalls);
    }

    // Every handler call so far as "name [param] ..." (queues included).
    std::vector<std::string> handlerCalls() const {
        std::vector<std::string> out;
        for (const FakeHandlerCatalogue::Call& call : catalogue_->calls()) {
            std::string entry = call.name;
            for (const std::string& param : call.params) entry += " [" + param + "]";
            out.push_back(std::move(entry));
        }
        return out;
    }

    CompletionEngine::Options completion_ = completionOptions();
    places::VisitedFolders* visited_ = nullptr;
    places::BookmarkList* bookmarks_ = nullptr;
    FileManagerCommands bridge_{
        std::make_shared<LoggingCatalogue>(catalogue_, log_, LoggingCatalogue::Calls::onMainThread)};
    std::unique_ptr<settings::UserDefaults> defaults_ = makeMemoryDefaults();
    FakeWorkspace workspace_{log_};
    FakeScreens screens_{{kScreen}};
    FakePathWindowDelegate delegate_{log_};
    FakePathWindowViews views_{log_};
    TempDir tmp_;
    std::unique_ptr<PathWindowController> controller_;
};

// For plain tests.
class PathWindowControllerTest : public PathWindowControllerFixture, public testing::Test {};

// For table tests: TEST_P over rows of type Row.
template <class Row>
class PathWindowControllerTable : public PathWindowControllerFixture, public testing::TestWithParam<Row> {};

}  // namespace jorvane::test
