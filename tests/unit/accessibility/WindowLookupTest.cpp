// Finding windows: under the mouse (hit test, window list, hierarchy), focused, their title and frame.
#include "accessibility/WindowLookup.h"

#include <gtest/gtest.h>

#include <functional>

#include "fakes/FakeAccessibility.h"

using namespace jorvane;
using jorvane::test::ElementNode;
using jorvane::test::FakeAccessibility;
using jorvane::test::ScopedAccessibility;

namespace {

constexpr std::int32_t kPid = 4242;
const Rect kEverywhere{{-10000, -10000}, {20000, 20000}};

// The file manager with one application element, installed for WindowLookup.
struct Screen {
    std::shared_ptr<FakeAccessibility> ax = std::make_shared<FakeAccessibility>();
    ScopedAccessibility installed{ax};
    ElementNode app = ax->addApplication(kPid, "Thunar");

    // Stage 1 finds nothing anywhere: only the window list can answer.
    void nothingAtAnyPosition() { ax->placeElement(kEverywhere, ElementNode{}); }
    // Stage 2 has nothing to offer: only the hierarchy can answer.
    void emptyWindowList() { ax->setWindowList(std::vector<WindowInfo>{}); }
    // `element` is what lies under the mouse.
    void underMouse(ElementNode element) { ax->placeElement(kEverywhere, element); }
};

struct UnderMouseRow {
    std::string name;
    std::function<ElementNode(Screen&)> build;  // builds the screen; the window expected (no node: none)
};

void PrintTo(const UnderMouseRow& row, std::ostream* os) { *os << row.name; }

class WindowUnderMouse : public ::testing::TestWithParam<UnderMouseRow> {};

TEST_P(WindowUnderMouse, FindsTheExpectedWindow) {
    Screen s;
    const ElementNode expected = GetParam().build(s);
    EXPECT_EQ(s.ax->nodeOf(WindowLookup::windowUnderMouse()), expected);
}

// Two full-screen windows, `deep` behind `front`; under the mouse the end of a chain of `depth` elements
// without Role::Window below `deep`. Stage 1 must climb to `deep`; when the climb is too long, stage 2 gives `front`.
ElementNode climb(Screen& s, std::size_t depth, bool wantDeep) {
    const ElementNode deep = s.ax->addWindow(s.app, "deep", {{0, 0}, {500, 500}});
    const ElementNode front = s.ax->addWindow(s.app, "front", {{0, 0}, {500, 500}});
    s.underMouse(s.ax->addChain(deep, depth));
    s.ax->setMouseLocation({10, 10});
    return wantDeep ? deep : front;
}

// A window "docs" over (0,0)-(500,500), maybe another program's window in front, and nothing found at any
// position: the window list must answer for the mouse at `mouse`.
ElementNode docsFromTheWindowList(Screen& s, Point mouse = {10, 10}, std::optional<WindowInfo> inFront = {}) {
    const ElementNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
    if (inFront) s.ax->addForeignWindow(*inFront);
    s.nothingAtAnyPosition();
    s.ax->setMouseLocation(mouse);
    return win;
}

// Two windows of one title, the second `origin` a point off the first's (100, 100); the list must pick it.
ElementNode twins(Screen& s, Point origin) {
    s.ax->addWindow(s.app, "docs - Thunar", {{100, 100}, {500, 500}});
    const ElementNode moved = s.ax->addWindow(s.app, "docs - Thunar", {origin, {500, 500}});
    s.nothingAtAnyPosition();
    s.ax->setMouseLocation({300, 300});
    return moved;
}

const UnderMouseRow kUnderMouseRows[] = {
    {"TitleTextGivesItsWindowThroughTheWindowAttribute",
     [](Screen& s) {
         const ElementNode win = s.ax->addWindow(s.app, "/home - Thunar", {{100, 50}, {800, 600}});
         s.ax->addStaticText(win, "/home - Thunar", {{420, 54}, {160, 16}});
         s.emptyWindowList();
         s.ax->setMouseLocation({430, 60});
         return win;
     }},
    {"ElementWithoutWindowAttributeClimbsToItsWindow", [](Screen& s) { return climb(s, 3, true); }},
    {"WindowExactlyOneHundredParentsUpIsFound", [](Screen& s) { return climb(s, 100, true); }},
    {"WindowOneHundredAndOneParentsUpIsLeftToTheWindowList", [](Screen& s) { return climb(s, 101, false); }},
    {"ElementWithNoWindowAncestorIsLeftToTheWindowList",
     [](Screen& s) {
         const ElementNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
         s.underMouse(s.ax->addChain(s.ax->addElement(ElementNode{}, Role::Group), 5));
         s.ax->setMouseLocation({10, 10});
         return win;
     }},
    {"WindowAttributeNamingANonWindowIsNotTrusted",
     [](Screen& s) {
         const ElementNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
         const ElementNode group = s.ax->addElement(win, Role::Group, Rect{{0, 0}, {500, 500}});
         s.ax->setAttribute(group, Attribute::Window, group);
         s.emptyWindowList();
         s.ax->setMouseLocation({10, 10});
         return ElementNode{};
     }},
    {"NothingAtThePositionIsLeftToTheWindowList", [](Screen& s) { return docsFromTheWindowList(s); }},
    {"DockPanelInFrontIsSkipped",
     [](Screen& s) {
         return docsFromTheWindowList(s, {10, 10}, WindowInfo{"Dock", 17, "", 0, 0, 1000, 1000});
     }},
    {"AnotherProgramInFrontEndsTheScan",
     [](Screen& s) {
         return docsFromTheWindowList(s, {10, 10}, WindowInfo{"Firefox", 17, "news", 0, 0, 1000, 1000}), ElementNode{};
     }},
    {"SameTitledWindowsOnePointApartAcrossAreToldApartByOrigin",
     [](Screen& s) {
         return twins(s, {101, 100});
     }},
    {"SameTitledWindowsOnePointApartDownAreToldApartByOrigin",
     [](Screen& s) {
         return twins(s, {100, 101});
     }},
    {"TitleMustEqualTheEntrysName",
     [](Screen& s) {
         docsFromTheWindowList(s);
         s.ax->setWindowList(std::vector<WindowInfo>{{"Thunar", kPid, "Docs", 0, 0, 500, 500}});
         return ElementNode{};
     }},
    {"PointOnTheFarEdgeIsOutside",
     [](Screen& s) {
         return docsFromTheWindowList(s, {500, 10}), ElementNode{};
     }},
};

INSTANTIATE_TEST_SUITE_P(WindowLookup, WindowUnderMouse, ::testing::ValuesIn(kUnderMouseRows),
                         [](const auto& row) { return row.param.name; });

TEST(WindowLookup, ParentClimbIsBoundedEvenInACycle) {
    Screen s;
    const ElementNode loop = s.ax->addElement(ElementNode{}, Role::Group);
    s.ax->setAttribute(loop, Attribute::Parent, loop);
    s.underMouse(loop);
    s.emptyWindowList();
    EXPECT_EQ(WindowLookup::windowUnderMouse(), nullptr);
    EXPECT_LE(s.ax->readCount(Attribute::Parent), 100u);
}

TEST(WindowLookup, FocusedWindowIsTheFocusedApplicationsFocusedWindowAndNoInterfaceAnswersNothing) {
    {
        ScopedAccessibility none(nullptr);
        EXPECT_EQ(WindowLookup::windowUnderMouse(), nullptr);
        EXPECT_EQ(WindowLookup::focusedWindow(), nullptr);
    }
    Screen s;
    const ElementNode a = s.ax->addWindow(s.app, "a", {{0, 0}, {500, 500}});
    const ElementNode b = s.ax->addWindow(s.app, "b", {{0, 0}, {500, 500}});
    EXPECT_EQ(WindowLookup::focusedWindow(), nullptr);
    for (const ElementNode focused : {a, b}) {
        s.ax->setFocusedWindow(focused);
        EXPECT_EQ(s.ax->nodeOf(WindowLookup::focusedWindow()), focused);
    }
}

TEST(WindowLookup, TheTitleElementIsTheLastStaticTextChild) {
    // The children's roles and the index of the title among them (-1: none).
    const std::pair<std::vector<Role>, int> rows[] = {
        {{Role::Text, Role::Text}, 1}, {{Role::Text, Role::Button}, 0}, {{Role::Button, Role::Group}, -1}};
    for (const auto& [roles, index] : rows) {
        Screen s;
        const ElementNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
        std::vector<ElementNode> children;
        for (const Role role : roles) children.push_back(s.ax->addElement(win, role, Rect{{0, 0}, {10, 10}}));
        const ElementNode expected = index < 0 ? ElementNode{} : children[std::size_t(index)];
        EXPECT_EQ(s.ax->nodeOf(WindowLookup::titleElementForWindow(s.ax->element(win))), expected) << roles.size();
        s.ax->removeAttribute(win, Attribute::Children);
        EXPECT_EQ(WindowLookup::titleElementForWindow(s.ax->element(win)), nullptr);
    }
}

TEST(WindowLookup, TheTitleBandHeightIsAPositiveNumberOfPoints) {
    Screen s;
    const ElementNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
    EXPECT_EQ(WindowLookup::titleBandHeight(s.ax->element(win)), std::nullopt);
    const std::pair<std::int64_t, std::optional<double>> rows[] = {
        {0, std::nullopt}, {-3, std::nullopt}, {1, 1}, {24, 24}};
    for (const auto& [band, height] : rows) {
        s.ax->setAttribute(win, Attribute::TitleBandHeight, band);
        EXPECT_EQ(WindowLookup::titleBandHeight(s.ax->element(win)), height) << band;
    }
}

TEST(WindowLookup, AFrameWithoutItsSizeOrPositionFailsAfterWritingWhatItRead) {
    Screen s;
    const ElementNode win = s.ax->addWindow(s.app, "docs", {{12, 40}, {640, 480}});
    Rect frame{{-1, -1}, {7, 7}};
    s.ax->setAttribute(win, Attribute::Position, std::string("12,40"));  // mistyped
    EXPECT_FALSE(WindowLookup::getWindowFrame(s.ax->element(win), frame));
    s.ax->removeAttribute(win, Attribute::Position);
    EXPECT_FALSE(WindowLookup::getWindowFrame(s.ax->element(win), frame));
    EXPECT_EQ(frame, (Rect{{-1, -1}, {7, 7}}));
    s.ax->setAttribute(win, Attribute::Position, Point{12, 40});
    s.ax->removeAttribute(win, Attribute::Size);
    EXPECT_FALSE(WindowLookup::getWindowFrame(s.ax->element(win), frame));
    EXPECT_EQ(frame, (Rect{{12, 40}, {7, 7}})) << "the origin is written before the size is read";
}

}  // namespace
