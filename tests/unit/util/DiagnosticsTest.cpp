#include "util/Diagnostics.h"

#include "fakes/TestSupport.h"
#include "util/Dispatch.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace jorvane;
using nlohmann::json;

namespace {

// Captures the log lines and puts the process-wide state back afterwards.
class Diagnostics : public testing::Test {
protected:
    void SetUp() override {
        KMSetLogSink([this](KMLogStream stream, std::string_view line) { lines_.emplace_back(stream, line); });
        KMSetLogLevel(0);
        KMClearLogLevelsForDomains();
        KMDebugUtils::reset();
        dispatch::setTimeSource(&clock_);
    }
    void TearDown() override {
        dispatch::setTimeSource(nullptr);
        KMSetTimersEnabled(false);
        KMDebugUtils::reset();
        KMClearLogLevelsForDomains();
        KMSetLogLevel(0);
        KMSetLogSink(nullptr);
    }

    std::vector<std::pair<KMLogStream, std::string>> lines_;
    dispatch::ManualTimeSource clock_;
};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

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

TEST_F(Diagnostics, DisabledTimersMeasureNothing) {
    EXPECT_FALSE(KMTimersEnabled());
    KMStartTimer("load");
    clock_.advance(1s);
    EXPECT_EQ(KMEndTimer("load"), -1.0);
    KMSetTimersEnabled(true);
    EXPECT_EQ(KMEndTimer("load"), -1.0) << "the start was not recorded while disabled";
    EXPECT_EQ(KMDebugUtils::statsDictionary()["timers"], json::array());
}

TEST_F(Diagnostics, EndingATimerTwiceMeasuresFromTheSameStartAndCountsTwice) {
    KMSetTimersEnabled(true);
    KMDebugUtils::startTimer("load");
    clock_.advance(250ms);
    EXPECT_DOUBLE_EQ(KMDebugUtils::endTimer("load"), 0.25);
    clock_.advance(250ms);
    EXPECT_DOUBLE_EQ(KMDebugUtils::endTimer("load"), 0.5);
    EXPECT_EQ(KMDebugUtils::endTimer("never started"), -1.0);
    KMDebugUtils::printStats();  // silent
    EXPECT_EQ(KMDebugUtils::statsDictionary()["timers"],
              json::array({{{"name", "load"}, {"total", 0.75f}, {"count", 2}}}));
    EXPECT_TRUE(lines_.empty());
}

TEST_F(Diagnostics, CountersCountWithTimersOffAndAppearInNameOrder) {
    for (int i = 0; i < 3; ++i) KMDebugUtils::counterIncrement("taps");
    KMDebugUtils::counterIncrement("clicks");
    EXPECT_EQ(KMDebugUtils::statsDictionary(),
              json({{"timers", json::array()},
                    {"counters", json::array({{{"name", "clicks"}, {"count", 1}}, {{"name", "taps"}, {"count", 3}}})}}));
}

TEST_F(Diagnostics, KMTimeBlockMeasuresOnTheDispatchClock) {
    EXPECT_DOUBLE_EQ(KMTimeBlock([&] { clock_.advance(1500ms); }), 1.5);
    EXPECT_EQ(KMTimeBlock(nullptr), 0.0);
}

TEST(DiagnosticsDeathTest, AssertionsAbortNamingTheFailedCheck) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    KMAssert(true);
    KMAssertMainThread();
    EXPECT_DEATH(KMAssert(false), "KMAssert failed");
    EXPECT_DEATH(KMAssertNotMainThread(), "KMAssertNotMainThread failed");
    EXPECT_DEATH(std::thread([] { KMAssertMainThread(); }).join(), "KMAssertMainThread failed");
    std::thread([] { KMAssertNotMainThread(); }).join();
}

class MessageSendsTrace : public testing::Test {
protected:
    void SetUp() override { trace_ = KMDebugUtils::messageSendsTracePath(); }
    void TearDown() override { std::filesystem::remove(trace_); }
    void writeTrace() { std::ofstream(trace_) << "trace"; }

    std::filesystem::path trace_;
    test::TempDir dir_;
};

TEST_F(MessageSendsTrace, StoppingMovesTheTraceFileOfThisProcess) {
    EXPECT_EQ(trace_, "/tmp/msgSends-" + std::to_string(::getpid()));
    KMDebugUtils::setInstrumentObjcMessageSends(true);
    EXPECT_TRUE(KMDebugUtils::instrumentObjcMessageSends());
    writeTrace();
    KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(dir_.path() / "sends.txt");
    EXPECT_FALSE(KMDebugUtils::instrumentObjcMessageSends());
    EXPECT_EQ(readFile(dir_.path() / "sends.txt"), "trace");
    EXPECT_FALSE(std::filesystem::exists(trace_));
}

TEST_F(MessageSendsTrace, AMissingTraceOrAnOccupiedDestinationChangesNothing) {
    KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(dir_.path() / "sends.txt");
    EXPECT_FALSE(std::filesystem::exists(dir_.path() / "sends.txt"));
    writeTrace();
    const auto occupied = dir_.file("kept.txt", "mine");
    KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(occupied);
    EXPECT_EQ(readFile(occupied), "mine");
    KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(dir_.path() / "no/such/folder/sends.txt");
    EXPECT_TRUE(std::filesystem::exists(trace_));
}

TEST_F(MessageSendsTrace, AcrossFileSystemsTheTraceIsCopiedThenRemoved) {
    struct stat tmpInfo {}, shmInfo {};
    if (::stat("/tmp", &tmpInfo) != 0 || ::stat("/dev/shm", &shmInfo) != 0 || tmpInfo.st_dev == shmInfo.st_dev ||
        ::access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "needs /dev/shm on a file system other than /tmp's";
    }
    const std::filesystem::path target = "/dev/shm/jorvane-sends-" + std::to_string(::getpid());
    writeTrace();
    KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(target);
    EXPECT_EQ(readFile(target), "trace");
    EXPECT_FALSE(std::filesystem::exists(trace_));
    std::filesystem::remove(target);
}
