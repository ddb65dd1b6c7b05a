// The slide image resizer: every geometry is read back from decoded pixels
// (regional means within a tolerance), never from the resizer's arithmetic.
#include <gtest/gtest.h>

#include <filesystem>
#include <vips/vips8>

#include "QuickTimePlugin/ImageLibrary.h"
#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "TestSupport.h"
#include "foundation/Log.h"
#include "foundation/UserDefaults.h"

using namespace quillora;
using vips::VImage;
namespace fs = std::filesystem;

namespace {

using Colour = std::vector<double>;
const Colour kBlack = {0, 0, 0};
const Colour kRed = {255, 0, 0};
const Colour kGreen = {0, 255, 0};
const Colour kBlue = {0, 0, 255};
const Colour kWhite = {255, 255, 255};

// Sets the process's preferences for one test and puts the old ones back.
class ScopedDefaults {
public:
    explicit ScopedDefaults(std::initializer_list<std::pair<std::string, Value>> entries = {})
        : previous_(UserDefaults::standardUserDefaults())
    {
        UserDefaults defaults;
        for (const auto& [key, value] : entries) defaults.set(key, value);
        UserDefaults::setStandardUserDefaults(defaults);
    }
    ~ScopedDefaults() { UserDefaults::setStandardUserDefaults(previous_); }
    ScopedDefaults(const ScopedDefaults&) = delete;
    ScopedDefaults& operator=(const ScopedDefaults&) = delete;

private:
    UserDefaults previous_;
};

// PNG output keeps every pixel, so edges can be checked exactly.
constexpr int kPNG = 1024;

class ImageResizerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(startImageLibrary()); }

    // A picture of one colour that states 72 dpi, as slide exports do.
    static VImage solid(int width, int height, const Colour& colour)
    {
        const double perMillimetre = 72 / 25.4;
        return VImage::black(width, height)
            .new_from_image(colour)
            .copy(VImage::option()->set("xres", perMillimetre)->set("yres", perMillimetre));
    }

    fs::path save(const VImage& picture, const std::string& name) const
    {
        const fs::path path = folder_.path() / name;
        picture.write_to_file(path.c_str());
        return path;
    }

    static Value transition(const fs::path& path, bool screenshot = false)
    {
        Value record = Value::dictionary({{"timeValue", 0}, {QRTransitionImagePathKey, path.string()}});
        if (screenshot) record.asDictionary()->set(QRTransitionApplicationKey, QRScreenshotApplicationName);
        return record;
    }

    static std::string imagePath(const Value& record)
    {
        return record.stringForKey(QRTransitionImagePathKey).value_or("");
    }

    static bool resize(const std::vector<Value>& transitions)
    {
        return ImageResizer::resizerWithTransitions(Value::array(transitions))->resizeImages();
    }

    static VImage decode(const std::string& path) { return VImage::new_from_file(path.c_str()).copy_memory(); }

    // Band means of a region, compared with the expected colour band by band.
    static void expectRegion(const VImage& image, int x, int y, int width, int height, const Colour& expected,
                             double tolerance = 2)
    {
        SCOPED_TRACE(fmt::format("region x {} y {} size {}x{}", x, y, width, height));
        ASSERT_LE(expected.size(), static_cast<std::size_t>(image.bands()));
        const VImage region = image.crop(x, y, width, height);
        for (int band = 0; band < static_cast<int>(expected.size()); ++band) {
            EXPECT_NEAR(region.extract_band(band).avg(), expected[band], tolerance) << "band " << band;
        }
    }

    static void expectOpaque(const VImage& image)
    {
        if (image.bands() == 4)
            EXPECT_EQ(image.extract_band(3).min(), 255);
        else
            EXPECT_EQ(image.bands(), 3);
    }

    // A picture drawn at (x, y) with the given size on a black canvas: the
    // rows above and below and the columns left and right of it are black,
    // its inside has its colour, checked right up to its edges (or, for JPEG,
    // up to `margin` pixels from them, where colours bleed).
    static void expectPictureAt(const VImage& canvas, int x, int y, int width, int height, const Colour& colour,
                                double tolerance = 2, int margin = 0)
    {
        SCOPED_TRACE(fmt::format("picture at ({}, {}) of {}x{}", x, y, width, height));
        const int m = margin;
        if (y - m > 0) expectRegion(canvas, 0, 0, canvas.width(), y - m, kBlack, tolerance);
        if (y + height + m < canvas.height())
            expectRegion(canvas, 0, y + height + m, canvas.width(), canvas.height() - y - height - m, kBlack,
                         tolerance);
        if (x - m > 0) expectRegion(canvas, 0, y, x - m, height, kBlack, tolerance);
        if (x + width + m < canvas.width())
            expectRegion(canvas, x + width + m, y, canvas.width() - x - width - m, height, kBlack, tolerance);
        expectRegion(canvas, x, y, width, height, colour, tolerance + m);
        expectRegion(canvas, x + m, y + m, width - 2 * m, 1, colour, tolerance);               // first row
        expectRegion(canvas, x + m, y + height - 1 - m, width - 2 * m, 1, colour, tolerance);  // last row
        expectRegion(canvas, x + m, y + m, 1, height - 2 * m, colour, tolerance);              // first column
        expectRegion(canvas, x + width - 1 - m, y + m, 1, height - 2 * m, colour, tolerance);  // last column
    }

    static std::string ffprobeSize(const std::string& path)
    {
        auto result = test::runCommand("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " +
                                       test::shellQuote(path));
        while (!result.output.empty() && (result.output.back() == '\n' || result.output.back() == '\r'))
            result.output.pop_back();
        return result.status == 0 ? result.output : "ffprobe failed: " + result.output;
    }

    static std::size_t countLines(const CapturedLog& log, std::string_view fragment)
    {
        std::size_t count = 0;
        for (const auto& line : log.lines()) count += line.find(fragment) != std::string::npos;
        return count;
    }

    test::TemporaryFolder folder_;
};

