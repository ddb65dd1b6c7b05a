#include "images/TiffRGBA.h"

#include <tiffio.h>

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <vector>
#include <vips/vips8>

#include "images/Resolution.h"

namespace quillora {

namespace {

// A slide is a few megapixels; this bounds what a damaged header can ask for.
constexpr std::uint64_t kLargestPicture = 64ull * 1024 * 1024;
constexpr double kMillimetresPerCentimetre = 10;

// The caller reports a picture that cannot be read; libtiff's own messages
// would only repeat it on standard error.
int ignoreMessage(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// The resolution as libvips' loaders give it: pixels per millimetre, with
// the unit the file names.
void copyResolution(TIFF* tiff, vips::VImage& picture)
{
    float x = 0, y = 0;
    std::uint16_t unit = RESUNIT_NONE;
    if (!TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) || !TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y) || x <= 0 ||
        y <= 0) {
        return;
    }
    TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
    double perMillimetre = 1;
    if (unit == RESUNIT_INCH) {
        perMillimetre = kMillimetresPerInch;
        picture.set(VIPS_META_RESOLUTION_UNIT, "in");
    } else if (unit == RESUNIT_CENTIMETER) {
        perMillimetre = kMillimetresPerCentimetre;
        picture.set(VIPS_META_RESOLUTION_UNIT, "cm");
    } else {
        return;
    }
    picture = picture.copy(vips::VImage::option()->set("xres", x / perMillimetre)->set("yres", y / perMillimetre));
}

}  // namespace

std::optional<vips::VImage> readTiffAsRGBA(const std::string& path)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) return std::nullopt;
    TIFFOpenOptionsSetErrorHandlerExtR(options, ignoreMessage, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreMessage, nullptr);
    const std::unique_ptr<TIFF, CloseTiff> tiff(TIFFOpenExt(path.c_str(), "r", options));
    TIFFOpenOptionsFree(options);
    if (!tiff) return std::nullopt;

    std::uint32_t width = 0, height = 0;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
    if (width == 0 || height == 0 || std::uint64_t{width} * height > kLargestPicture) return std::nullopt;

    std::vector<std::uint32_t> raster(std::size_t{width} * height);
    if (!TIFFReadRGBAImageOriented(tiff.get(), width, height, raster.data(), ORIENTATION_TOPLEFT, 0)) {
        return std::nullopt;
    }
    // Packed words, whatever the machine's byte order: rewritten in place as
    // red, green, blue and alpha bytes.
    auto* pixels = reinterpret_cast<std::uint8_t*>(raster.data());
    for (std::size_t i = 0; i < raster.size(); ++i) {
        const std::uint32_t word = raster[i];
        pixels[4 * i] = static_cast<std::uint8_t>(TIFFGetR(word));
        pixels[4 * i + 1] = static_cast<std::uint8_t>(TIFFGetG(word));
        pixels[4 * i + 2] = static_cast<std::uint8_t>(TIFFGetB(word));
        pixels[4 * i + 3] = static_cast<std::uint8_t>(TIFFGetA(word));
    }
    // Copied into an image of its own before the buffer goes.
    VipsImage* copied = vips_image_new_from_memory_copy(pixels, raster.size() * 4, static_cast<int>(width),
                                                        static_cast<int>(height), 4, VIPS_FORMAT_UCHAR);
    if (!copied) {
        vips_error_clear();
        return std::nullopt;
    }
    vips::VImage picture =
        vips::VImage(copied).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    copyResolution(tiff.get(), picture);
    return picture;
}

}  // namespace quillora
