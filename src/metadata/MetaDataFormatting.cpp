#include "metadata/MetaDataFormatting.h"

#include <fmt/format.h>

#include <cstring>

#include "foundation/TextEncoding.h"

namespace quillora {

namespace {

// "%.*s": at most length bytes, stopping at a zero byte.
std::string cString(const std::uint8_t* bytes, std::size_t length)
{
    const auto* text = reinterpret_cast<const char*>(bytes);
    return std::string(text, strnlen(text, length));
}

// "(%d bytes) : "
std::string sizePrefix(std::size_t length)
{
    return fmt::format("({} bytes) : ", static_cast<int>(length));
}

// The first 32-bit word as it lies in memory (the bytes missing from a short value are zero).
std::uint32_t firstWord(const std::uint8_t* bytes, std::size_t length)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, length < 4 ? length : 4);
    return word;
}

const char* dataTypeName(std::uint32_t dataType)
{
    switch (dataType) {
    case 0:
        return "0=Binary";
    case 1:
        return "1=UTF8";
    case 2:
        return "2=UTF16BE";
    case 3:
        return "3=MacEncodedText";
    case 12:
        return "12=GIF";
    case 13:
        return "13=JPEG";
    case 14:
        return "14=PNG";
    case 21:
        return "21=SignedIntegerBE";
    case 22:
        return "22=UnsignedIntegerBE";
    case 23:
        return "23=Float32BE";
    case 24:
        return "24=Float64BE";
    case 27:
        return "27=BMP";
    default:
        return "";
    }
}

}  // namespace

std::optional<std::string> GetBinaryDataAsString(const std::uint8_t* bytes, std::size_t length)
{
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += fmt::format(" {:x}", bytes[i]);
    return text;
}

std::optional<std::string> GetUTF8DataAsString(const std::uint8_t* bytes, std::size_t length)
{
    return cString(bytes, length);
}

std::optional<std::string> GetUTF16BEDataAsString(const std::uint8_t* bytes, std::size_t length)
{
    return utf8FromUTF16BigEndian(std::span(bytes, length));
}

std::optional<std::string> GetSignedIntegerBEDataAsString(const std::uint8_t* bytes, std::size_t length)
{
    if (length == 0) return std::nullopt;
    // "%#.*x": at least length digits, with 0x before any value but zero.
    const std::uint32_t word = firstWord(bytes, length);
    std::string digits = fmt::format("{:x}", word);
    if (digits.size() < length) digits.insert(0, length - digits.size(), '0');
    return word == 0 ? digits : "0x" + digits;
}

std::optional<std::string> GetUnsignedIntegerBEDataAsString(const std::uint8_t* bytes, std::size_t length)
{
    return GetSignedIntegerBEDataAsString(bytes, length);
}

std::optional<std::string> GetFloat32BEDataAsString(const std::uint8_t* bytes)
{
    float value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return fmt::format("{:f}", static_cast<double>(value));
}

std::optional<std::string> GetFloat64BEDataAsString(const std::uint8_t* bytes)
{
    return GetFloat32BEDataAsString(bytes);
}

std::optional<std::string> GetOSTypeDataAsString(const std::uint8_t* bytes, std::size_t length)
{
    return AppendMetaValueStringToDisplayString(cString(bytes, 4), length);
}

std::optional<std::string> GetPropertyValueAsString(const std::uint8_t* bytes, std::size_t length)
{
    return cString(bytes, length) + " ";
}

std::optional<std::string> AppendMetaValueStringToDisplayString(const std::optional<std::string>& value,
                                                                std::size_t length)
{
    return sizePrefix(length) + value.value_or("") + " \n";
}

std::optional<std::string> GetDataTypePropValueAndSizeAsString(std::uint32_t dataType, std::size_t length)
{
    return sizePrefix(length) + dataTypeName(dataType) + "\n";
}

std::optional<std::string> GetStringForMetaDataValue(std::uint32_t dataType, const std::uint8_t* bytes,
                                                     std::size_t length)
{
    std::optional<std::string> value;
    switch (dataType) {
    case 0:
    case 12:
    case 13:
    case 14:
    case 27:
        value = GetBinaryDataAsString(bytes, length);
        break;
    case 1:
        value = GetUTF8DataAsString(bytes, length);
        break;
    case 2:
        value = GetUTF16BEDataAsString(bytes, length);
        break;
    case 3:
        value = utf8FromMacRoman(std::span(bytes, length));
        break;
    case 21:
        value = GetSignedIntegerBEDataAsString(bytes, length);
        break;
    case 22:
        value = GetUnsignedIntegerBEDataAsString(bytes, length);
        break;
    case 23:
        if (length >= 4) value = GetFloat32BEDataAsString(bytes);
        break;
    case 24:
        if (length >= 4) value = GetFloat64BEDataAsString(bytes);
        break;
    default:
        break;
    }
    return AppendMetaValueStringToDisplayString(value, length);
}

}  // namespace quillora
