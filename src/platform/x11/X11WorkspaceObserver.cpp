#include "platform/x11/X11WorkspaceObserver.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <utility>

#include "platform/x11/X11WindowWatcher.h"
#include "util/Dispatch.h"

namespace jorvane::x11 {

struct X11WorkspaceObserver::Shared {
    std::mutex mutex;
    Callback callback;
    std::string fileManagerClass;

    bool isFileManager(const std::string& wmClass) const {
        return !wmClass.empty() && std::equal(wmClass.begin(), wmClass.end(), fileManagerClass.begin(),
                                              fileManagerClass.end(), [](char a, char b) {
                                                  return std::tolower(static_cast<unsigned char>(a)) ==
                                                         std::tolower(static_cast<unsigned char>(b));
                                              });
    }

    void post(const std::shared_ptr<Shared>& self, WorkspaceEvent event, std::int32_t pid, const std::string& wmClass) {
        WorkspaceNotification n{event, pid, wmClass, isFileManager(wmClass)};
        dispatch::MainQueue::shared().async([self, n = std::move(n)] {
            Callback callback;
            {
                std::lock_guard lock(self->mutex);
                callback = self->callback;
            }
            if (callback) callback(n);
        });
    }

    void handle(const std::shared_ptr<Shared>& self, const WindowEvent& e) {
        if (e.kind == WindowEvent::Kind::ClientAdded && e.newProcess)
            post(self, WorkspaceEvent::Launched, e.pid, e.wmClass);
        else if (e.kind == WindowEvent::Kind::ProcessLeft)
            post(self, WorkspaceEvent::Quit, e.pid, e.wmClass);
        else if (e.kind == WindowEvent::Kind::ActiveChanged && e.previousPid > 0 && e.previousPid != e.pid)
            post(self, WorkspaceEvent::LeftFront, e.previousPid, e.previousClass);
    }
};

X11WorkspaceObserver::X11WorkspaceObserver(std::string displayName, std::string fileManagerClass)
    : displayName_(std::move(displayName)), shared_(std::make_shared<Shared>()) {
    shared_->fileManagerClass = std::move(fileManagerClass);
}

X11WorkspaceObserver::~X11WorkspaceObserver() {
    watcher_.reset();
    std::lock_guard lock(shared_->mutex);
    shared_->callback = nullptr;
}

bool X11WorkspaceObserver::setCallback(Callback callback) {
    {
        std::lock_guard lock(shared_->mutex);
        shared_->callback = std::move(callback);
    }
    if (!watcher_) {
        std::weak_ptr<Shared> weak = shared_;
        watcher_ = X11WindowWatcher::start(displayName_, [weak](const WindowEvent& e) {
            if (const auto self = weak.lock()) self->handle(self, e);
        });
    }
    return watcher_ && watcher_->isRunning();
}

}  // namespace jorvane::x11
