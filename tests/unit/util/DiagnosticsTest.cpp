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
        KMSetLogSink([this](KMLogStream stream, std::string_view line) { lines_.emplace_back(stream, line); });
        KMSetLogLevel(0);
        KMClearLogLevelsForDomains();
    }
    void TearDown() override {
        KMClearLogLevelsForDomains();
        KMSetLogLevel(0);
        KMSetLogSink(nullptr);
    }

    std::vector<std::pair<KMLogStream, std::string>> lines_;
};

}  // namespace

TEST_F(Diagnostics, KMLogWritesTheLevelNameAndMessageToOutputWhateverTheThreshold) {
    KMLog(KMLogLevelDebug, "%d files in %s", 2, "/tmp");
    KMLog(KMLogLevelAll, "plain");
    const char* noFormat = nullptr;
    KMLog(KMLogLevelError, noFormat);
    KMLog(5, "a level without a name");
    KMLog(-1, "a level without a name");
    ASSERT_EQ(lines_.size(), 2u);
    EXPECT_EQ(lines_[0], std::make_pair(KMLogStream::Output, std::string("DEBUG: 2 files in /tmp\n")));
    EXPECT_EQ(lines_[1].second, "ALL: plain\n");
}

TEST_F(Diagnostics, KMLogInDomainWritesDomainAndLevelToError) {
    KMSetLogLevel(KMLogLevelWarn);
    KMLogInDomain(KMLogLevelWarn, "bridge", "slow by %.1f s", 1.5);
    KMLogInDomain(KMLogLevelAll, nullptr, "no domain");
    const char* noFormat = nullptr;
    KMLogInDomain(KMLogLevelAll, "bridge", noFormat);
    ASSERT_EQ(lines_.size(), 2u);
    EXPECT_EQ(lines_[0], std::make_pair(KMLogStream::Error, std::string("bridge<WARN>: slow by 1.5 s\n")));
    EXPECT_EQ(lines_[1].second, "<ALL>: no domain\n");
}

TEST_F(Diagnostics, TheDefaultSinksAreStandardOutputAndStandardError) {
    KMSetLogSink(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    KMLog(KMLogLevelInfo, "to %s", "stdout");
    KMLogInDomain(KMLogLevelAll, "d", "to %s", "stderr");
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
    KMSetLogLevel(c.global);
    if (c.domainLevel) KMSetLogLevelForDomain("finder", *c.domainLevel);
    if (c.otherDomainLevel) KMSetLogLevelForDomain("other", *c.otherDomainLevel);
    KMLogInDomain(c.level, "finder", "message");
    EXPECT_EQ(lines_.size(), c.printed ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Diagnostics, LogThreshold,
    testing::Values(
        ThresholdCase{"AllPassesTheDefaultThreshold", 0, {}, {}, 0, true},
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
