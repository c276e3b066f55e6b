#include "util/FileSystemProbe.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string_view>
#include <thread>

namespace jorvane::FileSystemProbe {

namespace {

using Clock = std::chrono::steady_clock;

// An idle probe thread ends after this long without questions.
constexpr auto kIdleThreadLifetime = std::chrono::seconds(10);
// How often a waiting asker looks whether it has given up.
constexpr auto kGivenUpInterval = std::chrono::milliseconds(5);

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

// `path` is `folder` or lies below it.
bool isAtOrBelow(std::string_view path, std::string_view folder) {
    path = withoutTrailingSlashes(path);
    folder = withoutTrailingSlashes(folder);
    if (!path.starts_with(folder)) return false;
    return path.size() == folder.size() || folder == "/" || path[folder.size()] == '/';
}

struct Job {
    std::string path;
    std::function<void()> work;
    std::condition_variable finished;
    bool started = false;
    bool done = false;
    bool abandoned = false;
    bool stuck = false;  // listed in Pool::stuck_
};

// One lock for everything: questions are few and short to book-keep.
class Pool {
public:
    bool run(const std::string& path, std::function<void()> question, Duration limit,
             const std::function<bool()>& givenUp) {
        std::unique_lock lock(mutex_);
        if (isStuckLocked(path)) return false;
        auto job = std::make_shared<Job>();
        job->path = path;
        job->work = std::move(question);
        // Questions given up on before a thread took them are dropped here.
        std::erase_if(waiting_, [](const std::shared_ptr<Job>& waiting) { return waiting->abandoned; });
        waiting_.push_back(job);
        arrived_.notify_one();
        // Idle threads woken for earlier questions may not have taken them
        // yet: a new thread starts whenever the questions outnumber them.
        if (waiting_.size() > idle_ && threads_ < kMaxThreads) {
            try {
                std::thread([this] { serve(); }).detach();
                ++threads_;
            } catch (const std::system_error&) {
                // No thread to be had: the question waits for one that frees.
            }
        }
        const Clock::time_point deadline = Clock::now() + limit;
        bool gaveUp = false;
        while (!job->done && Clock::now() < deadline) {
            if (givenUp && givenUp()) {
                gaveUp = true;
                break;
            }
            job->finished.wait_until(lock, givenUp ? std::min(deadline, Clock::now() + kGivenUpInterval) : deadline);
        }
        if (job->done) return true;
        job->abandoned = true;
        // Only a question past its limit says the file system is stuck.
        if (job->started && !gaveUp) {
            job->stuck = true;
            stuck_.push_back(job->path);
        }
        return false;
    }

    bool isStuck(const std::string& path) {
        std::lock_guard lock(mutex_);
        return isStuckLocked(path);
    }

private:
    bool isStuckLocked(const std::string& path) const {
        return std::any_of(stuck_.begin(), stuck_.end(),
                           [&](const std::string& folder) { return isAtOrBelow(path, folder); });
    }

    void serve() {
        std::unique_lock lock(mutex_);
        for (;;) {
            ++idle_;
            const bool arrived = arrived_.wait_for(lock, kIdleThreadLifetime, [&] { return !waiting_.empty(); });
            --idle_;
            if (!arrived) {
                --threads_;
                return;
            }
            std::shared_ptr<Job> job = std::move(waiting_.front());
            waiting_.pop_front();
            if (job->abandoned) continue;
            job->started = true;
            lock.unlock();
            job->work();
            lock.lock();
            job->done = true;
            if (job->stuck) stuck_.erase(std::find(stuck_.begin(), stuck_.end(), job->path));
            job->finished.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::shared_ptr<Job>> waiting_;
    // The paths of questions past their limit whose threads still wait.
    std::vector<std::string> stuck_;
    std::size_t threads_ = 0;
    std::size_t idle_ = 0;
};

Pool& pool() {
    // Never destroyed: its threads may still be waiting on a file system
    // while the process exits.
    static Pool* shared = new Pool();
    return *shared;
}

}  // namespace

bool detail::run(const std::string& path, std::function<void()> work, Duration limit,
                 const std::function<bool()>& givenUp) {
    return pool().run(path, std::move(work), limit, givenUp);
}

std::optional<bool> isDirectory(const std::string& path, Duration limit, const std::function<bool()>& givenUp) {
    return ask<bool>(
        path,
        [path] {
            struct stat info {};
            return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        },
        limit, givenUp);
}

std::optional<bool> exists(const std::string& path, Duration limit) {
    return ask<bool>(
        path,
        [path] {
            struct stat info {};
            return ::lstat(path.c_str(), &info) == 0;
        },
        limit);
}

std::optional<std::vector<std::string>> entries(const std::string& folder, Duration limit) {
    return ask<std::vector<std::string>>(
        folder,
        [folder] {
            std::vector<std::string> names;
            DIR* dir = ::opendir(folder.c_str());
            if (!dir) return names;
            while (const dirent* entry = ::readdir(dir)) {
                const std::string_view name = entry->d_name;
                if (name != "." && name != "..") names.emplace_back(name);
            }
            ::closedir(dir);
            return names;
        },
        limit);
}

bool isStuck(const std::string& path) { return pool().isStuck(path); }

}  // namespace jorvane::FileSystemProbe
