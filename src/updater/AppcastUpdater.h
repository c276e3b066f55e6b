#pragma once

// The background update check: every interval it reads an appcast feed (RSS
// whose items carry Sparkle's version attributes or elements) over HTTP on the
// global queue, and offers the newest item to the user, on the main queue,
// when it is newer than the running version.

#include "updater/Updater.h"
#include "util/Dispatch.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane {

// The network port of the update check: one GET, bounded in time. Returns the
// body of a successful (2xx) answer; nullopt for anything else (the client
// logs why).
class HttpClient {
public:
    virtual ~HttpClient() = default;
    virtual std::optional<std::string> get(const std::string& url, double timeoutSeconds) = 0;
};

// One release of the feed.
struct AppcastItem {
    std::string title;
    std::string version;       // sparkle:version, compared with the running version
    std::string shortVersion;  // sparkle:shortVersionString, shown to the user
    std::string url;           // the enclosure's (or the item's link)
};

// What the user is offered.
struct UpdateOffer {
    std::string version;
    std::string shortVersion;
    std::string url;
    std::string title;
    bool operator==(const UpdateOffer&) const = default;
};

namespace appcast {

// Feed texts are shown to the user: these are their caps (in bytes of UTF-8).
constexpr std::size_t kMaxTitleBytes = 256;
constexpr std::size_t kMaxVersionBytes = 64;

// `text` made fit to show as plain text: control characters removed (tabs and
// line breaks become spaces), bytes that are not UTF-8 shown as U+FFFD, and
// at most `maxBytes`, ending in "…" when cut, never inside a character.
std::string readableText(std::string_view text, std::size_t maxBytes);

// Reads the items of a feed. Titles and short versions come out readable and
// capped (readableText). Items without a version are skipped. nullopt
// (with the reason in `error`) when the text is not an RSS feed or an element
// is left open.
std::optional<std::vector<AppcastItem>> parse(std::string_view xml, std::string* error = nullptr);

// Orders dotted versions: numeric parts compare as numbers ("1.10" > "1.9"),
// missing parts count as 0 ("1.2" == "1.2.0"), and a part with a text suffix
// comes before the same number without one ("1.2b3" < "1.2"; "1.2b3" < "1.2b10").
// Returns <0, 0 or >0.
int compareVersions(std::string_view a, std::string_view b);

// The item with the highest version above `current`, if any.
std::optional<AppcastItem> newestAbove(const std::vector<AppcastItem>& items, std::string_view current);

}  // namespace appcast

class AppcastUpdater final : public Updater {
public:
    using OfferHandler = std::function<void(const UpdateOffer&)>;

    struct Options {
        // Empty: no check and no network at all.
        std::string feedUrl;
        // The running program's version (its "version" default).
        std::string currentVersion;
        // Time-out of one fetch (real time: it bounds socket waits).
        double fetchTimeout = 30.0;
    };

    // `offer` runs on the main queue, once per newer version found. Fetches
    // run on `background` (the global queue by default), which must outlive
    // the updater.
    AppcastUpdater(std::shared_ptr<HttpClient> http, Options options, OfferHandler offer,
                   dispatch::Queue& background = dispatch::globalQueue());
    // Disarms the timer; a fetch still running finishes on its own and its
    // result is dropped.
    ~AppcastUpdater() override;
    AppcastUpdater(const AppcastUpdater&) = delete;
    AppcastUpdater& operator=(const AppcastUpdater&) = delete;

    // Main thread. 0 or less: only the checks asked for explicitly.
    void setUpdateCheckInterval(double seconds) override;
    // Main thread. Starts a fetch unless one is already running; the next
    // check is scheduled one interval after this one ends.
    void checkForUpdatesInBackground() override;

    // Main thread; checks that have ended (with or without an offer).
    std::size_t completedCheckCount() const;
    bool isCheckScheduled() const;

private:
    struct Core;
    std::shared_ptr<Core> core_;
};

}  // namespace jorvane
