// The chapter list ('chpl' in the movie's user data) that readers without
// chapter-track support look for: each slide's start in 100-nanosecond units
// and its chapter name. It goes last into 'udta', after the item list,
// through the editing primitives, so every enclosing size and every chunk
// offset is fixed up as for the tracks.
#include <algorithm>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "layout/TextSamples.h"

namespace quillora {

namespace {

constexpr std::string_view kAddChapterList = "-[QTDataEditor addChapterList:toFile:]";

constexpr std::uint32_t kChapterList = fourCC("chpl");
// Version 1 carries a reserved word before the count.
constexpr std::uint32_t kVersion1 = 0x01000000;
// Transition times are in the tracks' media time scale.
constexpr std::int64_t kTimeScale = 600;
constexpr std::int64_t kUnitsPerSecond = 10'000'000;
// The count and each title's length are single bytes.
constexpr std::size_t kMostEntries = 255;
constexpr std::size_t kLongestTitle = 255;

std::uint64_t hundredNanoseconds(std::int64_t time)
{
    return time <= 0 ? 0 : static_cast<std::uint64_t>((time * kUnitsPerSecond + kTimeScale / 2) / kTimeScale);
}

// Cut to the longest whole UTF-8 sequence that fits a length byte.
std::string_view shortTitle(std::string_view title)
{
    if (title.size() <= kLongestTitle) return title;
    std::size_t end = kLongestTitle;
    while (end > 0 && (static_cast<unsigned char>(title[end]) & 0xC0) == 0x80) --end;
    return title.substr(0, end);
}

Bytes chapterListPayload(const Array& slides)
{
    const std::size_t count = std::min(slides.size(), kMostEntries);
    ByteWriter payload;
    payload.putU32BE(kVersion1).putU32BE(0).putU8(static_cast<std::uint8_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const std::string title = chapterTitle(slides[i], static_cast<std::int64_t>(i) + 1).text;
        const std::string_view shortened = shortTitle(title);
        payload.putU64BE(hundredNanoseconds(slides[i].integerForKey("timeValue").value_or(0)))
            .putU8(static_cast<std::uint8_t>(shortened.size()))
            .putString(shortened);
    }
    return payload.take();
}

}  // namespace

bool QTDataEditor::addChapterList(const Value& transitions, FileHandle& file)
{
    const ArrayRef slides = transitions.asArray();
    if (!slides || slides->empty()) return true;
    if (slides->size() > kMostEntries) {
        logMethod(kAddChapterList, "Only the first {} of {} chapters fit the chapter list", kMostEntries,
                  slides->size());
    }
    // A search runs on past its parent's end; only a child found inside counts.
    auto childOf = [&](std::uint32_t type, const AtomLocation& parent) -> std::optional<AtomLocation> {
        auto child = findAtomOfType(type, parent.offset + 8, 1, file);
        if (child && child->offset < parent.offset + parent.size) return child;
        return std::nullopt;
    };
    const auto moov = findAtomOfType(atom::moov, 0, 1, file);
    const auto udta = moov ? childOf(atom::udta, *moov) : std::nullopt;
    if (!udta) {
        logMethod(kAddChapterList, "No user data atom to add the chapter list to");
        return false;
    }
    if (auto old = childOf(kChapterList, *udta)) removeAtomAtOffset(old->offset, file);
    std::int32_t position = 0;
    appendChildAtom(createAtomOfType(kChapterList, chapterListPayload(*slides)), udta->offset, file, position);
    logMethod(kAddChapterList, "Added a chapter list of {} chapters", std::min(slides->size(), kMostEntries));
    return true;
}

}  // namespace quillora
