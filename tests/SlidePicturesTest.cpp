// Slides as the lecturer sees them: a phone photo drawn upright, a huge
// picture drawn without holding it whole, WebP and HEIC read or refused by
// name. The published picture is decoded with ffmpeg, not with our reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vips/vips8>

#include "TestSupport.h"
#include "images/ImageLibrary.h"

namespace quillora {
namespace {

using test::runCommand;
using test::shellQuote;
using vips::VImage;

const std::filesystem::path& sampleFolder()
{
    static const std::filesystem::path folder = std::filesystem::path(QUILLORA_SOURCE_DIR) / "sample";
    return folder;
}

// A picture of one bright colour, so its drawing stands out of the black frame.
VImage plainPicture(int width, int height)
{
    return VImage::black(width, height)
        .new_from_image({220, 140, 60})
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

// A portrait HEIC (300x400). Encoded by the vips program: the HEVC encoder
// keeps a little memory to the end of the process, which would count as
// ours under the leak checker.
void makeHeic(const std::filesystem::path& path)
{
    const auto png = path.parent_path() / "heic-source.png";
    plainPicture(300, 400).pngsave(png.c_str());
    runCommand("vips copy " + shellQuote(png) + " " + shellQuote(path.string() + "[compression=hevc]"));
}

// The width over the height of what is not background in the picture shown
// from 1.5 s (the second slide's time) in the published file, as ffmpeg decodes it.
double drawnAspect(const std::filesystem::path& published, const std::filesystem::path& folder)
{
    const auto frame = folder / "second.ppm";
    // As stored: players draw the samples as they are, while ffmpeg would
    // turn a picture by an EXIF orientation left in it.
    const auto result = runCommand("ffmpeg -v error -y -noautorotate -i " + shellQuote(published) +
                                   " -map 0:v:0 -vf 'select=gte(t\\,1.5)' -frames:v 1 " + shellQuote(frame));
    if (result.status != 0 || !std::filesystem::exists(frame)) return 0;
    const Bytes ppm = test::readFile(frame);
    // "P6\n<width> <height>\n255\n" then RGB bytes.
    const std::string head(ppm.begin(), ppm.begin() + std::min<std::size_t>(ppm.size(), 32));
    int width = 0;
    int height = 0;
    int headerLength = 0;
    if (std::sscanf(head.c_str(), "P6 %d %d 255%n", &width, &height, &headerLength) != 2) return 0;
    const std::size_t pixels = static_cast<std::size_t>(headerLength) + 1;
    int left = width, right = -1, top = height, bottom = -1;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::size_t at = pixels + 3 * (static_cast<std::size_t>(y) * width + x);
            if (at + 2 >= ppm.size() || ppm[at] + ppm[at + 1] + ppm[at + 2] < 200) continue;
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
            bottom = std::max(bottom, y);
        }
    }
    return right < left ? 0 : static_cast<double>(right - left + 1) / (bottom - top + 1);
}

TEST(SlidePictures, AreDrawnAsSeenOrRefusedByFormat)
{
    ASSERT_TRUE(startImageLibrary());
    struct Case {
        const char* name;
        const char* file;
        std::function<void(const std::filesystem::path&)> make;
        double aspect;              // as the lecturer sees the picture
        const char* refusedFormat;  // when this system cannot decode it
    };
    const std::vector<Case> cases = {
        {"a phone photo stored on its side", "photo.jpg",
         [](const auto& path) {
             VImage photo = plainPicture(400, 300);
             photo.set(VIPS_META_ORIENTATION, 6);  // "turn a quarter clockwise to view"
             photo.jpegsave(path.c_str());
         },
         0.75, nullptr},
        // With alpha: the resizer would hold the whole picture to see whether it is opaque.
        {"a 10000x10000 PNG", "huge.png",
         [](const auto& path) { plainPicture(10000, 10000).bandjoin_const({255}).pngsave(path.c_str()); }, 1.0,
         nullptr},
        {"a WebP", "slide.webp", [](const auto& path) { plainPicture(400, 300).webpsave(path.c_str()); }, 4.0 / 3,
         nullptr},
        {"a HEIC", "slide.heic", [](const auto& path) { makeHeic(path); }, 0.75, "HEIC"},
        {"a HEIC whose picture data is cut off", "cut.heic",
         [](const auto& path) {
             makeHeic(path);
             std::filesystem::resize_file(path, std::filesystem::file_size(path) - 200);
         },
         0, "HEIC"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TemporaryFolder folder;
        const auto picture = folder.path() / c.file;
        c.make(picture);
        const Bytes original = test::readFile(picture);
        const auto transitions = folder.path() / "transitions.json";
        const std::string list = R"([{"timeValue": 0, "slideTitle": "One", "imagePath": ")" +
                                 (sampleFolder() / "slides" / "slide1.png").string() +
                                 R"("}, {"timeValue": 900, "slideTitle": "Two", "imagePath": ")" + picture.string() +
                                 R"("}])";
        test::writeFile(transitions, Bytes(list.begin(), list.end()));
        const auto published = folder.path() / "lecture.m4b";
        const auto result =
            test::runQuillora("export --recording " + shellQuote(sampleFolder() / "lecture.m4a") + " --transitions " +
                              shellQuote(transitions) + " --defaults " + shellQuote(sampleFolder() / "defaults.json") +
                              " --output " + shellQuote(published));

        EXPECT_EQ(test::readFile(picture), original);
        if (result.status != 0 && c.refusedFormat) {
            EXPECT_NE(result.output.find(std::string("it is a ") + c.refusedFormat), std::string::npos)
                << result.output;
            EXPECT_NE(result.output.find("convert it to PNG or JPEG"), std::string::npos) << result.output;
            EXPECT_FALSE(std::filesystem::exists(published));
            continue;
        }
        ASSERT_EQ(result.status, 0) << result.output;
        EXPECT_NEAR(drawnAspect(published, folder.path()), c.aspect, 0.03);
    }
}

}  // namespace
}  // namespace quillora
