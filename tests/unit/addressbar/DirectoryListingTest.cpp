#include "addressbar/DirectoryListing.h"

#include "fakes/TestSupport.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <map>
#include <string>

using jorvane::DirectoryListing;
using jorvane::test::TempDir;

namespace {

std::map<std::string, unsigned char> entries(const DirectoryListing& listing) {
    std::map<std::string, unsigned char> out;
    for (std::size_t i = 0; i < listing.size(); ++i) out.emplace(listing.name(i), listing.type(i));
    return out;
}

TEST(DirectoryListing, ListsEveryNameWithItsTypeButNotTheDotEntries) {
    TempDir tmp;
    tmp.dir("sub");
    tmp.file("file");
    tmp.file("\xFF name");
    tmp.symlink("link", "nowhere");
    const auto listing = DirectoryListing::read(tmp.str());
    ASSERT_TRUE(listing);
    const std::map<std::string, unsigned char> expected = {
        {"sub", DT_DIR}, {"file", DT_REG}, {"\xFF name", DT_REG}, {"link", DT_LNK}};
    EXPECT_EQ(entries(*listing), expected);
    EXPECT_TRUE(listing->searchable());
}

TEST(DirectoryListing, KeepsNamesIntactAcrossManyReads) {
    TempDir tmp;
    std::map<std::string, unsigned char> expected;
    for (int i = 0; i < 1200; ++i) {
        const std::string name = std::to_string(i) + std::string(static_cast<std::size_t>(i % 250), 'n');
        tmp.file(name);
        expected.emplace(name, DT_REG);
    }
    const auto listing = DirectoryListing::read(tmp.str());
    ASSERT_TRUE(listing);
    EXPECT_EQ(entries(*listing), expected);
    EXPECT_GE(listing->bytesHeld(), 1200u * 5);
}

TEST(DirectoryListing, GivesNothingForWhatIsNotAListableDirectory) {
    TempDir tmp;
    tmp.file("file");
    EXPECT_FALSE(DirectoryListing::read(tmp.str() + "/missing"));
    EXPECT_FALSE(DirectoryListing::read(tmp.str() + "/file"));
    EXPECT_FALSE(DirectoryListing::read(""));
    EXPECT_FALSE(DirectoryListing::read(tmp.str() + std::string(1, '\0') + "x"));
    tmp.dir("empty");
    const auto empty = DirectoryListing::read(tmp.str() + "/empty");
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
}

}  // namespace
