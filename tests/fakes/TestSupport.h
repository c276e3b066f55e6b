#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace jorvane::test {

// A temporary folder removed with everything in it when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    // Creates a file (and its parents) holding the given text.
    std::filesystem::path file(const std::string& relative, const std::string& contents = {}) const;
    std::filesystem::path dir(const std::string& relative) const;
    std::filesystem::path symlink(const std::string& relative, const std::string& target) const;

private:
    std::filesystem::path path_;
};

// The names in a folder, sorted; none when it cannot be listed.
std::vector<std::string> filesIn(const std::filesystem::path& folder);

// The file's bytes; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);

inline std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace jorvane::test
