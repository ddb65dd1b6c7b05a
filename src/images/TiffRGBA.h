// TIFF pictures that libvips' own loader refuses (subsampled YCbCr, as ffmpeg
// and some scanners write them) and ImageMagick's loader cannot hand over
// (it keeps them in YCbCr), read through libtiff's RGBA reader instead.
#pragma once

#include <optional>
#include <string>

namespace vips {
class VImage;
}

namespace quillora {

// The whole picture decoded, 8-bit sRGB with alpha, with the file's
// resolution. Nothing when the file is not a TIFF libtiff can read, or is
// too large to decode in memory.
std::optional<vips::VImage> readTiffAsRGBA(const std::string& path);

}  // namespace quillora
