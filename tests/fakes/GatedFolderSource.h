#pragma once

#include <dirent.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "addressbar/FolderSource.h"

namespace jorvane::test {

// Files named after the given names, handed out one batch at a time when
// the test releases them; a folder that never answers until then.
class GatedFolderSource final : public FolderSource {
public:
    explicit GatedFolderSource(std::vector<std::vector<std::string>> batches) : batches_(std::move(batches)) {}

    bool read(const std::string&, const BatchSink& sink) override {
        std::unique_lock lock(mutex_);
        for (const std::vector<std::string>& names : batches_) {
            changed_.wait(lock, [&] { return released_ > 0 || closing_; });
            if (closing_) return false;
            --released_;
            lock.unlock();
            const bool wanted = sink(DirectoryListing::fromNames(names, DT_REG));
            lock.lock();
            if (!wanted) {
                ++stopped_;
                changed_.notify_all();
                return true;
            }
        }
        return true;
    }

    void release(int batches) {
        std::lock_guard lock(mutex_);
        released_ += batches;
        changed_.notify_all();
    }
    // Lets every read still waiting end (as failed).
    void close() {
        std::lock_guard lock(mutex_);
        closing_ = true;
        changed_.notify_all();
    }
    bool waitUntilStopped() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return stopped_ > 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::vector<std::string>> batches_;
    int released_ = 0;
    int stopped_ = 0;
    bool closing_ = false;
};

}  // namespace jorvane::test
