// Login items as XDG autostart entries in a temporary XDG_CONFIG_HOME.
#include "settings/LoginItems.h"

#include <gtest/gtest.h>


#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;

class LoginItems : public testing::Test {
protected:
    fs::path autostart() const { return home_.path() / "autostart"; }
    std::vector<std::string> files() const { return test::filesIn(autostart()); }
    std::string read(const std::string& name) const { return test::readFile(autostart() / name); }
    void write(const std::string& name, const std::string& text) const { home_.file("autostart/" + name, text); }

    test::TempDir home_;
    test::ScopedEnv configHome_{"XDG_CONFIG_HOME", home_.str()};
};

TEST_F(LoginItems, AutostartFolderFollowsXdgConfigHomeOrFallsBackToDotConfig) {
    EXPECT_EQ(LoginItem::autostartDirectory(), autostart());
    const test::ScopedEnv relative("XDG_CONFIG_HOME", "relative/config");
    const test::ScopedEnv home("HOME", home_.str());
    EXPECT_EQ(LoginItem::autostartDirectory(), home_.path() / ".config" / "autostart");
}

TEST_F(LoginItems, InstallWritesOneEntryThatTheSessionStarts) {
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), std::vector<std::string>{"jorvane.desktop"});
    EXPECT_EQ(read("jorvane.desktop"),
              "[Desktop Entry]\nType=Application\nName=jorvane\nExec=/opt/Jorvane/bin/jorvane\nTerminal=false\n"
              "X-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/opt/Jorvane/bin/jorvane"));
}

TEST_F(LoginItems, PathsAreComparedExactly) {
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/jorvane/bin/jorvane"));
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/Jorvane/bin/jorvane/"));
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/Jorvane/bin/../bin/jorvane"));
    LoginItem::RemoveLoginItemWithPath("/opt/jorvane/bin/jorvane");
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/opt/Jorvane/bin/jorvane"));
}

TEST_F(LoginItems, PathsWithSpecialCharactersSurviveTheExecQuotingAndTheValueEscapes) {
    const std::vector<std::string> paths = {"/home/me/My Apps/jorvane", "/tmp/a\"b$c`d\\e/jorvane"};
    for (const std::string& path : paths) {
        LoginItem::InstallLoginItemWithPath(path);
        EXPECT_TRUE(LoginItem::HasLoginItemWithPath(path)) << path;
    }
    EXPECT_NE(read("jorvane.desktop").find("Exec=\"/home/me/My Apps/jorvane\"\n"), std::string::npos);
    EXPECT_NE(read("jorvane-2.desktop").find("Exec=\"/tmp/a\\\\\"b\\\\$c\\\\`d\\\\\\\\e/jorvane\"\n"),
              std::string::npos);
    for (const std::string& path : paths) LoginItem::RemoveLoginItemWithPath(path);
    EXPECT_TRUE(files().empty());
}

TEST_F(LoginItems, RemovalTakesEveryDuplicateAndLeavesOtherProgramsAlone) {
    const std::string other = "[Desktop Entry]\nType=Application\nName=Notes\nExec=/usr/bin/notes --tray %U\n";
    write("notes.desktop", other);
    write("a-copy.desktop", "[Desktop Entry]\nExec=\"/opt/Jorvane/bin/jorvane\" --quiet\n");
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), (std::vector<std::string>{"a-copy.desktop", "notes.desktop"}));  // already an item
    LoginItem::RemoveLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), std::vector<std::string>{"notes.desktop"});
    EXPECT_EQ(read("notes.desktop"), other);
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/usr/bin/notes"));
}

TEST_F(LoginItems, AnEntryWithAHundredMegabyteLineIsSkippedAndTheOthersStillCount) {
    write("huge.desktop", "[Desktop Entry]\nExec=/usr/bin/huge ");
    fs::resize_file(home_.path() / "autostart/huge.desktop", 100u * 1024 * 1024);  // sparse: one line of NULs
    write("notes.desktop", "[Desktop Entry]\nExec=/usr/bin/notes\n");
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/usr/bin/huge"));
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/usr/bin/notes"));
}

