#include "layout/ColorData.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/HexDigit.h"
#include "layout/CssColorNames.h"

namespace quillora {

namespace {

// A CSS colour name, or "#" and 3, 4, 6 or 8 hex digits (RGB, RGBA, RRGGBB,
// RRGGBBAA; a short form's digits stand doubled), blanks around it allowed.
std::optional<ColorComponents> colorFromText(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && (std::isspace(static_cast<unsigned char>(text.back())) || text.back() == '\0')) {
        text.remove_suffix(1);
    }
    if (text.empty()) return std::nullopt;
    if (text.front() != '#') {
        const auto named = cssNamedColor(text);
        if (!named) return std::nullopt;
        return ColorComponents{(*named >> 24) / 255.0, (*named >> 16 & 0xFF) / 255.0, (*named >> 8 & 0xFF) / 255.0,
                               (*named & 0xFF) / 255.0};
    }
    text.remove_prefix(1);
    const std::size_t digitsPerChannel = text.size() == 3 || text.size() == 4 ? 1 : 2;
    if (text.size() != 3 && text.size() != 4 && text.size() != 6 && text.size() != 8) return std::nullopt;
    double channels[4] = {0, 0, 0, 1};
    for (std::size_t i = 0; i < text.size(); i += digitsPerChannel) {
        int value = 0;
        for (std::size_t k = 0; k < 2; ++k) {
            const int digit = hexDigitValue(text[i + (digitsPerChannel == 1 ? 0 : k)]);
            if (digit < 0) return std::nullopt;
            value = value * 16 + digit;
        }
        channels[i / digitsPerChannel] = value / 255.0;
    }
    return ColorComponents{channels[0], channels[1], channels[2], channels[3]};
}

// A colour object in the old typed-stream archive. The stream is a header
// (streamer version, the signature whose spelling gives the byte order, the
// system version), the root value's type "@", then the object: its class
// chain from NSColor up to a nil superclass, the colour space as a char, the
// float components, and the end-of-object mark.
class ArchivedColorReader {
public:
    explicit ArchivedColorReader(std::span<const std::uint8_t> data) : reader_(data) {}

    std::optional<ColorComponents> read()
    {
        if (!readHeader()) return std::nullopt;
        if (readSharedString() != "@" || !readNewObjectOfClass("NSColor")) return std::nullopt;
        if (readSharedString() != "c" || reader_.remaining() < 1) return std::nullopt;
        const std::uint8_t space = reader_.getU8();
        const bool rgb = space == kCalibratedRGB || space == kDeviceRGB;
        const bool white = space == kCalibratedWhite || space == kDeviceWhite;
        if (!rgb && !white) return std::nullopt;
        const std::string types = rgb ? "ffff" : "ff";
        if (readSharedString() != types) return std::nullopt;
        std::vector<double> components;
        for (std::size_t i = 0; i < types.size(); ++i) {
            auto component = readFloat();
            if (!component) return std::nullopt;
            components.push_back(std::clamp(*component, 0.0, 1.0));
        }
        if (reader_.remaining() < 1 || reader_.getU8() != kEndOfObject) return std::nullopt;
        if (white) return ColorComponents{components[0], components[0], components[0], components[1]};
        return ColorComponents{components[0], components[1], components[2], components[3]};
    }

    static bool looksLikeArchive(const Bytes& data)
    {
        return data.size() >= 2 + kSignatureLength && data[0] == kStreamerVersion && data[1] == kSignatureLength;
    }

private:
    static constexpr std::uint8_t kStreamerVersion = 4;
    static constexpr std::uint8_t kSignatureLength = 11;
    static constexpr std::string_view kLittleEndianSignature = "streamtyped";
    static constexpr std::string_view kBigEndianSignature = "typedstream";

    // Bytes below the tags are small integers; references count up from the
    // first number after the tags.
    static constexpr std::uint8_t kInteger16 = 0x81;
    static constexpr std::uint8_t kInteger32 = 0x82;
    static constexpr std::uint8_t kFloatingPoint = 0x83;
    static constexpr std::uint8_t kNew = 0x84;
    static constexpr std::uint8_t kNil = 0x85;
    static constexpr std::uint8_t kEndOfObject = 0x86;
    static constexpr std::uint8_t kFirstTag = 0x80;
    static constexpr std::uint8_t kFirstReference = 0x92;
    static constexpr int kLongestClassChain = 16;

    static constexpr std::uint8_t kCalibratedRGB = 1;
    static constexpr std::uint8_t kDeviceRGB = 2;
    static constexpr std::uint8_t kCalibratedWhite = 3;
    static constexpr std::uint8_t kDeviceWhite = 4;

