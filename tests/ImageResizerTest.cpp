// The slide image resizer: every geometry is read back from decoded pixels,
// never from the resizer's arithmetic.
#include <gtest/gtest.h>

#include <filesystem>
#include <vips/vips8>

#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "TestSupport.h"
#include "foundation/Log.h"
#include "foundation/UserDefaults.h"
#include "images/ImageLibrary.h"

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
constexpr int kPNG = 1024;

class ImageResizerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(startImageLibrary()); }
    void SetUp() override { prefer(); }
    void TearDown() override { UserDefaults::setStandardUserDefaults(previous_); }

    // Replaces the process's preferences; the old ones come back after the test.
    // PNG by default: it keeps every pixel, so edges can be checked exactly.
    static void prefer(std::initializer_list<std::pair<std::string, Value>> entries = {{"videoImageQuality", kPNG}})
    {
        UserDefaults defaults;
        for (const auto& [key, value] : entries) defaults.set(key, value);
        UserDefaults::setStandardUserDefaults(defaults);
    }

    // One colour, stating its resolution as slide exports do.
    static VImage solid(int width, int height, const Colour& colour, double dpi = 72)
    {
        return VImage::black(width, height)
            .new_from_image(colour)
            .copy(VImage::option()->set("xres", dpi / 25.4)->set("yres", dpi / 25.4));
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

    static std::string imagePath(const Value& r) { return r.stringForKey(QRTransitionImagePathKey).value_or(""); }

    static bool resize(const std::vector<Value>& list) { return ImageResizer(Value::array(list)).resizeImages(); }

    static VImage decode(const fs::path& path) { return VImage::new_from_file(path.c_str()).copy_memory(); }

    // Every pixel of the region is within the tolerance of the colour, band by band.
    static void expectRegion(const VImage& image, int x, int y, int width, int height, const Colour& expected,
                             double tolerance = 2)
    {
        SCOPED_TRACE(fmt::format("region x {} y {} size {}x{}", x, y, width, height));
        const VImage region = image.crop(x, y, width, height)
                                  .extract_band(0, VImage::option()->set("n", static_cast<int>(expected.size())));
        EXPECT_LE((region - expected).abs().max(), tolerance);
    }

    // A square canvas of the given side, opaque where the picture's colour
    // says nothing of alpha: the picture fills its rectangle right up to the
    // edges, and all around it is `ground`.
    static void expectPicture(const VImage& canvas, int side, int x, int y, int width, int height, const Colour& colour,
                              const Colour& ground = kBlack, double tolerance = 2)
    {
        SCOPED_TRACE(fmt::format("picture at ({}, {}) of {}x{}", x, y, width, height));
        ASSERT_EQ(canvas.width(), side);
        ASSERT_EQ(canvas.height(), side);
        EXPECT_TRUE(canvas.bands() == 3 || canvas.extract_band(3).min() == 255);
        expectRegion(canvas, x, y, width, height, colour, tolerance);
        const VImage rest = canvas.extract_band(0, VImage::option()->set("n", static_cast<int>(ground.size())));
        expectRegion(rest.insert(solid(width, height, ground), x, y), 0, 0, side, side, ground, tolerance);
    }

    static Value linked(Value record)
    {
        record.asDictionary()->set(QRTransitionLinkURLKey, Value::dictionary({{"url", "https://example.org/notes"}}));
        return record;
    }

    static std::string ffprobeSize(const fs::path& p)
    {
        return test::runCommand("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " + test::shellQuote(p))
            .output;
    }

    UserDefaults previous_ = UserDefaults::standardUserDefaults();
    test::TemporaryFolder folder_;
};

