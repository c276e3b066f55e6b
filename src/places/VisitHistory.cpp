#include "places/VisitHistory.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "util/Paths.h"

namespace jorvane::places {

namespace {

constexpr UnixSeconds kHour = 3600;
constexpr UnixSeconds kDay = 24 * kHour;
constexpr UnixSeconds kWeek = 7 * kDay;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

std::vector<std::string> foldedWords(std::string_view typed) {
    std::vector<std::string> words;
    std::size_t i = 0;
    while (i < typed.size()) {
        while (i < typed.size() && isSpace(typed[i])) ++i;
        const std::size_t start = i;
        while (i < typed.size() && !isSpace(typed[i])) ++i;
        if (i > start) words.push_back(paths::caseFolded(typed.substr(start, i - start)));
    }
    return words;
}

// The words in order, the last one ending inside the last component. Taking
// the leftmost match of each earlier word leaves the most room for the rest,
// so a greedy scan finds a match whenever there is one.
bool matches(std::string_view folded, std::size_t lastComponentStart, const std::vector<std::string>& words) {
    std::size_t from = 0;
    for (std::size_t w = 0; w + 1 < words.size(); ++w) {
        const std::size_t at = folded.find(words[w], from);
        if (at == std::string_view::npos) return false;
        from = at + words[w].size();
    }
    if (words.empty()) return true;
    const std::string& last = words.back();
    // A match ending after lastComponentStart lies inside the last component,
    // slashes of the word itself aside, because that component has none.
    if (lastComponentStart + 1 > last.size()) from = std::max(from, lastComponentStart + 1 - last.size());
    return folded.find(last, from) != std::string_view::npos;
}

}  // namespace

TypedWords::TypedWords(std::string_view typed) : words_(foldedWords(typed)) {}

bool TypedWords::foundIn(std::string_view text) const { return matches(paths::caseFolded(text), 0, words_); }

std::string VisitHistory::normalised(std::string_view folder) {
    if (folder.empty() || folder.front() != '/' || folder.find('\0') != std::string_view::npos) return {};
    return paths::stringByAppendingPathComponent(folder, "");
}

double VisitHistory::rank(const VisitedFolder& folder, UnixSeconds now) {
    const UnixSeconds age = now - folder.lastVisit;
    if (age < kHour) return folder.score * 4;
    if (age < kDay) return folder.score * 2;
    if (age < kWeek) return folder.score / 2;
    return folder.score / 4;
}

void VisitHistory::insertNew(VisitedFolder folder) {
    Record record;
    record.folded = paths::caseFolded(folder.path);
    const std::size_t slash = record.folded.rfind('/');
    record.lastComponentStart = slash == std::string::npos ? 0 : slash + 1;
    total_ += folder.score;
    index_.emplace(folder.path, records_.size());
    record.folder = std::move(folder);
    records_.push_back(std::move(record));
}

bool VisitHistory::visit(std::string_view folder, UnixSeconds now) {
    std::string path = normalised(folder);
    if (path.empty()) return false;
    if (auto it = index_.find(path); it != index_.end()) {
        VisitedFolder& known = records_[it->second].folder;
        known.score += 1;
        known.lastVisit = std::max(known.lastVisit, now);
        total_ += 1;
    } else {
        insertNew(VisitedFolder{std::move(path), 1, now});
    }
    ageIfNeeded();
    return true;
}

bool VisitHistory::add(const VisitedFolder& folder) {
    if (!std::isfinite(folder.score) || folder.score <= 0) return false;
    std::string path = normalised(folder.path);
    if (path.empty()) return false;
    if (auto it = index_.find(path); it != index_.end()) {
        VisitedFolder& known = records_[it->second].folder;
        known.score += folder.score;
        known.lastVisit = std::max(known.lastVisit, folder.lastVisit);
        total_ += folder.score;
    } else {
        insertNew(VisitedFolder{std::move(path), folder.score, folder.lastVisit});
    }
    ageIfNeeded();
    return true;
}

void VisitHistory::ageIfNeeded() {
    // The total is a sum of doubles, which depends a little on the order of
    // its terms: a history whose scores add up to the bound itself must not
    // age when it is read back in another order.
    constexpr double kRoundingSlack = 1e-6;
    if (total_ <= kScoreBound + kRoundingSlack) return;
    const double factor = 0.9 * kScoreBound / total_;
    // Backwards, so that removeAt() moves an entry already scaled into the gap.
    for (std::size_t i = records_.size(); i-- > 0;) {
        double& score = records_[i].folder.score;
        // Rounded so that the file keeps short numbers.
        score = std::round(score * factor * 1000) / 1000;
        if (score < 1) removeAt(i);
    }
    total_ = 0;
    for (const Record& record : records_) total_ += record.folder.score;
}

void VisitHistory::removeAt(std::size_t index) {
    total_ -= records_[index].folder.score;
    index_.erase(records_[index].folder.path);
    if (index + 1 != records_.size()) {
        records_[index] = std::move(records_.back());
        index_[records_[index].folder.path] = index;
    }
    records_.pop_back();
}

bool VisitHistory::remove(std::string_view folder) {
    const auto it = index_.find(normalised(folder));
    if (it == index_.end()) return false;
    removeAt(it->second);
    if (records_.empty()) total_ = 0;  // no rounding left behind
    return true;
}

void VisitHistory::clear() {
    records_.clear();
    index_.clear();
    total_ = 0;
}

const VisitedFolder* VisitHistory::find(std::string_view folder) const {
    const auto it = index_.find(normalised(folder));
    return it == index_.end() ? nullptr : &records_[it->second].folder;
}

std::vector<VisitedFolder> VisitHistory::folders() const {
    std::vector<VisitedFolder> out;
    out.reserve(records_.size());
    for (const Record& record : records_) out.push_back(record.folder);
    return out;
}

std::vector<RankedFolder> VisitHistory::query(std::string_view typed, UnixSeconds now, std::size_t limit) const {
    if (limit == 0) return {};
    const std::vector<std::string> words = foldedWords(typed);
    struct Hit {
        double rank;
        const VisitedFolder* folder;
    };
    std::vector<Hit> hits;
    for (const Record& record : records_) {
        if (matches(record.folded, record.lastComponentStart, words)) {
            hits.push_back(Hit{rank(record.folder, now), &record.folder});
        }
    }
    const auto better = [](const Hit& a, const Hit& b) {
        if (a.rank != b.rank) return a.rank > b.rank;
        if (a.folder->lastVisit != b.folder->lastVisit) return a.folder->lastVisit > b.folder->lastVisit;
        return a.folder->path < b.folder->path;
    };
    const std::size_t kept = std::min(limit, hits.size());
    std::partial_sort(hits.begin(), hits.begin() + static_cast<std::ptrdiff_t>(kept), hits.end(), better);
    std::vector<RankedFolder> out;
    out.reserve(kept);
    for (std::size_t i = 0; i < kept; ++i) out.push_back(RankedFolder{hits[i].folder->path, hits[i].rank});
    return out;
}

// ------------------------------------------------------------ the file form

namespace {

constexpr std::string_view kHeader =
    "# Visited folders, one per line: score, last visit (Unix seconds) and folder, separated by tabs.\n"
    "# In folder names \\n stands for a line break and \\\\ for a backslash.\n";

void appendEscaped(std::string& out, std::string_view path) {
    for (const char c : path) {
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\\') {
            out += "\\\\";
        } else {
            out += c;
        }
    }
}

bool unescape(std::string_view text, std::string& out) {
    out.clear();
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\0') return false;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i == text.size()) return false;
        if (text[i] == 'n') {
            out += '\n';
        } else if (text[i] == '\\') {
            out += '\\';
        } else {
            return false;
        }
    }
    return true;
}

