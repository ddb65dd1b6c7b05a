#include "tracks/TextSamples.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/FourCC.h"

namespace quillora {

namespace {

constexpr std::uint32_t kTextEncodingUTF8 = 0x00000100;

void putLengthAndText(ByteWriter& writer, std::string_view text)
{
    writer.putU16BE(static_cast<std::uint16_t>(text.size())).putString(text);
}

bool isBlank(const std::string& text)
{
    return text.find_first_not_of(" \t\n\r\v\f") == std::string::npos;
}

}  // namespace

ChapterTitle chapterTitle(const Value& transition, std::int64_t position)
{
    auto title = transition.stringForKey("slideTitle");
    if (title && !isBlank(*title)) return {*title, true};
    return {fmt::format("Chapter {}", position), false};
}

Bytes chapterSample(std::string_view name)
{
    ByteWriter w(name.size() + 14);
    putLengthAndText(w, name);
    w.putU32BE(12).putFourCC(fourCC("encd")).putU32BE(kTextEncodingUTF8);
    return w.take();
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
    ByteWriter w(asciiText.size() + 2);
    putLengthAndText(w, asciiText);
    return w.take();
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
