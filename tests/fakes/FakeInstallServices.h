#pragma once

// The system services of a move over a real temporary tree: commands run for
// real (as the user; "as the administrator" runs the same command unless an
// answer of the password dialog is scripted), the Trash is a folder of the
// test's, and the running executables and the relaunch are scripted and
// logged in the shared EventLog:
//   "run <argv[0]>", "admin <argv[0]>", "trash <path>", "relaunch <exe>".

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fakes/FakePathWindowViews.h"
#include "firstlaunch/SystemInstall.h"

extern char** environ;

namespace jorvane::test {

class FakeInstallServices final : public InstallServices {
public:
    FakeInstallServices(std::shared_ptr<EventLog> log, std::filesystem::path trash)
        : log_(std::move(log)), trash_(std::move(trash)) {}

    bool isWritable(const std::string& path) override {
        return unwritable_.count(path) == 0 && access(path.c_str(), W_OK) == 0;
    }
    bool moveToTrash(const std::string& path) override {
        log_->add("trash " + path);
        std::error_code error;
        std::filesystem::create_directories(trash_, error);
        std::filesystem::rename(path, trash_ / std::filesystem::path(path).filename(), error);
        return !error;
    }
    std::optional<std::string> resolveLinks(const std::string& path) override {
        std::error_code error;
        const std::filesystem::path resolved = std::filesystem::canonical(path, error);
        if (error) return std::nullopt;
        return resolved.string();
    }
    std::vector<std::string> runningExecutables() override { return running_; }
    CommandRun runCommand(const std::vector<std::string>& argv, bool asAdministrator) override {
        log_->add((asAdministrator ? "admin " : "run ") + argv.front());
        if (asAdministrator && !adminAnswers_.empty()) {
            const CommandRun scripted = adminAnswers_.front();
            adminAnswers_.pop_front();
            return scripted;
        }
        std::vector<char*> args;
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        pid_t pid = 0;
        if (posix_spawn(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return {};
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
        }
        return {true, WIFSIGNALED(status), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    }
    void relaunch(const std::string& executable) override { log_->add("relaunch " + executable); }

    // ---- test side
    void setRunning(std::vector<std::string> executables) { running_ = std::move(executables); }
    void makeUnwritable(const std::string& path) { unwritable_.insert(path); }
    // The next administrator's command ends like this instead of running.
    void answerAdmin(CommandRun run) { adminAnswers_.push_back(run); }

private:
    std::shared_ptr<EventLog> log_;
    std::filesystem::path trash_;
    std::vector<std::string> running_;
    std::set<std::string> unwritable_;
    std::deque<CommandRun> adminAnswers_;
};

}  // namespace jorvane::test
