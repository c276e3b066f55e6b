#pragma once

// The workspace's application notifications on X11, where applications are
// known only by their windows:
//
//   launched      the first client window of a process never seen before
//                 joins _NET_CLIENT_LIST (a process that only closed and
//                 reopened windows, such as "thunar --daemon", is not new);
//   deactivated   _NET_ACTIVE_WINDOW moves from a window of the process to
//                 a window of another process (passing through 0 or through
//                 override-redirect windows, such as our own bar, counts
//                 for nothing).
//
// The file manager is the application whose windows have the WM_CLASS class
// given (compared without regard to case). Callbacks run on the main queue.

#include <memory>
#include <string>

#include "accessibility/WorkspaceObserver.h"

namespace jorvane::x11 {

class X11WindowWatcher;

class X11WorkspaceObserver final : public WorkspaceObserver {
public:
    explicit X11WorkspaceObserver(std::string displayName = {}, std::string fileManagerClass = "Thunar");
    ~X11WorkspaceObserver() override;
    X11WorkspaceObserver(const X11WorkspaceObserver&) = delete;
    X11WorkspaceObserver& operator=(const X11WorkspaceObserver&) = delete;

    // Starts watching at the first callback; false when the display cannot
    // be reached.
    bool setCallback(Callback callback) override;

    struct Shared;

private:
    std::string displayName_;
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<X11WindowWatcher> watcher_;
};

}  // namespace jorvane::x11