TEST_F(ImageResizerTest, DrawsEverySlideOnTheCommonSquareFrameScaledDownOnly)
{
    ScopedDefaults defaults({{"videoImageQuality", kPNG}});
    // Red with a blue right half: where the halves meet tells a scaled picture
    // from a cropped one.
    const auto large = save(solid(1024, 768, kRed).insert(solid(512, 768, kBlue), 512, 0), "large.png");
    const auto small = save(solid(640, 480, kGreen), "small.png");
    Value first = transition(large), second = transition(small);

    CapturedLog log;
    ASSERT_TRUE(resize({first, second}));
    EXPECT_TRUE(log.contains("-[ImageResizer(QRPrivate) rectForImages:]  widths: (640, 1024)\nheights: (480, 768)\n"
                             "minima: {640, 480}"));
    EXPECT_TRUE(log.contains(
        "-[ImageResizer(QRPrivate) scaleDownImage:toFitRect:]  scaled image of size {1024, 768} down by 0.625 to "
        "{640, 480}"));
    EXPECT_EQ(countLines(log, "scaled image"), 1u);  // the 640x480 slide is not scaled

    // PNG goes over the source, so the paths stay.
    EXPECT_EQ(imagePath(first), large.string());
    EXPECT_EQ(imagePath(second), small.string());

    const VImage big = decode(large.string());
    ASSERT_EQ(big.width(), 640);
    ASSERT_EQ(big.height(), 640);
    expectOpaque(big);
    expectRegion(big, 0, 0, 640, 80, kBlack);
    expectRegion(big, 0, 560, 640, 80, kBlack);
    expectRegion(big, 0, 80, 310, 480, kRed);  // 512 x 0.625 = 320: the halves meet there
    expectRegion(big, 330, 80, 310, 480, kBlue);
    expectRegion(big, 0, 80, 640, 1, {127.5, 0, 127.5}, 4);  // first and last picture rows, edge to edge
    expectRegion(big, 0, 559, 640, 1, {127.5, 0, 127.5}, 4);

    const VImage other = decode(small.string());
    ASSERT_EQ(other.width(), 640);
    ASSERT_EQ(other.height(), 640);
    expectPictureAt(other, 0, 80, 640, 480, kGreen);
    EXPECT_EQ(ffprobeSize(small.string()), "640,640");
}

