#include "addressbar/NameFilter.h"

#include "util/Paths.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using jorvane::NameFilter;
namespace paths = jorvane::paths;

namespace {

// The filter answers ASCII names itself; it must agree with the path toolkit
// on every name, including those with characters that fold to ASCII (Kelvin
// sign, long s), accented letters and bytes that are not UTF-8.
TEST(NameFilter, AgreesWithTheToolkitOnRandomNamesAndPrefixes) {
    const std::vector<std::string> pieces = {
        "a",        "B",    "k",   "K", "s", "S", ".", "*", "?", "x", "\xC3\xA9", "\xC3\x89", "\xE2\x84\xAA",
        "\xC5\xBF", "\xE9", "\xFF"};
    std::mt19937 random(20240611);
    const auto make = [&](std::size_t maxPieces) {
        std::string text;
        for (std::size_t n = random() % (maxPieces + 1); n > 0; --n) text += pieces[random() % pieces.size()];
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const std::string prefix = make(4);
        const NameFilter filter(prefix);
        for (int i = 0; i < 20; ++i) {
            const std::string name = make(7);
            const bool expected = prefix.empty() || paths::hasCaseInsensitivePrefix(name, prefix) ||
                                  paths::isCaseInsensitiveLike(name, prefix);
            ASSERT_EQ(filter.accepts(name), expected) << "name '" << name << "' prefix '" << prefix << "'";
        }
    }
}

}  // namespace
