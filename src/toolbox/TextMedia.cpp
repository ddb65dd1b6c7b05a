#include "toolbox/TextMedia.h"

#include <limits>

#include "foundation/FourCC.h"
#include "layout/TextSamples.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint16_t kDataReferenceIndex = 1;
constexpr RGBColor kWhite{0xFFFF, 0xFFFF, 0xFFFF};
constexpr RGBColor kBlack{0, 0, 0};

void putColor(ByteWriter& writer, const RGBColor& color)
{
    writer.putU16BE(color.red).putU16BE(color.green).putU16BE(color.blue);
}

}  // namespace

std::uint32_t getDescriptionU32(const Handle& description, std::size_t offset)
{
    return readU32BE(description->bytes.data() + offset);
}

void setDescriptionU16(const Handle& description, std::size_t offset, std::uint16_t value)
{
    overwriteU16BE(description->bytes, offset, value);
}

void setDescriptionU32(const Handle& description, std::size_t offset, std::uint32_t value)
{
    overwriteU32BE(description->bytes, offset, value);
}

void setDescriptionColor(const Handle& description, std::size_t offset, const RGBColor& color)
{
    setDescriptionU16(description, offset, color.red);
    setDescriptionU16(description, offset + 2, color.green);
    setDescriptionU16(description, offset + 4, color.blue);
}

Bytes textDescriptionBytes(std::int32_t displayFlags, std::int16_t justification, const RGBColor& background,
                           const Rect& textBox, std::int16_t fontNumber, std::uint8_t face, std::int16_t fontSize,
                           const RGBColor& textColor)
{
    ByteWriter description(textDescription::size);
    description.putU32BE(textDescription::size).putFourCC(fourCC("text")).putZeros(6).putU16BE(kDataReferenceIndex);
    description.putI32BE(displayFlags).putI32BE(justification);
    putColor(description, background);
    description.putI16BE(textBox.top).putI16BE(textBox.left).putI16BE(textBox.bottom).putI16BE(textBox.right);
    // Default style: start character, line height, ascent, font, face, size, colour.
    description.putU32BE(0).putU16BE(0).putU16BE(0).putI16BE(fontNumber).putU8(face).putU8(0);
    description.putI16BE(fontSize);
    putColor(description, textColor);
    description.putU8(0);  // no font name
    return description.take();
}

OSErr TextMediaSetTextSampleData(MediaHandler handler, const void* data, std::uint32_t dataType)
{
    if (!handler) return invalidMedia;
    if (dataType != kTextEncodingSelector || !data) return paramErr;
    handler->textEncoding = *static_cast<const std::uint32_t*>(data);
    return noErr;
}

OSErr TextMediaAddTextSample(MediaHandler handler, const void* text, std::size_t size, std::int16_t fontNumber,
                             std::int16_t fontSize, std::uint8_t textFace, const RGBColor* textColor,
                             const RGBColor* backColor, std::int16_t textJustification, const Rect* textBox,
                             std::int32_t displayFlags, TimeValue /*scrollDelay*/, std::int16_t /*hiliteStart*/,
                             std::int16_t /*hiliteEnd*/, const RGBColor* /*hiliteColor*/, TimeValue duration,
                             TimeValue* sampleTime)
{
    if (!handler) return invalidMedia;
    if (size > std::numeric_limits<std::uint16_t>::max() || (size > 0 && !text)) return paramErr;

    const Bytes description = textDescriptionBytes(displayFlags, textJustification, backColor ? *backColor : kWhite,
                                                   textBox ? *textBox : Rect{}, fontNumber, textFace, fontSize,
                                                   textColor ? *textColor : kBlack);

    auto data = NewHandle(0);
    data->bytes = textSample(std::span(static_cast<const std::uint8_t*>(text), size), handler->textEncoding);
    auto descriptionHandle = NewHandle(0);
    descriptionHandle->bytes = description;
    return AddMediaSample(handler, data, 0, data->bytes.size(), duration, descriptionHandle, 1, 0, sampleTime);
}

}  // namespace quillora::toolbox