TEST_F(ImageResizerTest, DrawsEverythingOnTheSlidesFrameScaledDownOnlyAndMeasuredInPoints)
{
    prefer({{"videoImageQuality", kPNG}, {"supportForURL", true}, {"textTrackFontSize", 20}});
    // Red with a blue right half: where the halves meet tells a scaled picture
    // from a cropped one.
    const VImage halves = solid(1024, 768, kRed).insert(solid(512, 768, kBlue), 512, 0);
    const auto large = save(halves, "large.png");
    const auto small = save(solid(640, 480, kGreen), "small.png");
    const auto sharp = save(solid(1280, 960, kWhite, 144), "sharp.png");  // 640x480 points
    const auto bigShot = save(solid(1280, 960, kBlue), "big-shot.png");
    const auto tallShot = save(solid(600, 1000, kGreen), "tall-shot.png");
    const auto tinyShot = save(solid(200, 100, kWhite), "tiny-shot.png");  // would shrink the frame if it counted
    const auto photo = save(halves.resize(2.5), "photo.jpg");  // four times the frame: the decoder shrinks it
    CapturedLog log;
    ASSERT_TRUE(resize({transition(large), transition(bigShot, true), transition(small), transition(tallShot, true),
                        transition(sharp), transition(tinyShot, true), transition(photo, true)}));
    EXPECT_TRUE(log.contains("-[ImageResizer(QRPrivate) rectForImages:]  widths: (640, 640, 1024)\n"
                             "heights: (480, 480, 768)\nminima: {640, 480}"));
    EXPECT_TRUE(log.contains(
        "-[ImageResizer(QRPrivate) scaleDownImage:toFitRect:]  scaled image of size {1024, 768} down by 0.625 to "
        "{640, 480}"));
    EXPECT_TRUE(log.contains("does any transition have a URL link? NO"));  // so no margin

    EXPECT_EQ(ffprobeSize(large), "640,640\n");
    for (const auto& path : {large, photo}) {
        SCOPED_TRACE(path);
        const VImage canvas = decode(path);
        expectRegion(canvas, 0, 0, 640, 80, kBlack, 6);
        expectRegion(canvas, 0, 560, 640, 80, kBlack, 6);
        expectRegion(canvas, 0, 80, 310, 480, kRed, 6);  // 512 x 0.625 = 320: the halves meet there
        expectRegion(canvas, 330, 80, 310, 480, kBlue, 6);
    }
    expectPicture(decode(small), 640, 0, 80, 640, 480, kGreen);
    expectPicture(decode(sharp), 640, 0, 80, 640, 480, kWhite);
    expectPicture(decode(bigShot), 640, 0, 80, 640, 480, kBlue);
    expectPicture(decode(tallShot), 640, 128, 0, 384, 640, kGreen);  // by 0.64: the height decides
    expectPicture(decode(tinyShot), 640, 220, 270, 200, 100, kWhite);

    // Another picture under the same name: a cached load would give the old one.
    save(solid(320, 240, kGreen), "small.png");
    ASSERT_TRUE(resize({transition(small)}));
    expectPicture(decode(small), 320, 0, 40, 320, 240, kGreen);
}

TEST_F(ImageResizerTest, FrameSideIsTheLargerOfIndependentMinimaDividedByTheSizeRatio)
{
    const auto wide = save(solid(1000, 300, kRed), "wide.png");
    const auto tall = save(solid(400, 900, kGreen), "tall.png");
    CapturedLog log;
    ASSERT_TRUE(resize({linked(transition(wide)), transition(tall)}));
    EXPECT_TRUE(log.contains("minima: {400, 300}"));
    EXPECT_FALSE(log.contains("URL link"));  // link support is off
    // 1000x300 by 0.4 is 400x120; 400x900 by 400/900 is 177.8x400.
    expectPicture(decode(wide), 400, 0, 140, 400, 120, kRed);
    expectPicture(decode(tall), 400, 111, 0, 178, 400, kGreen);

    for (const auto& [ratio, side] : std::vector<std::pair<double, int>>{{1.5, 400}, {1.0, 600}, {0.5, 600}}) {
        SCOPED_TRACE(fmt::format("imageSizeRation {}", ratio));
        prefer({{"videoImageQuality", kPNG}, {"imageSizeRation", ratio}});
        const auto slide = save(solid(600, 450, kWhite), fmt::format("ratio-{}.png", ratio));
        ASSERT_TRUE(resize({transition(slide)}));
        expectPicture(decode(slide), side, 0, side / 8, side, side * 3 / 4, kWhite);
    }
}

TEST_F(ImageResizerTest, LinkMarginLeavesTheLeftAndBottomStripsUnpainted)
{
    prefer({{"videoImageQuality", kPNG}, {"supportForURL", true}, {"textTrackFontSize", 20}});
    const auto slide = save(solid(800, 600, kRed), "linked.png");
    const auto shot = save(solid(400, 300, kGreen), "shot.png");
    CapturedLog log;
    ASSERT_TRUE(resize({linked(transition(slide)), transition(shot, true)}));
    EXPECT_TRUE(log.contains("-[ImageResizer resizeImages]  does any transition have a URL link? YES"));

    // 760x760, the picture centred on the whole canvas, not on the painted part.
    const VImage canvas = decode(shot);
    expectRegion(canvas, 0, 0, 20, 760, {0, 0, 0, 0}, 0);
    expectRegion(canvas, 0, 740, 760, 20, {0, 0, 0, 0}, 0);
    expectPicture(canvas.crop(20, 0, 740, 740), 740, 160, 230, 400, 300, {0, 255, 0, 255}, {0, 0, 0, 255}, 0);

    // The slide, scaled by 0.95 to 760x570, covers the strip in its rows.
    const VImage slideCanvas = decode(slide);
    expectRegion(slideCanvas, 0, 95, 760, 570, {255, 0, 0, 255});
    expectRegion(slideCanvas, 0, 0, 20, 95, {0, 0, 0, 0}, 0);
    expectRegion(slideCanvas, 0, 665, 20, 95, {0, 0, 0, 0}, 0);
    expectRegion(slideCanvas, 20, 0, 740, 95, {0, 0, 0, 255}, 0);
}