template <typename Number>
bool parseWhole(std::string_view text, Number& value) {
    if (text.empty()) return false;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc{} && ptr == end;
}

bool parseLine(std::string_view line, VisitedFolder& folder) {
    const std::size_t tab1 = line.find('\t');
    if (tab1 == std::string_view::npos) return false;
    const std::size_t tab2 = line.find('\t', tab1 + 1);
    if (tab2 == std::string_view::npos) return false;
    return parseWhole(line.substr(0, tab1), folder.score) &&
           parseWhole(line.substr(tab1 + 1, tab2 - tab1 - 1), folder.lastVisit) &&
           unescape(line.substr(tab2 + 1), folder.path);
}

}  // namespace

ParsedHistory parseHistory(std::string_view text) {
    ParsedHistory parsed;
    std::size_t lineNumber = 0;
    std::size_t pos = 0;
    VisitedFolder folder;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        ++lineNumber;
        if (line.empty() || line.front() == '#') continue;
        if (!parseLine(line, folder) || !parsed.history.add(folder)) {
            if (parsed.rejectedLines++ == 0) parsed.firstRejectedLine = lineNumber;
        }
    }
    return parsed;
}

std::string serialiseHistory(const VisitHistory& history) {
    std::vector<VisitedFolder> folders = history.folders();
    std::sort(folders.begin(), folders.end(), [](const VisitedFolder& a, const VisitedFolder& b) {
        if (a.score != b.score) return a.score > b.score;
        return a.path < b.path;
    });
    std::string out(kHeader);
    out.reserve(out.size() + folders.size() * 64);
    char number[64];
    for (const VisitedFolder& folder : folders) {
        auto written = std::to_chars(number, number + sizeof number, folder.score);
        out.append(number, written.ptr);
        out += '\t';
        written = std::to_chars(number, number + sizeof number, folder.lastVisit);
        out.append(number, written.ptr);
        out += '\t';
        appendEscaped(out, folder.path);
        out += '\n';
    }
    return out;
}

}  // namespace jorvane::places
