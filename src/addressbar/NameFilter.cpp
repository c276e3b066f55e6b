#include "addressbar/NameFilter.h"

#include "util/Paths.h"

namespace jorvane {

NameFilter::NameFilter(std::string_view prefix) : prefix_(prefix) {
    loweredPrefix_.reserve(prefix.size());
    for (const char ch : prefix) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x80) ascii_ = false;
        if (c == '*' || c == '?') hasWildcard_ = true;
        if (c != '*') ++minimumLength_;
        loweredPrefix_.push_back(static_cast<char>(asciiLower(c)));
    }
    const std::string_view lowered = loweredPrefix_;
    for (std::size_t start = 0;;) {
        const std::size_t star = lowered.find('*', start);
        segments_.push_back(lowered.substr(start, star == std::string_view::npos ? star : star - start));
        if (star == std::string_view::npos) break;
        start = star + 1;
    }
}

bool NameFilter::acceptsInToolkit(std::string_view name) const {
    return paths::hasCaseInsensitivePrefix(name, prefix_) || likeInToolkit(name);
}

bool NameFilter::likeInToolkit(std::string_view name) const { return paths::isCaseInsensitiveLike(name, prefix_); }

namespace {

// `segment` (lowered, "?" for any byte) against the bytes at `text`.
inline bool segmentMatchesAt(const char* text, std::string_view segment) {
    for (std::size_t i = 0; i < segment.size(); ++i) {
        const auto s = static_cast<unsigned char>(segment[i]);
        auto c = static_cast<unsigned char>(text[i]);
        if (static_cast<unsigned char>(c - 'A') < 26u) c = static_cast<unsigned char>(c + ('a' - 'A'));
        if (s != '?' && s != c) return false;
    }
    return true;
}

}  // namespace

// For an ASCII name the pattern is its "*"-free segments: the first must
// start the name, the last must end it, and each one between is taken at its
// leftmost place after the one before (the leftmost place never loses a
// match, since the "*" after it can absorb anything).
bool NameFilter::matchesAsciiPattern(std::string_view name) const {
    const std::size_t n = name.size();
    const std::string_view first = segments_.front();
    if (segments_.size() == 1) return n == first.size() && segmentMatchesAt(name.data(), first);
    const std::string_view last = segments_.back();
    if (!segmentMatchesAt(name.data() + n - last.size(), last) || !segmentMatchesAt(name.data(), first)) return false;
    std::size_t pos = first.size();
    const std::size_t end = n - last.size();
    for (std::size_t s = 1; s + 1 < segments_.size(); ++s) {
        const std::string_view segment = segments_[s];
        for (;; ++pos) {
            if (pos + segment.size() > end) return false;
            if (segmentMatchesAt(name.data() + pos, segment)) break;
        }
        pos += segment.size();
    }
    return true;
}

}  // namespace jorvane