TEST_F(ImageResizerTest, FrameSideIsTheLargerOfIndependentMinimaDividedByTheSizeRatio)
{
    {
        SCOPED_TRACE("minima from different pictures");
        ScopedDefaults defaults({{"videoImageQuality", kPNG}});
        const auto wide = save(solid(1000, 300, kRed), "wide.png");
        const auto tall = save(solid(400, 900, kGreen), "tall.png");
        CapturedLog log;
        ASSERT_TRUE(resize({transition(wide), transition(tall)}));
        EXPECT_TRUE(log.contains("minima: {400, 300}"));
        // 1000x300 by 0.4 is 400x120; 400x900 by 400/900 is 177.8x400.
        const VImage w = decode(wide.string());
        ASSERT_EQ(w.width(), 400);
        ASSERT_EQ(w.height(), 400);
        expectPictureAt(w, 0, 140, 400, 120, kRed);
        const VImage t = decode(tall.string());
        ASSERT_EQ(t.width(), 400);
        ASSERT_EQ(t.height(), 400);
        expectRegion(t, 0, 0, 108, 400, kBlack);
        expectRegion(t, 114, 0, 172, 400, kGreen);
        expectRegion(t, 292, 0, 108, 400, kBlack);
    }
    const std::vector<std::pair<double, int>> ratios = {{1.5, 400}, {1.0, 600}, {0.5, 600}, {0.0, 600}};
    for (const auto& [ratio, side] : ratios) {
        SCOPED_TRACE(fmt::format("imageSizeRation {}", ratio));
        ScopedDefaults defaults({{"videoImageQuality", kPNG}, {"imageSizeRation", ratio}});
        const auto slide = save(solid(600, 450, kWhite), fmt::format("ratio-{}.png", ratio));
        ASSERT_TRUE(resize({transition(slide)}));
        const VImage canvas = decode(slide.string());
        ASSERT_EQ(canvas.width(), side);
        ASSERT_EQ(canvas.height(), side);
        const int height = side * 450 / 600;
        expectPictureAt(canvas, 0, (side - height) / 2, side, height, kWhite);
    }
}

TEST_F(ImageResizerTest, SmallPicturesAreCentredAndScreenshotsFitTheSlideFrame)
{
    ScopedDefaults defaults({{"videoImageQuality", kPNG}});
    const auto slide = save(solid(800, 600, kRed), "slide.png");
    const auto bigShot = save(solid(1600, 1200, kBlue), "big-shot.png");
    const auto tallShot = save(solid(600, 1000, kGreen), "tall-shot.png");
    const auto tinyShot = save(solid(200, 100, kWhite), "tiny-shot.png");  // would shrink the frame if it counted
    // Four times the frame: the JPEG decoder halves it while reading.
    const auto photo = save(solid(3200, 2400, kRed).insert(solid(1600, 2400, kBlue), 1600, 0), "photo.jpg");
    Value photoRecord = transition(photo, true);
    CapturedLog log;
    ASSERT_TRUE(resize({transition(bigShot, true), transition(slide), transition(tallShot, true),
                        transition(tinyShot, true), photoRecord}));
    EXPECT_TRUE(log.contains("widths: (800)\nheights: (600)"));

    expectPictureAt(decode(slide.string()), 0, 100, 800, 600, kRed);
    expectPictureAt(decode(bigShot.string()), 0, 100, 800, 600, kBlue);    // by 0.5
    expectPictureAt(decode(tallShot.string()), 160, 0, 480, 800, kGreen);  // by 0.8, the height decides
    const VImage tiny = decode(tinyShot.string());
    ASSERT_EQ(tiny.width(), 800);
    expectPictureAt(tiny, 300, 350, 200, 100, kWhite);  // not enlarged
    EXPECT_TRUE(log.contains("scaled image of size {600, 1000} down by 0.8 to {480, 800}"));
    EXPECT_EQ(countLines(log, "scaled image"), 3u);

    const VImage photoCanvas = decode(imagePath(photoRecord));
    ASSERT_EQ(photoCanvas.width(), 800);
    ASSERT_EQ(photoCanvas.height(), 800);
    expectRegion(photoCanvas, 0, 0, 800, 96, kBlack);
    expectRegion(photoCanvas, 0, 104, 390, 592, kRed, 6);  // the halves meet at 1600 / 4
    expectRegion(photoCanvas, 410, 104, 390, 592, kBlue, 6);
    expectRegion(photoCanvas, 0, 704, 800, 96, kBlack);
}

