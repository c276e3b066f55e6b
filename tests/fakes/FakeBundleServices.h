#pragma once

// The system services of a move, in memory: a set of existing paths, the
// writable ones, the running executables, and scripted results for copying,
// trashing and the administrator's programs. Every call is logged in the
// shared EventLog:
//   "trash <path>", "copy <from> -> <to>", "admin <argv...>", "relaunch <exe>"
// (tests of the order of events read these; the queries are not logged).

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "app/MoveToApplications.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeBundleServices final : public BundleServices {
public:
    explicit FakeBundleServices(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    bool isWritable(const std::string& path) override { return writable_.count(path) > 0; }
    bool exists(const std::string& path) override { return existing_.count(path) > 0; }
    bool copy(const std::string& from, const std::string& to) override {
        log_->add("copy " + from + " -> " + to);
        if (!copySucceeds_) return false;
        existing_.insert(to);
        return true;
    }
    bool moveToTrash(const std::string& path) override {
        log_->add("trash " + path);
        if (!trashSucceeds_) return false;
        existing_.erase(path);
        return true;
    }
    std::optional<std::string> resolveLinks(const std::string& path) override {
        if (const auto link = links_.find(path); link != links_.end()) return link->second;
        if (unresolvable_.count(path)) return std::nullopt;
        return path;
    }
    std::vector<std::string> runningExecutables() override { return running_; }
    PrivilegedRun runAsAdministrator(const std::vector<std::string>& argv) override {
        std::string entry = "admin";
        for (const std::string& arg : argv) entry += " " + arg;
        log_->add(std::move(entry));
        if (adminRuns_.empty()) return {true, false, 0};
        const PrivilegedRun run = adminRuns_.front();
        adminRuns_.pop_front();
        return run;
    }
    void relaunch(const std::string& executable) override { log_->add("relaunch " + executable); }

    // ---- test side
    void addFolder(const std::string& path, bool writable) {
        existing_.insert(path);
        if (writable) writable_.insert(path);
    }
    void setLink(const std::string& path, const std::string& target) { links_[path] = target; }
    void setUnresolvable(const std::string& path) { unresolvable_.insert(path); }
    void setRunning(std::vector<std::string> executables) { running_ = std::move(executables); }
    void failCopies() { copySucceeds_ = false; }
    void failTrash() { trashSucceeds_ = false; }
    // The next administrator's programs end like this (by default: exit 0).
    void scriptAdmin(PrivilegedRun run) { adminRuns_.push_back(run); }

private:
    std::shared_ptr<EventLog> log_;
    std::set<std::string> existing_;
    std::set<std::string> writable_;
    std::map<std::string, std::string> links_;
    std::set<std::string> unresolvable_;
    std::vector<std::string> running_;
    bool copySucceeds_ = true;
    bool trashSucceeds_ = true;
    std::deque<PrivilegedRun> adminRuns_;
};

}  // namespace jorvane::test
