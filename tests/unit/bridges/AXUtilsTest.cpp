#include "bridges/AXUtils.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "fakes/FakeAccessibility.h"

using namespace jorvane;
using jorvane::test::AXNode;
using jorvane::test::FakeAccessibility;
using jorvane::test::ScopedAccessibility;

namespace {

constexpr std::int32_t kPid = 4242;
const Rect kEverywhere{{-10000, -10000}, {20000, 20000}};

// The file manager with one application element, installed for AXUtils.
struct Screen {
    std::shared_ptr<FakeAccessibility> ax = std::make_shared<FakeAccessibility>();
    ScopedAccessibility installed{ax};
    AXNode app = ax->addApplication(kPid, "Thunar");

    // Stage 1 finds nothing anywhere: only the window list can answer.
    void nothingAtAnyPosition() { ax->placeElement(kEverywhere, AXNode{}); }
    // Stage 2 has nothing to offer: only the hierarchy can answer.
    void emptyWindowList() { ax->setWindowList(std::vector<AXWindowInfo>{}); }
    // `element` is what lies under the mouse.
    void underMouse(AXNode element) { ax->placeElement(kEverywhere, element); }
};

struct UnderMouseRow {
    std::string name;
    // Builds the screen; returns the window expected (no node: none).
    std::function<AXNode(Screen&)> build;
};

void PrintTo(const UnderMouseRow& row, std::ostream* os) { *os << row.name; }

class WindowUnderMouse : public ::testing::TestWithParam<UnderMouseRow> {};

TEST_P(WindowUnderMouse, FindsTheExpectedWindow) {
    Screen s;
    const AXNode expected = GetParam().build(s);
    EXPECT_EQ(s.ax->nodeOf(AXUtils::AXWindowUnderMouse()), expected);
}

// Two full-screen windows: `deep` behind, `front` in front. A chain of
// `depth` elements hangs below `deep` without "AXWindow"; its deepest
// element is under the mouse. Stage 1 must climb to `deep`; when the
// climb is too long, stage 2 answers with `front`.
AXNode climb(Screen& s, std::size_t depth, bool wantDeep) {
    const AXNode deep = s.ax->addWindow(s.app, "deep", {{0, 0}, {500, 500}});
    const AXNode front = s.ax->addWindow(s.app, "front", {{0, 0}, {500, 500}});
    s.underMouse(s.ax->addChain(deep, depth));
    s.ax->setMouseLocation({10, 10});
    return wantDeep ? deep : front;
}

// A window "docs" over (0,0)-(500,500), another program's window in front of
// it when given, and nothing found at any position: the window list must
// answer for the mouse at `mouse`.
AXNode docsFromTheWindowList(Screen& s, Point mouse = {10, 10}, std::optional<AXWindowInfo> inFront = {}) {
    const AXNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
    if (inFront) s.ax->addForeignWindow(*inFront);
    s.nothingAtAnyPosition();
    s.ax->setMouseLocation(mouse);
    return win;
}

const UnderMouseRow kUnderMouseRows[] = {
    {"TitleTextGivesItsWindowThroughTheWindowAttribute",
     [](Screen& s) {
         const AXNode win = s.ax->addWindow(s.app, "/home - Thunar", {{100, 50}, {800, 600}});
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
         const AXNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
         s.underMouse(s.ax->addChain(s.ax->addElement(AXNode{}, "AXGroup"), 5));
         s.ax->setMouseLocation({10, 10});
         return win;
     }},
    {"WindowAttributeNamingANonWindowIsNotTrusted",
     [](Screen& s) {
         const AXNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
         const AXNode group = s.ax->addElement(win, "AXGroup", Rect{{0, 0}, {500, 500}});
         s.ax->setAttribute(group, "AXWindow", group);
         s.emptyWindowList();
         s.ax->setMouseLocation({10, 10});
         return AXNode{};
     }},
    {"NothingAtThePositionIsLeftToTheWindowList", [](Screen& s) { return docsFromTheWindowList(s); }},
    {"DockPanelInFrontIsSkipped",
     [](Screen& s) { return docsFromTheWindowList(s, {10, 10}, AXWindowInfo{"Dock", 17, "", 0, 0, 1000, 1000}); }},
    {"AnotherProgramInFrontEndsTheScan",
     [](Screen& s) {
         docsFromTheWindowList(s, {10, 10}, AXWindowInfo{"Firefox", 17, "news", 0, 0, 1000, 1000});
         return AXNode{};
     }},
    {"SameTitledWindowsOnePointApartAcrossAreToldApartByOrigin",
     [](Screen& s) {
         s.ax->addWindow(s.app, "docs - Thunar", {{100, 100}, {500, 500}});
         const AXNode moved = s.ax->addWindow(s.app, "docs - Thunar", {{101, 100}, {500, 500}});
         s.nothingAtAnyPosition();
         s.ax->setMouseLocation({300, 300});
         return moved;
     }},
    {"SameTitledWindowsOnePointApartDownAreToldApartByOrigin",
     [](Screen& s) {
         s.ax->addWindow(s.app, "docs - Thunar", {{100, 100}, {500, 500}});
         const AXNode moved = s.ax->addWindow(s.app, "docs - Thunar", {{100, 101}, {500, 500}});
         s.nothingAtAnyPosition();
         s.ax->setMouseLocation({300, 300});
         return moved;
     }},
    {"SizeIsNotCompared",
     [](Screen& s) {
         const AXNode win = docsFromTheWindowList(s);
         s.ax->setWindowList(std::vector<AXWindowInfo>{{"Thunar", kPid, "docs", 0, 0, 700, 300}});
         s.ax->removeAttribute(win, "AXSize");
         return win;
     }},
    {"WindowWithoutPositionNeverMatches",
     [](Screen& s) {
         s.ax->removeAttribute(docsFromTheWindowList(s), "AXPosition");
         return AXNode{};
     }},
    {"TitleMustEqualTheEntrysName",
     [](Screen& s) {
         docsFromTheWindowList(s);
         s.ax->setWindowList(std::vector<AXWindowInfo>{{"Thunar", kPid, "Docs", 0, 0, 500, 500}});
         return AXNode{};
     }},
    {"PointOnTheFarEdgeIsOutside",
     [](Screen& s) {
         docsFromTheWindowList(s, {500, 10});
         return AXNode{};
     }},
    {"UnknownOwnerFindsNothing",
     [](Screen& s) {
         s.ax->setWindowList(std::vector<AXWindowInfo>{{"Thunar", 9999, "docs", 0, 0, 500, 500}});
         s.nothingAtAnyPosition();
         s.ax->setMouseLocation({10, 10});
         return AXNode{};
     }},
};

INSTANTIATE_TEST_SUITE_P(AXUtils, WindowUnderMouse, ::testing::ValuesIn(kUnderMouseRows),
                         [](const auto& row) { return row.param.name; });

TEST(AXUtils, ParentClimbIsBoundedEvenInACycle) {
    Screen s;
    const AXNode loop = s.ax->addElement(AXNode{}, "AXGroup");
    s.ax->setAttribute(loop, "AXParent", loop);
    s.underMouse(loop);
    s.emptyWindowList();
    EXPECT_EQ(AXUtils::AXWindowUnderMouse(), nullptr);
    EXPECT_LE(s.ax->readCount("AXParent"), 100u);
}

TEST(AXUtils, WithoutAnInterfaceEverythingAnswersNothing) {
    ScopedAccessibility none(nullptr);
    EXPECT_EQ(AXUtils::AXWindowUnderMouse(), nullptr);
    EXPECT_EQ(AXUtils::AXFocusedWindow(), nullptr);
    Rect frame;
    EXPECT_FALSE(AXUtils::AXWindowGetFrame(nullptr, frame));
    EXPECT_EQ(AXUtils::AXTitleElementForWindow(nullptr), nullptr);
}

TEST(AXUtils, FocusedWindowIsTheFocusedApplicationsFocusedWindow) {
    Screen s;
    const AXNode a = s.ax->addWindow(s.app, "a", {{0, 0}, {500, 500}});
    const AXNode b = s.ax->addWindow(s.app, "b", {{0, 0}, {500, 500}});
    EXPECT_EQ(AXUtils::AXFocusedWindow(), nullptr);
    s.ax->setFocusedWindow(a);
    EXPECT_EQ(s.ax->nodeOf(AXUtils::AXFocusedWindow()), a);
    s.ax->setFocusedWindow(b);
    EXPECT_EQ(s.ax->nodeOf(AXUtils::AXFocusedWindow()), b);
}

// ------------------------------------------------------------- title element

struct TitleRow {
    std::string name;
    std::vector<std::string> childRoles;
    int expected;  // index into the children, -1 for none
};

void PrintTo(const TitleRow& row, std::ostream* os) { *os << row.name; }

class TitleElement : public ::testing::TestWithParam<TitleRow> {};

TEST_P(TitleElement, IsTheLastStaticTextChild) {
    Screen s;
    const AXNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
    std::vector<AXNode> children;
    for (const std::string& role : GetParam().childRoles)
        children.push_back(s.ax->addElement(win, role, Rect{{0, 0}, {10, 10}}));
    const AXNode expected = GetParam().expected < 0 ? AXNode{} : children[std::size_t(GetParam().expected)];
    EXPECT_EQ(s.ax->nodeOf(AXUtils::AXTitleElementForWindow(s.ax->element(win))), expected);
}

INSTANTIATE_TEST_SUITE_P(AXUtils, TitleElement,
                         ::testing::Values(TitleRow{"OfTwoStaticTextsTheSecondWins", {"AXStaticText", "AXStaticText"}, 1},
                                           TitleRow{"AButtonAfterTheTextDoesNotCount", {"AXStaticText", "AXButton"}, 0},
                                           TitleRow{"NoStaticTextGivesNone", {"AXButton", "AXGroup"}, -1},
                                           TitleRow{"NoChildrenGiveNone", {}, -1}),
                         [](const auto& row) { return row.param.name; });

TEST(AXUtils, WindowWithoutChildrenAttributeHasNoTitleElement) {
    Screen s;
    const AXNode win = s.ax->addWindow(s.app, "docs", {{0, 0}, {500, 500}});
    s.ax->removeAttribute(win, "AXChildren");
    EXPECT_EQ(AXUtils::AXTitleElementForWindow(s.ax->element(win)), nullptr);
}

// ------------------------------------------------------------------- frames

TEST(AXUtils, FrameIsReadFromPositionAndSize) {
    Screen s;
    const AXNode win = s.ax->addWindow(s.app, "docs", {{12.5, 40}, {640, 480}});
    Rect frame;
    EXPECT_TRUE(AXUtils::AXWindowGetFrame(s.ax->element(win), frame));
    EXPECT_EQ(frame, (Rect{{12.5, 40}, {640, 480}}));
}

TEST(AXUtils, AFrameWithoutItsSizeOrPositionFailsAfterWritingWhatItRead) {
    Screen s;
    const AXNode win = s.ax->addWindow(s.app, "docs", {{12, 40}, {640, 480}});
    Rect frame{{-1, -1}, {7, 7}};
    s.ax->setAttribute(win, "AXPosition", std::string("12,40"));  // mistyped
    EXPECT_FALSE(AXUtils::AXWindowGetFrame(s.ax->element(win), frame));
    s.ax->removeAttribute(win, "AXPosition");
    EXPECT_FALSE(AXUtils::AXWindowGetFrame(s.ax->element(win), frame));
    EXPECT_EQ(frame, (Rect{{-1, -1}, {7, 7}}));
    s.ax->setAttribute(win, "AXPosition", Point{12, 40});
    s.ax->removeAttribute(win, "AXSize");
    EXPECT_FALSE(AXUtils::AXWindowGetFrame(s.ax->element(win), frame));
    EXPECT_EQ(frame, (Rect{{12, 40}, {7, 7}})) << "the origin is written before the size is read";
}

}  // namespace
