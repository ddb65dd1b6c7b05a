// A file's type code, where this platform keeps one: the first four bytes
// of the 32-byte Finder information, in the extended attribute
// "user.com.apple.FinderInfo" (the name under which file sharing keeps that
// information on Linux). The other bytes (creator, flags) are kept.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quillora {

inline constexpr const char* kFinderInfoAttribute = "user.com.apple.FinderInfo";

// False when the file is missing or its file system keeps no such attributes.
bool setFileTypeCode(const std::filesystem::path& path, std::uint32_t typeCode);
std::optional<std::uint32_t> fileTypeCode(const std::filesystem::path& path);

}  // namespace quillora
