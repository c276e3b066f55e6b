#pragma once

// Shared pieces of the Thunar end-to-end tests: one handler catalogue per
// process (libatspi is process-wide), released before the desktop stops, and
// a fixture that opens windows and cleans up after each test.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "platform/thunar/ThunarHandlerCatalogue.h"

namespace jorvane::e2e {

namespace fs = std::filesystem;

inline ThunarHandlerCatalogue& sharedCatalogue() {
    static std::unique_ptr<ThunarHandlerCatalogue> catalogue;
    if (!catalogue) {
        catalogue = std::make_unique<ThunarHandlerCatalogue>();
        Desktop::shared().atStop([] { catalogue.reset(); });
    }
    return *catalogue;
}

class ThunarTest : public DesktopTest {
protected:
    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure()) return;
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(info->test_suite_name()) + "." + info->name();
        for (char& c : name)
            if (c == '/') c = '_';
        dir_ = desktop().dataDir() / name;
        fs::create_directories(dir_);
        catalogue().setFrontWindow(0);
    }

    void TearDown() override {
        if (!startError().empty()) return;
        desktop().closeThunarWindows();
        // New windows open in the view used last.
        desktop().setXfconf("thunar", "/last-view", "string", "ThunarIconView");
    }

    static ThunarHandlerCatalogue& catalogue() { return sharedCatalogue(); }

    // A folder of this test (created with its parents).
    fs::path folder(const std::string& relative) const {
        fs::path path = dir_ / relative;
        fs::create_directories(path);
        return path;
    }
    fs::path file(const std::string& relative) const {
        fs::path path = dir_ / relative;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << relative << '\n';
        return path;
    }

    // Opens a Thunar window on the folder and makes it the catalogue's front window.
    std::uint32_t openWindow(const fs::path& path) {
        std::optional<std::uint32_t> window = desktop().openThunarWindow(path);
        EXPECT_TRUE(window.has_value()) << "no Thunar window for " << path;
        if (!window) return 0;
        catalogue().setFrontWindow(*window);
        return *window;
    }

    std::optional<std::string> call(const std::string& name, const std::vector<std::string>& params = {}) {
        return catalogue().call(name, params);
    }

    fs::path dir_;
};

}  // namespace jorvane::e2e