TEST_F(ImageResizerTest, QualityChoosesJpegBesideTheSourceOrPngOverIt)
{
    // Noise, so that the JPEG quality shows in the file size.
    const VImage detailed = (solid(640, 480, {128, 128, 128}) +
                             VImage::gaussnoise(640, 480, VImage::option()->set("mean", 0)->set("sigma", 40)))
                                .cast(VIPS_FORMAT_UCHAR);
    // Absent first; the last JPEG level from a JPEG source, which is written over.
    const std::vector<Value> qualities = {Value(), 0, 256, 512, 768, kPNG, -1, 100, "1024"};
    std::vector<std::uintmax_t> jpegSizes;
    for (std::size_t i = 0; i < qualities.size(); ++i) {
        SCOPED_TRACE(fmt::format("quality #{}", i));
        qualities[i].isNull() ? prefer({}) : prefer({{"videoImageQuality", qualities[i]}});
        const bool jpeg = i < 5;
        const auto source = save(detailed, fmt::format("q{}.{}", i, i == 4 ? "jpg" : "png"));
        const Bytes before = test::readFile(source);
        Value record = transition(source);
        CapturedLog log;
        ASSERT_TRUE(resize({record}));
        const fs::path written = folder_.path() / fmt::format("q{}.{}", i, jpeg ? "jpg" : "png");
        EXPECT_EQ(imagePath(record), written.string());
        EXPECT_TRUE(log.contains("-[ImageResizer(QRPrivate) writeImage:forTransition:]  wrote image " +
                                 written.filename().string()));
        EXPECT_TRUE(written == source || test::readFile(source) == before);  // a JPEG beside leaves it as it was
        const VImage canvas = decode(written);
        EXPECT_EQ(canvas.get_string("vips-loader"), std::string(jpeg ? "jpegload" : "pngload"));
        EXPECT_NEAR(canvas.xres() * 25.4, 72, 0.1);  // points = pixels
        EXPECT_EQ(ffprobeSize(written), "640,640\n");
        if (jpeg) jpegSizes.push_back(fs::file_size(written));
    }
    EXPECT_EQ(jpegSizes[0], jpegSizes[1]);
    for (std::size_t i = 2; i < 5; ++i) EXPECT_GT(jpegSizes[i], jpegSizes[i - 1]);  // a higher level keeps more
}

TEST_F(ImageResizerTest, FailuresAreLoggedAndTheRestKeepsItsOwnTransitions)
{
    prefer({});
    const auto blocked = save(solid(640, 480, kRed), "blocked.png");
    fs::create_directory(folder_.path() / "blocked.jpg");  // even root cannot write a file over a folder
    const fs::path broken = folder_.path() / "broken.png", missing = folder_.path() / "missing.png";
    test::writeFile(broken, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'i', 'c', 't', 'u', 'r', 'e'});
    const auto red = save(solid(640, 480, kRed), "red.png");
    const auto green = save(solid(320, 240, kGreen), "green.png");  // decides the frame
    const auto shot = save(solid(640, 480, kBlue), "shot.png");
    std::vector<Value> records = {transition(blocked), transition(broken), transition(red),
                                  transition(missing), transition(green),  transition(shot, true)};
    CapturedLog log;
    EXPECT_FALSE(resize(records));

    const auto lines = log.lines();
    for (const std::string& line :
         {"-[ImageResizer(QRPrivate) writeImage:forTransition:]  *** Failed writing image data to file " +
              (folder_.path() / "blocked.jpg").string(),
          "QuickTimePlugin/ImageResizer:158  *** Unable to load image at path " + broken.string(),
          "QuickTimePlugin/ImageResizer:158  *** Unable to load image at path " + missing.string()}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    }
    for (const auto& [index, path] :
         std::vector<std::pair<std::size_t, fs::path>>{{0, blocked}, {1, broken}, {3, missing}})
        EXPECT_EQ(imagePath(records[index]), path.string());
    // Each picture went to its own transition, as a JPEG beside its source.
    for (const auto& [index, colour] :
         std::vector<std::pair<std::size_t, Colour>>{{2, kRed}, {4, kGreen}, {5, kBlue}}) {
        EXPECT_EQ(ffprobeSize(imagePath(records[index])), "320,320\n");
        expectRegion(decode(imagePath(records[index])), 8, 48, 304, 224, colour, 12);
    }
}