TEST_F(ImageResizerTest, LinkMarginLeavesTheLeftAndBottomStripsUnpainted)
{
    const Value link = Value::dictionary({{"title", "Notes"}, {"url", "https://example.org/notes"}});
    {
        ScopedDefaults defaults({{"videoImageQuality", kPNG}, {"supportForURL", true}, {"textTrackFontSize", 20}});
        const auto slide = save(solid(800, 600, kRed), "linked.png");
        const auto shot = save(solid(400, 300, kGreen), "shot.png");
        Value linked = transition(slide);
        linked.asDictionary()->set(QRTransitionLinkURLKey, link);
        CapturedLog log;
        ASSERT_TRUE(resize({linked, transition(shot, true)}));
        EXPECT_TRUE(log.contains("-[ImageResizer resizeImages]  does any transition have a URL link? YES"));

        // The screen shot leaves the edges free: 760x760, centred on the canvas.
        const VImage canvas = decode(shot.string());
        ASSERT_EQ(canvas.width(), 760);
        ASSERT_EQ(canvas.height(), 760);
        ASSERT_EQ(canvas.bands(), 4);
        const Colour transparent = {0, 0, 0, 0};
        const Colour opaqueBlack = {0, 0, 0, 255};
        expectRegion(canvas, 0, 0, 20, 760, transparent, 0);    // left strip
        expectRegion(canvas, 0, 740, 760, 20, transparent, 0);  // bottom strip
        expectRegion(canvas, 20, 0, 740, 20, opaqueBlack, 0);   // top edge
        expectRegion(canvas, 740, 0, 20, 740, opaqueBlack, 0);  // right edge
        expectRegion(canvas, 20, 0, 740, 230, opaqueBlack, 0);
        expectRegion(canvas, 180, 230, 400, 300, {0, 255, 0, 255}, 0);
        expectRegion(canvas, 20, 530, 720, 210, opaqueBlack, 0);

        // The slide, scaled by 0.95 to 760x570, covers the strip in its rows.
        const VImage slideCanvas = decode(slide.string());
        ASSERT_EQ(slideCanvas.width(), 760);
        expectRegion(slideCanvas, 0, 95, 760, 570, {255, 0, 0, 255});
        expectRegion(slideCanvas, 0, 0, 20, 95, transparent, 0);
        expectRegion(slideCanvas, 0, 665, 20, 95, transparent, 0);
        expectRegion(slideCanvas, 20, 0, 740, 95, opaqueBlack, 0);
    }
    {
        SCOPED_TRACE("link support on, no link");
        ScopedDefaults defaults({{"videoImageQuality", kPNG}, {"supportForURL", true}, {"textTrackFontSize", 20}});
        const auto slide = save(solid(800, 600, kRed), "plain.png");
        CapturedLog log;
        ASSERT_TRUE(resize({transition(slide)}));
        EXPECT_TRUE(log.contains("does any transition have a URL link? NO"));
        EXPECT_EQ(decode(slide.string()).width(), 800);
    }
    {
        SCOPED_TRACE("a link, link support off");
        ScopedDefaults defaults({{"videoImageQuality", kPNG}, {"textTrackFontSize", 20}});
        const auto slide = save(solid(800, 600, kRed), "off.png");
        Value linked = transition(slide);
        linked.asDictionary()->set(QRTransitionLinkURLKey, link);
        CapturedLog log;
        ASSERT_TRUE(resize({linked}));
        EXPECT_FALSE(log.contains("URL link"));
        const VImage canvas = decode(slide.string());
        EXPECT_EQ(canvas.width(), 800);
        expectOpaque(canvas);
    }
}

