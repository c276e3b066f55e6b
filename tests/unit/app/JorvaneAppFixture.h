#pragma once

// The application delegate with every port faked, over OneThunarWindow, which is focused; the window's
// folder is "/home/me". Bars are real PathWindowControllers over recording views.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "addressbar/PathWindowController.h"
#include "app/JorvaneApp.h"
#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeEventTap.h"
#include "fakes/FakeFileManagerProcess.h"
#include "fakes/FakePathWindowDelegate.h"
#include "fakes/FakePathWindowViews.h"
#include "fakes/FakeWindowObserver.h"
#include "fakes/MemoryDefaults.h"
#include "filemanager/FileManagerCommands.h"
#include "settings/UserDefaults.h"
#include "unit/TableSupport.h"
#include "util/Dispatch.h"

namespace jorvane::test::appcore {

using test::PrintTo;
using test::SentenceName;

class JorvaneAppFixture : public OneThunarWindow {
public:
    static constexpr Point kOnTitle{400, 60};

    JorvaneAppFixture() : OneThunarWindow("me - Thunar") {
        ax_->setFocusedWindow(window_);
        catalogue_->answer(handlers::folderPath, "/home/me");
        fileManager_.setPid(kPid);
        defaults_->setBool(true, settings::keys::notFirstLaunch);
    }

    virtual ~JorvaneAppFixture() {
        catalogue_->releaseAll();
        delegate_.reset();
        dispatch::mainQueue().drain();
        bridge_.waitUntilIdle();
    }

    JorvaneApp& delegate() {
        if (!delegate_) delegate_ = std::make_unique<JorvaneApp>(ports());
        return *delegate_;
    }

    // Launched, with the log cleared.
    JorvaneApp& launched() {
        delegate().finishLaunching();
        log_->clear();
        return *delegate_;
    }

    JorvaneApp::Ports ports() {
        auto makeBar = [this](ElementRef window, PathWindowDelegate& delegate) {
            auto views = std::make_unique<FakePathWindowViews>(log_);
            views->panel().setFrameSilently({{0, 0}, {0, 22}});
            auto controller = std::make_unique<PathWindowController>(
                std::move(window), views->take(),
                PathWindowController::Dependencies{bridge_, *defaults_, workspaceFiles_, screens_, delegate});
            views_.push_back(std::move(views));
            return controller;
        };
        auto welcome = [this] {
            log_->add("welcome");
            return welcomeGoesOn_;
        };
        // clang-format off
        return {*defaults_, accessibility_, tap_, workspace_, alerts_, application_port_, environment_, fileManager_,
                updater_, bridge_, makeBar, welcome, {}, {}, PlatformNames{},
                JORVANE_RESOURCE_DIR "/DefaultPreferences.json", "1.2.3"};
        // clang-format on
    }

    // Runs what the delegate queued, on the main queue and in the background,
    // until nothing is left.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            if (delegate_) delegate_->waitUntilIdle();
            bridge_.waitUntilIdle();
            dispatch::mainQueue().drain();
        }
    }

    void advance(double seconds) {
        time_.clock.advance(dispatch::seconds(seconds));
        settle();
    }

    // Pushes the event through the tap, with the mouse where a mouse event says.
    EventTap::Decision push(const TapEvent& event) {
        if (event.type != kEventKeyDown && event.type != kEventKeyUp) {
            ax_->setMouseLocation(event.location);
            tap_.setMouseLocation(event.location);
        }
        return tap_.push(event);
    }

    // A title-bar click that opens the bar of the window; the log is cleared.
    PathWindowController* openBar() {
        push(TapEvent::mouseEvent(kEventLeftMouseUp, kOnTitle));
        settle();
        log_->clear();
        return delegate_->barFor(ax_->element(window_), false);
    }

    bool barVisible(std::size_t index = 0) const { return views_.at(index)->panel().isVisible(); }

    ScopedAccessibility installed_{ax_};
    ObservableAccessibility accessibility_{ax_, log_};
    FileManagerCommands bridge_{std::make_shared<LoggingCatalogue>(catalogue_, log_, LoggingCatalogue::Calls::all)};
    std::unique_ptr<settings::UserDefaults> defaults_ = std::make_unique<settings::UserDefaults>(nullptr);
    FakeEventTap tap_{log_};
    FakeWorkspaceObserver workspace_{log_};
    FakeAlerts alerts_{log_};
    FakeApplication application_port_{log_};
    FakeEnvironment environment_{log_};
    FakeFileManagerProcess fileManager_{log_};
    FakeUpdater updater_{log_};
    FakeWorkspace workspaceFiles_{log_};
    FakeScreens screens_{std::vector<Rect>{Rect{{0, 0}, {1440, 900}}}};
    bool welcomeGoesOn_ = true;
    std::vector<std::unique_ptr<FakePathWindowViews>> views_;
    std::unique_ptr<JorvaneApp> delegate_;
};

class AppDelegateTest : public JorvaneAppFixture, public testing::Test {};

template <class Row>
class AppDelegateTable : public JorvaneAppFixture, public testing::TestWithParam<Row> {};

inline std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace jorvane::test::appcore
