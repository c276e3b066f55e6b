// The X11 accessibility adapter against real window managers: openbox and
// xfwm4 each on a private desktop (no Thunar: the windows are plain X
// clients made here, with the WM_CLASS, _NET_WM_PID and title we choose).
// The whole-program tests drive it on Thunar under openbox (the window under
// the mouse on a title click, a closed and a minimised window's notices,
// Thunar's launch); here are the other window manager and what they do not
// reach: dialogs, docks, our bar over a title, windows that vanish.

#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "XTestClient.h"
#include "accessibility/WindowLookup.h"
#include "platform/x11/X11Accessibility.h"
#include "platform/x11/X11Windows.h"
#include "platform/x11/X11WorkspaceObserver.h"
#include "util/Dispatch.h"

namespace jorvane::x11 {
namespace {

using e2e::Desktop;
using e2e::waitUntil;
using std::chrono::milliseconds;

constexpr milliseconds kWait{5000};

using e2e::TestWindowType;
using e2e::WindowGeometry;

Rect rectOf(const std::optional<WindowGeometry>& g) {
    return g ? Rect{{double(g->x), double(g->y)}, {double(g->width), double(g->height)}} : Rect{};
}

WindowGeometry geometryOf(const Rect& r) {
    return {int(r.origin.x), int(r.origin.y), int(r.size.width), int(r.size.height)};
}

// ---- one private desktop per window manager

struct WindowManagerCase {
    std::string name;
    FrameExtents extents;  // what it puts around a normal window
};

std::ostream& operator<<(std::ostream& os, const WindowManagerCase& c) { return os << c.name; }

// In start order: each desktop sets this process's environment and puts
// back the one it found, so they stop in the reverse order.
std::vector<std::pair<std::string, std::unique_ptr<Desktop>>>& desktops() {
    static std::vector<std::pair<std::string, std::unique_ptr<Desktop>>> instances;
    return instances;
}

Desktop* desktopOf(const std::string& windowManager) {
    for (auto& [name, desktop] : desktops())
        if (name == windowManager) return desktop.get();
    return nullptr;
}

bool installed(const std::string& program) {
    for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"})
        if (access((std::string(dir) + program).c_str(), X_OK) == 0) return true;
    return false;
}

std::string textOf(const ElementRef& e, Attribute attribute) {
    return copyAttribute<std::string>(e, attribute).value_or("<none>");
}

Rect frameOf(const ElementRef& e) {
    Rect r;
    WindowLookup::getWindowFrame(e, r);
    return r;
}

Point centreOf(const Rect& r) { return {r.origin.x + r.size.width / 2, r.origin.y + r.size.height / 2}; }

// The adapter with the mouse held at a point.
class FixedMouse final : public AccessibilityAPI {
public:
    FixedMouse(std::shared_ptr<X11Accessibility> ax, Point mouse) : ax_(std::move(ax)), mouse_(mouse) {}
    ElementRef systemWideElement() override { return ax_->systemWideElement(); }
    ElementRef applicationElement(std::int32_t pid) override { return ax_->applicationElement(pid); }
    ElementRef elementAtPosition(float x, float y) override { return ax_->elementAtPosition(x, y); }
    std::vector<WindowInfo> windowList() override { return ax_->windowList(); }
    Point mouseLocation() override { return mouse_; }

private:
    std::shared_ptr<X11Accessibility> ax_;
    Point mouse_;
};

class X11AccessibilityTest : public ::testing::TestWithParam<WindowManagerCase> {
protected:
    static void TearDownTestSuite() {
        while (!desktops().empty()) {
            desktops().back().second->stop();
            desktops().pop_back();
        }
    }

    void SetUp() override {
        const std::string& wm = GetParam().name;
        if (!installed(wm)) GTEST_SKIP() << wm << " is not installed (scripts/deps.sh test installs it)";
        Desktop* desktop = desktopOf(wm);
        if (!desktop) {
            e2e::DesktopOptions options;
            options.windowManager = wm;
            options.startThunar = false;
            desktop = desktops().emplace_back(wm, std::make_unique<Desktop>(options)).second.get();
        }
        display_ = desktop->display();
        clients_ = std::make_unique<e2e::XTestClient>(display_);
        ax_ = std::make_shared<X11Accessibility>(display_);
        ASSERT_TRUE(ax_->isConnected());
    }

    void TearDown() override {
        clients_.reset();
        dispatch::MainQueue::shared().drain();
    }

