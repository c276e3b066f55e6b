// Thunar's window titles, status texts and labels as the handler catalogue
// reads them. The input is split at its first NUL: the text, then a name.

#include "platform/thunar/ThunarText.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace thunar = jorvane::thunar;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string_view text = input.substr(0, nul);
    const std::string_view name = nul == std::string_view::npos ? std::string_view() : input.substr(nul + 1);

    if (const auto folder = thunar::folderFromTitle(text)) {
        // A folder read from a title is an absolute local path without NUL.
        if (folder->empty() || folder->front() != '/' || folder->find('\0') != std::string::npos) std::abort();
    }
    if (thunar::titleLocation(text).size() > text.size()) std::abort();
    if (const auto decoded = thunar::percentDecode(text); decoded && decoded->size() > text.size()) std::abort();

    const std::string repaired = thunar::makeValidUtf8(text);
    if (!thunar::isValidUtf8(repaired) && text.find('\0') == std::string_view::npos) std::abort();
    if (thunar::isValidUtf8(text) && repaired != text) std::abort();

    (void)thunar::displayedNameMatches(text, name);
    (void)thunar::splitItemList(text);
    (void)thunar::withoutTrailingSlash(text);
    (void)thunar::splitParent(text);
    (void)thunar::stripMnemonic(text);
    const std::vector<std::string> candidates{std::string(name), "a", std::string(text)};
    (void)thunar::selectedNameFromStatus(text, candidates);
    return 0;
}
