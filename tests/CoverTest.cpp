// The episode artwork read back by libvips: square, within 1400..3000 pixels,
// the centre of the source, sRGB JPEG; and a recording's own cover, added by
// mutagen, taken out byte for byte.
#include <gtest/gtest.h>

#include <vips/vips8>

#include "PublishTestSupport.h"
#include "images/ImageLibrary.h"
#include "publish/Cover.h"
#include "publish/PublishError.h"
#include "publish/RecordingCover.h"

namespace quillora::test {
namespace {

using vips::VImage;

// Green in the centre square, red to its left, blue to its right.
std::filesystem::path makeStripes(const TemporaryFolder& folder, int width, int height, const std::string& name)
{
    const VImage x = VImage::xyz(width, height).extract_band(0);
    const int left = (width - height) / 2;
    const VImage red = (x < left).ifthenelse(255, 0);
    const VImage green = ((x >= left) & (x < left + height)).ifthenelse(255, 0);
    const VImage blue = (x >= left + height).ifthenelse(255, 0);
    const auto path = folder.path() / name;
    VImage::bandjoin({red, green, blue})
        .cast(VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
        .write_to_file(path.c_str());
    return path;
}

TEST(Cover, ASquareOfTheCentreWithinTheDirectoriesBounds)
{
    ASSERT_TRUE(startImageLibrary());
    TemporaryFolder folder;
    struct Case {
        int width, height, side;
        const char* name;
    };
    for (const auto& [width, height, side, name] :
         {Case{2000, 1000, 1400, "small.png"}, Case{3000, 2000, 2000, "large.jpg"},
          Case{8000, 3200, 3000, "huge.png"}}) {
        SCOPED_TRACE(name);
        const auto cover = folder.path() / (std::string(name) + ".cover.jpg");
        publish::makeCover(makeStripes(folder, width, height, name), cover);
        const VImage read = VImage::new_from_file(cover.c_str());
        EXPECT_EQ(read.get_string("vips-loader"), std::string("jpegload"));
        EXPECT_EQ(read.width(), side);
        EXPECT_EQ(read.height(), side);
        EXPECT_EQ(read.bands(), 3);
        EXPECT_EQ(read.interpretation(), VIPS_INTERPRETATION_sRGB);
        // Cropped to the green square: neither red, blue nor padding at its sides.
        for (int x : {8, side / 2, side - 9}) {
            const auto pixel = read.getpoint(x, side / 2);
            EXPECT_LT(pixel[0], 40) << x;
            EXPECT_GT(pixel[1], 215) << x;
            EXPECT_LT(pixel[2], 40) << x;
        }
    }
    EXPECT_THROW(publish::makeCover(folder.path() / "missing.png", folder.path() / "x.jpg"), publish::PublishError);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "x.jpg"));
}

TEST(Cover, TakesARecordingsOwnCoverOut)
{
    TemporaryFolder folder;
    const auto recording = copyFixture("recording-moov-first.m4a", folder);
    EXPECT_FALSE(publish::extractRecordingCover(recording, folder.path() / "none").has_value());

    const auto added =
        runCommand("/usr/bin/python3 -c " +
                   shellQuote("import sys; from mutagen.mp4 import MP4, MP4Cover\n"
                              "f = MP4(sys.argv[1]); data = open(sys.argv[2], 'rb').read()\n"
                              "f['covr'] = [MP4Cover(data, MP4Cover.FORMAT_PNG)]; f.save()") +
                   " " + shellQuote(recording.string()) + " " + shellQuote(fixture("slide.png").string()));
    ASSERT_EQ(added.status, 0) << added.output;
    const auto cover = publish::extractRecordingCover(recording, folder.path() / "own cover");
    ASSERT_TRUE(cover.has_value());
    EXPECT_EQ(*cover, folder.path() / "own cover.png");
    EXPECT_EQ(readFile(*cover), readFile(fixture("slide.png")));
}

}  // namespace
}  // namespace quillora::test
