#include "publish/LinkTrackRepairs.h"

#include <algorithm>
#include <cmath>

#include "foundation/FourCC.h"
#include "foundation/Log.h"

namespace quillora::publish {

namespace {

constexpr std::uint32_t kTimedText = fourCC("tx3g");

// Inside the timed-text description (its atom header included): the
// background colour, the default text box (top, left, bottom, right) and,
// in the style record, the text colour.
constexpr std::int64_t kBackgroundColorOffset = 22;
constexpr std::int64_t kTextBoxOffset = 26;
constexpr std::int64_t kTextColorOffset = 42;
constexpr std::size_t kStyledDescriptionSize = 46;

void putColor(ByteWriter& writer, const std::optional<ColorComponents>& color)
{
    const ColorComponents components = color.value_or(ColorComponents{});
    for (double component : {components.red, components.green, components.blue, components.alpha}) {
        writer.putU8(static_cast<std::uint8_t>(std::lround(std::clamp(component, 0.0, 1.0) * 255)));
    }
}

}  // namespace

void timeLinkSamples(FileHandle& file, const TrackNodes& linkTrack, const Value& slides)
{
    const ArrayRef list = slides.asArray();
    if (!linkTrack.stts || !list) return;
    const Bytes table = readPayload(file, *linkTrack.stts);
    ByteReader reader(table);
    reader.skip(4);
    const std::uint32_t entries = reader.getU32BE();
    if (entries != list->size() || reader.remaining() < std::size_t{entries} * 8) {
        logf("The link track holds {} time entries for {} slides; its times are left as they are", entries,
             list->size());
        return;
    }
    const Bytes trackHeader = readPayload(file, linkTrack.tkhd);
    const HeaderLayout layout = trackHeaderLayout(trackHeader);
    const auto end = static_cast<std::int64_t>(readHeaderNumber(trackHeader, layout.duration, layout.wide));

    ByteWriter times;
    for (std::size_t i = 0; i < list->size(); ++i) {
        const std::int64_t start = (*list)[i].integerForKey("timeValue").value_or(0);
        const std::int64_t next = i + 1 < list->size() ? (*list)[i + 1].integerForKey("timeValue").value_or(0) : end;
        times.putU32BE(1).putU32BE(static_cast<std::uint32_t>(next - start));
    }
    // The entries follow the version, flags and count.
    overwrite(file, linkTrack.stts->payloadOffset() + 8, times.bytes());
}

void styleLinkText(FileHandle& file, const TrackNodes& linkTrack, const std::optional<ColorComponents>& textColor,
                   const std::optional<ColorComponents>& backgroundColor)
{
    if (!linkTrack.stsd) return;
    const auto description = firstSampleDescription(file, *linkTrack.stsd);
    if (!description || description->type != kTimedText || description->bytes.size() < kStyledDescriptionSize) return;

    ByteWriter background;
    putColor(background, backgroundColor);
    overwrite(file, description->offset + kBackgroundColorOffset, background.bytes());

    // The track's width and height (16.16) end its header.
    const Bytes trackHeader = readPayload(file, linkTrack.tkhd);
    ByteReader size(trackHeader);
    size.seek(trackHeader.size() - 8);
    const auto width = static_cast<std::uint16_t>(size.getU32BE() >> 16);
    const auto height = static_cast<std::uint16_t>(size.getU32BE() >> 16);
    ByteWriter box;
    box.putU16BE(0).putU16BE(0).putU16BE(height).putU16BE(width);
    overwrite(file, description->offset + kTextBoxOffset, box.bytes());

    ByteWriter text;
    putColor(text, textColor);
    overwrite(file, description->offset + kTextColorOffset, text.bytes());
}

}  // namespace quillora::publish
