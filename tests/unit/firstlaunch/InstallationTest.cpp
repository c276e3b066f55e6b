// Who may move or delete what: the manifest's parser, and a table of the places the program starts from,
// saying for each whether a move is offered and whether uninstall asks.
#include "firstlaunch/Installation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/AboutWindowController.h"
#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeURLOpener.h"
#include "fakes/TestSupport.h"
#include "firstlaunch/SystemInstall.h"
#include "unit/TableSupport.h"

namespace jorvane::installation {
namespace {

namespace fs = std::filesystem;

TEST(ManifestText, IsParsedOrRefused) {
    const std::string head = "jorvane-installed-files 1 ";
    using Files = std::vector<std::string>;
    // The text, its kind (nothing: not a manifest) and its files.
    const std::tuple<std::string, std::optional<Kind>, Files> rows[] = {
        {head + "release\nbin/jorvane\nshare/a b\n", Kind::release, {"bin/jorvane", "share/a b"}},
        {head + "prefix\n\nbin/x\nbin/x", Kind::prefix, {"bin/x"}},  // blank lines, a repeat, no final newline
        {head + "package\nbin/jorvane\n", Kind::package, {"bin/jorvane"}},
        {head + "portable\nbin/jorvane\n", std::nullopt, {}},
        {"jorvane-installed-files 2 release\nbin/jorvane\n", std::nullopt, {}},
        {"jorvane-installed-files 1\nbin/jorvane\n", std::nullopt, {}},
        {head + "release\n", std::nullopt, {}},
        {head + "release\n/home/u/x\n", std::nullopt, {}},
        {head + "release\nshare/../../x\n", std::nullopt, {}},
        {head + "release\n./bin/jorvane\n", std::nullopt, {}},
        {head + "release\nbin//jorvane\n", std::nullopt, {}},
        {head + "release\nbin/\n", std::nullopt, {}},
        {head + std::string("release\nbin/jor\0vane\n", 19), std::nullopt, {}},
        {"", std::nullopt, {}}};
    for (const auto& [text, kind, files] : rows) {
        const std::optional<Manifest> manifest = parseManifest(text);
        ASSERT_EQ(manifest.has_value(), kind.has_value()) << text;
        if (!manifest) continue;
        EXPECT_EQ(manifest->kind, *kind);
        EXPECT_EQ(manifest->files, files);
    }
}

constexpr const char* kFiles = "bin/jorvane\nshare/jorvane/installed-files\nshare/jorvane/defaults.json\n";

struct PlaceRow {
    const char* name;
    fs::path (*make)(const test::TempDir& root);  // makes the place below the root; the program's path
    Kind kind;
    bool moveOffered;
    bool uninstallAsks;  // otherwise a refusal
};

fs::path withManifest(const test::TempDir& root, const std::string& folder, const std::string& kind) {
    root.file(folder + "/share/jorvane/installed-files", "jorvane-installed-files 1 " + kind + "\n" + kFiles);
    root.file(folder + "/share/jorvane/defaults.json", "{}");
    return root.file(folder + "/bin/jorvane", "program");
}

// clang-format off
const PlaceRow kPlaceRows[] = {
    {"an unpacked release in downloads", [](const test::TempDir& r) { return withManifest(r, "home/Downloads/jorvane-1.0", "release"); },
     Kind::release, true, true},
    {"a release already in the applications folder", [](const test::TempDir& r) { return withManifest(r, "opt/jorvane", "release"); },
     Kind::release, false, true},
    {"a build tree", [](const test::TempDir& r) {
         r.file("build/share/jorvane/defaults.json", "{}");
         r.file("build/CMakeCache.txt", "");
         return r.file("build/bin/jorvane", "program");
     },
     Kind::unknown, false, false},
    {"an in-source build in a checkout", [](const test::TempDir& r) {
         r.file("src/.git/HEAD", "ref");
         return r.file("src/bin/jorvane", "program");
     },
     Kind::unknown, false, false},
    {"a prefix install in dot local", [](const test::TempDir& r) {
         r.file("home/.local/bin/other-program", "x");
         return withManifest(r, "home/.local", "prefix");
     },
     Kind::prefix, false, true},
    {"a prefix install in usr local", [](const test::TempDir& r) { return withManifest(r, "usr/local", "prefix"); },
     Kind::prefix, false, true},
    {"a loose program in downloads", [](const test::TempDir& r) { return r.file("home/Downloads/jorvane", "program"); },
     Kind::unknown, false, false},
    {"a package install", [](const test::TempDir& r) { return withManifest(r, "usr", "package"); }, Kind::package,
     false, false},
    {"a release whose manifest names a missing file", [](const test::TempDir& r) {
         const fs::path program = withManifest(r, "home/jorvane", "release");
         fs::remove(r.path() / "home/jorvane/share/jorvane/defaults.json");
         return program;
     },
     Kind::unknown, false, false},
    {"a release whose manifest is a fifo", [](const test::TempDir& r) {
         const fs::path program = r.file("home/jorvane/bin/jorvane", "program");
         r.dir("home/jorvane/share/jorvane");
         mkfifo((r.path() / "home/jorvane/share/jorvane/installed-files").c_str(), 0600);
         return program;
     },
     Kind::unknown, false, false},
};
// clang-format on

class Place : public testing::TestWithParam<PlaceRow> {
protected:
    test::TempDir root_;
    test::FakeAlerts alerts_;
    test::FakeApplication application_;
    FakeURLOpener urls_;
};

TEST_P(Place, Row) {
    const PlaceRow& row = GetParam();
    const fs::path program = row.make(root_);
    const Installation found = installationOf(program);
    EXPECT_EQ(found.kind, row.kind);
    EXPECT_EQ(found.root.empty(), row.kind == Kind::unknown);
    EXPECT_EQ(systemInstall::isOffered(found, (root_.path() / "opt").string()), row.moveOffered);
    AboutWindowController about({alerts_, application_, urls_, program, found, "1.0"});
    EXPECT_EQ(about.uninstallQuestion().has_value(), row.uninstallAsks);
}

INSTANTIATE_TEST_SUITE_P(Rows, Place, testing::ValuesIn(kPlaceRows), test::SentenceName{});

TEST(Uninstall, aReleaseLosesItsFilesAndEmptyFoldersButKeepsWhatTheUserAdded) {
    test::TempDir root;
    const fs::path program = withManifest(root, "opt/jorvane", "release");
    root.file("opt/jorvane/share/notes.txt", "mine");
    const Removal removal = removeInstalledFiles(installationOf(program));
    EXPECT_EQ(removal.removed.size(), 3u);
    EXPECT_TRUE(removal.failed.empty());
    EXPECT_TRUE(fs::exists(root.path() / "opt/jorvane/share/notes.txt"));
    EXPECT_FALSE(fs::exists(root.path() / "opt/jorvane/bin"));
    EXPECT_FALSE(fs::exists(root.path() / "opt/jorvane/share/jorvane"));

    fs::remove(root.path() / "opt/jorvane/share/notes.txt");
    const fs::path again = withManifest(root, "opt/jorvane", "release");
    removeInstalledFiles(installationOf(again));
    EXPECT_FALSE(fs::exists(root.path() / "opt/jorvane")) << "an emptied release folder goes too";
    EXPECT_TRUE(fs::exists(root.path() / "opt"));
}

TEST(Uninstall, aPrefixLosesExactlyItsFilesAndKeepsTheSharedFolders) {
    test::TempDir root;
    const fs::path program = withManifest(root, "home/.local", "prefix");
    root.file("home/.local/bin/other-program", "x");
    root.dir("home/.local/share/keyrings");
    const Installation prefix = installationOf(program);
    ASSERT_EQ(prefix.kind, Kind::prefix);
    test::FakeAlerts alerts;
    test::FakeApplication application;
    FakeURLOpener urls;
    AboutWindowController about({alerts, application, urls, program, prefix, "1.0"});
    const std::optional<AlertSpec> question = about.uninstallQuestion();
    ASSERT_TRUE(question);
    EXPECT_NE(question->informativeText.find((root.path() / "home/.local/bin/jorvane").string()), std::string::npos)
        << "the question names the files";
    alerts.answerNext(kAlertSecondButton);
    about.uninstall();
    EXPECT_FALSE(fs::exists(program));
    EXPECT_FALSE(fs::exists(root.path() / "home/.local/share/jorvane"));
    EXPECT_TRUE(fs::exists(root.path() / "home/.local/bin/other-program"));
    EXPECT_TRUE(fs::exists(root.path() / "home/.local/share/keyrings"));
    EXPECT_TRUE(fs::exists(root.path() / "home/.local/bin")) << "bin/ is every program's";
}

TEST(Uninstall, theQuestionForALongPrefixNamesTwelveFilesAndCountsTheRest) {
    test::TempDir root;
    std::string manifest = "jorvane-installed-files 1 prefix\nbin/jorvane\nshare/jorvane/installed-files\n";
    for (int i = 0; i < 12; ++i) manifest += "share/jorvane/f" + std::to_string(i) + "\n";
    root.file("usr/local/share/jorvane/installed-files", manifest);
    for (int i = 0; i < 12; ++i) root.file("usr/local/share/jorvane/f" + std::to_string(i));
    const fs::path program = root.file("usr/local/bin/jorvane", "program");
    test::FakeAlerts alerts;
    test::FakeApplication application;
    FakeURLOpener urls;
    const std::string text = AboutWindowController({alerts, application, urls, program, installationOf(program), "1.0"})
                                 .uninstallQuestion()
                                 ->informativeText;
    EXPECT_TRUE(text.starts_with("These 14 files Jorvane installed in")) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13) << text;
    EXPECT_TRUE(text.ends_with("\n\u2026 and 2 more")) << text;
}

}  // namespace
}  // namespace jorvane::installation
