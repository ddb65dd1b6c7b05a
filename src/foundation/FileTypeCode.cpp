#include "foundation/FileTypeCode.h"

#include <sys/xattr.h>

#include <array>

#include "foundation/Bytes.h"

namespace quillora {

namespace {

using FinderInfo = std::array<std::uint8_t, 32>;

std::optional<FinderInfo> readFinderInfo(const std::filesystem::path& path)
{
    FinderInfo info{};
    const ssize_t size = ::getxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size());
    if (size != static_cast<ssize_t>(info.size())) return std::nullopt;
    return info;
}

}  // namespace

bool setFileTypeCode(const std::filesystem::path& path, std::uint32_t typeCode)
{
    FinderInfo info = readFinderInfo(path).value_or(FinderInfo{});
    ByteWriter code(4);
    code.putFourCC(typeCode);
    std::copy(code.bytes().begin(), code.bytes().end(), info.begin());
    return ::setxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0) == 0;
}

std::optional<std::uint32_t> fileTypeCode(const std::filesystem::path& path)
{
    const auto info = readFinderInfo(path);
    if (!info) return std::nullopt;
    return readU32BE(info->data());
}

}  // namespace quillora
