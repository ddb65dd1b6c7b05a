#include "tracks/ImageSize.h"

#include <vips/vips8>

namespace quillora {

namespace {

constexpr double kPointsPerInch = 72;
constexpr double kMillimetresPerInch = 25.4;
// libvips reports 1 pixel per millimetre when a file states no resolution
// (JPEG loading already reports 72 dpi itself).
constexpr double kUnstatedResolution = 1.0;
// Absorbs the rounding of the dpi to pixels-per-millimetre conversion, so
// 160 pixels at 72 dpi stay 160 points, not 159.99999.
constexpr double kRoundingAllowance = 1e-6;

bool startVips()
{
    static const bool started = VIPS_INIT("quillora") == 0;
    return started;
}

int points(int pixels, double pixelsPerMillimetre)
{
    const double dpi = (pixelsPerMillimetre <= 0 || pixelsPerMillimetre == kUnstatedResolution)
                           ? kPointsPerInch
                           : pixelsPerMillimetre * kMillimetresPerInch;
    return static_cast<int>(pixels * kPointsPerInch / dpi + kRoundingAllowance);
}

}  // namespace

std::optional<PointSize> imageSizeInPoints(const std::filesystem::path& path)
{
    if (!startVips()) return std::nullopt;
    try {
        // Only the header is read: the pixels are never decoded here.
        auto image =
            vips::VImage::new_from_file(path.c_str(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
        return PointSize{points(image.width(), image.xres()), points(image.height(), image.yres())};
    } catch (const vips::VError&) {
        return std::nullopt;
    }
}

}  // namespace quillora
