#include "app/FileManagerLifecycle.h"

#include "util/Diagnostics.h"

namespace jorvane {

namespace {
constexpr const char* kLog = "Jorvane";
}  // namespace

FileManagerLifecycle::FileManagerLifecycle(Hooks hooks)
    : hooks_(std::move(hooks)), self_(std::make_shared<FileManagerLifecycle*>(this)) {}

FileManagerLifecycle::~FileManagerLifecycle() {
    cancelCheck();
    *self_ = nullptr;
}

void FileManagerLifecycle::started(std::int32_t runningPid) {
    if (runningPid > 0) {
        attach(runningPid);
    } else {
        wait();
    }
}

void FileManagerLifecycle::appeared(std::int32_t pid) {
    if (pid < 1) return;
    cancelCheck();
    if (pid_ != 0 && pid_ != pid) detach();
    attach(pid);
}

void FileManagerLifecycle::windowsGone(std::int32_t pid) {
    if (pid < 1 || pid != pid_) return;
    if (!hooks_.processExists || !hooks_.processExists(pid)) {
        detach();
        wait();
        return;
    }
    // Quitting takes a moment; a daemon lives on without windows.
    cancelCheck();
    dispatch::TimeSource& time = dispatch::timeSource();
    check_ =
        time.schedule(time.now() + kEndCheckDelay, std::chrono::milliseconds(200), [weak = std::weak_ptr(self_), pid] {
            dispatch::mainQueue().async([weak, pid] {
                const auto self = weak.lock();
                if (self && *self) (*self)->checkEnded(pid);
            });
        });
}

void FileManagerLifecycle::ended(std::int32_t pid) {
    if (pid < 1 || pid != pid_) return;
    cancelCheck();
    detach();
    wait();
}

void FileManagerLifecycle::checkEnded(std::int32_t pid) {
    check_.reset();
    if (pid != pid_ || (hooks_.processExists && hooks_.processExists(pid))) return;
    detach();
    wait();
}

void FileManagerLifecycle::attach(std::int32_t pid) {
    pid_ = pid;
    log::inDomain(log::Info, kLog, "%s runs as process %d", hooks_.fileManagerName.c_str(), pid);
    if (hooks_.attach) hooks_.attach(pid);
}

void FileManagerLifecycle::detach() {
    const std::int32_t gone = pid_;
    pid_ = 0;
    if (gone != 0 && hooks_.detach) hooks_.detach(gone);
}

void FileManagerLifecycle::wait() { log::inDomain(log::Info, kLog, "waiting for %s", hooks_.fileManagerName.c_str()); }

void FileManagerLifecycle::cancelCheck() {
    if (!check_) return;
    dispatch::timeSource().cancel(*check_);
    check_.reset();
}

}  // namespace jorvane