TEST_F(LoginItems, RemovalByFileNameMatchesTheProgramsLastComponent) {
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    LoginItem::InstallLoginItemWithPath("/home/me/bin/jorvane");
    LoginItem::InstallLoginItemWithPath("/home/me/bin/jorvane-helper");
    LoginItem::RemoveLoginItemWithFileName("jorvane");
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/Jorvane/bin/jorvane"));
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/home/me/bin/jorvane"));
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/home/me/bin/jorvane-helper"));
}

TEST_F(LoginItems, TheFileNameKeepsPlainCharactersOnly) {
    LoginItem::InstallLoginItemWithPath("/opt/bin/.my prog_v1.2-x");
    EXPECT_EQ(files(), std::vector<std::string>{"my-prog_v1.2-x.desktop"});
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/opt/bin/.my prog_v1.2-x"));
}

TEST_F(LoginItems, ANameTakenByAnotherProgramGetsANumberAndNoTemporaryFilesRemain) {
    write("jorvane.desktop", "[Desktop Entry]\nExec=/usr/bin/something-else\n");
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), (std::vector<std::string>{"jorvane-2.desktop", "jorvane.desktop"}));
    EXPECT_EQ(read("jorvane.desktop"), "[Desktop Entry]\nExec=/usr/bin/something-else\n");
}

TEST_F(LoginItems, EntriesTheSessionWouldNotStartAreNeitherReportedNorRemovedAndNoFolderIsHarmless) {
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/j"));
    LoginItem::RemoveLoginItemWithFileName("j");
    EXPECT_FALSE(fs::exists(autostart()));
    write("hidden.desktop", "[Desktop Entry]\nExec=/opt/j\nHidden=true\n");
    write("j.txt", "[Desktop Entry]\nExec=/opt/j\n");
    EXPECT_FALSE(LoginItem::HasLoginItemWithPath("/opt/j"));
    LoginItem::RemoveLoginItemWithPath("/opt/j");
    EXPECT_EQ(files().size(), 2u);
}

// ---- The entry's text, as the session reads it.

struct EntryRow {
    const char* name;
    const char* text;
    std::optional<std::string> program;
};

class EntryText : public testing::TestWithParam<EntryRow> {};

TEST_P(EntryText, namesTheProgramItStarts) {
    EXPECT_EQ(LoginItem::programOfEntryText(GetParam().text), GetParam().program);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Entries, EntryText, testing::Values(
    EntryRow{"PlainExec", "[Desktop Entry]\nExec=/opt/j --tray %U\n", "/opt/j"},
    EntryRow{"CarriageReturnsAndTrailingBlanksAreTrimmed",
             "[Desktop Entry]\r\nExec=/opt/crlf \t\r\nHidden=false\r\n", "/opt/crlf"},
    EntryRow{"BlanksAroundTheGroupTheKeyAndTheValueAreTrimmed",
             "# by hand\n  [Desktop Entry]\n\t Exec =  /opt/x\n", "/opt/x"},
    EntryRow{"AnEscapedSpaceInTheValueIsASpace", "[Desktop Entry]\nExec=\"/opt/a\\sb\"\n", "/opt/a b"},
    EntryRow{"AQuotedProgramIsUnquoted", "[Desktop Entry]\nExec=\"/opt/q r\" %U\n", "/opt/q r"},
    EntryRow{"TheLastExecWins", "[Desktop Entry]\nExec=/opt/a\nExec=/opt/b\n", "/opt/b"},
    EntryRow{"HiddenIsOff", "[Desktop Entry]\nExec=/opt/j\nHidden=true\n", std::nullopt},
    EntryRow{"AutostartDisabledIsOff", "[Desktop Entry]\nExec=/opt/j\nX-GNOME-Autostart-enabled=false\n", std::nullopt},
    EntryRow{"AnotherGroupsExecDoesNotCount", "[Desktop Entry]\nName=j\n[Desktop Action x]\nExec=/opt/j\n", std::nullopt},
    EntryRow{"AnUnclosedQuoteIsUnreadable", "[Desktop Entry]\nExec=\"/opt/j\n", std::nullopt},
    EntryRow{"AnEmptyExecStartsNothing", "[Desktop Entry]\nExec=\n", std::nullopt},
    EntryRow{"ACommentedExecDoesNotCount", "[Desktop Entry]\n# Exec=/opt/j\n", std::nullopt}),
    [](const testing::TestParamInfo<EntryRow>& row) { return std::string(row.param.name); });
