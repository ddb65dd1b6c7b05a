#include "QuickTimePlugin/ImageResizer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <thread>
#include <unordered_map>
#include <vips/vips8>

#include "QuickTimePlugin/TransitionKeys.h"
#include "foundation/Log.h"
#include "foundation/Progress.h"
#include "foundation/UserDefaults.h"
#include "foundation/WriteFailures.h"
#include "images/ImageLibrary.h"
#include "images/Resolution.h"
#include "support/InOrderWork.h"

namespace quillora {

using vips::VError;
using vips::VImage;

namespace {

constexpr std::string_view kSourceFile = "QuickTimePlugin/ImageResizer";
constexpr int kUnableToLoadImageLine = 158;

constexpr std::string_view kResizeImagesMethod = "-[ImageResizer resizeImages]";
constexpr std::string_view kRectForImagesMethod = "-[ImageResizer(QRPrivate) rectForImages:]";
constexpr std::string_view kScaleDownImageMethod = "-[ImageResizer(QRPrivate) scaleDownImage:toFitRect:]";
constexpr std::string_view kDrawImagesMethod = "-[ImageResizer(QRPrivate) resizeImages:fromTransitions:intoRect:]";
constexpr std::string_view kWriteImageMethod = "-[ImageResizer(QRPrivate) writeImage:forTransition:]";

// The platform's resolution when a file states none, and of every canvas:
// one pixel per point.

float compressionFactorForQuality(std::int64_t quality)
{
    // The movie toolbox's codec quality levels; anything else (the lossless
    // level among them) asks for PNG.
    switch (quality) {
    case 0:
        return 0.1f;
    case 256:
        return 0.26f;
    case 512:
        return 0.44f;
    case 768:
        return 0.6f;
    default:
        return 0.0f;
    }
}

// The platform keeps sizes in 32-bit floats; so do we, so that a picture
// compares with the frame made from its own size as the platform's would.
ImageResizer::Size pointSize(double width, double height)
{
    return {static_cast<float>(width), static_cast<float>(height)};
}

std::string sizeString(const ImageResizer::Size& size)
{
    return fmt::format("{{{:g}, {:g}}}", size.width, size.height);
}

std::string listString(const std::vector<double>& values)
{
    std::string text = "(";
    for (std::size_t i = 0; i < values.size(); ++i) text += fmt::format("{}{:g}", i ? ", " : "", values[i]);
    return text + ")";
}

// Rounded pixel bounds in the canvas (top-left origin) of a rectangle given
// in points with the platform's bottom-left origin, clipped to the canvas.
struct PixelRect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool empty() const { return width() <= 0 || height() <= 0; }
};

PixelRect pixelRectInCanvas(const ImageResizer::Rect& rect, double canvasHeight, int canvasWidthPixels,
                            int canvasHeightPixels)
{
    PixelRect pixels;
    pixels.left = std::clamp(static_cast<int>(std::lround(rect.x)), 0, canvasWidthPixels);
    pixels.right = std::clamp(static_cast<int>(std::lround(rect.x + rect.width)), 0, canvasWidthPixels);
    pixels.top = std::clamp(static_cast<int>(std::lround(canvasHeight - rect.y - rect.height)), 0, canvasHeightPixels);
    pixels.bottom = std::clamp(static_cast<int>(std::lround(canvasHeight - rect.y)), 0, canvasHeightPixels);
    return pixels;
}

// The colour as 8-bit band values: red, green, blue, then alpha if asked for.
std::vector<double> pixelOf(const ImageResizer::Color& colour, bool withAlpha)
{
    std::vector<double> pixel = {std::round(colour.red * 255), std::round(colour.green * 255),
                                 std::round(colour.blue * 255)};
    if (withAlpha) pixel.push_back(std::round(colour.alpha * 255));
    return pixel;
}

VImage solidImage(int width, int height, std::vector<double> pixel)
{
    // Tagged as sRGB: compositing converts its inputs by their interpretation.
    return VImage::black(width, height)
        .new_from_image(std::move(pixel))
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

// 8-bit sRGB, three bands, or four when the alpha is not opaque throughout.
VImage srgbPicture(VImage picture)
{
    if (picture.get_typeof(VIPS_META_ICC_NAME) != 0) {
        try {
            picture = picture.icc_transform("srgb", VImage::option()->set("embedded", true));
        } catch (const VError& error) {
            imageLibraryMessage(error);  // a broken profile: draw the pixels as they are
        }
    }
    // Greys, 16-bit, CMYK and the like; a picture whose bands have no colour
    // meaning is taken by its band count below.
    const VipsInterpretation interpretation = picture.interpretation();
    if (interpretation != VIPS_INTERPRETATION_sRGB && interpretation != VIPS_INTERPRETATION_MULTIBAND &&
        vips_colourspace_issupported(picture.get_image())) {
        picture = picture.colourspace(VIPS_INTERPRETATION_sRGB);
    }
    if (picture.format() != VIPS_FORMAT_UCHAR) {
        const bool wide = picture.format() == VIPS_FORMAT_USHORT || picture.format() == VIPS_FORMAT_SHORT;
        picture = picture.cast(VIPS_FORMAT_UCHAR, VImage::option()->set("shift", wide));
    }
    if (picture.bands() == 1) {
        picture = VImage::bandjoin({picture, picture, picture});
    } else if (picture.bands() == 2) {
        const VImage grey = picture.extract_band(0);
        picture = VImage::bandjoin({grey, grey, grey, picture.extract_band(1)});
    } else if (picture.bands() > 4) {
        picture = picture.extract_band(0, VImage::option()->set("n", 4));
    }
    if (picture.bands() == 4) {
        // Most slides with alpha are opaque; scaling them without it takes
        // half the time. Deciding needs the pixels, so decode them once.
        picture = picture.copy_memory();
        if (picture.extract_band(3).min() >= 255) picture = picture.extract_band(0, VImage::option()->set("n", 3));
    }
    return picture;
}

// The JPEG loader decodes at 1/2, 1/4 or 1/8 size almost for free. Leave at
// least a factor of two to the resampling kernel, as vipsthumbnail does.
int jpegShrinkFor(double factor)
{
    if (factor >= 16) return 8;
    if (factor >= 8) return 4;
    if (factor >= 4) return 2;
    return 1;
}

bool writeData(const std::string& path, const void* data, std::size_t length)
{
    auto failed = [&path](int error) {
        reportWriteFailure(path, error);
        return false;
    };
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return failed(errno);
    const auto* bytes = static_cast<const char*>(data);
    int error = 0;
    while (length > 0) {
        ssize_t written = ::write(fd, bytes, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            error = written < 0 ? errno : EIO;
            break;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    if (::close(fd) != 0 && error == 0) error = errno;
    return error == 0 || failed(error);
}

}  // namespace

std::unique_ptr<ImageResizer> ImageResizer::resizerWithTransitions(const Value& transitions)
{
    return std::make_unique<ImageResizer>(transitions);
}

ImageResizer::ImageResizer() : ImageResizer(Value::array()) {}

ImageResizer::ImageResizer(const Value& transitions)
{
    if (ArrayRef list = transitions.asArray()) {
        for (const Value& transition : *list) {
            if (transition.stringForKey(QRTransitionApplicationKey) == QRScreenshotApplicationName) {
                screenshotTransitions_.push_back(transition);
            } else {
                slideTransitions_.push_back(transition);
            }
        }
    }
    compressionFactor_ =
        compressionFactorForQuality(UserDefaults::standardUserDefaults().integerForKey("videoImageQuality"));
}

bool ImageResizer::resizeImages()
{
    if (!startImageLibrary()) {
        logMethod(kResizeImagesMethod, "*** The image library is not available; no picture was resized");
        return false;
    }
    Array slideTransitions;
    std::vector<Image> slideImages = imagesFromTransitions(slideTransitions_, &slideTransitions);
    Array screenshotTransitions;
    std::vector<Image> screenshotImages = imagesFromTransitions(screenshotTransitions_, &screenshotTransitions);

    // The screen shots are fitted into the frame that the slides decide.
    std::optional<Rect> frame = rectForImages(slideImages);
    if (!frame) {
        constexpr const char* kNoFrame =
            "*** No slide image could be loaded, so there is no frame to draw the pictures in; no picture was resized";
        logMethod(kResizeImagesMethod, "{}", kNoFrame);
        if (!slideTransitions_.empty()) throw NoSlidePicture(kNoFrame);
        return false;
    }

    const UserDefaults defaults = UserDefaults::standardUserDefaults();
    textBlock_ = Rect{0, 0, frame->width, 0};
    backgroundColor_ = Color{0, 0, 0, 1};
    hasLinks_ = false;
    if (defaults.boolForKey("supportForURL") && !slideTransitions_.empty()) {
        auto hasLink = [](const Value& transition) {
            const Value* link = transition.get(QRTransitionLinkURLKey);
            return link && !link->isNull();
        };
        if (std::any_of(slideTransitions_.begin(), slideTransitions_.end(), hasLink) ||
            std::any_of(screenshotTransitions_.begin(), screenshotTransitions_.end(), hasLink)) {
            hasLinks_ = true;
            const double fontSize = defaults.doubleForKey("textTrackFontSize");
            if (fontSize > 0) textBlock_.height = fontSize;
        }
        logMethod(kResizeImagesMethod, "does any transition have a URL link? {}", hasLinks_ ? "YES" : "NO");
    }

    startCountingProgress(ProgressUnit::pictures,
                          static_cast<std::int64_t>(slideImages.size() + screenshotImages.size()));
    const bool slidesWritten = resizeImages(slideImages, slideTransitions, *frame);
    const bool screenshotsWritten = resizeImages(screenshotImages, screenshotTransitions, *frame);
    return slidesWritten && screenshotsWritten;
}

std::vector<ImageResizer::Image> ImageResizer::imagesFromTransitions(const Array& transitions,
                                                                     Array* correspondingTransitions) const
{
    std::vector<Image> images;
    images.reserve(transitions.size());
    Array loaded;
    loaded.reserve(transitions.size());
    for (const Value& transition : transitions) {
        const std::optional<std::string> path = transition.stringForKey(QRTransitionImagePathKey);
        std::optional<Image> image;
        if (path) {
            // Only the header is read here.
            try {
                VImage picture = openPicture(*path, VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
                const PictureSize points = pictureSizeInPoints(picture);
                image = Image{*path, picture.get_typeof(VIPS_META_LOADER) ? picture.get_string(VIPS_META_LOADER) : "",
                              picture.width(), picture.height(), pointSize(points.width, points.height)};
            } catch (const VError& error) {
                imageLibraryMessage(error);
            }
        }
        if (!image) {
            logAt(kSourceFile, kUnableToLoadImageLine, "*** Unable to load image at path {}", path.value_or("(null)"));
            continue;
        }
        images.push_back(std::move(*image));
        loaded.push_back(transition);
    }
    if (correspondingTransitions) *correspondingTransitions = std::move(loaded);
    return images;
}

std::optional<ImageResizer::Rect> ImageResizer::rectForImages(const std::vector<Image>& images) const
{
    std::vector<double> widths;
    std::vector<double> heights;
    for (const Image& image : images) {
        widths.push_back(image.size.width);
        heights.push_back(image.size.height);
    }
    if (widths.empty()) return std::nullopt;
    std::sort(widths.begin(), widths.end());
    std::sort(heights.begin(), heights.end());
    const double minimumWidth = widths.front();
    const double minimumHeight = heights.front();
    logMethod(kRectForImagesMethod, "widths: {}\nheights: {}\nminima: {{{:g}, {:g}}}", listString(widths),
              listString(heights), minimumWidth, minimumHeight);

    double side = std::max(minimumWidth, minimumHeight);
    const double ratio = UserDefaults::standardUserDefaults().doubleForKey("imageSizeRation");
    if (ratio > 1.0) side /= ratio;
    return Rect{0, 0, side, side};
}

ImageResizer::Rect ImageResizer::rectForImage(const Image& image, const Rect& rect) const
{
    // The rectangle's own origin is ignored on purpose: with the link margin
    // the picture is centred on the canvas, not on the inset rectangle.
    return Rect{(rect.width - image.size.width) * 0.5, (rect.height - image.size.height) * 0.5, image.size.width,
                image.size.height};
}

std::optional<double> ImageResizer::scaleDownImage(Image& image, const Rect& rect) const
{
    const Size old = image.size;
    if (old.width <= rect.width && old.height <= rect.height) return std::nullopt;
    const double factor = old.height >= old.width ? rect.height / old.height : rect.width / old.width;
    image.size = pointSize(old.width * factor, old.height * factor);
    return factor;
}

// As many pictures are drawn at once as there are cores; they are written,
// and their lines logged, one by one in the order of the list, so the files
// and the log are those of drawing them in turn. Only a few drawings wait to
// be written at any time, so memory does not grow with the list.
bool ImageResizer::resizeImages(std::vector<Image>& images, const Array& transitions, Rect rect)
{
    if (hasLinks_) {
        const double inset = textBlock_.height;
        rect = Rect{rect.x + inset, rect.y + inset, rect.width - 2 * inset, rect.height - 2 * inset};
    }
    // A picture that an earlier one is written over is read once that one is
    // in its file: the last earlier picture written to its path.
    std::vector<std::string> outputs;
    std::vector<std::optional<std::size_t>> follows;
    std::unordered_map<std::string, std::size_t> lastWriterOf;
    for (std::size_t i = 0; i < images.size(); ++i) {
        const auto writer = lastWriterOf.find(images[i].path);
        follows.push_back(writer == lastWriterOf.end() ? std::nullopt : std::optional(writer->second));
        outputs.push_back(outputPathFor(transitions[i].stringForKey(QRTransitionImagePathKey).value_or("")));
        lastWriterOf[outputs.back()] = i;
    }
    auto mustFollow = [&](std::size_t i) { return follows[i]; };
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    bool result = true;
    forEachInOrder<Drawing>(
        images.size(), cores, 2 * cores, mustFollow, [&](std::size_t i) { return drawAndEncode(images[i], rect); },
        [&](std::size_t i, Drawing drawing) {
            if (drawing.framed) {
                const Size old = images[i].size;
                images[i].size = drawing.fittedSize;
                if (drawing.scaleFactor) {
                    logMethod(kScaleDownImageMethod, "scaled image of size {} down by {:g} to {}", sizeString(old),
                              *drawing.scaleFactor, sizeString(images[i].size));
                }
            }
            if (drawing.drawError) {
                logMethod(kDrawImagesMethod, "*** Unable to draw image at path {}: {}", images[i].path,
                          *drawing.drawError);
                result = false;
            } else {
                result = writeImage(drawing, outputs[i], transitions[i]) && result;
            }
            countProgress();
        });
    return result;
}

std::string ImageResizer::outputPathFor(const std::string& path) const
{
    return compressionFactor_ != 0 ? std::filesystem::path(path).replace_extension("jpg").string() : path;
}

ImageResizer::Drawing ImageResizer::drawAndEncode(Image image, const Rect& rect) const
{
    Drawing drawing;
    VImage canvas;
    try {
        canvas = drawImage(image, rect, drawing);
    } catch (const VError& error) {
        drawing.drawError = imageLibraryMessage(error);
        return drawing;
    }
    void* data = nullptr;
    std::size_t length = 0;
    try {
        if (compressionFactor_ != 0) {
            // JPEG has no alpha: the unpainted strip comes out in the background colour.
            const VImage opaque =
                canvas.bands() == 4
                    ? canvas.flatten(VImage::option()->set("background", pixelOf(backgroundColor_, false)))
                    : canvas;
            const int quality = static_cast<int>(std::lround(100 * compressionFactor_));
            opaque.write_to_buffer(".jpg", &data, &length, VImage::option()->set("Q", quality));
        } else {
            canvas.write_to_buffer(".png", &data, &length);
        }
    } catch (const VError& error) {
        drawing.encodeError = imageLibraryMessage(error);
    }
    const std::unique_ptr<void, decltype(&g_free)> owned(data, g_free);
    if (data) drawing.encoded.assign(static_cast<std::uint8_t*>(data), static_cast<std::uint8_t*>(data) + length);
    return drawing;
}

// One canvas of rect's size: transparent, with rect (with its origin, in the
// platform's bottom-left coordinates) filled with the background colour, so
// that the link margin leaves a strip unpainted along the left and bottom
// edges only; then the picture, scaled down to fit and centred on the canvas,
// drawn over it. The result is evaluated lazily by the encoder.
VImage ImageResizer::drawImage(Image& image, const Rect& rect, Drawing& drawing) const
{
    const int canvasWidth = static_cast<int>(std::lround(rect.width));
    const int canvasHeight = static_cast<int>(std::lround(rect.height));
    if (canvasWidth < 1 || canvasHeight < 1) {
        throw VError(fmt::format("the frame {} leaves no room for a picture", sizeString({rect.width, rect.height})));
    }

    drawing.framed = true;
    drawing.scaleFactor = scaleDownImage(image, rect);
    drawing.fittedSize = image.size;
    const Rect destination = rectForImage(image, rect);
    const int pictureWidth = std::max(1, static_cast<int>(std::lround(destination.width)));
    const int pictureHeight = std::max(1, static_cast<int>(std::lround(destination.height)));

    auto options = VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL);
    if (image.loader == "jpegload") {
        const double factor = std::min(static_cast<double>(image.pixelWidth) / pictureWidth,
                                       static_cast<double>(image.pixelHeight) / pictureHeight);
        if (int shrink = jpegShrinkFor(factor); shrink > 1) options->set("shrink", shrink);
    }
    VImage picture = srgbPicture(openPicture(image.path, options));
    const bool pictureHasAlpha = picture.bands() == 4;
    if (picture.width() != pictureWidth || picture.height() != pictureHeight) {
        auto resample = [&](const VImage& in) {
            return in.resize(static_cast<double>(pictureWidth) / in.width(),
                             VImage::option()
                                 ->set("vscale", static_cast<double>(pictureHeight) / in.height())
                                 ->set("kernel", VIPS_KERNEL_LANCZOS3));
        };
        picture = pictureHasAlpha ? resample(picture.premultiply()).unpremultiply().cast(VIPS_FORMAT_UCHAR)
                                  : resample(picture);
        if (picture.width() != pictureWidth || picture.height() != pictureHeight) {
            picture =
                picture.embed(0, 0, pictureWidth, pictureHeight, VImage::option()->set("extend", VIPS_EXTEND_COPY));
        }
    }

    const PixelRect fill = pixelRectInCanvas(rect, rect.height, canvasWidth, canvasHeight);
    const int pictureLeft = static_cast<int>(std::lround(destination.x));
    const int pictureTop = static_cast<int>(std::lround(rect.height - destination.y - destination.height));

    const bool fillCoversCanvas = fill.left == 0 && fill.top == 0 && fill.right == canvasWidth &&
                                  fill.bottom == canvasHeight && backgroundColor_.alpha >= 1;
    // A JPEG flattens an unpainted strip onto the background colour, which
    // is what painting the whole canvas in it gives.
    const bool opaqueOutput = compressionFactor_ != 0 && backgroundColor_.alpha >= 1;
    VImage canvas;
    if ((fillCoversCanvas || opaqueOutput) && !pictureHasAlpha) {
        // Opaque throughout: no alpha band to carry or encode.
        canvas = solidImage(canvasWidth, canvasHeight, pixelOf(backgroundColor_, false))
                     .insert(picture, pictureLeft, pictureTop);
    } else {
        // The "black" extension of an RGBA image is transparent.
        canvas = fill.empty() ? solidImage(canvasWidth, canvasHeight, {0, 0, 0, 0})
                              : solidImage(fill.width(), fill.height(), pixelOf(backgroundColor_, true))
                                    .embed(fill.left, fill.top, canvasWidth, canvasHeight);
        if (pictureHasAlpha) {
            canvas = canvas
                         .composite2(picture, VIPS_BLEND_MODE_OVER,
                                     VImage::option()->set("x", pictureLeft)->set("y", pictureTop))
                         .cast(VIPS_FORMAT_UCHAR);
        } else {
            // Source-over at full opacity of an opaque picture is a copy.
            canvas = canvas.insert(picture.bandjoin_const({255}), pictureLeft, pictureTop);
        }
    }
    const double pixelsPerMillimetre = kPointsPerInch / kMillimetresPerInch;
    return canvas.copy(VImage::option()
                           ->set("interpretation", VIPS_INTERPRETATION_sRGB)
                           ->set("xres", pixelsPerMillimetre)
                           ->set("yres", pixelsPerMillimetre));
}

bool ImageResizer::writeImage(const Drawing& drawing, const std::string& path, const Value& transition) const
{
    if (drawing.encodeError) {
        logMethod(kWriteImageMethod, "*** Unable to encode the picture for {}: {}", path, *drawing.encodeError);
    }
    // The whole picture is encoded before the file is opened, so a PNG
    // written over its own source has been read to the end first.
    if (drawing.encodeError || !writeData(path, drawing.encoded.data(), drawing.encoded.size())) {
        logMethod(kWriteImageMethod, "*** Failed writing image data to file {}", path);
        return false;
    }
    logMethod(kWriteImageMethod, "wrote image {}", std::filesystem::path(path).filename().string());
    if (DictionaryRef dictionary = transition.asDictionary()) dictionary->set(QRTransitionImagePathKey, path);
    return true;
}

}  // namespace quillora
