#pragma once

// The folders the user has visited, ranked by how often and how recently
// ("frecency"), so that a few typed words can jump to one of them.
//
// Each folder has a score (1 at the first visit, +1 per visit) and the time
// of its last visit. At query time the score is weighted by the age of the
// last visit: × 4 within the last hour, × 2 within the last day, ÷ 2 within
// the last week, ÷ 4 when older. The scores are kept bounded: when their
// total passes kScoreBound, every score is scaled so that the total becomes
// 90% of the bound, and folders whose score falls below 1 are forgotten.
//
// Matching: the typed text is split at whitespace into words; ignoring case
// (Unicode simple case folding, as the completion's matchers), all words must
// appear in the folder's path in the order typed, without overlapping, and
// the last word must match within the last component of the path: "proj rep"
// finds "/home/u/Projects/2026/Reports" but not "/home/u/Reports/Projects".
// Text without words matches every folder.
//
// Time is always passed in (Unix seconds); nothing here reads a clock or the
// file system. Not thread-safe: one owner.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace jorvane::places {

using UnixSeconds = std::int64_t;

struct VisitedFolder {
    std::string path;  // absolute, without doubled or trailing slashes
    double score = 1;
    UnixSeconds lastVisit = 0;
    bool operator==(const VisitedFolder&) const = default;
};

// Typed words, folded once, to look for in several texts: each text holds
// them when they appear in it in order, ignoring case (the matching above
// without its rule for the last word).
class TypedWords {
public:
    explicit TypedWords(std::string_view typed);
    bool empty() const { return words_.empty(); }
    bool foundIn(std::string_view text) const;

private:
    std::vector<std::string> words_;
};

// One answer of a query: the folder and its weighted score.
struct RankedFolder {
    std::string path;
    double rank = 0;
};

class VisitHistory {
public:
    static constexpr double kScoreBound = 10000;

    // Counts one visit of `folder` at `now`. The path must be absolute and hold
    // no NUL byte (else false and nothing changes); doubled and trailing
    // slashes are dropped, so "/a//b/" and "/a/b" are one folder.
    bool visit(std::string_view folder, UnixSeconds now);
    // Adds a folder with a given score and time as it stands (loading a
    // file); a folder already present gets the scores added and the later
    // time. Same path rules as visit(); a score that is not a positive finite
    // number is refused.
    bool add(const VisitedFolder& folder);
    // Forgets one folder (one that no longer exists, say); false when absent.
    bool remove(std::string_view folder);
    // Forgets everything.
    void clear();

    // The best `limit` folders matching `typed`, best rank first; equal ranks
    // go to the more recent visit, then to the path in byte order.
    std::vector<RankedFolder> query(std::string_view typed, UnixSeconds now, std::size_t limit) const;

    // The score weighted by the age of the last visit at `now` (a visit in
    // the future, after the clock was set back, counts as within the hour).
    static double rank(const VisitedFolder& folder, UnixSeconds now);

    std::size_t size() const { return records_.size(); }
    bool empty() const { return records_.empty(); }
    double totalScore() const { return total_; }
    // nullptr when the folder is not known.
    const VisitedFolder* find(std::string_view folder) const;
    // Every folder, in no particular order.
    std::vector<VisitedFolder> folders() const;

private:
    struct Record {
        VisitedFolder folder;
        std::string folded;                  // the path case-folded, for matching
        std::size_t lastComponentStart = 0;  // in `folded`
    };
    static std::string normalised(std::string_view folder);
    void insertNew(VisitedFolder folder);
    void ageIfNeeded();
    void removeAt(std::size_t index);

    std::vector<Record> records_;
    std::unordered_map<std::string, std::size_t> index_;  // path -> position in records_
    double total_ = 0;
};

// ------------------------------------------------------------ the file form
//
// A plain text file, one folder per line, fields separated by tabs:
//     <score> TAB <last visit, Unix seconds> TAB <path>
// The score is a decimal number ("12.5"). Lines starting with "#" and empty
// lines are ignored. The path is the rest of the line, tabs included; paths
// may hold any byte but NUL, so a line break in a path is written "\n" and a
// backslash "\\" (no other escapes exist: a backslash followed by anything
// else makes the line invalid).

struct ParsedHistory {
    VisitHistory history;
    std::size_t rejectedLines = 0;      // lines that are not of the form above
    std::size_t firstRejectedLine = 0;  // its number (1-based), when any
};

// Never fails: lines that cannot be read are counted and skipped. Scores
// over the bound are aged as after a visit.
ParsedHistory parseHistory(std::string_view text);
// A comment line saying what the columns are, then the folders, highest score
// first (equal scores by path). parseHistory(serialiseHistory(h)) gives h back
// exactly (scores are written in the shortest form that reads back the same;
// aging rounds them to 1/1000, so they stay short).
std::string serialiseHistory(const VisitHistory& history);

}  // namespace jorvane::places