// clang-format on

// ---- The Exec rules on their own.

struct QuoteRow {
    const char* name;
    const char* argument;
    const char* quoted;
};

class ExecQuoting : public testing::TestWithParam<QuoteRow> {};

TEST_P(ExecQuoting, quotesOnlyWhatNeedsIt) {
    EXPECT_EQ(LoginItem::quoteExecArgument(GetParam().argument), GetParam().quoted);
    EXPECT_EQ(LoginItem::splitExecArguments(GetParam().quoted), std::vector<std::string>{GetParam().argument});
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Exec, ExecQuoting, testing::Values(
    QuoteRow{"APlainPathStaysBare", "/opt/j-1.2_x", "/opt/j-1.2_x"},
    QuoteRow{"APercentIsDoubledWithoutQuotes", "/100%/j", "/100%%/j"},
    QuoteRow{"ASpaceIsQuoted", "/My Apps/j", "\"/My Apps/j\""},
    QuoteRow{"QuotesDollarsBackticksAndBackslashesAreEscaped", "/a\"b$c`d\\e", "\"/a\\\"b\\$c\\`d\\\\e\""},
    QuoteRow{"ATabIsQuoted", "/t\tb", "\"/t\tb\""},
    QuoteRow{"ShellCharactersAreQuoted", "/a;b&c|d", "\"/a;b&c|d\""},
    QuoteRow{"ASingleQuoteIsQuotedNotEscaped", "/it's", "\"/it's\""},
    QuoteRow{"AnEmptyArgumentIsTwoQuotes", "", "\"\""}),
    [](const testing::TestParamInfo<QuoteRow>& row) { return std::string(row.param.name); });
// clang-format on

struct ExecRow {
    const char* name;
    const char* exec;
    std::optional<std::vector<std::string>> arguments;
};

class ExecSplitting : public testing::TestWithParam<ExecRow> {};

TEST_P(ExecSplitting, readsTheArguments) {
    EXPECT_EQ(LoginItem::splitExecArguments(GetParam().exec), GetParam().arguments);
}

using Args = std::vector<std::string>;
// clang-format off
INSTANTIATE_TEST_SUITE_P(Exec, ExecSplitting, testing::Values(
    ExecRow{"PlainWords", "prog  --flag %U", Args{"prog", "--flag", "%U"}},
    ExecRow{"QuotedSpaces", "\"/a b/prog\" x", Args{"/a b/prog", "x"}},
    ExecRow{"EscapesInsideQuotes", R"("a\"b\$c\`d\\e")", Args{"a\"b$c`d\\e"}},
    ExecRow{"DoublePercentIsOnePercent", "\"/100%%\" 5%%", Args{"/100%", "5%"}},
    ExecRow{"EmptyQuotesAreAnEmptyArgument", "prog \"\"", Args{"prog", ""}},
    ExecRow{"UnclosedQuoteIsUnreadable", "\"prog", std::nullopt}),
    [](const testing::TestParamInfo<ExecRow>& row) { return std::string(row.param.name); });
// clang-format on

TEST(DesktopValues, EscapesRoundTrip) {
    const std::string value = " lead\\back\nnew\ttab\rret";
    EXPECT_EQ(LoginItem::escapeDesktopValue(value), "\\slead\\\\back\\nnew\\ttab\\rret");
    EXPECT_EQ(LoginItem::unescapeDesktopValue(LoginItem::escapeDesktopValue(value)), value);
    EXPECT_EQ(LoginItem::unescapeDesktopValue("a\\"), "a\\") << "a lone backslash at the end stays";
    EXPECT_EQ(LoginItem::unescapeDesktopValue("\\$x"), "\\$x") << "the Exec quoting's escapes stay";
    for (const char* path : {"/a b", "/x\"y", "/p%q", "/$HOME", "/plain", ""}) {
        const auto split = LoginItem::splitExecArguments(
            LoginItem::unescapeDesktopValue(LoginItem::escapeDesktopValue(LoginItem::quoteExecArgument(path))));
        EXPECT_EQ(split, std::vector<std::string>{path}) << path;
    }
}

}  // namespace
}  // namespace jorvane
