// Ranking a big folder's names in slices on several threads, while other
// threads rank too (the completion's workers do): same answers, no races.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "places/FuzzyMatch.h"

namespace {

using jorvane::places::FuzzyHit;
using jorvane::places::rankFuzzy;

TEST(FuzzySlices, RankingsOnSeveralThreadsAtOnceAgree) {
    std::vector<std::string> names;
    for (int i = 0; i < 50000; ++i) names.push_back((i % 7 ? "other-" : "Report-") + std::to_string(i) + ".txt");
    const auto indices = [&] {
        std::vector<std::size_t> out;
        for (const FuzzyHit& hit : rankFuzzy(names, "rprt", 20)) out.push_back(hit.index);
        return out;
    };
    const std::vector<std::size_t> expected = indices();
    ASSERT_EQ(expected.size(), 20u);
    std::vector<std::vector<std::size_t>> found(3);
    std::vector<std::thread> threads;
    for (auto& slot : found) threads.emplace_back([&slot, &indices] { slot = indices(); });
    for (std::thread& thread : threads) thread.join();
    for (const auto& slot : found) EXPECT_EQ(slot, expected);
}

}  // namespace
