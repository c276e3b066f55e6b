// Login items as XDG autostart entries in a temporary XDG_CONFIG_HOME.
#include "settings/LoginItems.h"

#include <gtest/gtest.h>

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class LoginItems : public testing::Test {
protected:
    fs::path autostart() const { return home_.path() / "autostart"; }
    Strings files() const { return test::filesIn(autostart()); }
    std::string read(const std::string& name) const { return test::readFile(autostart() / name); }
    void write(const std::string& name, const std::string& text) const { home_.file("autostart/" + name, text); }
    static bool has(const std::string& path) { return LoginItem::HasLoginItemWithPath(path); }

    test::TempDir home_;
    test::ScopedEnv configHome_{"XDG_CONFIG_HOME", home_.str()};
};

TEST_F(LoginItems, AutostartFolderFollowsXdgConfigHomeOrFallsBackToDotConfig) {
    EXPECT_EQ(LoginItem::autostartDirectory(), autostart());
    const test::ScopedEnv relative("XDG_CONFIG_HOME", "relative/config");
    const test::ScopedEnv home("HOME", home_.str());
    EXPECT_EQ(LoginItem::autostartDirectory(), home_.path() / ".config" / "autostart");
}

TEST_F(LoginItems, InstallWritesOneEntryAndPathsAreComparedExactly) {
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), Strings{"jorvane.desktop"});
    EXPECT_EQ(read("jorvane.desktop"),
              "[Desktop Entry]\nType=Application\nName=jorvane\nExec=/opt/Jorvane/bin/jorvane\nTerminal=false\n"
              "X-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(has("/opt/Jorvane/bin/jorvane"));
    for (const char* other :
         {"/opt/jorvane/bin/jorvane", "/opt/Jorvane/bin/jorvane/", "/opt/Jorvane/bin/../bin/jorvane"})
        EXPECT_FALSE(has(other)) << other;
    LoginItem::RemoveLoginItemWithPath("/opt/jorvane/bin/jorvane");
    EXPECT_TRUE(has("/opt/Jorvane/bin/jorvane"));
}

TEST_F(LoginItems, PathsWithSpecialCharactersSurviveTheExecQuotingAndTheValueEscapes) {
    const Strings paths = {"/home/me/My Apps/jorvane", "/tmp/a\"b$c`d\\e/jorvane"};
    for (const std::string& path : paths) {
        LoginItem::InstallLoginItemWithPath(path);
        EXPECT_TRUE(has(path)) << path;
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
    EXPECT_EQ(files(), (Strings{"a-copy.desktop", "notes.desktop"}));
    LoginItem::RemoveLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), Strings{"notes.desktop"});
    EXPECT_EQ(read("notes.desktop"), other);
    EXPECT_TRUE(has("/usr/bin/notes"));
}

TEST_F(LoginItems, AnEntryWithAHundredMegabyteLineIsSkippedAndTheOthersStillCount) {
    write("huge.desktop", "[Desktop Entry]\nExec=/usr/bin/huge ");
    fs::resize_file(home_.path() / "autostart/huge.desktop", 100u * 1024 * 1024);
    write("notes.desktop", "[Desktop Entry]\nExec=/usr/bin/notes\n");
    EXPECT_FALSE(has("/usr/bin/huge"));
    EXPECT_TRUE(has("/usr/bin/notes"));
}

TEST_F(LoginItems, RemovalByFileNameMatchesTheProgramsLastComponent) {
    for (const char* path : {"/opt/Jorvane/bin/jorvane", "/home/me/bin/jorvane", "/home/me/bin/jorvane-helper"})
        LoginItem::InstallLoginItemWithPath(path);
    LoginItem::RemoveLoginItemWithFileName("jorvane");
    EXPECT_FALSE(has("/opt/Jorvane/bin/jorvane"));
    EXPECT_FALSE(has("/home/me/bin/jorvane"));
    EXPECT_TRUE(has("/home/me/bin/jorvane-helper"));
}

TEST_F(LoginItems, TheFileNameKeepsPlainCharactersAndATakenNameGetsANumber) {
    LoginItem::InstallLoginItemWithPath("/opt/bin/.my prog_v1.2-x");
    EXPECT_EQ(files(), Strings{"my-prog_v1.2-x.desktop"});
    write("jorvane.desktop", "[Desktop Entry]\nExec=/usr/bin/something-else\n");
    LoginItem::InstallLoginItemWithPath("/opt/Jorvane/bin/jorvane");
    EXPECT_EQ(files(), (Strings{"jorvane-2.desktop", "jorvane.desktop", "my-prog_v1.2-x.desktop"}));
    EXPECT_EQ(read("jorvane.desktop"), "[Desktop Entry]\nExec=/usr/bin/something-else\n");
}

