// Display text for raw metadata values by their data type. The integer and
// float forms show a big-endian value as it lies in memory, without
// swapping, and the 64-bit float from its first four bytes: that is how
// this display code has always shown them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace quillora {

std::optional<std::string> GetBinaryDataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetUTF8DataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetUTF16BEDataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetSignedIntegerBEDataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetUnsignedIntegerBEDataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetFloat32BEDataAsString(const std::uint8_t* bytes);
std::optional<std::string> GetFloat64BEDataAsString(const std::uint8_t* bytes);
std::optional<std::string> GetOSTypeDataAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> GetPropertyValueAsString(const std::uint8_t* bytes, std::size_t length);
std::optional<std::string> AppendMetaValueStringToDisplayString(const std::optional<std::string>& value,
                                                                std::size_t length);
std::optional<std::string> GetDataTypePropValueAndSizeAsString(std::uint32_t dataType, std::size_t length);
std::optional<std::string> GetStringForMetaDataValue(std::uint32_t dataType, const std::uint8_t* bytes,
                                                     std::size_t length);

}  // namespace quillora