TEST_F(ImageResizerTest, ReadsEverySlideFormat)
{
    std::vector<Value> records;
    // The TIFF is subsampled YCbCr, as ffmpeg writes it: only ImageMagick's loader reads it.
    for (const std::string name :
         {"slide.jpg", "slide-exif.jpg", "slide.png", "slide.gif", "slide.bmp", "slide.psd", "slide.tif"})
        records.push_back(transition(test::copyFixture(name, folder_)));
    CapturedLog log;
    ASSERT_TRUE(resize(records));
    EXPECT_FALSE(log.contains("Unable to load"));
    EXPECT_TRUE(log.contains("minima: {48, 32}"));  // the PSD
    for (const Value& record : records) EXPECT_EQ(ffprobeSize(imagePath(record)), "48,48\n") << imagePath(record);
}

TEST_F(ImageResizerTest, GreyPicturesAndPicturesWithAlphaAreDrawnSourceOver)
{
    // Left half fully transparent, right half opaque.
    const VImage alpha = solid(400, 300, {0}).insert(solid(200, 300, {255}), 200, 0);
    const auto halfClear = save(solid(400, 300, kRed).bandjoin(alpha), "half-clear.png");
    const auto greyHalfClear = save(solid(400, 300, {100}).bandjoin(alpha), "grey-half-clear.png");
    const auto grey = save(solid(400, 300, {200}), "grey.png");
    // One band of no colour meaning, in libvips' own format.
    const auto plain = save(
        solid(400, 300, {50}).copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_MULTIBAND)), "plain.v");
    ASSERT_TRUE(resize({transition(halfClear), transition(greyHalfClear), transition(grey), transition(plain)}));
    // Over black, the clear half stays black.
    expectPicture(decode(halfClear), 400, 200, 50, 200, 300, kRed);
    expectPicture(decode(greyHalfClear), 400, 200, 50, 200, 300, {100, 100, 100});
    expectPicture(decode(grey), 400, 0, 50, 400, 300, {200, 200, 200});
    expectPicture(decode(plain), 400, 0, 50, 400, 300, {50, 50, 50});
}

TEST_F(ImageResizerTest, WithoutALoadableSlideTheResizerReportsFailure)
{
    prefer({{"supportForURL", true}, {"textTrackFontSize", 20}});
    const auto shot = save(solid(640, 480, kBlue), "shot.png");
    Value screenshot = linked(transition(shot, true));
    CapturedLog log;
    // Screen shots alone have no frame to be drawn in; slides none of which loads cannot go on at all.
    EXPECT_FALSE(resize({screenshot}));
    EXPECT_THROW(resize({transition(folder_.path() / "missing.png"), screenshot}), NoSlidePicture);
    EXPECT_TRUE(log.contains("-[ImageResizer resizeImages]  *** No slide image could be loaded"));
    EXPECT_FALSE(log.contains("URL link"));
    EXPECT_EQ(imagePath(screenshot), shot.string());  // written, it would be a JPEG beside
    EXPECT_FALSE(ImageResizer::resizerWithTransitions(Value::array())->resizeImages());
    EXPECT_FALSE(ImageResizer(Value("not an array")).resizeImages());
}

}  // namespace

// Pictures are drawn several at a time: each still lands in its own file, and
// the log reads as if they had been drawn one after another.
TEST_F(ImageResizerTest, ManyPicturesAreWrittenAndLoggedInListOrder)
{
    const std::vector<Colour> colours = {kRed, kGreen, kBlue, kWhite, {90, 90, 90}, {255, 255, 0}, {0, 255, 255}};
    std::vector<Value> records;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const int width = 320 + 64 * static_cast<int>(i);  // all but the first are scaled down
        records.push_back(transition(save(solid(width, 240, colours[i]), fmt::format("s{}.png", i))));
        if (i > 0) {
            expected.push_back(fmt::format(
                "-[ImageResizer(QRPrivate) scaleDownImage:toFitRect:]  scaled image of size {{{}, 240}} down by {:g} "
                "to {{320, {:g}}}",
                width, 320.0 / width, static_cast<float>(240.0 * 320 / width)));
        }
        expected.push_back(fmt::format("-[ImageResizer(QRPrivate) writeImage:forTransition:]  wrote image s{}.png", i));
    }
    CapturedLog log;
    ASSERT_TRUE(resize(records));
    std::vector<std::string> lines;
    for (const std::string& line : log.lines()) {
        if (line.find("scaleDownImage") != std::string::npos || line.find("writeImage") != std::string::npos) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, expected);
    for (std::size_t i = 0; i < colours.size(); ++i)
        expectRegion(decode(imagePath(records[i])), 150, 150, 20, 20, colours[i]);
}
