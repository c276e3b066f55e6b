#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LaunchEnvironment.h"
#include "util/Diagnostics.h"

namespace jorvane::launch {
namespace {

// Why the session cannot be used, in one line that names the program.
TEST(DisplayCheck, SaysWhyTheSessionCannotBeUsed) {
    struct Row {
        SessionVariables session;
        bool reachable;
        std::string says;  // a word the message must hold; empty when the display can be used
    };
    // clang-format off
    const Row rows[] = {
        {{":0", std::nullopt, "x11"}, true, ""}, {{":0", "wayland-0", "wayland"}, true, ""},
        {{std::nullopt, std::nullopt, "x11"}, true, "DISPLAY is not set"}, {{"", std::nullopt, std::nullopt}, true, "DISPLAY is not set"},
        {{std::nullopt, "wayland-0", std::nullopt}, true, "Wayland session without X11"},
        {{std::nullopt, std::nullopt, "Wayland"}, true, "Wayland session without X11"},
        {{":42", std::nullopt, "x11"}, false, "\":42\""},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.session.display.value_or("(none)") + " " + row.session.sessionType.value_or("(none)"));
        std::vector<std::string> tried;
        const std::optional<std::string> problem = displayProblem(row.session, [&](const std::string& display) {
            tried.push_back(display);
            return row.reachable;
        });
        if (row.says.empty()) {
            EXPECT_FALSE(problem) << *problem;
            continue;
        }
        ASSERT_TRUE(problem);
        EXPECT_NE(problem->find(row.says), std::string::npos) << *problem;
        EXPECT_EQ(problem->rfind("jorvane: ", 0), 0u) << *problem;
        if (row.session.display.value_or("").empty()) {
            EXPECT_TRUE(tried.empty()) << "nothing to connect to";
        }
    }
}

TEST(LogSettingsParsing, ReadsLevelsAndDomains) {
    struct Row {
        const char* text;
        std::int32_t level;
        std::vector<std::pair<std::string, std::int32_t>> domains;
        std::size_t errors;
    };
    // clang-format off
    const Row rows[] = {
        {"", log::Warn, {}, 0}, {"debug", log::Debug, {}, 0}, {" Info ", log::Info, {}, 0}, {"1", log::Error, {}, 0},
        {"error,X11EventTap=debug", log::Error, {{"X11EventTap", log::Debug}}, 0},
        {"loud", log::Warn, {}, 1} /* reported and skipped */, {"=debug,info", log::Info, {}, 1}, {"debug,,", log::Debug, {}, 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const LogSettings settings = parseLogSettings(row.text);
        EXPECT_EQ(settings.level, row.level);
        EXPECT_EQ(settings.domains, row.domains);
        EXPECT_EQ(settings.errors.size(), row.errors);
    }
}

}  // namespace
}  // namespace jorvane::launch
