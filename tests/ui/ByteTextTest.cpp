// Bytes <-> QString for the address bar: file names that are not UTF-8 must
// reach the core as the bytes they are, and byte ranges must land on the same
// characters in the line edit.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "ui/ByteText.h"

namespace jorvane::ui {
namespace {

using namespace std::string_literals;

std::vector<char16_t> unitsOf(const QString& text) {
    std::vector<char16_t> units;
    for (QChar c : text) units.push_back(c.unicode());
    return units;
}

// Each row decodes to these UTF-16 units and encodes back to the same bytes;
// bytes that are not UTF-8 become lone low surrogates U+DC80..U+DCFF.
TEST(ByteText, decodesToTheseUnitsAndEncodesBackToTheSameBytes) {
    // clang-format off
    const std::pair<std::string, std::vector<char16_t>> rows[] = {
        {"", {}}, {"/usr/bin", {'/', 'u', 's', 'r', '/', 'b', 'i', 'n'}}, {"a\0b"s, {'a', 0, 'b'}},
        {"caf\xC3\xA9", {'c', 'a', 'f', 0xE9}}, {"\xE2\x80\xA6", {0x2026}}, {"\xF0\x9F\x93\x81", {0xD83D, 0xDCC1}},
        {"caf\xE9", {'c', 'a', 'f', 0xDCE9}}, {"\x80x", {0xDC80, 'x'}} /* stray continuation */,
        {"a\xE2\x80", {'a', 0xDCE2, 0xDC80}} /* truncated at the end */, {"\xC3" "a", {0xDCC3, 'a'}} /* cut by ASCII */,
        {"\xC0\xAF", {0xDCC0, 0xDCAF}} /* overlong */, {"\xE0\x80\xAF", {0xDCE0, 0xDC80, 0xDCAF}},
        {"\xED\xB3\xA9", {0xDCED, 0xDCB3, 0xDCA9}} /* an encoded surrogate */,
        {"\xF4\x90\x80\x80", {0xDCF4, 0xDC90, 0xDC80, 0xDC80}} /* above Unicode */, {"\xF5\xFF", {0xDCF5, 0xDCFF}},
        {"\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}}, {"\xFF\xC3\xA9", {0xDCFF, 0xE9}},
    };
    // clang-format on
    for (const auto& [bytes, units] : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        const QString text = fromBytes(bytes);
        EXPECT_EQ(unitsOf(text), units);
        EXPECT_EQ(toBytes(text), bytes);
    }
}

TEST(ByteText, everyByteStringRoundTrips) {
    // Every string of one or two bytes, then random ones with a bias towards
    // the bytes that make and break UTF-8 sequences.
    for (int a = 0; a < 256; ++a) {
        const std::string one(1, static_cast<char>(a));
        ASSERT_EQ(toBytes(fromBytes(one)), one) << a;
        for (int b = 0; b < 256; ++b) {
            const std::string two{static_cast<char>(a), static_cast<char>(b)};
            ASSERT_EQ(toBytes(fromBytes(two)), two) << a << ' ' << b;
        }
    }
    std::mt19937 random(20240611);
    const std::vector<unsigned char> interesting = {0x00, 0x2F, 0x41, 0x7F, 0x80, 0x9F, 0xA0, 0xBF, 0xC0,
                                                    0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 2 ? interesting[random() % interesting.size()] : random() % 256);
        ASSERT_EQ(toBytes(fromBytes(bytes)), bytes);
    }
}

TEST(ByteText, loneSurrogatesNoDecodingProducesEncodeAsReplacement) {
    // A high surrogate without its partner, and low surrogates below the
    // escape range, can only come from elsewhere (a paste); they are not bytes.
    QString text;
    text.append(QChar(0xD800)).append(QChar('a')).append(QChar(0xDC41));
    EXPECT_EQ(toBytes(text),
              "\xEF\xBF\xBD"
              "a\xEF\xBF\xBD");
}

TEST(ByteText, displayStringShowsEscapedBytesAsReplacementCharacters) {
    EXPECT_EQ(displayString("caf\xE9/\xC3\xA9"), QString::fromUtf8("caf\xEF\xBF\xBD/\xC3\xA9"));
}

// "é" is 2 bytes and 1 unit, "…" 3 bytes and 1 unit, the folder emoji 4 bytes
// and 2 units, an escaped byte 1 byte and 1 unit. A byte offset inside a
// character rounds down to its start.
TEST(ByteText, byteOffsetMapsToThisPositionAndBack) {
    struct Row {
        std::string bytes;
        std::size_t byteOffset;
        qsizetype position;
        std::size_t backTo;  // the byte offset the position maps back to
    };
    // clang-format off
    const Row rows[] = {
        {"caf\xC3\xA9", 0, 0, 0}, {"\xC3\xA9x", 2, 1, 2}, {"\xC3\xA9x", 1, 0, 0}, {"a\xE2\x80\xA6" "b", 4, 2, 4},
        {"a\xE2\x80\xA6" "b", 3, 1, 1}, {"\xF0\x9F\x93\x81/", 4, 2, 4}, {"\xF0\x9F\x93\x81/", 2, 0, 0},
        {"\xE9" "a", 1, 1, 1}, {"caf\xE9", 4, 4, 4}, {"ab", 9, 2, 2} /* past the end */,
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes) + " at " + std::to_string(row.byteOffset));
        EXPECT_EQ(positionForByteOffset(row.bytes, row.byteOffset), row.position);
        EXPECT_EQ(byteOffsetForPosition(fromBytes(row.bytes), row.position), row.backTo);
    }
}

TEST(ByteText, positionBetweenSurrogateHalvesRoundsDownToThePair) {
    const QString text = fromBytes("\xF0\x9F\x93\x81/");
    EXPECT_EQ(byteOffsetForPosition(text, 1), 0u);
    EXPECT_EQ(byteOffsetForPosition(text, 99), 5u);
    EXPECT_EQ(byteOffsetForPosition(text, -1), 0u);
}

TEST(ByteText, rangesConvertBothWays) {
    // An inline completion: "/tmp/caf" typed, "\xE9/" (an escaped byte and
    // a slash) added and selected.
    const std::string bytes = "/tmp/caf\xE9/";
    EXPECT_EQ(positionsForByteRange(bytes, {8, 2}), (TextPositions{8, 2}));
    EXPECT_EQ(byteRangeForPositions(fromBytes(bytes), {8, 2}), (TextRange{8, 2}));

    const std::string accented = "/\xC3\xA9t\xC3\xA9/";  // "/été/"
    EXPECT_EQ(positionsForByteRange(accented, {1, 3}), (TextPositions{1, 2}));
    EXPECT_EQ(byteRangeForPositions(fromBytes(accented), {1, 2}), (TextRange{1, 3}));
    EXPECT_EQ(positionsForByteRange(accented, {2, 2}), (TextPositions{1, 2})) << "from the start of the é it begins in";
    EXPECT_EQ(byteRangeForPositions(fromBytes(accented), {4, 0}), (TextRange{6, 0}));

    // Ranges reaching past the text are clipped, huge ones included.
    EXPECT_EQ(positionsForByteRange("abc", {1, 50}), (TextPositions{1, 2}));
    EXPECT_EQ(positionsForByteRange("abc", {static_cast<std::size_t>(-1), static_cast<std::size_t>(-1)}),
              (TextPositions{3, 0}));
    EXPECT_EQ(byteRangeForPositions(QStringLiteral("abc"), {2, 40}), (TextRange{2, 1}));
}

}  // namespace
}  // namespace jorvane::ui
