#include "updater/AppcastUpdater.h"

#include "util/Diagnostics.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include <utf8proc.h>

namespace jorvane {

namespace {

constexpr const char* kDomain = "update";

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view trim(std::string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
    return s;
}

// Replaces the five predefined entities and numeric character references
// (ASCII only; others are kept as written).
std::string decodeEntities(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size();) {
        if (s[i] == '&') {
            const std::size_t semi = s.find(';', i);
            if (semi != std::string_view::npos && semi - i <= 8) {
                const std::string_view name = s.substr(i + 1, semi - i - 1);
                char c = 0;
                if (name == "amp")
                    c = '&';
                else if (name == "lt")
                    c = '<';
                else if (name == "gt")
                    c = '>';
                else if (name == "quot")
                    c = '"';
                else if (name == "apos")
                    c = '\'';
                else if (name.size() > 1 && name[0] == '#') {
                    long v = 0;
                    bool ok = true;
                    const bool hex = name[1] == 'x' || name[1] == 'X';
                    for (char d : name.substr(hex ? 2 : 1)) {
                        const int digit = isDigit(d) ? d - '0'
                                          : hex && std::isxdigit(static_cast<unsigned char>(d))
                                              ? std::tolower(static_cast<unsigned char>(d)) - 'a' + 10
                                              : -1;
                        if (digit < 0 || v > 0xFFFF) {
                            ok = false;
                            break;
                        }
                        v = v * (hex ? 16 : 10) + digit;
                    }
                    if (ok && v > 0 && v < 0x80) c = static_cast<char>(v);
                }
                if (c) {
                    out += c;
                    i = semi + 1;
                    continue;
                }
            }
        }
        out += s[i++];
    }
    return out;
}

// Element text: CDATA sections verbatim, the rest with entities decoded.
std::string elementText(std::string_view s) {
    std::string out;
    while (!s.empty()) {
        const std::size_t cdata = s.find("<![CDATA[");
        if (cdata == std::string_view::npos) {
            out += decodeEntities(s);
            break;
        }
        out += decodeEntities(s.substr(0, cdata));
        const std::size_t end = s.find("]]>", cdata);
        if (end == std::string_view::npos) {
            out += s.substr(cdata + 9);
            break;
        }
        out += s.substr(cdata + 9, end - cdata - 9);
        s.remove_prefix(end + 3);
    }
    return std::string(trim(out));
}

// Finds the start tag `<name` followed by a delimiter, from `from`.
std::size_t findStartTag(std::string_view xml, std::string_view name, std::size_t from) {
    while (true) {
        const std::size_t at = xml.find(name, from);
        if (at == std::string_view::npos || at == 0) return std::string_view::npos;
        const std::size_t after = at + name.size();
        if (xml[at - 1] == '<' && after < xml.size() && (isSpace(xml[after]) || xml[after] == '>' || xml[after] == '/'))
            return at - 1;
        from = after;
    }
}

// The text of the first <name>...</name> in `xml`; nullopt when absent.
std::optional<std::string> childText(std::string_view xml, std::string_view name) {
    const std::size_t open = findStartTag(xml, name, 0);
    if (open == std::string_view::npos) return std::nullopt;
    const std::size_t gt = xml.find('>', open);
    if (gt == std::string_view::npos) return std::nullopt;
    if (xml[gt - 1] == '/') return std::string{};
    const std::string close = "</" + std::string(name) + ">";
    const std::size_t end = xml.find(close, gt);
    if (end == std::string_view::npos) return std::nullopt;
    return elementText(xml.substr(gt + 1, end - gt - 1));
}

// The value of attribute `name` in the start tag `tag` (quotes ' or ").
std::optional<std::string> attribute(std::string_view tag, std::string_view name) {
    std::size_t from = 0;
    while (true) {
        const std::size_t at = tag.find(name, from);
        if (at == std::string_view::npos) return std::nullopt;
        from = at + name.size();
        if (at == 0 || !isSpace(tag[at - 1])) continue;
        std::size_t i = from;
        while (i < tag.size() && isSpace(tag[i])) ++i;
        if (i >= tag.size() || tag[i] != '=') continue;
        ++i;
        while (i < tag.size() && isSpace(tag[i])) ++i;
        if (i >= tag.size() || (tag[i] != '"' && tag[i] != '\'')) return std::nullopt;
        const char quote = tag[i];
        const std::size_t end = tag.find(quote, i + 1);
        if (end == std::string_view::npos) return std::nullopt;
        return std::string(trim(decodeEntities(tag.substr(i + 1, end - i - 1))));
    }
}

// A version part: its leading digits (without leading zeros) and the rest.
struct Part {
    std::string_view number;
    std::string_view suffix;
};

Part splitPart(std::string_view p) {
    std::size_t digits = 0;
    while (digits < p.size() && isDigit(p[digits])) ++digits;
    std::string_view number = p.substr(0, digits);
    while (number.size() > 1 && number.front() == '0') number.remove_prefix(1);
    if (number == "0") number = {};
    return {number, p.substr(digits)};
}

int compareNumbers(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    const int c = a.compare(b);
    return c < 0 ? -1 : c > 0 ? 1 : 0;
}

// Suffixes: none beats any ("2" > "2rc1"); otherwise letters in byte order,
// then trailing numbers as numbers ("b10" > "b9").
int compareSuffixes(std::string_view a, std::string_view b) {
    if (a.empty() || b.empty()) return a.empty() == b.empty() ? 0 : a.empty() ? 1 : -1;
    auto split = [](std::string_view s) {
        std::size_t end = s.size();
        while (end > 0 && isDigit(s[end - 1])) --end;
        return std::pair{s.substr(0, end), splitPart(s.substr(end)).number};
    };
    const auto [la, na] = split(a);
    const auto [lb, nb] = split(b);
    if (const int c = la.compare(lb); c != 0) return c < 0 ? -1 : 1;
    return compareNumbers(na, nb);
}

std::vector<std::string_view> splitDots(std::string_view v) {
    std::vector<std::string_view> parts;
    v = trim(v);
    while (true) {
        const std::size_t dot = v.find('.');
        parts.push_back(v.substr(0, dot));
        if (dot == std::string_view::npos) break;
        v.remove_prefix(dot + 1);
    }
    return parts;
}

}  // namespace

