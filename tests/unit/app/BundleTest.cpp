#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app/Bundle.h"

namespace jorvane {
namespace {

TEST(Bundle, isTheFolderAboveBinAndHoldsTheProgram) {
    EXPECT_EQ(bundle::bundlePathFor("/opt/jorvane/bin/jorvane"), "/opt/jorvane");
    EXPECT_EQ(bundle::bundlePathFor("/opt/jorvane/bin/../bin/jorvane"), "/opt/jorvane");
    EXPECT_EQ(bundle::bundlePathFor("/home/u/tools/jorvane"), "/home/u/tools");
    EXPECT_EQ(bundle::bundlePathFor(""), "");
    EXPECT_EQ(bundle::executableIn("/opt/jorvane"), "/opt/jorvane/bin/jorvane");
}

TEST(Bundle, sharedPrefixesAreNeverTheProgramsOwn) {
    const char* oldHome = std::getenv("HOME");
    const std::string saved = oldHome ? oldHome : "";
    setenv("HOME", "/home/someone", 1);
    for (const char* shared : {"/", "/usr", "/usr/", "/usr/./local", "/opt", "/home", "/home/someone",
                               "/home/someone/", ""})
        EXPECT_TRUE(bundle::isSharedPrefix(shared)) << shared;
    for (const char* own : {"/opt/jorvane", "/home/someone/Applications/Jorvane", "/usr/lib/jorvane"})
        EXPECT_FALSE(bundle::isSharedPrefix(own)) << own;
    if (oldHome) setenv("HOME", saved.c_str(), 1); else unsetenv("HOME");
}

TEST(Bundle, theApplicationsFoldersAreTheUsersThenOptAndCountByPrefixOrByName) {
    const char* oldHome = std::getenv("HOME");
    const std::string saved = oldHome ? oldHome : "";
    setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(bundle::applicationsDirectoryStrings(),
              (std::vector<std::string>{"/home/someone/Applications", "/opt"}));
    for (const char* in : {"/opt/jorvane", "/home/someone/Applications/Jorvane", "/srv/Applications/J",
                           "/optical/jorvane"})
        EXPECT_TRUE(bundle::isInApplicationsFolder(in)) << in;
    for (const char* out : {"/home/someone/Downloads/Jorvane", "/srv/applications/J", "/srv/MyApplications/J"})
        EXPECT_FALSE(bundle::isInApplicationsFolder(out)) << out;
    unsetenv("HOME");
    EXPECT_EQ(bundle::applicationsDirectoryStrings(), std::vector<std::string>{"/opt"});
    if (oldHome) setenv("HOME", saved.c_str(), 1); else unsetenv("HOME");
}

}  // namespace
}  // namespace jorvane
