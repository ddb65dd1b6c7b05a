// Text media: the 'text' sample description (a TextDescription record) and
// the calls that add text samples. Once the 'encd' selector has been given,
// every later text sample carries an 'encd' atom naming its encoding.
#pragma once

#include "layout/ColorData.h"
#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

// Byte offsets of the TextDescription fields in a sample description entry.
namespace textDescription {
inline constexpr std::size_t displayFlags = 16;
inline constexpr std::size_t textJustification = 20;
inline constexpr std::size_t backgroundColor = 24;
inline constexpr std::size_t defaultTextBox = 30;
inline constexpr std::size_t defaultStyleColor = 52;
inline constexpr std::size_t size = 59;  // with an empty font name
}  // namespace textDescription

inline constexpr std::uint32_t kTextEncodingSelector = 0x656E6364;  // 'encd'
inline constexpr std::uint32_t kTextEncodingUnicode = 256;
inline constexpr std::int32_t dfAntiAlias = 0x2000;

// A description's fields are read and set through the handle's bytes.
std::uint32_t getDescriptionU32(const Handle& description, std::size_t offset);
void setDescriptionU32(const Handle& description, std::size_t offset, std::uint32_t value);
void setDescriptionColor(const Handle& description, std::size_t offset, const RGBColor& color);
void setDescriptionU16(const Handle& description, std::size_t offset, std::uint16_t value);

// A 'text' sample description entry with an empty font name.
Bytes textDescriptionBytes(std::int32_t displayFlags, std::int16_t justification, const RGBColor& background,
                           const Rect& textBox, std::int16_t fontNumber, std::uint8_t face, std::int16_t fontSize,
                           const RGBColor& textColor);

OSErr TextMediaSetTextSampleData(MediaHandler handler, const void* data, std::uint32_t dataType);
OSErr TextMediaAddTextSample(MediaHandler handler, const void* text, std::size_t size, std::int16_t fontNumber,
                             std::int16_t fontSize, std::uint8_t textFace, const RGBColor* textColor,
                             const RGBColor* backColor, std::int16_t textJustification, const Rect* textBox,
                             std::int32_t displayFlags, TimeValue scrollDelay, std::int16_t hiliteStart,
                             std::int16_t hiliteEnd, const RGBColor* hiliteColor, TimeValue duration,
                             TimeValue* sampleTime);

}  // namespace quillora::toolbox
