// What the X11 accessibility adapter costs the event tap: per title-bar
// click, the window under the mouse and its title text's frame; the first
// look at a window's title bar (finding its text box among the frame's
// windows and reading the drawn text); the window list; the mouse location.
//
// Needs an X display with a window manager ($DISPLAY); it maps a window of
// its own there for the duration. Without a display it says so and does
// nothing.
//
// Run: DISPLAY=:1 bench_x11_accessibility --benchmark_repetitions=10 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>

#include <xcb/xcb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "accessibility/WindowLookup.h"
#include "platform/x11/X11Accessibility.h"
#include "platform/x11/X11Windows.h"

namespace {

using namespace jorvane;

// The adapter, with the mouse held over the benchmark window's title.
class MouseOverTitle final : public AccessibilityAPI {
public:
    MouseOverTitle(std::shared_ptr<x11::X11Accessibility> ax, Point mouse) : ax_(std::move(ax)), mouse_(mouse) {}
    ElementRef systemWideElement() override { return ax_->systemWideElement(); }
    ElementRef applicationElement(std::int32_t pid) override { return ax_->applicationElement(pid); }
    ElementRef elementAtPosition(float x, float y) override { return ax_->elementAtPosition(x, y); }
    std::vector<WindowInfo> windowList() override { return ax_->windowList(); }
    Point mouseLocation() override { return mouse_; }

private:
    std::shared_ptr<x11::X11Accessibility> ax_;
    Point mouse_;
};

// A window with a title of the usual length, framed by the window manager.
struct Scene {
    std::unique_ptr<x11::XcbDisplay> display;
    xcb_window_t window = 0;
    std::shared_ptr<x11::X11Accessibility> ax;
    Rect title;  // where the title text is drawn
    std::string error;

    Scene() {
        display = x11::XcbDisplay::connect({});
        if (!display) {
            error = "cannot connect to $DISPLAY";
            return;
        }
        xcb_connection_t* c = display->connection();
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        window = xcb_generate_id(c);
        const std::uint32_t background = screen->white_pixel;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 120, 120, 720, 420, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL, &background);
        const char name[] = "/home/user/Documents/Projects/jorvane - Thunar";
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, std::strlen(name),
                            name);
        std::uint32_t hints[18] = {1 | 2, 120, 120, 720, 420};  // USPosition, USSize
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18,
                            hints);
        xcb_map_window(c, window);
        // In front, as a window is when the user clicks its title (xfwm4
        // may keep a new window behind the active one).
        const char* activeName = "_NET_ACTIVE_WINDOW";
        if (auto* atom =
                xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, std::strlen(activeName), activeName), nullptr)) {
            xcb_client_message_event_t message{};
            message.response_type = XCB_CLIENT_MESSAGE;
            message.format = 32;
            message.window = window;
            message.type = atom->atom;
            message.data.data32[0] = 2;  // from a pager: no focus stealing prevention
            xcb_send_event(c, 0, screen->root,
                           XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                           reinterpret_cast<const char*>(&message));
            std::free(atom);
        }
        xcb_flush(c);

        ax = std::make_shared<x11::X11Accessibility>();
        const ElementRef element = ax->windowElement(window);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
        // Until the window manager has framed the window and drawn its title.
        while (std::chrono::steady_clock::now() < deadline) {
            Rect frame;
            if (WindowLookup::getWindowFrame(WindowLookup::titleElementForWindow(element), title) &&
                WindowLookup::getWindowFrame(element, frame) && title.size.width < frame.size.width / 2)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        error = "no window manager framed the benchmark window (or drew its title) within 3 s";
    }

    ~Scene() {
        if (display && window) {
            xcb_destroy_window(display->connection(), window);
            xcb_flush(display->connection());
        }
    }
};

Scene& scene() {
    static Scene instance;
    return instance;
}

bool ready(benchmark::State& state) {
    if (!scene().error.empty()) {
        state.SkipWithError(scene().error.c_str());
        return false;
    }
    return true;
}

// The tap's work for one click on a title: the window under the mouse, its
// title text element and that element's frame.
void BM_TitleClick(benchmark::State& state) {
    if (!ready(state)) return;
    const Rect t = scene().title;
    WindowLookup::setAccessibility(std::make_shared<MouseOverTitle>(
        scene().ax, Point{t.origin.x + t.size.width / 2, t.origin.y + t.size.height / 2}));
    for (auto _ : state) {
        Rect frame;
        const bool ok =
            WindowLookup::getWindowFrame(WindowLookup::titleElementForWindow(WindowLookup::windowUnderMouse()), frame);
        if (!ok) state.SkipWithError("the title's frame could not be read");
        benchmark::DoNotOptimize(frame);
    }
    WindowLookup::setAccessibility(nullptr);
}
BENCHMARK(BM_TitleClick)->Unit(benchmark::kMicrosecond);

// The first look at a title bar (after the window moved or changed size):
// finding the text box among the frame's windows, checking that nothing
// covers it and reading the drawn text.
void BM_TitleFirstLook(benchmark::State& state) {
    if (!ready(state)) return;
    const x11::XcbDisplay& d = *scene().display;
    const xcb_window_t frame = x11::topLevelOf(d, scene().window);
    const auto geometry = x11::readClientFrames(d, {scene().window}).front();
    if (!geometry || frame == 0) {
        state.SkipWithError("the benchmark window has no frame");
        return;
    }
    for (auto _ : state) {
        const auto box = x11::titleTextBox(d, frame, scene().window, *geometry);
        if (!box) {
            state.SkipWithError("no title box");
            break;
        }
        const bool covered = x11::isCoveredAbove(d, frame, *box);
        benchmark::DoNotOptimize(covered);
        benchmark::DoNotOptimize(x11::measureInk(d, frame, *box));
    }
}
BENCHMARK(BM_TitleFirstLook)->Unit(benchmark::kMicrosecond);

void BM_WindowList(benchmark::State& state) {
    if (!ready(state)) return;
    for (auto _ : state) benchmark::DoNotOptimize(scene().ax->windowList());
}
BENCHMARK(BM_WindowList)->Unit(benchmark::kMicrosecond);

void BM_MouseLocation(benchmark::State& state) {
    if (!ready(state)) return;
    for (auto _ : state) benchmark::DoNotOptimize(scene().ax->mouseLocation());
}
BENCHMARK(BM_MouseLocation)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display) {
        std::printf("bench_x11_accessibility needs an X display with a window manager; DISPLAY is not set.\n");
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
