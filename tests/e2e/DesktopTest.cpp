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

void ScreenshotOnFailure::OnTestEnd(const ::testing::TestInfo& info) {
    if (!info.result() || !info.result()->Failed()) return;
    Desktop* desktop = Desktop::sharedIfRunning();
    if (!desktop) return;
    std::string name = std::string(info.test_suite_name()) + "." + info.name();
    for (char& c : name)
        if (c == '/') c = '_';
    const std::filesystem::path file = desktop->outputDir() / (name + ".png");
    if (desktop->screenshot(file)) std::fprintf(stderr, "screenshot: %s\n", file.c_str());
}

}  // namespace jorvane::e2e
