#pragma once

// The workspace's notifications about applications: one started (its first
// window appeared), one lost the front to another application, one's last
// window went away. The core acts on those of the file manager; the adapter
// says which those are.

#include <cstdint>
#include <functional>
#include <string>

namespace jorvane {

enum class WorkspaceEvent {
    // The application's first window appeared.
    Launched,
    // Another application's window became the active one.
    LeftFront,
    // The last window of an application went away (its process may live on).
    Quit,
};

struct WorkspaceNotification {
    WorkspaceEvent event = WorkspaceEvent::Launched;
    // The application's process.
    std::int32_t pid = 0;
    // How the system names the application (on X11 its windows' WM_CLASS
    // class), for the log.
    std::string applicationName;
    // The application is the file manager.
    bool isFileManager = false;

    friend bool operator==(const WorkspaceNotification&, const WorkspaceNotification&) = default;
};

class WorkspaceObserver {
public:
    using Callback = std::function<void(const WorkspaceNotification&)>;

    // No callback runs after the observer is destroyed (destroy it on the
    // main thread).
    virtual ~WorkspaceObserver() = default;

    // Delivers every later notification to the callback on the main queue,
    // replacing the previous callback; an empty one stops the delivery.
    // False when the notifications cannot be watched.
    virtual bool setCallback(Callback callback) = 0;
};

}  // namespace jorvane
