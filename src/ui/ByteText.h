#pragma once

// Lossless conversion between the core's text (bytes, usually UTF-8, but file
// names may hold any byte) and QString.
//
// Valid UTF-8 decodes as usual. Every byte that is not part of a valid
// sequence (a stray continuation byte, a truncated or overlong sequence, an
// encoded surrogate, a code point above U+10FFFF, the bytes 0xF5-0xFF)
// becomes the lone surrogate U+DC00 + byte (U+DC80 … U+DCFF) — the
// "surrogate escape" of Python's file-system encoding. Encoding turns those
// surrogates back into their bytes, so toBytes(fromBytes(b)) == b for every
// byte string b. Other lone surrogates (which no decoding produces) encode as
// U+FFFD.
//
// Positions: byte offsets into the bytes and UTF-16 positions into the
// QString map one to one at character boundaries. An offset inside a
// character (inside a multi-byte sequence, between the halves of a surrogate
// pair) rounds down to the start of that character; an offset past the end
// clamps to the end.

#include <QString>

#include <cstddef>
#include <string>
#include <string_view>

#include "addressbar/PathWindowViews.h"

namespace jorvane::ui {

QString fromBytes(std::string_view bytes);
std::string toBytes(const QString& text);

// For showing only (list rows, labels): escaped bytes show as U+FFFD, which
// every font can draw. Not for text that goes back to the core.
QString displayString(std::string_view bytes);

// The UTF-16 position in fromBytes(bytes) of the byte offset.
qsizetype positionForByteOffset(std::string_view bytes, std::size_t offset);
// The byte offset in toBytes(text) of the UTF-16 position.
std::size_t byteOffsetForPosition(const QString& text, qsizetype position);

// A byte range of `bytes` as a UTF-16 range of fromBytes(bytes), and back.
struct TextPositions {
    qsizetype start = 0;
    qsizetype length = 0;
    friend bool operator==(const TextPositions&, const TextPositions&) = default;
};
TextPositions positionsForByteRange(std::string_view bytes, TextRange range);
TextRange byteRangeForPositions(const QString& text, TextPositions positions);

}  // namespace jorvane::ui
