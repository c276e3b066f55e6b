// The appcast reader and the version order, on whatever a feed server sends.
// The input is split at its first NUL: the feed, then a version to compare.

#include "updater/AppcastUpdater.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

bool readable(std::string_view text, std::size_t cap) {
    if (text.size() > cap) return false;
    for (const unsigned char c : text)
        if (c < 0x20 || c == 0x7f) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string_view feed = input.substr(0, nul);
    const std::string_view other = nul == std::string_view::npos ? std::string_view() : input.substr(nul + 1);

    if (const auto items = jorvane::appcast::parse(feed)) {
        for (const auto& item : *items) {
            if (item.version.empty()) std::abort();
            if (!readable(item.title, jorvane::appcast::kMaxTitleBytes)) std::abort();
            if (!readable(item.shortVersion, jorvane::appcast::kMaxVersionBytes)) std::abort();
        }
        (void)jorvane::appcast::newestAbove(*items, other);
    }
    if (!readable(jorvane::appcast::readableText(feed, 40), 40)) std::abort();

    // The order is antisymmetric and every version equals itself.
    const int ab = jorvane::appcast::compareVersions(feed, other);
    const int ba = jorvane::appcast::compareVersions(other, feed);
    if ((ab < 0) != (ba > 0) || (ab == 0) != (ba == 0)) std::abort();
    if (jorvane::appcast::compareVersions(other, other) != 0) std::abort();
    return 0;
}
