#pragma once

// Sets an environment variable (or unsets it, for nullopt) for one scope and puts the previous value back.

#include <cstdlib>
#include <optional>
#include <string>

namespace jorvane::test {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~ScopedEnv() { set(old_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_.c_str(), value->c_str(), 1) : ::unsetenv(name_.c_str());
    }

    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace jorvane::test