TEST_F(ImageResizerTest, QualityChoosesJpegBesideTheSourceOrPngOverIt)
{
    // Noise, so that the JPEG quality shows in the file size.
    const VImage detailed = VImage::gaussnoise(640, 480, VImage::option()->set("mean", 128)->set("sigma", 40))
                                .bandjoin_const({128, 128})
                                .cast(VIPS_FORMAT_UCHAR);
    {
        SCOPED_TRACE("quality absent: JPEG at 0.1 beside a PNG source");
        ScopedDefaults defaults;
        const auto source = save(detailed, "default.png");
        const Bytes before = test::readFile(source);
        Value record = transition(source);
        CapturedLog log;
        ASSERT_TRUE(resize({record}));
        const fs::path written = folder_.path() / "default.jpg";
        EXPECT_EQ(imagePath(record), written.string());
        EXPECT_TRUE(log.contains("-[ImageResizer(QRPrivate) writeImage:forTransition:]  wrote image default.jpg"));
        EXPECT_EQ(test::readFile(source), before);  // the source stays as it was
        const VImage canvas = decode(written.string());
        EXPECT_EQ(canvas.get_string("vips-loader"), std::string("jpegload"));
        EXPECT_NEAR(canvas.xres() * 25.4, 72, 0.1);  // stated 72 dpi: points = pixels
        EXPECT_EQ(ffprobeSize(written.string()), "640,640");
        expectRegion(canvas, 0, 0, 640, 72, kBlack, 4);
        expectRegion(canvas, 0, 88, 640, 464, {128, 128, 128}, 6);
    }
    std::uintmax_t previousSize = 0;
    for (int quality : {0, 256, 512, 768}) {
        SCOPED_TRACE(fmt::format("videoImageQuality {}", quality));
        ScopedDefaults defaults({{"videoImageQuality", quality}});
        const auto source = save(detailed, fmt::format("quality-{}.png", quality));
        Value record = transition(source);
        ASSERT_TRUE(resize({record}));
        const fs::path written = folder_.path() / fmt::format("quality-{}.jpg", quality);
        ASSERT_EQ(imagePath(record), written.string());
        EXPECT_GT(fs::file_size(written), previousSize);  // a higher factor keeps more
        previousSize = fs::file_size(written);
    }
    {
        SCOPED_TRACE("a JPEG source is overwritten");
        ScopedDefaults defaults({{"videoImageQuality", 512}});
        const auto source = save(solid(640, 480, kWhite), "photo.jpg");
        Value record = transition(source);
        ASSERT_TRUE(resize({record}));
        EXPECT_EQ(imagePath(record), source.string());
        EXPECT_EQ(ffprobeSize(source.string()), "640,640");
    }
    for (const Value& quality : {Value(kPNG), Value(-1), Value(100), Value("1024")}) {
        SCOPED_TRACE("PNG over the source");
        ScopedDefaults defaults({{"videoImageQuality", quality}});
        const auto source = save(solid(640, 480, kWhite), "lossless.png");
        Value record = transition(source);
        CapturedLog log;
        ASSERT_TRUE(resize({record}));
        EXPECT_EQ(imagePath(record), source.string());
        EXPECT_TRUE(log.contains("wrote image lossless.png"));
        EXPECT_FALSE(fs::exists(folder_.path() / "lossless.jpg"));
        const VImage canvas = decode(source.string());
        EXPECT_EQ(canvas.get_string("vips-loader"), std::string("pngload"));
        EXPECT_NEAR(canvas.xres() * 25.4, 72, 0.1);
        EXPECT_EQ(ffprobeSize(source.string()), "640,640");
        expectPictureAt(canvas, 0, 80, 640, 480, kWhite);
    }
}

TEST_F(ImageResizerTest, AFailedWriteKeepsThePathFailsTheResultAndTheLoopGoesOn)
{
    ScopedDefaults defaults;
    const auto blocked = save(solid(640, 480, kRed), "blocked.png");
    fs::create_directory(folder_.path() / "blocked.jpg");  // even root cannot write a file over a folder
    const auto fine = save(solid(640, 480, kGreen), "fine.png");
    const auto shot = save(solid(640, 480, kBlue), "shot.png");
    Value first = transition(blocked), second = transition(fine), third = transition(shot, true);
    CapturedLog log;
    EXPECT_FALSE(resize({first, second, third}));
    EXPECT_TRUE(log.contains("-[ImageResizer(QRPrivate) writeImage:forTransition:]  *** Failed writing image data "
                             "to file " +
                             (folder_.path() / "blocked.jpg").string()));
    EXPECT_EQ(imagePath(first), blocked.string());
    EXPECT_EQ(imagePath(second), (folder_.path() / "fine.jpg").string());
    EXPECT_EQ(imagePath(third), (folder_.path() / "shot.jpg").string());
    EXPECT_EQ(ffprobeSize(imagePath(second)), "640,640");
    EXPECT_EQ(ffprobeSize(imagePath(third)), "640,640");
}

