#include "DesktopTest.h"

#include <cstdio>
#include <exception>

namespace jorvane::e2e {

namespace {
std::string& errorText() {
    static std::string text;
    return text;
}
}  // namespace

const std::string& DesktopTest::startError() { return errorText(); }

void DesktopTest::SetUpTestSuite() {
    try {
        Desktop::shared();
    } catch (const std::exception& error) {
        errorText() = error.what();
    }
}

void DesktopTest::SetUp() {
    if (!errorText().empty()) GTEST_FAIL() << "the desktop did not start: " << errorText();
}

void ScreenshotOnFailure::OnTestStart(const ::testing::TestInfo& info) {
    taken_ = false;
    name_ = std::string(info.test_suite_name()) + "." + info.name();
    for (char& c : name_)
        if (c == '/') c = '_';
}

void ScreenshotOnFailure::OnTestPartResult(const ::testing::TestPartResult& result) {
    // GoogleTest holds its lock here: nothing may ask it for the current test.
    if (taken_ || !result.failed() || name_.empty()) return;
    Desktop* desktop = Desktop::sharedIfRunning();
    if (!desktop) return;
    taken_ = true;
    const std::filesystem::path file = desktop->outputDir() / (name_ + ".png");
    if (desktop->screenshot(file)) std::fprintf(stderr, "screenshot: %s\n", file.c_str());
}

}  // namespace jorvane::e2e