TEST_F(LoginItems, EntriesTheSessionWouldNotStartAreNeitherReportedNorRemovedAndNoFolderIsHarmless) {
    EXPECT_FALSE(has("/opt/j"));
    LoginItem::RemoveLoginItemWithFileName("j");
    EXPECT_FALSE(fs::exists(autostart()));
    write("hidden.desktop", "[Desktop Entry]\nExec=/opt/j\nHidden=true\n");
    write("j.txt", "[Desktop Entry]\nExec=/opt/j\n");
    EXPECT_FALSE(has("/opt/j"));
    LoginItem::RemoveLoginItemWithPath("/opt/j");
    EXPECT_EQ(files().size(), 2u);
}

TEST(LoginItemEntry, NamesTheProgramItStarts) {
    const std::pair<const char*, std::optional<std::string>> rows[] = {
        {"[Desktop Entry]\nExec=/opt/j --tray %U\n", "/opt/j"},
        {"[Desktop Entry]\r\nExec=/opt/crlf \t\r\nHidden=false\r\n", "/opt/crlf"},
        {"# by hand\n  [Desktop Entry]\n\t Exec =  /opt/x\n", "/opt/x"},
        {"[Desktop Entry]\nExec=\"/opt/a\\sb\"\n", "/opt/a b"},
        {"[Desktop Entry]\nExec=\"/opt/q r\" %U\n", "/opt/q r"},
        {"[Desktop Entry]\nExec=/opt/a\nExec=/opt/b\n", "/opt/b"},
        {"[Desktop Entry]\nExec=/opt/j\nHidden=true\n", std::nullopt},
        {"[Desktop Entry]\nExec=/opt/j\nX-GNOME-Autostart-enabled=false\n", std::nullopt},
        {"[Desktop Entry]\nName=j\n[Desktop Action x]\nExec=/opt/j\n", std::nullopt},
        {"[Desktop Entry]\nExec=\"/opt/j\n", std::nullopt},
        {"[Desktop Entry]\nExec=\n", std::nullopt},
        {"[Desktop Entry]\n# Exec=/opt/j\n", std::nullopt}};
    for (const auto& [text, program] : rows) EXPECT_EQ(LoginItem::programOfEntryText(text), program) << text;
}

TEST(LoginItemExec, QuotesOnlyWhatNeedsItAndSplitsBack) {
    const std::pair<const char*, const char*> quoted[] = {
        {"/opt/j-1.2_x", "/opt/j-1.2_x"}, {"/100%/j", "/100%%/j"},
        {"/My Apps/j", "\"/My Apps/j\""}, {"/a\"b$c`d\\e", "\"/a\\\"b\\$c\\`d\\\\e\""},
        {"/t\tb", "\"/t\tb\""},           {"/a;b&c|d", "\"/a;b&c|d\""},
        {"/it's", "\"/it's\""},           {"", "\"\""}};
    for (const auto& [argument, exec] : quoted) {
        EXPECT_EQ(LoginItem::quoteExecArgument(argument), exec);
        EXPECT_EQ(LoginItem::splitExecArguments(exec), Strings{argument}) << exec;
    }
    const std::pair<const char*, std::optional<Strings>> split[] = {
        {"prog  --flag %U", Strings{"prog", "--flag", "%U"}},
        {"\"/a b/prog\" x", Strings{"/a b/prog", "x"}},
        {"\"/100%%\" 5%%", Strings{"/100%", "5%"}},
        {"prog \"\"", Strings{"prog", ""}},
        {"\"prog", std::nullopt}};
    for (const auto& [exec, arguments] : split) EXPECT_EQ(LoginItem::splitExecArguments(exec), arguments) << exec;
}

TEST(LoginItemExec, DesktopValueEscapesRoundTrip) {
    const std::string value = " lead\\back\nnew\ttab\rret";
    EXPECT_EQ(LoginItem::escapeDesktopValue(value), "\\slead\\\\back\\nnew\\ttab\\rret");
    EXPECT_EQ(LoginItem::unescapeDesktopValue(LoginItem::escapeDesktopValue(value)), value);
    EXPECT_EQ(LoginItem::unescapeDesktopValue("a\\"), "a\\");
    EXPECT_EQ(LoginItem::unescapeDesktopValue("\\$x"), "\\$x");
}

}  // namespace
}  // namespace jorvane