namespace appcast {

std::string readableText(std::string_view text, std::size_t maxBytes) {
    std::string out;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    std::size_t at = 0;
    bool cut = false;
    while (at < text.size()) {
        utf8proc_int32_t codePoint = -1;
        const utf8proc_ssize_t n =
            utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
        const std::size_t used = n > 0 ? static_cast<std::size_t>(n) : 1;
        const bool control = codePoint >= 0 && (codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0));
        const bool space = codePoint == '\t' || codePoint == '\n' || codePoint == '\r';
        if (control && !space) {
            at += used;
            continue;
        }
        // A byte that starts no valid character is shown as U+FFFD.
        const std::string_view piece = codePoint < 0 ? std::string_view("\xEF\xBF\xBD")
                                       : space       ? std::string_view(" ")
                                                     : text.substr(at, used);
        if (out.size() + piece.size() > maxBytes) {
            cut = true;
            break;
        }
        out += piece;
        at += used;
    }
    if (cut) {
        constexpr std::string_view kEllipsis = "\u2026";
        // Room for the ellipsis, backing up to the start of a character.
        // `out` holds whole characters only: drop one, continuation bytes first.
        while (!out.empty() && out.size() + kEllipsis.size() > maxBytes) {
            while ((static_cast<unsigned char>(out.back()) & 0xC0) == 0x80) out.pop_back();
            out.pop_back();
        }
        out += kEllipsis;
    }
    return out;
}

std::optional<std::vector<AppcastItem>> parse(std::string_view xml, std::string* error) {
    auto fail = [&](const char* why) -> std::optional<std::vector<AppcastItem>> {
        if (error) *error = why;
        return std::nullopt;
    };
    if (findStartTag(xml, "rss", 0) == std::string_view::npos) return fail("no <rss> element");
    if (findStartTag(xml, "channel", 0) == std::string_view::npos) return fail("no <channel> element");
    std::vector<AppcastItem> items;
    std::size_t from = 0;
    while (true) {
        const std::size_t open = findStartTag(xml, "item", from);
        if (open == std::string_view::npos) break;
        const std::size_t end = xml.find("</item>", open);
        if (end == std::string_view::npos) return fail("an <item> is not closed");
        const std::string_view body = xml.substr(open, end - open);
        from = end + 7;

        AppcastItem item;
        item.title = readableText(childText(body, "title").value_or(""), kMaxTitleBytes);
        std::optional<std::string> version, shortVersion, url;
        if (const std::size_t enc = findStartTag(body, "enclosure", 0); enc != std::string_view::npos) {
            const std::size_t gt = body.find('>', enc);
            if (gt == std::string_view::npos) return fail("an <enclosure> is not closed");
            const std::string_view tag = body.substr(enc, gt - enc);
            version = attribute(tag, "sparkle:version");
            shortVersion = attribute(tag, "sparkle:shortVersionString");
            url = attribute(tag, "url");
        }
        if (!version || version->empty()) version = childText(body, "sparkle:version");
        if (!shortVersion || shortVersion->empty()) shortVersion = childText(body, "sparkle:shortVersionString");
        if (!url || url->empty()) url = childText(body, "link");
        if (!version || version->empty()) continue;
        item.version = *version;
        item.shortVersion =
            readableText(shortVersion && !shortVersion->empty() ? *shortVersion : *version, kMaxVersionBytes);
        item.url = url.value_or("");
        items.push_back(std::move(item));
    }
    return items;
}

