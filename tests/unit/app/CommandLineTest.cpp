// The command line as a table: each option, and what is refused.

#include "app/CommandLine.h"

#include <gtest/gtest.h>

#include "unit/TableSupport.h"

namespace jorvane::commandline {
namespace {

struct Row {
    const char* name;
    std::vector<std::string_view> arguments;
    Action action;
    const char* error = "";
};

class CommandLine : public testing::TestWithParam<Row> {};

TEST_P(CommandLine, Row) {
    const Parsed parsed = parse(GetParam().arguments);
    EXPECT_EQ(parsed.action, GetParam().action);
    EXPECT_EQ(parsed.error, GetParam().error);
}

const Row kRows[] = {
    {"nothing starts the program", {}, Action::run},
    {"help", {"--help"}, Action::help},
    {"help short", {"-h"}, Action::help},
    {"version", {"--version"}, Action::version},
    {"preferences", {"--preferences"}, Action::preferences},
    {"quit", {"--quit"}, Action::quit},
    {"an unknown option", {"--bogus"}, Action::error, "jorvane: unknown option '--bogus'; see jorvane --help"},
    {"an option Qt would have read",
     {"-platform"},
     Action::error,
     "jorvane: unknown option '-platform'; see jorvane --help"},
    {"an argument", {"/tmp"}, Action::error, "jorvane: unexpected argument '/tmp'; see jorvane --help"},
    {"control characters are not printed",
     {"--\x1b[2J"},
     Action::error,
     "jorvane: unknown option '--?[2J'; see jorvane --help"},
    {"two options", {"--help", "--version"}, Action::error, "jorvane: one option at most (got 2); see jorvane --help"},
};

INSTANTIATE_TEST_SUITE_P(Rows, CommandLine, testing::ValuesIn(kRows), test::SentenceName{});

TEST(CommandLineUsage, namesEveryOption) {
    for (const char* option : {"--preferences", "--quit", "--help", "--version"})
        EXPECT_NE(usage().find(option), std::string::npos) << option;
}

}  // namespace
}  // namespace jorvane::commandline
