#include "fakes/TestSupport.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace jorvane::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "jorvane-test-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!::mkdtemp(buffer.data())) throw std::runtime_error("mkdtemp failed");
    // Canonical, so that tests comparing resolved paths are not fooled by a
    // temporary folder that is itself behind a link.
    path_ = std::filesystem::canonical(buffer.data());
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::file(const std::string& relative, const std::string& contents) const {
    const std::filesystem::path p = path_ / relative;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << contents;
    return p;
}

std::filesystem::path TempDir::dir(const std::string& relative) const {
    const std::filesystem::path p = path_ / relative;
    std::filesystem::create_directories(p);
    return p;
}

std::filesystem::path TempDir::symlink(const std::string& relative, const std::string& target) const {
    const std::filesystem::path p = path_ / relative;
    std::filesystem::create_directories(p.parent_path());
    std::filesystem::create_symlink(target, p);
    return p;
}

std::vector<std::string> filesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace jorvane::test