TEST_F(ImageResizerTest, AnUnloadablePictureIsLoggedAndSkippedWithoutShiftingThePairing)
{
    ScopedDefaults defaults;
    const auto red = save(solid(640, 480, kRed), "red.png");
    const fs::path broken = folder_.path() / "broken.png";
    test::writeFile(broken, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'i', 'c', 't', 'u', 'r', 'e'});
    const fs::path missing = folder_.path() / "missing.png";
    const auto green = save(solid(320, 240, kGreen), "green.png");
    Value records[] = {transition(red), transition(broken), transition(missing), transition(green)};
    CapturedLog log;
    EXPECT_TRUE(resize({records[0], records[1], records[2], records[3]}));

    const auto lines = log.lines();
    for (const fs::path& path : {broken, missing}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(),
                            "QuickTimePlugin/ImageResizer:158  *** Unable to load image at path " + path.string()),
                  lines.end())
            << path;
    }
    EXPECT_EQ(imagePath(records[1]), broken.string());
    EXPECT_EQ(imagePath(records[2]), missing.string());
    EXPECT_FALSE(fs::exists(folder_.path() / "broken.jpg"));

    // Frame 320 from the green slide; each picture went to its own transition.
    ASSERT_EQ(imagePath(records[0]), (folder_.path() / "red.jpg").string());
    ASSERT_EQ(imagePath(records[3]), (folder_.path() / "green.jpg").string());
    expectRegion(decode(imagePath(records[0])), 8, 48, 304, 224, kRed, 12);
    expectRegion(decode(imagePath(records[3])), 8, 48, 304, 224, kGreen, 12);
}

TEST_F(ImageResizerTest, ReadsEverySlideFormatAndMeasuresPointsByTheStatedResolution)
{
    ScopedDefaults defaults;
    {
        SCOPED_TRACE("formats");
        std::vector<Value> records;
        // Each under its own name, since every output is named "*.jpg".
        for (const std::string name :
             {"slide.jpg", "slide-exif.jpg", "slide.png", "slide.gif", "slide.bmp", "slide.psd"}) {
            const fs::path copy = folder_.path() / ("from-" + name);
            fs::copy_file(test::fixture(name), copy);
            records.push_back(transition(copy));
        }
        records.push_back(transition(save(solid(96, 64, kWhite), "from-slide.tif")));
        CapturedLog log;
        ASSERT_TRUE(resize(records));
        EXPECT_FALSE(log.contains("Unable to load"));
        EXPECT_TRUE(log.contains("minima: {48, 32}"));  // the PSD
        for (const Value& record : records) {
            EXPECT_EQ(fs::path(imagePath(record)).extension(), ".jpg");
            EXPECT_EQ(ffprobeSize(imagePath(record)), "48,48") << imagePath(record);
        }
    }
    {
        SCOPED_TRACE("resolution");
        // 1280x960 pixels at 144 dpi are 640x480 points, as are 640x480 at the
        // 72 dpi a GIF always has.
        const double perMillimetre = 144 / 25.4;
        const VImage sharpPicture =
            solid(1280, 960, kRed).copy(VImage::option()->set("xres", perMillimetre)->set("yres", perMillimetre));
        const auto sharp = save(sharpPicture, "sharp.png");
        const auto plain = save(solid(640, 480, kGreen), "plain.gif");
        Value first = transition(sharp), second = transition(plain);
        CapturedLog log;
        ASSERT_TRUE(resize({first, second}));
        EXPECT_TRUE(log.contains("widths: (640, 640)\nheights: (480, 480)"));
        EXPECT_FALSE(log.contains("scaled image"));
        expectPictureAt(decode(imagePath(first)), 0, 80, 640, 480, kRed, 8, 4);
        expectPictureAt(decode(imagePath(second)), 0, 80, 640, 480, kGreen, 8, 4);
    }
}

