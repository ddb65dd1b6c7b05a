// Slide pictures made ready for the resizer, which draws a file as it is
// stored: a phone photo whose EXIF orientation says "turn me" gets an upright
// copy, and a picture far larger than the frame it will be drawn in is
// reduced while it is read (JPEG decodes at 1/2 to 1/8 size, PNG streams
// through a shrink), so drawing it later needs little memory. Everything
// else is copied byte for byte, so it is drawn exactly as before.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "images/ImageLibrary.h"

namespace quillora {

// What the header of a picture says, as the resizer will see the picture
// once it stands upright.
struct PictureHeader {
    int orientation = 1;  // EXIF: 1 upright, 6 and 8 a quarter turn, 3 a half turn, 2/4/5/7 mirrored
    bool jpeg = false;
    // A picture in a format whose decoder the library may lack is decoded
    // into a PNG copy, so that a missing decoder is met before the export
    // starts, not while drawing.
    std::optional<std::string> formatNeedingDecoder;
    int uprightWidth = 0;   // pixels
    int uprightHeight = 0;  // pixels
    PictureSize points;     // upright, in points
};

// Reads the header only. Throws vips::VError when the picture cannot be opened.
PictureHeader readPictureHeader(const std::filesystem::path& path);

// The resizer's frame is a square no larger than the longer side of any of
// the slides (it takes the smallest width and height among them); nothing
// when there are no slides.
std::optional<double> largestFrameFor(const std::vector<PictureHeader>& slides);

// Puts the picture at destination's path: as it is, or decoded, upright and
// (when frame is given and the picture has more than four times the frame's
// pixels on both sides) reduced to twice the frame on its longer side. A
// written copy takes the extension of what it holds (a JPEG stays a JPEG,
// anything else becomes a PNG) and states the resolution that keeps its
// size in points but for the rounding of its pixels, so the resizer decides
// the same frame. Returns the copy's path; throws vips::VError when the
// copy cannot be written.
std::filesystem::path placePicture(const std::filesystem::path& source, const PictureHeader& header,
                                   std::optional<double> frame, const std::filesystem::path& destination);

}  // namespace quillora
