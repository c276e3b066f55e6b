#include "firstlaunch/Installation.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

namespace jorvane::installation {

namespace fs = std::filesystem;

namespace {

std::optional<Kind> kindNamed(std::string_view name) {
    if (name == "release") return Kind::release;
    if (name == "prefix") return Kind::prefix;
    if (name == "package") return Kind::package;
    return std::nullopt;
}

// A path that stays inside the root: relative, no empty, "." or ".." parts.
bool isInsidePath(std::string_view path) {
    if (path.empty() || path.front() == '/' || path.back() == '/') return false;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        start = end + 1;
    }
    return true;
}

// The manifest's text, when it is a regular file of a manifest's size: a
// FIFO or a device there must never block or flood the start.
std::optional<std::string> readManifest(const fs::path& file) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    if (error || !fs::is_regular_file(status)) return std::nullopt;
    const std::uintmax_t size = fs::file_size(file, error);
    if (error || size > kManifestLimit) return std::nullopt;
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (text.size() > kManifestLimit) return std::nullopt;
    return text;
}

bool isPresent(const fs::path& file) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    return !error && (fs::is_regular_file(status) || fs::is_symlink(status));
}

bool isEmptyFolder(const fs::path& folder) {
    std::error_code error;
    if (!fs::is_directory(fs::symlink_status(folder, error)) || error) return false;
    return fs::directory_iterator(folder, error) == fs::directory_iterator() && !error;
}

// Inside a prefix, only Jorvane's own data folder is Jorvane's.
bool isOwnFolderOfPrefix(const fs::path& relative) {
    const fs::path own("share/jorvane");
    auto part = relative.begin();
    for (const auto& ownPart : own) {
        if (part == relative.end() || *part != ownPart) return false;
        ++part;
    }
    return true;
}

}  // namespace

std::optional<Manifest> parseManifest(std::string_view text) {
    if (text.size() > kManifestLimit || text.find('\0') != std::string_view::npos) return std::nullopt;
    std::vector<std::string_view> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    if (lines.empty()) return std::nullopt;

    const std::string_view header = lines.front();
    if (!header.starts_with(kManifestHeader) || header.size() <= kManifestHeader.size() ||
        header[kManifestHeader.size()] != ' ')
        return std::nullopt;
    const std::optional<Kind> kind = kindNamed(header.substr(kManifestHeader.size() + 1));
    if (!kind) return std::nullopt;

    Manifest manifest{*kind, {}};
    std::set<std::string_view> seen;
    for (auto line = std::next(lines.begin()); line != lines.end(); ++line) {
        if (line->empty()) continue;
        if (!isInsidePath(*line)) return std::nullopt;
        if (seen.insert(*line).second) manifest.files.emplace_back(*line);
    }
    if (manifest.files.empty()) return std::nullopt;
    return manifest;
}

Installation installationOf(const fs::path& executable) {
    if (executable.empty()) return {};
    const fs::path program = executable.lexically_normal();
    if (!program.is_absolute() || program.filename() != "jorvane" || program.parent_path().filename() != "bin")
        return {};
    const fs::path root = program.parent_path().parent_path();
    const std::optional<std::string> text = readManifest(root / kManifestPath);
    if (!text) return {};
    std::optional<Manifest> manifest = parseManifest(*text);
    if (!manifest) return {};
    const auto& files = manifest->files;
    if (std::find(files.begin(), files.end(), kProgramPath) == files.end() ||
        std::find(files.begin(), files.end(), kManifestPath) == files.end())
        return {};
    for (const std::string& file : files)
        if (!isPresent(root / file)) return {};
    return {manifest->kind, root, std::move(manifest->files)};
}

bool isReleaseFolder(const fs::path& folder) {
    if (folder.empty()) return false;
    const Installation found = installationOf(folder / kProgramPath);
    return found.kind == Kind::release;
}

std::vector<fs::path> installedFiles(const Installation& installation) {
    std::vector<fs::path> files;
    for (const std::string& file : installation.files) files.push_back(installation.root / file);
    return files;
}

Removal removeInstalledFiles(const Installation& installation) {
    Removal removal;
    if (installation.kind != Kind::release && installation.kind != Kind::prefix) return removal;
    if (installation.root.empty()) return removal;

    std::set<fs::path> folders;  // the folders that held a listed file, below the root
    for (const std::string& file : installation.files) {
        const fs::path path = installation.root / file;
        std::error_code error;
        if (fs::remove(path, error) && !error) {
            removal.removed.push_back(path);
        } else if (isPresent(path)) {
            removal.failed.push_back(path);
        }
        // A prefix's own folders (bin/, share/ …) belong to every program in it.
        for (fs::path folder = fs::path(file).parent_path(); !folder.empty(); folder = folder.parent_path())
            if (installation.kind == Kind::release || isOwnFolderOfPrefix(folder))
                folders.insert(installation.root / folder);
    }
    // Deepest first: a longer path is never the parent of a shorter one.
    std::vector<fs::path> deepestFirst(folders.begin(), folders.end());
    std::sort(deepestFirst.begin(), deepestFirst.end(),
              [](const fs::path& a, const fs::path& b) { return a.native().size() > b.native().size(); });
    if (installation.kind == Kind::release) deepestFirst.push_back(installation.root);
    for (const fs::path& folder : deepestFirst) {
        std::error_code error;
        if (isEmptyFolder(folder)) fs::remove(folder, error);
    }
    return removal;
}

}  // namespace jorvane::installation
