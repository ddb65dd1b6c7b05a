// Text conversions the movie path needs: UTF-8 to Mac OS Roman (the host
// platform's default C-string encoding) and to UTF-16 big-endian.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Bytes.h"

namespace quillora {

// The code point of UTF-8 text at i, moving i past it; nothing for a
// malformed sequence (i then stands past the bytes read). A U+FFFD in the text
// is a character like any other.
std::optional<char32_t> nextCodePoint(std::string_view text, std::size_t& i);

// The code points of UTF-8 text; nothing when the text is not UTF-8.
std::optional<std::u32string> decodeUTF8(std::string_view text);

// Mac OS Roman bytes. Without lossy, nothing when a character has no Mac
// OS Roman form; with it, such characters become '?'. Nothing for text that
// is not UTF-8.
std::optional<Bytes> macRomanFromUTF8(std::string_view text, bool lossy);
std::string utf8FromMacRoman(std::span<const std::uint8_t> bytes);

std::string utf8FromCodePoints(std::u32string_view points);
// UTF-16 big-endian text (a byte-order mark is kept as a character); bad
// surrogates become U+FFFD.
std::string utf8FromUTF16BigEndian(std::span<const std::uint8_t> bytes);

// UTF-16 big-endian, with the byte-order mark FE FF first when asked.
// Bytes that are not UTF-8 become '?'.
Bytes utf16BigEndian(std::string_view text, bool byteOrderMark);

// The length in UTF-16 code units, as the host platform counts characters.
std::size_t utf16Length(std::string_view text);

}  // namespace quillora
