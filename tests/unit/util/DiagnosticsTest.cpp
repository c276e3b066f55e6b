#include "util/Diagnostics.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <vector>

using namespace jorvane;

namespace {

// Captures the log lines and puts the process-wide state back afterwards.
class Diagnostics : public testing::Test {
protected:
    void SetUp() override {
        log::setSink([this](log::Stream stream, std::string_view line) { lines_.emplace_back(stream, line); });
        log::setLevel(0);
        log::clearDomainLevels();
    }
    void TearDown() override {
        log::clearDomainLevels();
        log::setLevel(0);
        log::setSink(nullptr);
    }

    std::vector<std::pair<log::Stream, std::string>> lines_;
};

}  // namespace

TEST_F(Diagnostics, WriteGoesToOutputWhateverTheThresholdAndADomainsMessageToErrorWithItsLevel) {
    log::setLevel(log::Warn);
    const char* noFormat = nullptr;
    log::write(log::Debug, "%d files in %s", 2, "/tmp");
    log::write(log::All, "plain");
    log::write(log::Error, noFormat);
    log::write(5, "a level without a name");
    log::write(-1, "a level without a name");
    log::inDomain(log::Warn, "bridge", "slow by %.1f s", 1.5);
    log::inDomain(log::All, nullptr, "no domain");
    log::inDomain(log::All, "bridge", noFormat);
    const std::vector<std::pair<log::Stream, std::string>> expected = {
        {log::Stream::Output, "DEBUG: 2 files in /tmp\n"},
        {log::Stream::Output, "ALL: plain\n"},
        {log::Stream::Error, "bridge<WARN>: slow by 1.5 s\n"},
        {log::Stream::Error, "<ALL>: no domain\n"}};
    EXPECT_EQ(lines_, expected);
}

TEST_F(Diagnostics, TheDefaultSinksAreStandardOutputAndStandardError) {
    log::setSink(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    log::write(log::Info, "to %s", "stdout");
    log::inDomain(log::All, "d", "to %s", "stderr");
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, "INFO: to stdout\n");
    EXPECT_EQ(err, "d<ALL>: to stderr\n");
}

TEST_F(Diagnostics, TheThresholdsDecideWhetherADomainMessagePrints) {
    // The global level, the levels of the message's domain and of another, the message's level, printed.
    using Level = std::optional<std::int32_t>;
    // clang-format off
    const std::tuple<std::int32_t, Level, Level, std::int32_t, bool> rows[] = {
        {0, {}, {}, 0, true},   {0, {}, {}, 1, false},  {2, {}, {}, 2, true},    {2, {}, {}, 3, false},
        {0, 4, {}, 4, true},    {4, 0, {}, 1, false},   {4, -1, {}, 0, false},   {0, {}, 4, 4, false},
        {10, {}, {}, 5, false},  // above debug: invalid
        {0, {}, {}, -1, false}};
    // clang-format on
    for (const auto& [global, domain, other, level, printed] : rows) {
        lines_.clear();
        log::clearDomainLevels();
        log::setLevel(global);
        if (domain) log::setDomainLevel("folders", *domain);
        if (other) log::setDomainLevel("other", *other);
        log::inDomain(level, "folders", "message");
        EXPECT_EQ(lines_.size(), printed ? 1u : 0u) << global << " " << domain.value_or(99) << " " << level;
    }
}
