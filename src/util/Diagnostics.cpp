#include "util/Diagnostics.h"

#include "util/Dispatch.h"
#include "util/ZTSynchronizedMutableDictionary.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <vector>

namespace jorvane {

namespace {

std::string formatMessage(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

// ------------------------------------------------------------------ sinks

std::mutex sinkMutex;
std::shared_ptr<const KMLogSink> installedSink;

void emit(KMLogStream stream, const std::string& line) {
    std::shared_ptr<const KMLogSink> sink;
    {
        std::lock_guard lock(sinkMutex);
        sink = installedSink;
    }
    if (sink) {
        (*sink)(stream, line);
        return;
    }
    // One write per line, so that lines from several threads do not mix.
    std::FILE* file = stream == KMLogStream::Output ? stdout : stderr;
    std::fwrite(line.data(), 1, line.size(), file);
    std::fflush(file);
}

// ------------------------------------------------------------- thresholds

std::atomic<std::int32_t> globalLogLevel{KMLogLevelAll};
std::mutex domainLevelsMutex;
std::map<std::string, std::int32_t, std::less<>> domainLevels;

std::int32_t thresholdFor(std::string_view domain) {
    {
        std::lock_guard lock(domainLevelsMutex);
        auto it = domainLevels.find(domain);
        if (it != domainLevels.end()) return it->second;
    }
    return globalLogLevel.load();
}

// ----------------------------------------------------------------- timers

std::atomic<bool> timersEnabled{false};
std::atomic<bool> tracingMessageSends{false};

// Never destroyed: other threads may still time or count while the process
// exits.
struct Tables {
    ZTSynchronizedMutableDictionary<std::string, dispatch::TimePoint> starts;
    ZTSynchronizedMutableDictionary<std::string, float> totals;
    ZTSynchronizedMutableDictionary<std::string, std::int32_t> counts;
    ZTSynchronizedMutableDictionary<std::string, long> counters;
};

Tables& tables() {
    static Tables* instance = new Tables();
    return *instance;
}

[[noreturn]] void assertionFailed(const char* what, const std::source_location& where) {
    std::fprintf(stderr, "jorvane: %s failed in %s (%s:%u)\n", what, where.function_name(), where.file_name(),
                 static_cast<unsigned>(where.line()));
    std::fflush(stderr);
    std::abort();
}

}  // namespace

// --------------------------------------------------------------- logging

const char* KMLogLevelName(std::int32_t level) {
    static constexpr const char* names[] = {"ALL", "ERROR", "WARN", "INFO", "DEBUG"};
    if (level < 0 || level >= static_cast<std::int32_t>(std::size(names))) return nullptr;
    return names[level];
}

void KMLog(std::int32_t level, const char* format, ...) {
    const char* name = KMLogLevelName(level);
    if (!name || !format) return;
    va_list args;
    va_start(args, format);
    const std::string message = formatMessage(format, args);
    va_end(args);
    emit(KMLogStream::Output, std::string(name) + ": " + message + "\n");
}

void KMLogInDomain(std::int32_t level, const char* domain, const char* format, ...) {
    const std::string_view domainName = domain ? domain : "";
    if (thresholdFor(domainName) < level) return;
    const char* name = KMLogLevelName(level);
    if (!name || !format) return;
    va_list args;
    va_start(args, format);
    const std::string message = formatMessage(format, args);
    va_end(args);
    emit(KMLogStream::Error, std::string(domainName) + "<" + name + ">: " + message + "\n");
}

void KMSetLogLevel(std::int32_t level) { globalLogLevel.store(level); }

std::int32_t KMLogLevel() { return globalLogLevel.load(); }

void KMSetLogLevelForDomain(const std::string& domain, std::int32_t level) {
    std::lock_guard lock(domainLevelsMutex);
    domainLevels.insert_or_assign(domain, level);
}

std::optional<std::int32_t> KMLogLevelForDomain(const std::string& domain) {
    std::lock_guard lock(domainLevelsMutex);
    auto it = domainLevels.find(domain);
    if (it == domainLevels.end()) return std::nullopt;
    return it->second;
}

void KMClearLogLevelsForDomains() {
    std::lock_guard lock(domainLevelsMutex);
    domainLevels.clear();
}

void KMSetLogSink(KMLogSink sink) {
    auto shared = sink ? std::make_shared<const KMLogSink>(std::move(sink)) : nullptr;
    std::lock_guard lock(sinkMutex);
    installedSink = std::move(shared);
}

// ---------------------------------------------------------------- timing

bool KMTimersEnabled() { return timersEnabled.load(); }

void KMSetTimersEnabled(bool enabled) { timersEnabled.store(enabled); }

void KMStartTimer(const std::string& name) { KMDebugUtils::startTimer(name); }

double KMEndTimer(const std::string& name) { return KMDebugUtils::endTimer(name); }

double KMTimeBlock(const std::function<void()>& block) {
    const dispatch::TimePoint start = dispatch::timeSource().now();
    if (block) block();
    return std::chrono::duration<double>(dispatch::timeSource().now() - start).count();
}

// ------------------------------------------------------------ assertions

void KMAssert(bool condition, std::source_location where) {
    if (!condition) assertionFailed("KMAssert", where);
}

void KMAssertMainThread(std::source_location where) {
    if (!dispatch::isMainThread()) assertionFailed("KMAssertMainThread", where);
}

void KMAssertNotMainThread(std::source_location where) {
    if (dispatch::isMainThread()) assertionFailed("KMAssertNotMainThread", where);
}

// ---------------------------------------------------------- KMDebugUtils

void KMDebugUtils::startTimer(const std::string& name) {
    if (!KMTimersEnabled()) return;
    tables().starts.setObject(dispatch::timeSource().now(), name);
}

void KMDebugUtils::counterIncrement(const std::string& name) {
    Tables& t = tables();
    t.counters.setObject(t.counters.objectForKey(name).value_or(0) + 1, name);
}

double KMDebugUtils::endTimer(const std::string& name) {
    if (!KMTimersEnabled()) return -1.0;
    Tables& t = tables();
    const std::optional<dispatch::TimePoint> start = t.starts.objectForKey(name);
    if (!start) return -1.0;
    const double elapsed = std::chrono::duration<double>(dispatch::timeSource().now() - *start).count();
    t.totals.setObject(static_cast<float>(t.totals.objectForKey(name).value_or(0.0f) + elapsed), name);
    t.counts.setObject(t.counts.objectForKey(name).value_or(0) + 1, name);
    return elapsed;
}

void KMDebugUtils::printStats() {
    // Walks the figures a debug printout would show; the shipped program
    // prints nothing.
    Tables& t = tables();
    for (const std::string& name : t.totals.allKeys()) {
        [[maybe_unused]] const auto total = t.totals.objectForKey(name);
        [[maybe_unused]] const auto count = t.counts.objectForKey(name);
    }
    printEventTapStats();
}

// Nothing taps events on Linux in a way that could be listed here.
void KMDebugUtils::printEventTapStats() {}

nlohmann::json KMDebugUtils::statsDictionary() {
    Tables& t = tables();
    nlohmann::json timers = nlohmann::json::array();
    for (const std::string& name : t.totals.allKeys()) {
        const std::optional<float> total = t.totals.objectForKey(name);
        if (!total) continue;  // reset by another thread meanwhile
        timers.push_back({{"name", name}, {"total", *total}, {"count", t.counts.objectForKey(name).value_or(0)}});
    }
    nlohmann::json counters = nlohmann::json::array();
    for (const std::string& name : t.counters.allKeys()) {
        const std::optional<long> count = t.counters.objectForKey(name);
        if (!count) continue;
        counters.push_back({{"name", name}, {"count", *count}});
    }
    return {{"timers", std::move(timers)}, {"counters", std::move(counters)}};
}

void KMDebugUtils::printStackTrace() {}

void KMDebugUtils::setInstrumentObjcMessageSends(bool enabled) { tracingMessageSends.store(enabled); }

bool KMDebugUtils::instrumentObjcMessageSends() { return tracingMessageSends.load(); }

std::filesystem::path KMDebugUtils::messageSendsTracePath() {
    return "/tmp/msgSends-" + std::to_string(::getpid());
}

void KMDebugUtils::stopInstrumentObjcMessageSendsAndSafeToPath(const std::filesystem::path& path) {
    namespace fs = std::filesystem;
    setInstrumentObjcMessageSends(false);
    const fs::path trace = messageSendsTracePath();
    std::error_code ec;
    // Never replace what is already there (a dangling link counts too).
    if (fs::symlink_status(path, ec).type() != fs::file_type::not_found) return;
    fs::rename(trace, path, ec);
    if (ec == std::errc::cross_device_link) {
        ec.clear();
        if (fs::copy_file(trace, path, fs::copy_options::none, ec)) fs::remove(trace, ec);
    }
}

void KMDebugUtils::reset() {
    Tables& t = tables();
    t.starts.removeAllObjects();
    t.totals.removeAllObjects();
    t.counts.removeAllObjects();
    t.counters.removeAllObjects();
}

}  // namespace jorvane
