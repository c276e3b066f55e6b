// Fuzzes the visit history's file form and its query.
//
// Any bytes are read as a history file: the parser never fails, what it keeps
// is a valid history (absolute paths without NUL, positive finite scores,
// the total within the bound), and writing it out gives text that reads back
// to the same folders without a rejected line and writes out identically.
// The input's first line is also used as typed text for a query.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "places/VisitHistory.h"

using namespace jorvane::places;

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "property violated: %s\n", what);
    std::abort();
}

#define CHECK(cond)               \
    do {                          \
        if (!(cond)) fail(#cond); \
    } while (0)

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const ParsedHistory parsed = parseHistory(input);
    const VisitHistory& history = parsed.history;

    double total = 0;
    for (const VisitedFolder& folder : history.folders()) {
        CHECK(!folder.path.empty() && folder.path.front() == '/');
        CHECK(folder.path.find('\0') == std::string::npos);
        CHECK(std::isfinite(folder.score) && folder.score > 0);
        total += folder.score;
    }
    CHECK(total <= VisitHistory::kScoreBound + 0.5);
    CHECK(parsed.rejectedLines == 0 || parsed.firstRejectedLine >= 1);

    const std::string text = serialiseHistory(history);
    const ParsedHistory again = parseHistory(text);
    CHECK(again.rejectedLines == 0);
    CHECK(again.history.size() == history.size());
    for (const VisitedFolder& folder : history.folders()) {
        const VisitedFolder* read = again.history.find(folder.path);
        CHECK(read != nullptr);
        CHECK(*read == folder);
    }
    CHECK(serialiseHistory(again.history) == text);

    const std::string_view typed = input.substr(0, std::min(input.find('\n'), input.size()));
    const auto ranked = history.query(typed, 1'800'000'000, 5);
    CHECK(ranked.size() <= 5);
    for (std::size_t i = 1; i < ranked.size(); ++i) CHECK(ranked[i - 1].rank >= ranked[i].rank);
    return 0;
}
