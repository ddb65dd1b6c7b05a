// The picture format a file holds, by its first bytes, for messages: a
// picture the image library cannot read is refused by the name its owner
// knows it by ("HEIC", "WebP"), not by the library's loader names.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillora {

// "HEIC", "AVIF", "WebP", "JPEG XL", "JPEG 2000", "PNG", "JPEG"...; nothing
// when the first bytes are none of the formats slides come in.
std::optional<std::string> pictureFormatName(const std::filesystem::path& path);

// HEIC, HEIF, AVIF, JPEG XL or JPEG 2000: formats whose decoders not every
// build of the image library has, and whose headers read without them.
// Nothing for any other file.
std::optional<std::string> formatNeedingDecoder(const std::filesystem::path& path);

}  // namespace quillora
