#include "images/ImageSize.h"

#include <cmath>
#include <vips/vips8>

#include "images/ImageLibrary.h"

namespace quillora {

std::optional<PointSize> imageSizeInPoints(const std::filesystem::path& path)
{
    if (!startImageLibrary()) return std::nullopt;
    try {
        // Only the header is read: the pixels are never decoded here.
        const PictureSize size = pictureSizeInPoints(
            openPicture(path.string(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL)));
        return PointSize{static_cast<int>(std::lround(size.width)), static_cast<int>(std::lround(size.height))};
    } catch (const vips::VError&) {
        vips_error_clear();
        return std::nullopt;
    }
}

}  // namespace quillora
