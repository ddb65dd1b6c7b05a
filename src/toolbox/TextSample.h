// One sample of a text track as stored in the media data: a 16-bit length,
// that many bytes of text, then optional modifier atoms. Of those, 'href'
// makes the sample a link: start and end character (16 bits each), the URL
// length (8 bits), the URL, and the length of an alternate text (8 bits);
// so does 'htxt', a QT atom container with a wired go-to-URL action. Text
// that starts with the mark FE FF is UTF-16.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quillora::toolbox {

struct TextSample {
    std::string text;
    std::optional<std::string> url;  // set when the sample carries an 'href'
    bool truncated = false;          // a length ran past the end of the sample
};

TextSample parseTextSample(std::span<const std::uint8_t> sample);

}  // namespace quillora::toolbox
