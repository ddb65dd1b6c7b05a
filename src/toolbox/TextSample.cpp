#include "toolbox/TextSample.h"

#include <algorithm>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kHref = fourCC("href");
constexpr std::size_t kHrefFixedBytes = 14;  // header, start, end, URL length, alternate-text length

std::string textOf(std::span<const std::uint8_t> bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

// The URL of an 'href' payload. Its length byte keeps only the low eight
// bits of a long URL's length, so when the atom's size is larger by a whole
// multiple of 256 the size tells the real length.
std::optional<std::string> urlOf(std::span<const std::uint8_t> atom)
{
    if (atom.size() < kHrefFixedBytes) return std::nullopt;
    ByteReader reader(atom.subspan(12));
    std::size_t length = reader.getU8();
    const std::size_t room = atom.size() - kHrefFixedBytes;
    if (room > length && (room - length) % 256 == 0) length = room;
    return textOf(reader.getBytes(std::min(length, reader.remaining())));
}

}  // namespace

TextSample parseTextSample(std::span<const std::uint8_t> sample)
{
    TextSample parsed;
    if (sample.size() < 2) {
        parsed.truncated = !sample.empty();
        return parsed;
    }
    ByteReader reader(sample);
    std::size_t length = reader.getU16BE();
    if (length > reader.remaining()) {
        parsed.truncated = true;
        length = reader.remaining();
    }
    parsed.text = textOf(reader.getBytes(length));

    while (reader.remaining() >= 8) {
        const auto header = sample.subspan(reader.position());
        const std::uint32_t size = readU32BE(header.data());
        const std::uint32_t type = readU32BE(header.data() + 4);
        if (size < 8 || size > header.size()) {
            parsed.truncated = true;
            break;
        }
        if (type == kHref) parsed.url = urlOf(header.first(size));
        reader.skip(size);
    }
    return parsed;
}

}  // namespace quillora::toolbox
