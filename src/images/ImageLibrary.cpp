#include "images/ImageLibrary.h"

#include <cmath>
#include <vips/vips8>

#include "foundation/Log.h"
#include "images/Resolution.h"
#include "images/TiffRGBA.h"

namespace quillora {

using vips::VError;
using vips::VImage;

namespace {

// libvips reports an unstated resolution as its default of 1 pixel/mm (or 0
// from ImageMagick), and a stated one with a "resolution-unit", except for
// PNG, whose pixels per metre it reports without one. The dpi is rounded
// because files store it in pixels per metre or centimetre, so 72 dpi
// arrives as 71.98 or 72.009.
double pointsForPixels(int pixels, double pixelsPerMillimetre, bool unitStated)
{
    const bool stated = unitStated || (pixelsPerMillimetre > 0 && pixelsPerMillimetre != 1.0);
    double dpi = stated ? std::round(pixelsPerMillimetre * kMillimetresPerInch) : kPointsPerInch;
    if (dpi < 1) dpi = kPointsPerInch;
    return pixels * kPointsPerInch / dpi;
}

}  // namespace

bool startImageLibrary()
{
    static const bool started = [] {
        if (VIPS_INIT("quillora") != 0) {
            logf("*** Unable to start the image library: {}", vips_error_buffer());
            vips_error_clear();
            return false;
        }
        // Pictures are rewritten in place and read again in the same process;
        // a cached load would hand back the old file's pixels. Caching also
        // keeps decoded pictures alive, and ours are each used once.
        vips_cache_set_max(0);
        return true;
    }();
    return started;
}

VImage openPicture(const std::string& path, vips::VOption* options)
{
    try {
        // A name that ends in "]" would be read as "file[load options]"; a
        // source takes the name as it is (though not for the ImageMagick formats).
        if (!path.empty() && path.back() == ']') {
            return VImage::new_from_source(vips::VSource::new_from_file(path.c_str()), "", options);
        }
        return VImage::new_from_file(path.c_str(), options);
    } catch (const VError& refused) {
        vips_error_clear();
        // Only for content ImageMagick knows by its bytes: called directly it
        // would also take a name such as "text:notes" as an instruction. The
        // options went with the first attempt; ImageMagick takes none of the
        // native loaders' own (a JPEG's shrink), only the access pattern.
        if (vips_foreign_is_a("magickload", path.c_str())) {
            try {
                return VImage::magickload(path.c_str(), VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
            } catch (const VError&) {
                vips_error_clear();
            }
        }
        if (auto tiff = readTiffAsRGBA(path)) return *tiff;
        throw refused;
    }
}

PictureSize pictureSizeInPoints(const VImage& picture)
{
    const bool unitStated = picture.get_typeof(VIPS_META_RESOLUTION_UNIT) != 0;
    return {pointsForPixels(picture.width(), picture.xres(), unitStated),
            pointsForPixels(picture.height(), picture.yres(), unitStated)};
}

std::string imageLibraryMessage(const vips::VError& error)
{
    vips_error_clear();
    std::string text = error.what();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace quillora
