#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LaunchEnvironment.h"
#include "util/Diagnostics.h"

namespace jorvane::launch {
namespace {

// ---- the display check

struct DisplayRow {
    const char* name;
    SessionVariables session;
    bool reachable;
    // A word the message must hold; empty when the display can be used.
    std::string says;
};

class DisplayCheck : public ::testing::TestWithParam<DisplayRow> {};

TEST_P(DisplayCheck, SaysWhyTheSessionCannotBeUsed) {
    const DisplayRow& row = GetParam();
    std::vector<std::string> tried;
    const std::optional<std::string> problem = displayProblem(row.session, [&](const std::string& display) {
        tried.push_back(display);
        return row.reachable;
    });
    if (row.says.empty()) {
        EXPECT_FALSE(problem) << *problem;
        return;
    }
    ASSERT_TRUE(problem);
    EXPECT_NE(problem->find(row.says), std::string::npos) << *problem;
    EXPECT_EQ(problem->rfind("jorvane: ", 0), 0u) << "one line that names the program";
    if (!row.session.display || row.session.display->empty()) {
        EXPECT_TRUE(tried.empty()) << "nothing to connect to";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DisplayCheck,
    ::testing::Values(
        DisplayRow{"a_reachable_display_is_used", {":0", std::nullopt, "x11"}, true, ""},
        DisplayRow{"a_reachable_display_beside_wayland_is_used", {":0", "wayland-0", "wayland"}, true, ""},
        DisplayRow{"no_display_in_an_x11_session_says_display_is_not_set",
                   {std::nullopt, std::nullopt, "x11"},
                   true,
                   "DISPLAY is not set"},
        DisplayRow{"an_empty_display_counts_as_none", {"", std::nullopt, std::nullopt}, true, "DISPLAY is not set"},
        DisplayRow{"no_display_under_wayland_says_wayland",
                   {std::nullopt, "wayland-0", std::nullopt},
                   true,
                   "Wayland session without X11"},
        DisplayRow{"the_session_type_alone_tells_wayland",
                   {std::nullopt, std::nullopt, "Wayland"},
                   true,
                   "Wayland session without X11"},
        DisplayRow{"an_unreachable_display_is_named", {":42", std::nullopt, "x11"}, false, "\":42\""}),
    [](const ::testing::TestParamInfo<DisplayRow>& row) { return std::string(row.param.name); });

// ---- the log's thresholds

struct LogRow {
    const char* name;
    const char* text;
    std::int32_t level;
    std::vector<std::pair<std::string, std::int32_t>> domains;
    std::size_t errors;
};

class LogSettingsParsing : public ::testing::TestWithParam<LogRow> {};

TEST_P(LogSettingsParsing, ReadsLevelsAndDomains) {
    const LogRow& row = GetParam();
    const LogSettings settings = parseLogSettings(row.text);
    EXPECT_EQ(settings.level, row.level);
    EXPECT_EQ(settings.domains, row.domains);
    EXPECT_EQ(settings.errors.size(), row.errors);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LogSettingsParsing,
    ::testing::Values(
        LogRow{"nothing_keeps_warnings", "", log::Warn, {}, 0},
        LogRow{"debug_turns_everything_on", "debug", log::Debug, {}, 0},
        LogRow{"levels_ignore_case_and_spaces", " Info ", log::Info, {}, 0},
        LogRow{"numbers_are_levels", "1", log::Error, {}, 0},
        LogRow{"a_domain_gets_its_own_level", "error,X11EventTap=debug", log::Error, {{"X11EventTap", log::Debug}}, 0},
        LogRow{"an_unknown_level_is_reported_and_skipped", "loud", log::Warn, {}, 1},
        LogRow{"an_entry_without_a_domain_is_reported", "=debug,info", log::Info, {}, 1},
        LogRow{"empty_entries_are_ignored", "debug,,", log::Debug, {}, 0}),
    [](const ::testing::TestParamInfo<LogRow>& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace jorvane::launch
