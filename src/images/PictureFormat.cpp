#include "images/PictureFormat.h"

#include <array>
#include <cstring>
#include <fstream>
#include <string_view>

namespace quillora {

namespace {

// The brands of an ISO base media file's 'ftyp' box that name a still picture.
std::optional<std::string> heifFormatName(std::string_view brand)
{
    if (brand == "heic" || brand == "heix" || brand == "heim" || brand == "heis" || brand == "hevc" || brand == "hevx")
        return "HEIC";
    if (brand == "avif" || brand == "avis") return "AVIF";
    if (brand == "mif1" || brand == "msf1") return "HEIF";
    return std::nullopt;
}

}  // namespace

std::optional<std::string> pictureFormatName(const std::filesystem::path& path)
{
    std::array<char, 16> head{};
    std::ifstream file(path, std::ios::binary);
    file.read(head.data(), head.size());
    const std::string_view bytes(head.data(), static_cast<std::size_t>(file.gcount()));
    auto at = [&](std::size_t offset, std::string_view magic) {
        return offset + magic.size() <= bytes.size() && bytes.substr(offset, magic.size()) == magic;
    };

    if (at(4, "ftyp") && bytes.size() >= 12) return heifFormatName(bytes.substr(8, 4));
    if (at(0, "RIFF") && at(8, "WEBP")) return "WebP";
    if (at(0, "\xFF\x0A") || at(4, "JXL ")) return "JPEG XL";
    if (at(4, "jP  ") || at(0, std::string_view("\xFF\x4F\xFF\x51", 4))) return "JPEG 2000";
    if (at(0, "\x89PNG")) return "PNG";
    if (at(0, "\xFF\xD8\xFF")) return "JPEG";
    if (at(0, "GIF8")) return "GIF";
    if (at(0, std::string_view("II*\0", 4)) || at(0, std::string_view("MM\0*", 4))) return "TIFF";
    if (at(0, "BM")) return "BMP";
    if (at(0, "%PDF")) return "PDF";
    return std::nullopt;
}

std::optional<std::string> formatNeedingDecoder(const std::filesystem::path& path)
{
    auto format = pictureFormatName(path);
    if (format &&
        (*format == "HEIC" || *format == "HEIF" || *format == "AVIF" || *format == "JPEG XL" || *format == "JPEG 2000"))
        return format;
    return std::nullopt;
}

}  // namespace quillora
