#include "images/PicturePreparation.h"

#include <algorithm>
#include <cmath>
#include <vips/vips8>

#include "foundation/FileHandle.h"
#include "foundation/Log.h"
#include "images/PictureFormat.h"
#include "images/Resolution.h"

namespace quillora {

using vips::VImage;

namespace {

// A picture is reduced when both its sides are more than four frames of
// pixels long: at least sixteen times the pixels it can be drawn with. It
// keeps twice the frame on its longer side, so the resizer's own scaling
// still has a factor of two to smooth over and the drawing looks as if made
// from the original. Only a picture longer than the frame on both sides in
// points, before and after, is reduced: it is not the slide whose width or
// height decides the frame, so the few points its size may change by
// change nothing.
constexpr double kReduceBeyondFrames = 4.0;
constexpr double kKeptFrames = 2.0;

bool quarterTurned(int orientation)
{
    return orientation >= 5 && orientation <= 8;
}

// The whole dots per inch the image library reads back for a side: files
// store resolutions in whole units, and the library rounds to whole dpi.
double dotsPerInch(int pixels, double points)
{
    return points > 0 ? std::round(pixels * kPointsPerInch / points) : kPointsPerInch;
}

}  // namespace

PictureHeader readPictureHeader(const std::filesystem::path& path)
{
    const VImage picture = openPicture(path.string(), VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
    PictureHeader header;
    if (picture.get_typeof(VIPS_META_ORIENTATION) != 0) header.orientation = picture.get_int(VIPS_META_ORIENTATION);
    header.jpeg = picture.get_typeof(VIPS_META_LOADER) != 0 &&
                  std::string_view(picture.get_string(VIPS_META_LOADER)) == "jpegload";
    header.formatNeedingDecoder = formatNeedingDecoder(path);
    header.uprightWidth = picture.width();
    header.uprightHeight = picture.height();
    header.points = pictureSizeInPoints(picture);
    if (quarterTurned(header.orientation)) {
        std::swap(header.uprightWidth, header.uprightHeight);
        std::swap(header.points.width, header.points.height);
    }
    return header;
}

std::optional<double> largestFrameFor(const std::vector<PictureHeader>& slides)
{
    std::optional<double> frame;
    for (const PictureHeader& slide : slides) {
        const double longer = std::max(slide.points.width, slide.points.height);
        frame = frame ? std::min(*frame, longer) : longer;
    }
    return frame;
}

std::filesystem::path placePicture(const std::filesystem::path& source, const PictureHeader& header,
                                   std::optional<double> frame, const std::filesystem::path& destination)
{
    const bool turned = header.orientation > 1 && header.orientation <= 8;
    double dpiWidth = dotsPerInch(header.uprightWidth, header.points.width);
    double dpiHeight = dotsPerInch(header.uprightHeight, header.points.height);
    double scale = 1;
    auto reducedSide = [&scale](int pixels) { return std::max(1, static_cast<int>(std::lround(pixels * scale))); };
    if (frame && std::min(header.points.width, header.points.height) > *frame &&
        std::min(header.uprightWidth, header.uprightHeight) > kReduceBeyondFrames * *frame) {
        // A whole dpi, as the library reads it back; the size in points
        // then changes only by the rounding of the pixels.
        const double longest = std::max(header.uprightWidth, header.uprightHeight);
        const double reducedDpi = std::ceil(dpiWidth * kKeptFrames * *frame / longest);
        scale = reducedDpi / dpiWidth;
        const double reducedDpiHeight = dpiHeight * scale;
        const bool stillLongerThanFrame =
            reducedSide(header.uprightWidth) * kPointsPerInch / reducedDpi > *frame &&
            reducedSide(header.uprightHeight) * kPointsPerInch / std::round(reducedDpiHeight) > *frame;
        if (scale <= 0.5 && stillLongerThanFrame) {
            dpiWidth = reducedDpi;
            dpiHeight = reducedDpiHeight;
        } else {
            scale = 1;
        }
    }
    if (!turned && scale == 1 && !header.formatNeedingDecoder) {
        // The file layer's copy keeps the system's cause of a failed write ("No space left on device").
        FileHandle::copyFile(source, destination);
        return destination;
    }

    const int width = reducedSide(header.uprightWidth);
    const int height = reducedSide(header.uprightHeight);
    VImage picture;
    try {
        // Turns the picture upright and shrinks it while decoding; a source
        // takes the file name as it is, brackets and all.
        picture = VImage::thumbnail_source(vips::VSource::new_from_file(source.c_str()), width,
                                           VImage::option()->set("height", height)->set("size", VIPS_SIZE_FORCE));
    } catch (const vips::VError& refused) {
        if (header.formatNeedingDecoder) throw;
        // Only ImageMagick or libtiff's RGBA reader take it: the resizer draws it as stored.
        logf("*** The picture {} is drawn as it is stored: {}", source.string(), imageLibraryMessage(refused));
        FileHandle::copyFile(source, destination);
        return destination;
    }
    picture = picture.copy(
        VImage::option()->set("xres", dpiWidth / kMillimetresPerInch)->set("yres", dpiHeight / kMillimetresPerInch));
    // A source's unit would be carried over; in whole dots per centimetre 72 dpi comes back as 71.
    picture.set(VIPS_META_RESOLUTION_UNIT, "in");
    std::filesystem::path copy = destination;
    if (header.jpeg) {
        copy.replace_extension(".jpg");
        picture.jpegsave(copy.c_str(), VImage::option()->set("Q", 95));
    } else {
        copy.replace_extension(".png");
        // Every pixel is decoded here, so a missing decoder shows now.
        picture.pngsave(copy.c_str());
    }
    return copy;
}

}  // namespace quillora
