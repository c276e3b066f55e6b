#include "fakes/FakeFileManagerProcess.h"

#include <string>

namespace jorvane::test {

std::int32_t FakeFileManagerProcess::runningApplicationPid() {
    log_->add("fm.runningApplicationPid");
    std::lock_guard lock(mutex_);
    return pid_;
}

bool FakeFileManagerProcess::processExists(std::int32_t pid) {
    std::lock_guard lock(mutex_);
    ++processExistsCount_;
    return pid > 0 && (pid == pid_ || (linger_ && pid == quitPid_));
}

bool FakeFileManagerProcess::showsAllFiles() {
    log_->add("fm.showsAllFiles");
    std::lock_guard lock(mutex_);
    return showsAllFiles_;
}

void FakeFileManagerProcess::setShowsAllFiles(bool show) {
    log_->add(std::string("fm.setShowsAllFiles ") + (show ? "1" : "0"));
    std::lock_guard lock(mutex_);
    showsAllFiles_ = show;
}

int FakeFileManagerProcess::quitApplication(std::string_view bundleIdentifier) {
    log_->add("fm.quit " + std::string(bundleIdentifier));
    std::lock_guard lock(mutex_);
    if (pid_ == 0) return procNotFound;
    quitPid_ = pid_;
    pid_ = 0;
    return quitResult_;
}

bool FakeFileManagerProcess::launch() {
    log_->add("fm.launch");
    std::lock_guard lock(mutex_);
    ++launchCount_;
    if (pid_ == 0) pid_ = nextPid_++;
    return true;
}

bool FakeFileManagerProcess::bringToFront(std::int32_t pid) {
    log_->add("fm.bringToFront " + std::to_string(pid));
    return true;
}

void FakeFileManagerProcess::setPid(std::int32_t pid) {
    std::lock_guard lock(mutex_);
    pid_ = pid;
}

std::int32_t FakeFileManagerProcess::pid() const {
    std::lock_guard lock(mutex_);
    return pid_;
}

bool FakeFileManagerProcess::showsAllFilesValue() const {
    std::lock_guard lock(mutex_);
    return showsAllFiles_;
}

void FakeFileManagerProcess::setQuitResult(int result) {
    std::lock_guard lock(mutex_);
    quitResult_ = result;
}

void FakeFileManagerProcess::lingerAfterQuit(bool linger) {
    std::lock_guard lock(mutex_);
    linger_ = linger;
}

int FakeFileManagerProcess::processExistsCount() const {
    std::lock_guard lock(mutex_);
    return processExistsCount_;
}

int FakeFileManagerProcess::launchCount() const {
    std::lock_guard lock(mutex_);
    return launchCount_;
}

}  // namespace jorvane::test