    // The window list entries of the given window titles, in list order.
    std::vector<std::string> listedTitles(const std::vector<std::string>& titles) {
        std::vector<std::string> result;
        for (const WindowInfo& info : ax_->windowList())
            if (std::find(titles.begin(), titles.end(), info.name) != titles.end()) result.push_back(info.name);
        return result;
    }

    std::string display_;
    std::unique_ptr<e2e::XTestClient> clients_;
    std::shared_ptr<X11Accessibility> ax_;
};

// ---- elements and frames

TEST_P(X11AccessibilityTest, TheTitleTextLiesCentredInTheTitleBandAndFollowsTheTitle) {
    const xcb_window_t shortOne = clients_->create({.title = "ab", .x = 100, .y = 100, .width = 500});
    const xcb_window_t longOne =
        clients_->create({.title = "a much longer title for this window", .x = 100, .y = 420, .width = 500});
    auto textFrame = [&](xcb_window_t w) {
        return frameOf(WindowLookup::titleElementForWindow(ax_->windowElement(w)));
    };
    // The window manager draws the titles a moment after mapping them.
    ASSERT_TRUE(waitUntil([&] { return textFrame(shortOne).size.width < 60; }, kWait))
        << textFrame(shortOne).size.width;
    ASSERT_TRUE(waitUntil([&] { return textFrame(longOne).size.width > 100; }, kWait)) << textFrame(longOne).size.width;

    for (const xcb_window_t w : {shortOne, longOne}) {
        const Rect window = frameOf(ax_->windowElement(w));
        const Rect text = textFrame(w);
        const double band = GetParam().extents.top;
        EXPECT_GE(text.minY(), window.minY());
        EXPECT_LE(text.maxY(), window.minY() + band);
        EXPECT_GE(text.size.height, band / 2);
        // Both window managers centre the title between the buttons, which
        // are not placed symmetrically: centred within a fifth of the width.
        EXPECT_NEAR(centreOf(text).x, centreOf(window).x, window.size.width / 5) << "title " << w;
    }
    EXPECT_LT(textFrame(shortOne).size.width * 3, textFrame(longOne).size.width);

    const ElementRef title = WindowLookup::titleElementForWindow(ax_->windowElement(shortOne));
    EXPECT_EQ(copyAttribute<Role>(title, Attribute::Role), Role::Text);
    EXPECT_EQ(textOf(title, Attribute::Value), "ab");
    EXPECT_TRUE(sameElement(copyAttribute<ElementRef>(title, Attribute::Window).value_or(nullptr),
                            ax_->windowElement(shortOne)));

    // A new title: the text follows.
    clients_->setTitle(shortOne, "ab, and then a good deal more");
    EXPECT_TRUE(waitUntil([&] { return textFrame(shortOne).size.width > 120; }, kWait))
        << textFrame(shortOne).size.width;
}

// Our bar over a title: the window is not under the mouse there, by either
// stage of the lookup, and the title keeps the rectangle last seen in full view.
TEST_P(X11AccessibilityTest, UnderOurBarTheWindowIsNotUnderTheMouseAndItsTitleKeepsItsPlace) {
    const xcb_window_t w = clients_->create({.title = "covered title", .x = 260, .y = 200, .width = 500});
    // Active, raised and drawn in the active colours (which move the text's
    // faint edge by a pixel) before the bar comes.
    clients_->activate(w);
    ASSERT_TRUE(waitUntil([&] { return clients_->activeWindow() == w; }, kWait));
    const ElementRef title = WindowLookup::titleElementForWindow(ax_->windowElement(w));
    const Rect window = frameOf(ax_->windowElement(w));
    Rect seen;
    ASSERT_TRUE(waitUntil(
        [&] {
            const Rect before = seen;
            seen = frameOf(title);
            return seen == before && seen.size.width < window.size.width / 2;
        },
        kWait, milliseconds(50)));

    const Rect barArea{{window.origin.x, window.origin.y - 1}, {window.size.width, 40}};
    const xcb_window_t bar = clients_->cover(geometryOf(barArea));
    EXPECT_EQ(frameOf(title), seen);
    const Point onBar = centreOf(barArea);
    EXPECT_EQ(ax_->elementAtPosition(static_cast<float>(onBar.x), static_cast<float>(onBar.y)), nullptr);
    // The window list has the bar in front of the window, so its stage finds nothing either.
    const auto list = ax_->windowList();
    ASSERT_FALSE(list.empty());
    EXPECT_EQ((Rect{{double(list[0].x), double(list[0].y)}, {double(list[0].width), double(list[0].height)}}), barArea);
    WindowLookup::setAccessibility(std::make_shared<FixedMouse>(ax_, onBar));
    EXPECT_EQ(WindowLookup::windowUnderMouse(), nullptr);
    clients_->destroy(bar);
    EXPECT_TRUE(sameElement(WindowLookup::windowUnderMouse(), ax_->windowElement(w)));
    WindowLookup::setAccessibility(nullptr);
    // Uncovered, the box shows whatever the server fills it with until the
    // window manager has drawn the title again; then the text is back where it was.
    EXPECT_TRUE(waitUntil([&] { return frameOf(title) == seen; }, kWait));
}

struct PositionCase {
    std::string name;
    // Where, relative to the window's outer frame: dy from its top (a
    // negative one is above the frame).
    double dx, dy;
    std::optional<Role> expectedRole;  // nothing: nothing there
};

TEST_P(X11AccessibilityTest, TheFrameIsTheClientGrownByTheExtentsAndHoldsTheTitleAtItsTop) {
    const xcb_window_t w = clients_->create({.title = "positions", .x = 300, .y = 200});
    const FrameExtents expected = GetParam().extents;
    EXPECT_EQ(clients_->frameExtents(w),
              (std::vector<std::uint32_t>{expected.left, expected.right, expected.top, expected.bottom}));
    const Rect client = rectOf(clients_->geometry(w));
    const Rect window = frameOf(ax_->windowElement(w));
    EXPECT_EQ(window.origin, (Point{client.origin.x - expected.left, client.origin.y - expected.top}));
    EXPECT_EQ(window.size, (Size{client.size.width + expected.left + expected.right,
                                 client.size.height + expected.top + expected.bottom}));
    EXPECT_EQ(window, rectOf(clients_->frameGeometry(w))) << "the window manager's frame window";
    EXPECT_EQ(textOf(ax_->windowElement(w), Attribute::Title), "positions");
    // The bar is as high as this band: 20 under openbox, 29 under xfwm4.
    EXPECT_EQ(WindowLookup::titleBandHeight(ax_->windowElement(w)), static_cast<double>(expected.top));
    const double band = expected.top;
    const PositionCase cases[] = {
        {"over the title band", window.size.width / 2, band / 2, Role::Text},
        {"over the title band's left end", 3, band / 2, Role::Text},
        {"just below the title band", window.size.width / 2, band + 1, Role::Window},
        {"over the body", window.size.width / 2, window.size.height / 2, Role::Window},
        {"above the frame, on the desktop", window.size.width / 2, -20, std::nullopt},
        {"right of the frame, on the desktop", window.size.width + 20, band / 2, std::nullopt},
    };
    for (const PositionCase& c : cases) {
        SCOPED_TRACE(c.name);
        const ElementRef e = ax_->elementAtPosition(static_cast<float>(window.origin.x + c.dx),
                                                    static_cast<float>(window.origin.y + c.dy));
        if (!c.expectedRole) {
            EXPECT_EQ(e, nullptr);
            continue;
        }
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(copyAttribute<Role>(e, Attribute::Role), c.expectedRole);
        EXPECT_TRUE(
            sameElement(copyAttribute<ElementRef>(e, Attribute::Window).value_or(nullptr), ax_->windowElement(w)));
    }
}

TEST_P(X11AccessibilityTest, AnApplicationHasItsNormalWindowsButNotItsDialogsAndKnowsTheFocusedOne) {
    const std::int32_t pid = 4000001;
    const xcb_window_t main = clients_->create({.title = "main", .pid = pid, .x = 100, .y = 100});
    clients_->create({.title = "dialog",
                      .pid = pid,
                      .x = 150,
                      .y = 150,
                      .width = 200,
                      .height = 100,
                      .type = TestWindowType::Dialog,
                      .transientFor = main});
    const xcb_window_t other = clients_->create({.title = "other", .pid = pid, .x = 500, .y = 300});
    clients_->create({.title = "someone else's", .pid = pid + 1, .x = 700, .y = 100});

    const ElementRef app = ax_->applicationElement(pid);
    EXPECT_EQ(copyAttribute<Role>(app, Attribute::Role), Role::Application);
    const auto windows =
        copyAttribute<std::vector<ElementRef>>(app, Attribute::Windows).value_or(std::vector<ElementRef>{});
    ASSERT_EQ(windows.size(), 2u);
    // Front to back: the one mapped last is in front.
    EXPECT_TRUE(sameElement(windows[0], ax_->windowElement(other)));
    EXPECT_TRUE(sameElement(windows[1], ax_->windowElement(main)));
    EXPECT_TRUE(sameElement(copyAttribute<ElementRef>(windows[0], Attribute::Parent).value_or(nullptr), app));

    clients_->activate(main);
    ASSERT_TRUE(waitUntil([&] { return clients_->activeWindow() == main; }, kWait));
    EXPECT_TRUE(sameElement(copyAttribute<ElementRef>(app, Attribute::FocusedWindow).value_or(nullptr),
                            ax_->windowElement(main)));
    EXPECT_TRUE(sameElement(
        copyAttribute<ElementRef>(ax_->systemWideElement(), Attribute::FocusedApplication).value_or(nullptr), app));
    EXPECT_FALSE(copyAttribute<ElementRef>(ax_->applicationElement(pid + 1), Attribute::FocusedWindow));
}

// ---- the window list

TEST_P(X11AccessibilityTest, TheWindowListRunsFrontToBackWithFramesAndOwners) {
    const xcb_window_t back = clients_->create({.title = "list back", .x = 100, .y = 100});
    const xcb_window_t front = clients_->create({.title = "list front", .x = 300, .y = 200});
    clients_->create({.title = "list dock",
                      .wmClass = "JorvanePanel",
                      .x = 0,
                      .y = 760,
                      .width = 1280,
                      .height = 40,
                      .type = TestWindowType::Dock});
    const std::vector<std::string> ours{"list back", "list front", "list dock"};
    EXPECT_EQ(listedTitles({"list back", "list front"}), (std::vector<std::string>{"list front", "list back"}));

    const auto list = ax_->windowList();
    for (const WindowInfo& info : list) {
        if (std::find(ours.begin(), ours.end(), info.name) == ours.end()) continue;
        SCOPED_TRACE(info.name);
        EXPECT_EQ(info.ownerPid, getpid());
        if (info.name == "list dock") {
            EXPECT_EQ(info.ownerName, "Dock");
            EXPECT_EQ((std::vector<int>{info.x, info.y, info.width, info.height}),
                      (std::vector<int>{0, 760, 1280, 40}));
            continue;
        }
        EXPECT_EQ(info.ownerName, "JorvaneTest");
        // The bounds are the element's frame, so that the two can be matched.
        const Rect frame = frameOf(ax_->windowElement(info.name == "list front" ? front : back));
        EXPECT_EQ((Rect{{double(info.x), double(info.y)}, {double(info.width), double(info.height)}}), frame);
    }

    clients_->activate(back);  // raises it
    EXPECT_TRUE(waitUntil(
        [&] {
            return listedTitles({"list back", "list front"}) == std::vector<std::string>{"list back", "list front"};
        },
        kWait));

    clients_->iconify(back);
    EXPECT_TRUE(waitUntil(
        [&] {
            return listedTitles({"list back", "list front"}) == std::vector<std::string>{"list front"};
        },
        kWait));
}

// ---- windows that vanish

TEST_P(X11AccessibilityTest, AWindowThatIsGoneAnswersNothing) {
    const xcb_window_t w = clients_->create({.title = "gone", .x = 400, .y = 300});
    const ElementRef window = ax_->windowElement(w);
    const Rect frame = frameOf(window);
    const ElementRef title = WindowLookup::titleElementForWindow(window);
    clients_->destroy(w);
    ASSERT_TRUE(waitUntil([&] { return !clients_->isManaged(w); }, kWait));

    Rect r;
    EXPECT_FALSE(WindowLookup::getWindowFrame(window, r));
    EXPECT_FALSE(WindowLookup::getWindowFrame(title, r));
    EXPECT_FALSE(copyAttribute<std::string>(window, Attribute::Title));
    EXPECT_FALSE(copyAttribute<ElementRef>(window, Attribute::Parent));
    EXPECT_EQ(ax_->elementAtPosition(static_cast<float>(centreOf(frame).x), static_cast<float>(centreOf(frame).y)),
              nullptr);
    const auto observer = ax_->createObserver(getpid(), [](const ElementRef&, WindowNotification) {});
    ASSERT_NE(observer, nullptr);
    EXPECT_FALSE(observer->addNotification(window, WindowNotification::ElementDestroyed));
}

TEST_P(X11AccessibilityTest, QueriesSurviveWindowsComingAndGoingMeanwhile) {
    const xcb_window_t steady = clients_->create({.title = "steady", .x = 100, .y = 100});
    const Rect steadyFrame = frameOf(ax_->windowElement(steady));
    // Another connection makes and destroys windows as fast as it can, so
    // that windows vanish between the requests of one query.
    std::atomic<bool> stop{false};
    std::atomic<int> churned{0};
    std::thread churn([&] {
        e2e::XTestClient x(display_);
        xcb_connection_t* c = x.connection();
        while (!stop) {
            const xcb_window_t w = xcb_generate_id(c);
            xcb_create_window(c, XCB_COPY_FROM_PARENT, w, x.root(), 600, 300, 200, 150, 0,
                              XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
            x.setTitle(w, "churn");
            xcb_map_window(c, w);
            x.sync();
            x.destroy(w);
            ++churned;
        }
    });
    int queries = 0;
    while (churned < 200 && queries < 20000) {
        for (const WindowInfo& info : ax_->windowList()) EXPECT_GT(info.width, 0) << info.name;
        const ElementRef under = ax_->elementAtPosition(700, 400);
        if (under)
            frameOf(
                WindowLookup::titleElementForWindow(copyAttribute<ElementRef>(under, Attribute::Window).value_or(nullptr)));
        ++queries;
    }
    stop = true;
    churn.join();
    EXPECT_GE(churned, 200);
    EXPECT_EQ(frameOf(ax_->windowElement(steady)), steadyFrame);
}

// ---- notices the whole-program tests do not bring about

TEST_P(X11AccessibilityTest, AMovedWindowAndAFileManagerLeavingTheFrontAreAnnouncedOnce) {
    const std::int32_t fileManager = 4000021, editor = 4000022;
    std::vector<std::pair<ElementRef, WindowNotification>> notes;
    const auto observer = ax_->createObserver(
        fileManager, [&](const ElementRef& e, WindowNotification name) { notes.emplace_back(e, name); });
    std::vector<WorkspaceNotification> workspace;
    X11WorkspaceObserver applications(display_, "JorvaneFiles");
    ASSERT_TRUE(applications.setCallback([&](const WorkspaceNotification& n) { workspace.push_back(n); }));
    const WorkspaceNotification leftFront{WorkspaceEvent::LeftFront, fileManager, "JorvaneFiles", true};
    const auto waitFor = [](const std::function<bool()>& done) {
        return dispatch::MainQueue::shared().runUntil(done, dispatch::seconds(5));
    };

    const xcb_window_t files = clients_->create({.title = "files", .wmClass = "JorvaneFiles", .pid = fileManager});
    const xcb_window_t text = clients_->create({.title = "text", .wmClass = "JorvaneEditor", .pid = editor, .x = 700});
    const WorkspaceNotification editorLaunched{WorkspaceEvent::Launched, editor, "JorvaneEditor", false};
    ASSERT_TRUE(waitFor([&] { return std::count(workspace.begin(), workspace.end(), editorLaunched) == 1; }));
    ASSERT_NE(observer, nullptr);
    ASSERT_TRUE(observer->addNotification(ax_->windowElement(files), WindowNotification::Moved));
    clients_->move(files, 220, 330);
    ASSERT_TRUE(waitFor([&] { return !notes.empty(); }));
    EXPECT_TRUE(sameElement(notes.front().first, ax_->windowElement(files)));
    EXPECT_EQ(notes.front().second, WindowNotification::Moved);

    clients_->activate(files);
    ASSERT_TRUE(waitUntil([&] { return clients_->activeWindow() == files; }, kWait));
    dispatch::MainQueue::shared().drain();
    workspace.clear();
    clients_->activate(text);
    ASSERT_TRUE(waitFor([&] { return std::count(workspace.begin(), workspace.end(), leftFront) > 0; }));
    dispatch::MainQueue::shared().drain();
    // The window manager passing the front through no window (openbox sets
    // 0 in between) announces nothing more. (The editor's own news of the
    // step before may still come in late.)
    std::vector<WorkspaceNotification> notAboutTheEditor;
    std::copy_if(workspace.begin(), workspace.end(), std::back_inserter(notAboutTheEditor),
                 [&](const WorkspaceNotification& n) { return n.pid != editor; });
    EXPECT_EQ(notAboutTheEditor, std::vector<WorkspaceNotification>{leftFront});
}

INSTANTIATE_TEST_SUITE_P(WindowManagers, X11AccessibilityTest,
                         ::testing::Values(WindowManagerCase{"openbox", {1, 1, 20, 5}},
                                           WindowManagerCase{"xfwm4", {5, 5, 29, 5}}),
                         [](const auto& test) { return "Under" + test.param.name; });

}  // namespace
}  // namespace jorvane::x11
