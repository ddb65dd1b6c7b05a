#include "toolbox/TextSample.h"

#include <algorithm>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "foundation/TextEncoding.h"
#include "toolbox/AtomContainer.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kHref = fourCC("href");
constexpr std::uint32_t kHyperText = fourCC("htxt");
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
    const auto text = reader.getBytes(length);
    // Unicode text starts with its byte-order mark.
    const bool utf16 = text.size() >= 2 && text[0] == 0xFE && text[1] == 0xFF;
    parsed.text = utf16 ? utf8FromUTF16BigEndian(text.subspan(2)) : textOf(text);

    while (reader.remaining() >= 8) {
        const auto header = sample.subspan(reader.position());
        const std::uint32_t size = readU32BE(header.data());
        const std::uint32_t type = readU32BE(header.data() + 4);
        if (size < 8 || size > header.size()) {
            parsed.truncated = true;
            break;
        }
        if (type == kHref) parsed.url = urlOf(header.first(size));
        if (type == kHyperText) {
            // A wired go-to-URL action: its parameter is the address.
            const auto parameter =
                findQTAtomData(header.subspan(8, size - 8),
                               {fourCC("wtxt"), fourCC("htxt"), fourCC("evnt"), fourCC("actn"), fourCC("parm")});
            if (parameter) parsed.url = utf8FromMacRoman(*parameter);
        }
        reader.skip(size);
    }
    return parsed;
}

}  // namespace quillora::toolbox
