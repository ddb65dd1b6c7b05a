// libvips, started once per process by whoever needs pictures first, and the
// two things every reader of slide pictures needs from it: opening a picture
// in whatever format a slide comes in, and its size as the platform sees it.
#pragma once

#include <string>

namespace vips {
class VError;
class VImage;
class VOption;
}  // namespace vips

namespace quillora {

// Starts libvips on the first call; every call answers whether it started.
// Thread-safe.
bool startImageLibrary();

// Opens a picture (the header only, until its pixels are asked for) with the
// loader libvips picks for the file, taking the options (which it owns).
// When that loader refuses the file, ImageMagick's loader is tried, then
// libtiff's RGBA reader (a TIFF with subsampled YCbCr needs it), before
// giving up. Throws vips::VError.
vips::VImage openPicture(const std::string& path, vips::VOption* options);

// The text of a refusal, without its trailing line ends. The C++ layer
// copies the library's error buffer but leaves it full: this empties it, so
// the next refusal does not carry this one's text.
std::string imageLibraryMessage(const vips::VError& error);

struct PictureSize {
    double width = 0;
    double height = 0;
};

// The size in points: pixels x 72 / dpi, at 72 dpi when the file states no
// resolution. Not rounded.
PictureSize pictureSizeInPoints(const vips::VImage& picture);

}  // namespace quillora
