#pragma once

// The developer's diagnostics: two levelled log functions with thresholds
// per domain and a replaceable sink. Nothing here is shown to the user; the
// shipped program leaves it quiet (log threshold at "ALL").

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace jorvane::log {

// Log levels: a larger number is more verbose. A message of level L passes a
// threshold T when L <= T. Only 0..4 are valid; a message with any other
// level has no name and is dropped, by both log functions.
enum : std::int32_t {
    All = 0,
    Error = 1,
    Warn = 2,
    Info = 3,
    Debug = 4,
};

// "ALL", "ERROR", "WARN", "INFO", "DEBUG"; nullptr for any other level.
const char* levelName(std::int32_t level);

// Writes "<LEVEL>: <message>\n" to standard output, whatever the threshold.
// A null format prints nothing.
void write(std::int32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes "<domain><<LEVEL>>: <message>\n" to standard error when the level
// passes the domain's threshold (set by setDomainLevel), or the global
// one (setLevel) when the domain has none. A domain's threshold overrides
// the global one both ways. A null format prints nothing; a null domain is an
// empty one.
void inDomain(std::int32_t level, const char* domain, const char* format, ...) __attribute__((format(printf, 3, 4)));

// The global threshold, initially 0 (only "ALL" messages pass).
void setLevel(std::int32_t level);
std::int32_t level();
void setDomainLevel(const std::string& domain, std::int32_t level);
std::optional<std::int32_t> domainLevel(const std::string& domain);
// Forgets every domain threshold (tests).
void clearDomainLevels();

// Where the log lines go. The sink receives whole lines, newline included;
// nullptr restores standard output and standard error.
enum class Stream { Output, Error };
using Sink = std::function<void(Stream stream, std::string_view line)>;
void setSink(Sink sink);

}  // namespace jorvane::log
