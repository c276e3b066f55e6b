#pragma once

// The developer's diagnostics: two levelled log functions, process-wide
// timers and counters, a block timer, assertions that abort, and the switch
// for message-send tracing. Nothing here is shown to the user; the shipped
// program leaves it quiet (timers off, log threshold at "ALL").

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

namespace jorvane {

// Log levels: a larger number is more verbose. A message of level L passes a
// threshold T when L <= T. Only 0..4 are valid; a message with any other
// level has no name and is dropped, by both log functions.
enum : std::int32_t {
    KMLogLevelAll = 0,
    KMLogLevelError = 1,
    KMLogLevelWarn = 2,
    KMLogLevelInfo = 3,
    KMLogLevelDebug = 4,
};

// "ALL", "ERROR", "WARN", "INFO", "DEBUG"; nullptr for any other level.
const char* KMLogLevelName(std::int32_t level);

// Writes "<LEVEL>: <message>\n" to standard output, whatever the threshold.
// A null format prints nothing.
void KMLog(std::int32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes "<domain><<LEVEL>>: <message>\n" to standard error when the level
// passes the domain's threshold (set by KMSetLogLevelForDomain), or the global
// one (KMSetLogLevel) when the domain has none. A domain's threshold overrides
// the global one both ways. A null format prints nothing; a null domain is an
// empty one.
void KMLogInDomain(std::int32_t level, const char* domain, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The global threshold, initially 0 (only "ALL" messages pass).
void KMSetLogLevel(std::int32_t level);
std::int32_t KMLogLevel();
void KMSetLogLevelForDomain(const std::string& domain, std::int32_t level);
std::optional<std::int32_t> KMLogLevelForDomain(const std::string& domain);
// Forgets every domain threshold (tests).
void KMClearLogLevelsForDomains();

// Where the log lines go. The sink receives whole lines, newline included;
// nullptr restores standard output and standard error.
enum class KMLogStream { Output, Error };
using KMLogSink = std::function<void(KMLogStream stream, std::string_view line)>;
void KMSetLogSink(KMLogSink sink);

// Timers are off until something turns them on; counters always count.
bool KMTimersEnabled();
void KMSetTimersEnabled(bool enabled);

void KMStartTimer(const std::string& name);
double KMEndTimer(const std::string& name);

// Seconds the block took, on the dispatch time source (virtual in tests).
double KMTimeBlock(const std::function<void()>& block);

// Abort the process, after one line on standard error naming the caller,
// when the condition fails.
void KMAssert(bool condition, std::source_location where = std::source_location::current());
void KMAssertMainThread(std::source_location where = std::source_location::current());
void KMAssertNotMainThread(std::source_location where = std::source_location::current());

// Process-wide timers and counters. Every table is synchronized, so any thread
// may use them; a read-modify-write (endTimer, counterIncrement) is not atomic
// as a whole, and two threads bumping one name at once may lose a count.
class KMDebugUtils {
public:
    KMDebugUtils() = delete;

    // Records now as the name's start (when timers are enabled).
    static void startTimer(const std::string& name);
    // Adds 1 to the name's counter.
    static void counterIncrement(const std::string& name);
    // Seconds since the name's start, added to its total and counted; -1.0
    // when timers are disabled or the name was never started. The start stays,
    // so a second call measures from it again and counts again.
    static double endTimer(const std::string& name);

    // Silent: they walk the statistics but print nothing.
    static void printStats();
    static void printEventTapStats();
    // {"timers": [{"name", "total", "count"}...], "counters": [{"name", "count"}...]},
    // each array in name order.
    static nlohmann::json statsDictionary();
    static void printStackTrace();

    // Linux has no runtime message-send tracing: the switch only records its
    // state. The stop call turns it off and moves the trace file, if one
    // exists, to `path` (copying it across file systems); an existing file at
    // `path` is left alone, and failures are ignored.
    static void setInstrumentObjcMessageSends(bool enabled);
    static bool instrumentObjcMessageSends();
    static void stopInstrumentObjcMessageSendsAndSafeToPath(const std::filesystem::path& path);
    // "/tmp/msgSends-<pid>".
    static std::filesystem::path messageSendsTracePath();

    // Forgets every timer and counter (tests).
    static void reset();
};

}  // namespace jorvane
