// The bytes of one text sample of each text track, and the arithmetic of
// their durations.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "foundation/Bytes.h"
#include "foundation/Value.h"

namespace quillora {

struct ChapterTitle {
    std::string text;
    bool given = false;  // the slide's own title, not a made-up one
};
// A slide's chapter name: its "slideTitle", or "Chapter N" (N counted from 1)
// when that is missing or blank.
ChapterTitle chapterTitle(const Value& transition, std::int64_t position);

// Length (16 bits) and the text, then an 'encd' atom naming the encoding
// when there is one. The text must fit the 16-bit length.
Bytes textSample(std::span<const std::uint8_t> text, std::optional<std::uint32_t> encoding);

// A text sample of the UTF-8 name with its 'encd' atom.
Bytes chapterSample(std::string_view name);
// Length, the UTF-8 title, then an 'href' atom whose end character is the
// URL's byte length and whose URL length byte is that length modulo 256.
Bytes linkSample(std::string_view title, std::string_view url);
// Length and the text, nothing after it.
Bytes notesSample(std::string_view asciiText);

// The text when it is all ASCII; otherwise the encoding gives nothing.
std::string asciiOrEmpty(std::string_view text);

// The hyperlink and notes tracks compute a duration in 16 bits and widen
// it with its sign, so a gap of 40000 becomes 0xFFFF9C40.
std::uint32_t sixteenBitDuration(std::int64_t start, std::int64_t end);

}  // namespace quillora
