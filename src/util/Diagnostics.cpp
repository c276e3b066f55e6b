#include "util/Diagnostics.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>

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
std::shared_ptr<const log::Sink> installedSink;

void emit(log::Stream stream, const std::string& line) {
    std::shared_ptr<const log::Sink> sink;
    {
        std::lock_guard lock(sinkMutex);
        sink = installedSink;
    }
    if (sink) {
        (*sink)(stream, line);
        return;
    }
    // One write per line, so that lines from several threads do not mix.
    std::FILE* file = stream == log::Stream::Output ? stdout : stderr;
    std::fwrite(line.data(), 1, line.size(), file);
    std::fflush(file);
}

// ------------------------------------------------------------- thresholds

std::atomic<std::int32_t> globalLogLevel{log::All};
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

}  // namespace

// --------------------------------------------------------------- logging

const char* log::levelName(std::int32_t level) {
    static constexpr const char* names[] = {"ALL", "ERROR", "WARN", "INFO", "DEBUG"};
    if (level < 0 || level >= static_cast<std::int32_t>(std::size(names))) return nullptr;
    return names[level];
}

void log::write(std::int32_t level, const char* format, ...) {
    const char* name = log::levelName(level);
    if (!name || !format) return;
    va_list args;
    va_start(args, format);
    const std::string message = formatMessage(format, args);
    va_end(args);
    emit(log::Stream::Output, std::string(name) + ": " + message + "\n");
}

void log::inDomain(std::int32_t level, const char* domain, const char* format, ...) {
    const std::string_view domainName = domain ? domain : "";
    if (thresholdFor(domainName) < level) return;
    const char* name = log::levelName(level);
    if (!name || !format) return;
    va_list args;
    va_start(args, format);
    const std::string message = formatMessage(format, args);
    va_end(args);
    emit(log::Stream::Error, std::string(domainName) + "<" + name + ">: " + message + "\n");
}

void log::setLevel(std::int32_t level) { globalLogLevel.store(level); }

std::int32_t log::level() { return globalLogLevel.load(); }

void log::setDomainLevel(const std::string& domain, std::int32_t level) {
    std::lock_guard lock(domainLevelsMutex);
    domainLevels.insert_or_assign(domain, level);
}

std::optional<std::int32_t> log::domainLevel(const std::string& domain) {
    std::lock_guard lock(domainLevelsMutex);
    auto it = domainLevels.find(domain);
    if (it == domainLevels.end()) return std::nullopt;
    return it->second;
}

void log::clearDomainLevels() {
    std::lock_guard lock(domainLevelsMutex);
    domainLevels.clear();
}

void log::setSink(log::Sink sink) {
    auto shared = sink ? std::make_shared<const log::Sink>(std::move(sink)) : nullptr;
    std::lock_guard lock(sinkMutex);
    installedSink = std::move(shared);
}

}  // namespace jorvane
