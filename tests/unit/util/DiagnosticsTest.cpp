#include "util/Diagnostics.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
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

TEST_F(Diagnostics, LogWriteWritesTheLevelNameAndMessageToOutputWhateverTheThreshold) {
    log::write(log::Debug, "%d files in %s", 2, "/tmp");
    log::write(log::All, "plain");
    const char* noFormat = nullptr;
    log::write(log::Error, noFormat);
    log::write(5, "a level without a name");
    log::write(-1, "a level without a name");
    ASSERT_EQ(lines_.size(), 2u);
    EXPECT_EQ(lines_[0], std::make_pair(log::Stream::Output, std::string("DEBUG: 2 files in /tmp\n")));
    EXPECT_EQ(lines_[1].second, "ALL: plain\n");
}

TEST_F(Diagnostics, LogInDomainWritesDomainAndLevelToError) {
    log::setLevel(log::Warn);
    log::inDomain(log::Warn, "bridge", "slow by %.1f s", 1.5);
    log::inDomain(log::All, nullptr, "no domain");
    const char* noFormat = nullptr;
    log::inDomain(log::All, "bridge", noFormat);
    ASSERT_EQ(lines_.size(), 2u);
    EXPECT_EQ(lines_[0], std::make_pair(log::Stream::Error, std::string("bridge<WARN>: slow by 1.5 s\n")));
    EXPECT_EQ(lines_[1].second, "<ALL>: no domain\n");
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

struct ThresholdCase {
    const char* name;
    std::int32_t global;
    std::optional<std::int32_t> domainLevel;  // for "finder"
    std::optional<std::int32_t> otherDomainLevel;
    std::int32_t level;
    bool printed;
};

class LogThreshold : public Diagnostics, public testing::WithParamInterface<ThresholdCase> {};

TEST_P(LogThreshold, DecidesWhetherADomainMessagePrints) {
    const ThresholdCase& c = GetParam();
    log::setLevel(c.global);
    if (c.domainLevel) log::setDomainLevel("finder", *c.domainLevel);
    if (c.otherDomainLevel) log::setDomainLevel("other", *c.otherDomainLevel);
    log::inDomain(c.level, "finder", "message");
    EXPECT_EQ(lines_.size(), c.printed ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Diagnostics, LogThreshold,
    testing::Values(ThresholdCase{"AllPassesTheDefaultThreshold", 0, {}, {}, 0, true},
                    ThresholdCase{"ErrorIsSilentByDefault", 0, {}, {}, 1, false},
                    ThresholdCase{"ALevelEqualToTheThresholdPasses", 2, {}, {}, 2, true},
                    ThresholdCase{"AMoreVerboseLevelIsSilenced", 2, {}, {}, 3, false},
                    ThresholdCase{"ADomainSetToDebugPrintsDebugUnderAQuietGlobal", 0, 4, {}, 4, true},
                    ThresholdCase{"ADomainSetToAllSilencesErrorUnderAVerboseGlobal", 4, 0, {}, 1, false},
                    ThresholdCase{"ANegativeDomainSilencesEvenAll", 4, -1, {}, 0, false},
                    ThresholdCase{"AnotherDomainsEntryDoesNotApply", 0, {}, 4, 4, false},
                    ThresholdCase{"ALevelAboveDebugIsDroppedAsInvalid", 10, {}, {}, 5, false},
                    ThresholdCase{"ANegativeLevelIsDroppedAsInvalid", 0, {}, {}, -1, false}),
    [](const testing::TestParamInfo<ThresholdCase>& row) { return std::string(row.param.name); });
