#pragma once

// Drives the built jorvane program on the end-to-end desktop and looks at
// what it does from outside: the program by pid with its log; its bar (its
// viewable override-redirect window; the list is the one of type TOOLTIP)
// and the X focus; XTEST input; the bar's text and selection through the
// accessibility bus (Qt's bridge, switched on for the tests) and Thunar's
// selected items through its Details view. One thread only (libatspi).

#include <sys/types.h>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop.h"
#include "platform/x11/X11Windows.h"

namespace jorvane::e2e {

class XTestClient;

#ifdef JORVANE_BINARY
inline constexpr const char* kJorvaneBinary = JORVANE_BINARY;
#else
inline constexpr const char* kJorvaneBinary = "jorvane";
#endif

struct BarWindow {
    std::uint32_t window = 0;
    WindowGeometry geometry;
};

// What the bar's text field holds, as its accessible text says.
struct FieldText {
    std::string text;
    int selectionStart = 0;  // characters; start == end when nothing is selected
    int selectionEnd = 0;
    // The message the bar shows about something that failed (its accessible
    // description); empty for none.
    std::string problem;
};

// The program of each autostart entry in the folder (the first argument of its
// Exec line), read as a desktop reads it.
std::vector<std::string> autostartPrograms(const std::filesystem::path& folder);

// Keys are keysym names as X spells them ("Control_L", "g").
class JorvaneDriver {
public:
    struct Options {
        // Qt's accessibility bridge, so that the bar's text can be read (a
        // benchmark measures the program as users run it, without).
        bool accessible = true;
        std::string logLevel = "info";
        // A home folder of its own, where the program starts as on a new
        // machine; else the desktop's, marked as past its first launch.
        std::optional<std::filesystem::path> home;
        // Wait until the launch is done (false: for a launch that waits on an alert).
        bool waitUntilRunning = true;
        // Another copy of the program than the build's (an installed one).
        std::optional<std::filesystem::path> program;
        // More "NAME=value" settings of its environment.
        std::vector<std::string> environment;
    };

    explicit JorvaneDriver(Desktop& desktop);
    ~JorvaneDriver();
    JorvaneDriver(const JorvaneDriver&) = delete;
    JorvaneDriver& operator=(const JorvaneDriver&) = delete;

    // ---- the program
    // Starts jorvane and waits until its launch is done; false (why()) when it does not in time.
    bool start(const Options& options, milliseconds timeout = milliseconds(15000));
    // SIGTERM, and SIGKILL when it does not end in time.
    void stop();
    pid_t pid() const { return pid_; }
    bool running() const;
    const std::string& why() const { return why_; }
    std::string log() const;
    bool waitForLog(const std::string& text, milliseconds timeout);
    // Starts the program once more beside the running one and waits for its
    // exit code (nothing when it did not end in time).
    std::optional<int> startAgain(const Options& options, milliseconds timeout = milliseconds(10000));

    // ---- its windows
    std::optional<BarWindow> bar(bool menu = false);  // `menu`: its context menu instead
    std::optional<WindowGeometry> completionList();
    // Whether a client (a menu) holds the keyboard, so that keys go to it.
    bool keyboardGrabbed();
    std::uint32_t inputFocus();
    // The focus is on the window or one of its children.
    bool focusIsIn(std::uint32_t window);
    bool barHasFocus();
    // Polls until the bar is shown and holds the focus, or is hidden.
    bool waitForFocusedBar(milliseconds timeout);
    bool waitForBarHidden(milliseconds timeout);

    // ---- Thunar's windows
    // The client's area and the frame's extents around it.
    std::optional<x11::ClientFrame> frame(std::uint32_t client);
    // The middle of the window's title bar, in root coordinates.
    std::optional<std::pair<int, int>> titlePoint(std::uint32_t client);
    // Whether another client (the tap) holds a grab of Ctrl+key (Ctrl+Shift+key) on the window.
    bool keyGrabbedByOthers(std::uint32_t window, const std::string& keysym, bool withShift = false);
    bool waitForGrab(std::uint32_t window, const std::string& keysym, milliseconds timeout, bool withShift = false);
    void minimise(std::uint32_t client);

    // ---- input (XTEST)
    void moveTo(int x, int y);
    void clickAt(int x, int y, int button = 1);
    // The modifiers pressed in order, the key, then released in reverse order.
    bool key(const std::string& keysym, const std::vector<std::string>& modifiers = {});
    bool hotKey() { return key("g", {"Control_L"}); }
    // Presses and releases in the given order, `pace` apart, as a hand rolls a chord.
    struct KeyStep {
        std::string keysym;
        bool press = true;
    };
    bool keySteps(const std::vector<KeyStep>& steps, milliseconds pace);
    bool type(const std::string& text);

    // From now on, the key events that reach the window or its children (XInput 2, beside the owner).
    void watchKeys(std::uint32_t window);
    struct SeenKey {
        bool press = false;
        std::uint8_t keycode = 0;
    };
    std::vector<SeenKey> seenKeys();
    std::optional<std::uint8_t> keycodeOf(const std::string& keysym);

    // ---- through the accessibility bus
    // An element of the program (window, label, button, check box) named exactly `name`.
    bool waitForElement(const std::string& name, milliseconds timeout);
    // The element's first action (a button's press); false when there is no such element.
    bool pressElement(const std::string& name);
    // Whether the named element is checked; nothing when there is none.
    std::optional<bool> elementChecked(const std::string& name);
    std::optional<FieldText> fieldText();
    // Until the field meets the condition; `last`: what it held last.
    bool waitForField(const std::function<bool(const FieldText&)>& condition, milliseconds timeout,
                      FieldText* last = nullptr);
    bool waitForFieldText(const std::string& text, milliseconds timeout);
    // Until the field shows an inline completion (a selection that does not start at its beginning).
    bool waitForInlineCompletion(milliseconds timeout);
    // Thunar's selected items in the window (its Details view); nothing when unreadable.
    std::optional<std::vector<std::string>> thunarSelection(std::uint32_t client);

    struct Atspi;

private:
    std::vector<std::uint32_t> shownWindows(bool lists, bool overrideRedirect = false);
    // Set up on first use; nullptr when not there (or, `ofProgram`, when the program does not run).
    Atspi* accessibility(bool ofProgram = true);
    pid_t spawnProgram(const Options& options, const std::string& logName);

    Desktop& desktop_;
    pid_t pid_ = -1;
    std::string why_;
    std::unique_ptr<XTestClient> x_;  // a connection of its own: it listens for keys
    std::unique_ptr<Atspi> atspi_;
};

}  // namespace jorvane::e2e