TEST_F(ImageResizerTest, GreyPicturesAndPicturesWithAlphaAreDrawnSourceOver)
{
    ScopedDefaults defaults({{"videoImageQuality", kPNG}});
    // Left half fully transparent, right half opaque red; and an opaque RGBA.
    const VImage alpha = solid(400, 300, {0}).insert(solid(200, 300, {255}), 200, 0);
    const auto halfClear = save(solid(400, 300, kRed).bandjoin(alpha), "half-clear.png");
    const auto opaque = save(solid(800, 600, kGreen).bandjoin_const({255}), "opaque.png");
    const auto grey = save(solid(400, 300, {200}), "grey.png");
    const auto greyHalfClear = save(solid(400, 300, {100}).bandjoin(alpha), "grey-half-clear.png");
    // One band of no colour meaning, in libvips' own format.
    const auto plain = save(
        solid(400, 300, {50}).copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_MULTIBAND)), "plain.v");
    std::vector<Value> records = {transition(halfClear), transition(opaque), transition(grey),
                                  transition(greyHalfClear), transition(plain)};
    ASSERT_TRUE(resize(records));
    expectPictureAt(decode(imagePath(records[2])), 0, 50, 400, 300, {200, 200, 200});
    const VImage greyCanvas = decode(imagePath(records[3]));
    expectRegion(greyCanvas, 0, 50, 200, 300, kBlack);
    expectRegion(greyCanvas, 200, 50, 200, 300, {100, 100, 100});
    expectPictureAt(decode(imagePath(records[4])), 0, 50, 400, 300, {50, 50, 50});

    const VImage canvas = decode(halfClear.string());
    ASSERT_EQ(canvas.width(), 400);
    expectOpaque(canvas);
    expectRegion(canvas, 0, 0, 400, 50, kBlack);
    expectRegion(canvas, 0, 50, 190, 300, kBlack);  // over black, the clear half stays black
    expectRegion(canvas, 210, 50, 190, 300, kRed);
    expectRegion(canvas, 0, 350, 400, 50, kBlack);
    expectPictureAt(decode(opaque.string()), 0, 50, 400, 300, kGreen);
}

TEST_F(ImageResizerTest, APngRewrittenInPlaceIsReadAfreshEachTime)
{
    ScopedDefaults defaults({{"videoImageQuality", kPNG}});
    const auto slide = save(solid(640, 480, kRed), "slide.png");
    ASSERT_TRUE(resize({transition(slide)}));
    ASSERT_EQ(decode(slide.string()).width(), 640);
    ASSERT_EQ(decode(slide.string()).height(), 640);

    // Replaced by another picture under the same name: a cached load of the
    // old file would still give 640x640 red.
    save(solid(320, 240, kGreen), "slide.png");
    ASSERT_TRUE(resize({transition(slide)}));
    const VImage second = decode(slide.string());
    ASSERT_EQ(second.width(), 320);
    ASSERT_EQ(second.height(), 320);
    expectPictureAt(second, 0, 40, 320, 240, kGreen);

    // And once more over the resizer's own output: a square stays as it is.
    ASSERT_TRUE(resize({transition(slide)}));
    expectPictureAt(decode(slide.string()), 0, 40, 320, 240, kGreen);
}

TEST_F(ImageResizerTest, WithoutALoadableSlideTheResizerReportsFailure)
{
    ScopedDefaults defaults({{"supportForURL", true}, {"textTrackFontSize", 20}});
    const auto shot = save(solid(640, 480, kBlue), "shot.png");
    Value screenshot = transition(shot, true);
    screenshot.asDictionary()->set(QRTransitionLinkURLKey, Value::dictionary({{"url", "https://example.org"}}));
    {
        SCOPED_TRACE("screen shots only");
        CapturedLog log;
        EXPECT_FALSE(resize({screenshot}));
        EXPECT_TRUE(log.contains("-[ImageResizer resizeImages]  *** No slide image could be loaded"));
        EXPECT_FALSE(log.contains("URL link"));
        EXPECT_EQ(imagePath(screenshot), shot.string());
        EXPECT_FALSE(fs::exists(folder_.path() / "shot.jpg"));
    }
    {
        SCOPED_TRACE("a slide that cannot be loaded");
        CapturedLog log;
        EXPECT_FALSE(resize({transition(folder_.path() / "missing.png"), screenshot}));
        EXPECT_TRUE(log.contains("Unable to load image at path"));
        EXPECT_TRUE(log.contains("No slide image could be loaded"));
    }
    EXPECT_FALSE(resize({}));
    EXPECT_FALSE(ImageResizer().resizeImages());
    EXPECT_FALSE(ImageResizer(Value("not an array")).resizeImages());
}

}  // namespace
