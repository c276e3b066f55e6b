// The command line through the real program: without a display (help,
// version and errors need none), and beside a running Jorvane (its
// preferences opened, and it quits).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JorvaneTest.h"

namespace jorvane::e2e {
namespace {

struct Row {
    const char* name;
    std::vector<std::string> arguments;
    int exitCode;
    const char* says;  // a part of what it prints
};

class JorvaneCommandLine : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        startProgram();
    }

    static RunResult runWithoutDisplay(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv = {"/usr/bin/env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY", kJorvaneBinary};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return desktop().run(argv);
    }
};

TEST_F(JorvaneCommandLine, answersWithoutADisplay) {
    const Row rows[] = {
        {"help", {"--help"}, 0, "Usage: jorvane"},
        {"version", {"--version"}, 0, "jorvane " JORVANE_VERSION},
        {"an unknown option", {"--bogus"}, 2, "unknown option '--bogus'"},
        {"a start", {}, 2, "no X display"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const RunResult result = runWithoutDisplay(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode);
        EXPECT_NE(result.output.find(row.says), std::string::npos) << result.output;
        if (row.exitCode != 0) {
            EXPECT_EQ(result.output.find('\n'), result.output.size() - 1) << "an error is one line";
        }
    }
}

TEST_F(JorvaneCommandLine, opensTheRunningOnesPreferencesAndQuitsIt) {
    RunResult result = desktop().run({kJorvaneBinary, "--preferences"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_TRUE(driver().waitForElement("About Jorvane", kWait)) << "no preferences window; the log:\n"
                                                                 << driver().log();
    EXPECT_TRUE(driver().running());

    result = desktop().run({kJorvaneBinary, "--quit"});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_TRUE(waitUntil([] { return !driver().running(); }, kWait)) << "it did not quit";
    EXPECT_EQ(driver().log().find("fatal signal"), std::string::npos) << driver().log();

    result = desktop().run({kJorvaneBinary, "--quit"});
    EXPECT_EQ(result.exitCode, 1) << "none runs now";
    EXPECT_NE(result.output.find("not running"), std::string::npos) << result.output;
    // The suite's end expects a running program.
    ASSERT_TRUE(driver().start({})) << driver().why();
}

}  // namespace
}  // namespace jorvane::e2e
