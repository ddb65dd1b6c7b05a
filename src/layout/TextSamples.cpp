#include "layout/TextSamples.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/FourCC.h"
#include "foundation/WhiteSpace.h"

namespace quillora {

namespace {

constexpr std::uint32_t kTextEncodingUTF8 = 0x00000100;

void putLengthAndText(ByteWriter& writer, std::string_view text)
{
    writer.putU16BE(static_cast<std::uint16_t>(text.size())).putString(text);
}

bool isBlank(const std::string& text)
{
    return trimmedWhiteSpaceAndLineEnds(text).empty();
}

}  // namespace

ChapterTitle chapterTitle(const Value& transition, std::int64_t position)
{
    auto title = transition.stringForKey("slideTitle");
    if (title && !isBlank(*title)) return {*title, true};
    return {fmt::format("Chapter {}", position), false};
}

Bytes textSample(std::span<const std::uint8_t> text, std::optional<std::uint32_t> encoding)
{
    ByteWriter w(text.size() + 14);
    w.putU16BE(static_cast<std::uint16_t>(text.size())).putBytes(text);
    if (encoding) w.putU32BE(12).putFourCC(fourCC("encd")).putU32BE(*encoding);
    return w.take();
}

Bytes chapterSample(std::string_view name)
{
    return textSample(std::span(reinterpret_cast<const std::uint8_t*>(name.data()), name.size()), kTextEncodingUTF8);
}

Bytes linkSample(std::string_view title, std::string_view url)
{
    const auto urlLength = static_cast<std::uint32_t>(url.size());
    ByteWriter w(title.size() + url.size() + 16);
    putLengthAndText(w, title);
    w.putU32BE(14 + urlLength).putFourCC(fourCC("href"));
    w.putU16BE(0).putU16BE(static_cast<std::uint16_t>(urlLength));  // start and end character
    w.putU8(static_cast<std::uint8_t>(urlLength)).putString(url);
    w.putU8(0);  // no alternate text
    return w.take();
}

Bytes notesSample(std::string_view asciiText)
{
    return textSample(std::span(reinterpret_cast<const std::uint8_t*>(asciiText.data()), asciiText.size()),
                      std::nullopt);
}

std::string asciiOrEmpty(std::string_view text)
{
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return ascii ? std::string(text) : std::string();
}

std::uint32_t sixteenBitDuration(std::int64_t start, std::int64_t end)
{
    const auto difference = static_cast<std::int16_t>(static_cast<std::uint16_t>(end - start));
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(difference));
}

}  // namespace quillora
