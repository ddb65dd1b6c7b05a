#include "foundation/TextEncoding.h"

#include <algorithm>
#include <array>

namespace quillora {

namespace {

// The characters of Mac OS Roman 0x80 to 0xFF.
// clang-format off
constexpr std::array<char32_t, 128> kMacRomanHigh = {
    0xC4, 0xC5, 0xC7, 0xC9, 0xD1, 0xD6, 0xDC, 0xE1, 0xE0, 0xE2, 0xE4, 0xE3, 0xE5, 0xE7, 0xE9, 0xE8,
    0xEA, 0xEB, 0xED, 0xEC, 0xEE, 0xEF, 0xF1, 0xF3, 0xF2, 0xF4, 0xF6, 0xF5, 0xFA, 0xF9, 0xFB, 0xFC,
    0x2020, 0xB0, 0xA2, 0xA3, 0xA7, 0x2022, 0xB6, 0xDF, 0xAE, 0xA9, 0x2122, 0xB4, 0xA8, 0x2260, 0xC6, 0xD8,
    0x221E, 0xB1, 0x2264, 0x2265, 0xA5, 0xB5, 0x2202, 0x2211, 0x220F, 0x3C0, 0x222B, 0xAA, 0xBA, 0x3A9, 0xE6, 0xF8,
    0xBF, 0xA1, 0xAC, 0x221A, 0x192, 0x2248, 0x2206, 0xAB, 0xBB, 0x2026, 0xA0, 0xC0, 0xC3, 0xD5, 0x152, 0x153,
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0xF7, 0x25CA, 0xFF, 0x178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0xB7, 0x201A, 0x201E, 0x2030, 0xC2, 0xCA, 0xC1, 0xCB, 0xC8, 0xCD, 0xCE, 0xCF, 0xCC, 0xD3, 0xD4,
    0xF8FF, 0xD2, 0xDA, 0xDB, 0xD9, 0x131, 0x2C6, 0x2DC, 0xAF, 0x2D8, 0x2D9, 0x2DA, 0xB8, 0x2DD, 0x2DB, 0x2C7,
};
// clang-format on

constexpr char32_t kReplacement = 0xFFFD;
// Outside Unicode, so that a U+FFFD written in the text is a character like any other.
constexpr char32_t kMalformed = 0xFFFFFFFF;

// One code point from text at i (advancing i); kMalformed for a bad sequence.
char32_t nextCodePointOrMalformed(std::string_view text, std::size_t& i)
{
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80) return lead;
    int extra = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 && lead < 0xE0 ? 1 : -1;
    if (extra < 0) return kMalformed;
    char32_t value = lead & (0x3F >> extra);
    for (int k = 0; k < extra; ++k) {
        if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return kMalformed;
        value = (value << 6) | (static_cast<unsigned char>(text[i++]) & 0x3F);
    }
    const bool overlong = (extra == 2 && value < 0x800) || (extra == 3 && value < 0x10000);
    if (overlong || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return kMalformed;
    return value;
}

}  // namespace

std::optional<char32_t> nextCodePoint(std::string_view text, std::size_t& i)
{
    const char32_t c = nextCodePointOrMalformed(text, i);
    if (c == kMalformed) return std::nullopt;
    return c;
}

std::optional<std::u32string> decodeUTF8(std::string_view text)
{
    std::u32string decoded;
    for (std::size_t i = 0; i < text.size();) {
        const char32_t c = nextCodePointOrMalformed(text, i);
        if (c == kMalformed) return std::nullopt;
        decoded.push_back(c);
    }
    return decoded;
}

std::optional<Bytes> macRomanFromUTF8(std::string_view text, bool lossy)
{
    const auto decoded = decodeUTF8(text);
    if (!decoded) return std::nullopt;
    Bytes bytes;
    for (char32_t c : *decoded) {
        if (c < 0x80) {
            bytes.push_back(static_cast<std::uint8_t>(c));
            continue;
        }
        auto found = std::find(kMacRomanHigh.begin(), kMacRomanHigh.end(), c);
        if (found == kMacRomanHigh.end() && !lossy) return std::nullopt;
        bytes.push_back(
            found == kMacRomanHigh.end() ? '?' : static_cast<std::uint8_t>(0x80 + (found - kMacRomanHigh.begin())));
    }
    return bytes;
}

std::string utf8FromMacRoman(std::span<const std::uint8_t> bytes)
{
    std::u32string points;
    for (std::uint8_t byte : bytes) points.push_back(byte < 0x80 ? byte : kMacRomanHigh[byte - 0x80]);
    return utf8FromCodePoints(points);
}

std::string utf8FromCodePoints(std::u32string_view points)
{
    std::string text;
    for (char32_t c : points) {
        if (c < 0x80) {
            text += static_cast<char>(c);
        } else if (c < 0x800) {
            text += static_cast<char>(0xC0 | (c >> 6));
            text += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            text += static_cast<char>(0xE0 | (c >> 12));
            text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            text += static_cast<char>(0xF0 | (c >> 18));
            text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return text;
}

std::string utf8FromUTF16BigEndian(std::span<const std::uint8_t> bytes)
{
    std::u32string points;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        char32_t unit = static_cast<char32_t>((bytes[i] << 8) | bytes[i + 1]);
        const bool high = unit >= 0xD800 && unit < 0xDC00;
        const char32_t low = i + 3 < bytes.size() ? static_cast<char32_t>((bytes[i + 2] << 8) | bytes[i + 3]) : 0;
        if (high && low >= 0xDC00 && low <= 0xDFFF) {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            unit = kReplacement;
        }
        points.push_back(unit);
    }
    return utf8FromCodePoints(points);
}

Bytes utf16BigEndian(std::string_view text, bool byteOrderMark)
{
    ByteWriter writer(2 * text.size() + 2);
    if (byteOrderMark) writer.putU16BE(0xFEFF);
    for (std::size_t i = 0; i < text.size();) {
        char32_t c = nextCodePointOrMalformed(text, i);
        if (c == kMalformed) c = '?';
        if (c >= 0x10000) {
            c -= 0x10000;
            writer.putU16BE(static_cast<std::uint16_t>(0xD800 | (c >> 10)));
            writer.putU16BE(static_cast<std::uint16_t>(0xDC00 | (c & 0x3FF)));
        } else {
            writer.putU16BE(static_cast<std::uint16_t>(c));
        }
    }
    return writer.take();
}

// Counted from the bytes: one unit per code point, two for those beyond the
// basic plane (four-byte sequences), without building the text.
std::size_t utf16Length(std::string_view text)
{
    std::size_t units = 0;
    for (unsigned char byte : text) {
        if ((byte & 0xC0) != 0x80) ++units;
        if ((byte & 0xF8) == 0xF0) ++units;
    }
    return units;
}

}  // namespace quillora