int compareVersions(std::string_view a, std::string_view b) {
    const auto pa = splitDots(a);
    const auto pb = splitDots(b);
    for (std::size_t i = 0; i < std::max(pa.size(), pb.size()); ++i) {
        const Part x = splitPart(i < pa.size() ? pa[i] : std::string_view{});
        const Part y = splitPart(i < pb.size() ? pb[i] : std::string_view{});
        if (const int c = compareNumbers(x.number, y.number); c != 0) return c;
        if (const int c = compareSuffixes(x.suffix, y.suffix); c != 0) return c;
    }
    return 0;
}

std::optional<AppcastItem> newestAbove(const std::vector<AppcastItem>& items, std::string_view current) {
    const AppcastItem* best = nullptr;
    for (const auto& item : items) {
        if (compareVersions(item.version, current) <= 0) continue;
        if (!best || compareVersions(item.version, best->version) > 0) best = &item;
    }
    if (!best) return std::nullopt;
    return *best;
}

}  // namespace appcast

// Everything the timer, the fetch and its result touch. Result tasks run on
// the main thread and check `alive`, which only the main thread writes.
struct AppcastUpdater::Core : std::enable_shared_from_this<Core> {
    std::shared_ptr<HttpClient> http;
    Options options;
    OfferHandler offer;
    dispatch::Queue* background = nullptr;
    std::unique_ptr<dispatch::TimerSource> timer;
    double interval = 0;
    bool alive = true;
    bool checking = false;
    std::size_t completed = 0;
    std::string lastOffered;

    void armNext() {
        if (alive && interval > 0) timer->setTimer(dispatch::seconds(interval), dispatch::seconds(1.0));
    }

    void check() {
        if (!alive || checking) return;
        if (options.feedUrl.empty()) {
            log::inDomain(log::Debug, kDomain, "No update feed set: not checking");
            return;
        }
        timer->disarm();
        checking = true;
        background->async([self = shared_from_this(), http = http, url = options.feedUrl,
                           timeout = options.fetchTimeout, current = options.currentVersion] {
            std::optional<AppcastItem> found;
            if (auto body = http->get(url, timeout)) {
                std::string error;
                if (auto items = appcast::parse(*body, &error)) {
                    found = appcast::newestAbove(*items, current);
                    log::inDomain(log::Info, kDomain, "Feed %s: %zu item(s), %s", url.c_str(), items->size(),
                                  found ? "an update is available" : "up to date");
                } else {
                    log::inDomain(log::Warn, kDomain, "Feed %s is not a usable appcast: %s", url.c_str(),
                                  error.c_str());
                }
            } else {
                log::inDomain(log::Warn, kDomain, "Could not read the update feed %s", url.c_str());
            }
            dispatch::mainQueue().async([self, found = std::move(found)] { self->finished(found); });
        });
    }

    void finished(const std::optional<AppcastItem>& found) {
        if (!alive) return;
        checking = false;
        ++completed;
        if (found && found->version != lastOffered) {
            lastOffered = found->version;
            if (offer) offer(UpdateOffer{found->version, found->shortVersion, found->url, found->title});
        }
        armNext();
    }
};

AppcastUpdater::AppcastUpdater(std::shared_ptr<HttpClient> http, Options options, OfferHandler offer,
                               dispatch::Queue& background)
    : core_(std::make_shared<Core>()) {
    core_->http = std::move(http);
    core_->options = std::move(options);
    core_->offer = std::move(offer);
    core_->background = &background;
    core_->timer = std::make_unique<dispatch::TimerSource>(dispatch::mainQueue(), [weak = std::weak_ptr(core_)] {
        if (auto core = weak.lock()) core->check();
    });
    if (!core_->http && !core_->options.feedUrl.empty()) {
        log::inDomain(log::Error, kDomain, "No HTTP client: update checks are off");
        core_->options.feedUrl.clear();
    }
}

AppcastUpdater::~AppcastUpdater() {
    core_->alive = false;
    core_->timer->disarm();
}

void AppcastUpdater::setUpdateCheckInterval(double seconds) {
    core_->interval = seconds > 0 ? seconds : 0;
    if (core_->timer->isArmed()) {
        if (core_->interval > 0)
            core_->armNext();
        else
            core_->timer->disarm();
    }
}

void AppcastUpdater::checkForUpdatesInBackground() { core_->check(); }

std::size_t AppcastUpdater::completedCheckCount() const { return core_->completed; }

bool AppcastUpdater::isCheckScheduled() const { return core_->timer->isArmed(); }

}  // namespace jorvane