    bool readHeader()
    {
        if (reader_.remaining() < 1 || reader_.getU8() != kStreamerVersion) return false;
        auto signature = readUnsharedString();
        if (signature == kBigEndianSignature) {
            littleEndian_ = false;
        } else if (signature != kLittleEndianSignature) {
            return false;
        }
        return readInteger().has_value();  // the system version
    }

    // An unsigned number of width bytes in the stream's byte order.
    std::optional<std::uint32_t> readOrdered(std::size_t width)
    {
        if (reader_.remaining() < width) return std::nullopt;
        auto bytes = reader_.getBytes(width);
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            value |= std::uint32_t{bytes[i]} << (8 * (littleEndian_ ? i : width - 1 - i));
        }
        return value;
    }

    std::optional<std::int64_t> integerAfter(std::uint8_t head)
    {
        if (head == kInteger16) {
            auto value = readOrdered(2);
            if (!value) return std::nullopt;
            return static_cast<std::int16_t>(*value);
        }
        if (head == kInteger32) {
            auto value = readOrdered(4);
            if (!value) return std::nullopt;
            return static_cast<std::int32_t>(*value);
        }
        if (head >= kFirstTag && head < kFirstReference) return std::nullopt;  // a tag, not a number
        return static_cast<std::int8_t>(head);
    }

    std::optional<std::int64_t> readInteger()
    {
        if (reader_.remaining() < 1) return std::nullopt;
        return integerAfter(reader_.getU8());
    }

    // Whole numbers are stored as integers, others behind a floating-point tag.
    std::optional<double> readFloat()
    {
        if (reader_.remaining() < 1) return std::nullopt;
        const std::uint8_t head = reader_.getU8();
        if (head != kFloatingPoint) {
            auto integer = integerAfter(head);
            if (!integer) return std::nullopt;
            return static_cast<double>(*integer);
        }
        auto bits = readOrdered(4);
        if (!bits) return std::nullopt;
        const float value = std::bit_cast<float>(*bits);
        if (!std::isfinite(value)) return std::nullopt;
        return value;
    }

    std::optional<std::string> readUnsharedString()
    {
        auto length = readInteger();
        if (!length || *length < 0 || static_cast<std::uint64_t>(*length) > reader_.remaining()) return std::nullopt;
        auto bytes = reader_.getBytes(static_cast<std::size_t>(*length));
        return std::string(bytes.begin(), bytes.end());
    }

    // A string kept once and later named by its reference number.
    std::optional<std::string> readSharedString()
    {
        if (reader_.remaining() < 1) return std::nullopt;
        const std::uint8_t head = reader_.getU8();
        if (head == kNew) {
            auto text = readUnsharedString();
            if (text) sharedStrings_.push_back(*text);
            return text;
        }
        auto reference = integerAfter(head);
        if (!reference) return std::nullopt;
        const std::int64_t index = *reference - static_cast<std::int8_t>(kFirstReference);
        if (index < 0 || static_cast<std::size_t>(index) >= sharedStrings_.size()) return std::nullopt;
        return sharedStrings_[static_cast<std::size_t>(index)];
    }

    // A new object whose class is named, with its superclasses up to nil.
    bool readNewObjectOfClass(std::string_view name)
    {
        if (reader_.remaining() < 1 || reader_.getU8() != kNew) return false;
        for (int depth = 0; depth < kLongestClassChain; ++depth) {
            if (reader_.remaining() < 1) return false;
            const std::uint8_t head = reader_.getU8();
            if (head == kNil) return depth > 0;
            if (head != kNew) return false;
            auto className = readSharedString();
            if (!className || (depth == 0 && *className != name) || !readInteger()) return false;
        }
        return false;
    }

    ByteReader reader_;
    bool littleEndian_ = true;
    std::vector<std::string> sharedStrings_;
};

}  // namespace

std::optional<ColorComponents> colorComponentsFromData(const Bytes& data)
{
    if (ArchivedColorReader::looksLikeArchive(data)) return ArchivedColorReader(data).read();
    return colorFromText(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

bool QRGetRGBColorFromData(const Bytes& data, RGBColor& color)
{
    auto components = colorComponentsFromData(data);
    if (!components) return false;
    auto scale = [&](double c) { return static_cast<std::uint16_t>(c * components->alpha * 65535.0); };
    color = {scale(components->red), scale(components->green), scale(components->blue)};
    return true;
}

}  // namespace quillora
