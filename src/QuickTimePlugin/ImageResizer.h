// Redraws every slide and screen shot of an export onto one common square
// canvas on a black background, scaled down (never up) and centred, and writes
// it back beside the source (JPEG) or over it (PNG). The "imagePath" of every
// transition whose picture was written then names the new file; transitions
// are shared by reference, so the caller sees the change.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace vips {
class VImage;
}

namespace quillora {

// There are slides but none of their pictures could be loaded, so there is no
// frame to draw in: the export cannot go on.
class NoSlidePicture : public std::out_of_range {
public:
    using std::out_of_range::out_of_range;
};

class ImageResizer {
public:
    // Sizes and rectangles are in points, with the platform's origin at the
    // bottom left; the canvases hold one pixel per point.
    struct Size {
        double width = 0;
        double height = 0;
    };
    struct Rect {
        double x = 0;
        double y = 0;
        double width = 0;
        double height = 0;
    };
    struct Color {
        double red = 0;
        double green = 0;
        double blue = 0;
        double alpha = 0;
    };

    static std::unique_ptr<ImageResizer> resizerWithTransitions(const Value& transitions);

    ImageResizer();
    // An array of transition dictionaries; anything else counts as empty.
    explicit ImageResizer(const Value& transitions);

    // True when every picture of both lists was written; false also when
    // there are no slides (no frame to draw the screen shots in). Throws
    // NoSlidePicture when there are slides but none of them could be loaded.
    bool resizeImages();

private:
    // A picture as its file describes it. Its pixels are decoded only while
    // it is drawn, one picture at a time, so a long slide list costs no more
    // memory than one slide.
    struct Image {
        std::string path;
        std::string loader;
        int pixelWidth = 0;
        int pixelHeight = 0;
        Size size;  // in points; scaling down changes it
    };

    // One picture drawn and encoded off the calling thread; what it would
    // have logged is logged when it is written, in the order of the list.
    struct Drawing {
        bool framed = false;                // the frame had room, so the picture was fitted to it
        Size fittedSize;                    // its size in the frame, when framed
        std::optional<double> scaleFactor;  // when it had to be scaled down to fit
        std::optional<std::string> drawError;
        std::vector<std::uint8_t> encoded;
        std::optional<std::string> encodeError;
    };

    std::vector<Image> imagesFromTransitions(const Array& transitions, Array* correspondingTransitions) const;
    std::optional<Rect> rectForImages(const std::vector<Image>& images) const;
    Rect rectForImage(const Image& image, const Rect& rect) const;
    // The factor the picture was scaled down by to fit, if it had to be.
    std::optional<double> scaleDownImage(Image& image, const Rect& rect) const;
    bool resizeImages(std::vector<Image>& images, const Array& transitions, Rect rect);
    std::string outputPathFor(const std::string& path) const;
    Drawing drawAndEncode(Image image, const Rect& rect) const;
    bool writeImage(const Drawing& drawing, const std::string& path, const Value& transition) const;

    vips::VImage drawImage(Image& image, const Rect& rect, Drawing& drawing) const;

    Array screenshotTransitions_;
    Array slideTransitions_;
    bool hasLinks_ = false;
    Color backgroundColor_;
    Rect textBlock_;
    float compressionFactor_ = 0;
};

}  // namespace quillora
