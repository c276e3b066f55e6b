#include "ui/ByteText.h"

#include <algorithm>

namespace jorvane::ui {

namespace {

constexpr char16_t kEscapeBase = 0xDC00;
constexpr char16_t kReplacement = 0xFFFD;

// One step of decoding: the code point at the front of `bytes` and how many
// bytes it takes, or an escaped single byte (escaped = true, size 1).
struct Decoded {
    char32_t codePoint = 0;
    std::size_t size = 1;
    bool escaped = false;
};

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

Decoded decodeOne(std::string_view bytes, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {lead, 1, false};

    std::size_t size = 0;
    char32_t codePoint = 0;
    // The second byte's range excludes overlong forms, encoded surrogates and
    // code points above U+10FFFF, so that each valid text has one encoding.
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
        codePoint = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        codePoint = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        codePoint = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return {lead, 1, true};
    }
    if (at + size > bytes.size()) return {lead, 1, true};
    const unsigned char second = byte(1);
    if (second < low || second > high) return {lead, 1, true};
    codePoint = (codePoint << 6) | (second & 0x3F);
    for (std::size_t i = 2; i < size; ++i) {
        if (!isContinuation(byte(i))) return {lead, 1, true};
        codePoint = (codePoint << 6) | (byte(i) & 0x3F);
    }
    return {codePoint, size, false};
}

// UTF-16 units the decoded step takes in the QString.
qsizetype unitsOf(const Decoded& d) { return !d.escaped && d.codePoint > 0xFFFF ? 2 : 1; }

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

bool isEscapedByte(char16_t unit) { return unit >= kEscapeBase + 0x80 && unit <= kEscapeBase + 0xFF; }

// One step of encoding: the bytes of the character at `at` and how many
// UTF-16 units it takes.
qsizetype encodeOne(const QString& text, qsizetype at, std::string* out) {
    const char16_t unit = text.at(at).unicode();
    if (QChar::isHighSurrogate(unit) && at + 1 < text.size() && QChar::isLowSurrogate(text.at(at + 1).unicode())) {
        if (out) appendUtf8(*out, QChar::surrogateToUcs4(unit, text.at(at + 1).unicode()));
        return 2;
    }
    if (isEscapedByte(unit)) {
        if (out) out->push_back(static_cast<char>(unit - kEscapeBase));
        return 1;
    }
    if (out) appendUtf8(*out, QChar::isSurrogate(unit) ? kReplacement : unit);
    return 1;
}

std::size_t encodedSize(const QString& text, qsizetype at, qsizetype units) {
    const char16_t unit = text.at(at).unicode();
    if (units == 2) return 4;
    if (isEscapedByte(unit)) return 1;
    const char32_t c = QChar::isSurrogate(unit) ? kReplacement : unit;
    return c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
}

}  // namespace

QString fromBytes(std::string_view bytes) {
    QString text;
    text.reserve(static_cast<qsizetype>(bytes.size()));
    for (std::size_t at = 0; at < bytes.size();) {
        const Decoded d = decodeOne(bytes, at);
        if (d.escaped) {
            text.append(QChar(static_cast<char16_t>(kEscapeBase + d.codePoint)));
        } else if (d.codePoint > 0xFFFF) {
            text.append(QChar(QChar::highSurrogate(d.codePoint)));
            text.append(QChar(QChar::lowSurrogate(d.codePoint)));
        } else {
            text.append(QChar(static_cast<char16_t>(d.codePoint)));
        }
        at += d.size;
    }
    return text;
}

std::string toBytes(const QString& text) {
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(text.size()));
    for (qsizetype at = 0; at < text.size();) at += encodeOne(text, at, &bytes);
    return bytes;
}

QString displayString(std::string_view bytes) {
    QString text = fromBytes(bytes);
    for (QChar& c : text) {
        if (isEscapedByte(c.unicode())) c = QChar(kReplacement);
    }
    return text;
}

qsizetype positionForByteOffset(std::string_view bytes, std::size_t offset) {
    qsizetype position = 0;
    for (std::size_t at = 0; at < bytes.size();) {
        const Decoded d = decodeOne(bytes, at);
        if (at + d.size > offset) break;
        at += d.size;
        position += unitsOf(d);
    }
    return position;
}

std::size_t byteOffsetForPosition(const QString& text, qsizetype position) {
    std::size_t offset = 0;
    for (qsizetype at = 0; at < text.size();) {
        const qsizetype units = encodeOne(text, at, nullptr);
        if (at + units > position) break;
        offset += encodedSize(text, at, units);
        at += units;
    }
    return offset;
}

TextPositions positionsForByteRange(std::string_view bytes, TextRange range) {
    // Clipped to the text, without overflowing on huge offsets.
    const std::size_t location = std::min(range.location, bytes.size());
    const std::size_t end = location + std::min(range.length, bytes.size() - location);
    const qsizetype start = positionForByteOffset(bytes, location);
    return {start, positionForByteOffset(bytes, end) - start};
}

TextRange byteRangeForPositions(const QString& text, TextPositions positions) {
    const qsizetype startPosition = std::max<qsizetype>(positions.start, 0);
    const qsizetype endPosition = startPosition + std::max<qsizetype>(positions.length, 0);
    const std::size_t start = byteOffsetForPosition(text, startPosition);
    return {start, byteOffsetForPosition(text, endPosition) - start};
}

}  // namespace jorvane::ui
