// The slide-image writers: the picture track's atoms against the layout,
// every picture at its chunk offset, and each way the writer gives up.
#include <gtest/gtest.h>

#include <vips/vips8>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/RunLoop.h"
#include "toolbox/Movie.h"

using namespace quillora;

namespace {

constexpr std::string_view kMethod = "-[QTDataEditor addImages:toFile:path:withParameters:notifying:error:]";

Value slide(std::int64_t time, const std::filesystem::path& image)
{
    return Value::dictionary({{"timeValue", time}, {"imagePath", image.string()}});
}

std::filesystem::path makePicture(const test::TemporaryFolder& folder, const std::string& name, const std::string& size)
{
    const auto path = folder.path() / name;
    const auto result = test::runCommand("ffmpeg -nostdin -y -v error -f lavfi -i testsrc2=size=" + size +
                                         " -frames:v 1 " + test::shellQuote(path.string()));
    EXPECT_EQ(result.status, 0) << result.output;
    return path;
}

std::string logged(std::string_view message)
{
    return std::string(kMethod) + "  " + std::string(message);
}

Bytes expectedImageEntry(std::string_view format, std::uint16_t width, std::uint16_t height, std::string_view name)
{
    ByteWriter w;
    w.putZeros(6).putU16BE(1).putU16BE(0).putU16BE(0).putString("appl").putU32BE(0).putU32BE(0x400);
    w.putU16BE(width).putU16BE(height).putU32BE(0x00480000).putU32BE(0x00480000).putU32BE(0).putU16BE(1);
    w.putU8(static_cast<std::uint8_t>(name.size())).putString(name).putZeros(31 - name.size());
    w.putU16BE(24).putU16BE(0xFFFF);
    ByteWriter stsd;
    stsd.putU32BE(0).putU32BE(1).putBytes(test::expectedAtom(format, w.bytes()));
    return test::expectedAtom("stsd", stsd.bytes());
}

Bytes utf16Name(std::string_view text)
{
    ByteWriter w;
    w.putU8(static_cast<std::uint8_t>(2 * text.size()));
    for (char c : text) w.putU8(0).putU8(static_cast<std::uint8_t>(c));
    return w.take();
}

Bytes expectedVmhd()
{
    ByteWriter w;
    w.putU32BE(1).putU16BE(0x0040).putU16BE(0x8000).putU16BE(0x8000).putU16BE(0x8000).putZeros(4);
    return test::expectedAtom("vmhd", w.bytes());
}

void expectPicturesAtTheirOffsets(const test::WrittenFile& written, const toolbox::AtomNode& trak,
                                  const std::vector<std::filesystem::path>& pictures)
{
    const auto offsets = written.chunkOffsets(trak);
    const auto sizes = written.sampleSizes(trak);
    ASSERT_EQ(offsets.size(), pictures.size());
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const Bytes picture = test::readFile(pictures[i]);
        EXPECT_EQ(sizes[i], picture.size());
        EXPECT_EQ(written.bytesAt(offsets[i], picture.size()), picture) << pictures[i];
    }
}

class ImageTrack : public ::testing::Test {
protected:
    bool add(const std::filesystem::path& movie, const Value& slides, const Value& given)
    {
        FileHandle file(movie, FileHandle::Mode::Updating);
        return editor.addImages(slides, file, movie.string(), given);
    }
    std::int64_t mdatSize(const std::filesystem::path& movie)
    {
        return toolbox::readAtomTree(movie).find({atom::mdat})->size;
    }

    test::TemporaryFolder folder;
    QTDataEditor editor;
    const Value parameters = Value::dictionary({{"duration", 3000}, {"trackID", 3}});
};

}  // namespace

TEST_F(ImageTrack, WritesEveryPictureAndDescribesTheFirst)
{
    const auto movie = test::copyFixture("recording-moov-first.m4a", folder);
    const auto square = makePicture(folder, "square.jpg", "640x640");
    const auto small = test::fixture("slide.jpg");
    CapturedLog log;
    ASSERT_TRUE(add(movie, Value::array({slide(0, square), slide(600, small), slide(1500, square)}), parameters));

    const test::WrittenFile written(movie);
    const auto trak = written.lastTrak();
    EXPECT_EQ(written.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, 3, 3000, 0x012C0000));
    EXPECT_EQ(written.atomBelow(trak, {atom::edts}), test::expectedEdts(3000));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::mdhd}), test::expectedMdhd(3000, false));
    EXPECT_EQ(
        written.atomBelow(trak, {atom::mdia, atom::hdlr}),
        test::expectedHdlr("mhlr", "vide", "appl", 0x10000000, 0x00010111, utf16Name("Apple Video Media Handler")));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::hdlr}).size(), 83u);
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, fourCC("vmhd")}), expectedVmhd());
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, atom::hdlr}), test::expectedDataHdlr(0x00010129));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, fourCC("dinf")}), test::expectedDinf());
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              expectedImageEntry("jpeg", 640, 640, "Photo-JPEG"));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsc}), test::expectedStsc());
    EXPECT_EQ(written.childTypes(trak, {atom::mdia, atom::minf, atom::stbl}),
              (std::vector<std::uint32_t>{atom::stsd, atom::stsc, atom::stsz, atom::stts, atom::stco}));
    EXPECT_EQ(written.sampleDurations(trak), (std::vector<std::uint32_t>{600, 900, 1500}));
    expectPicturesAtTheirOffsets(written, trak, {square, small, square});
    EXPECT_TRUE(log.contains(logged("Image type JPEG")));
}

TEST_F(ImageTrack, PngDescriptionUsesThePictureSizeInPoints)
{
    const auto movie = test::copyFixture("recording-moov-last.m4a", folder);
    // No stated resolution counts as 72 dpi: points equal pixels.
    ASSERT_TRUE(add(movie, Value::array({slide(0, test::fixture("slide.png"))}), parameters));
    test::WrittenFile written(movie);
    EXPECT_EQ(written.atomBelow(written.lastTrak(), {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              expectedImageEntry("png ", 120, 90, "PNG"));
    // A single slide lasts the whole recording.
    EXPECT_EQ(written.sampleDurations(written.lastTrak()), std::vector<std::uint32_t>{3000});

    // At 144 dpi the same pixels make half the points.
    ASSERT_EQ(VIPS_INIT("quillora-tests"), 0);
    const auto fine = folder.path() / "fine.png";
    vips::VImage::new_from_file(test::fixture("slide.png").c_str())
        .copy(vips::VImage::option()->set("xres", 144 / 25.4)->set("yres", 144 / 25.4))
        .write_to_file(fine.c_str());
    const auto second = test::copyFixture("recording-moov-first.m4a", folder);
    ASSERT_TRUE(add(second, Value::array({slide(0, fine), slide(100, fine)}), parameters));
    EXPECT_EQ(test::WrittenFile(second).atomBelow(test::WrittenFile(second).lastTrak(),
                                                  {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              expectedImageEntry("png ", 60, 45, "PNG"));
}

TEST_F(ImageTrack, GivesUpWithItsMessageAndLeavesWhatWasAppended)
{
    const auto picture = test::fixture("slide.jpg");
    const auto pictureSize = static_cast<std::int64_t>(std::filesystem::file_size(picture));
    const auto notAPicture = folder.path() / "notes.txt";
    test::writeFile(notAPicture, Bytes{'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '\n'});

    struct Case {
        Value slides;
        std::string message;
        int appended;  // pictures in the media data when it stops
    };
    const std::vector<Case> cases = {
        {Value::array({slide(0, notAPicture)}), "Couldn't determine image type", 0},
        {Value::array({slide(0, picture), slide(600, folder.path() / "missing.jpg")}),
         "Couldn't create buffer of image data", 1},
        {Value::array({slide(0, picture), slide(600, picture), slide(600, picture)}), "Couldn't get nextDuration", 1},
        {Value::array({slide(0, picture), slide(0, picture)}), "Couldn't get nextChapterValue", 0},
        {Value::array({slide(0, picture), Value::dictionary({{"imagePath", picture.string()}})}),
         "Couldn't get next record time", 0},
    };
    for (const auto& c : cases) {
        const auto movie = test::copyFixture("recording-moov-first.m4a", folder);
        const auto before = test::readFile(movie);
        const auto mdatBefore = mdatSize(movie);
        CapturedLog log;
        EXPECT_FALSE(add(movie, c.slides, parameters)) << c.message;
        EXPECT_TRUE(log.contains(logged(c.message))) << c.message;
        EXPECT_EQ(mdatSize(movie), mdatBefore + c.appended * pictureSize) << c.message;
        EXPECT_EQ(test::WrittenFile(movie).traks().size(), 1u) << c.message;
        if (c.appended == 0) {
            EXPECT_EQ(test::readFile(movie), before) << c.message;
        }
    }

    // Without a movie atom, every picture is appended before it gives up.
    const auto bare = folder.path() / "bare.mp4";
    test::writeFile(bare, test::expectedAtom("mdat", Bytes(16, 0xAB)));
    CapturedLog log;
    EXPECT_FALSE(add(bare, Value::array({slide(0, picture), slide(600, picture)}), parameters));
    EXPECT_TRUE(log.contains(logged("couldn't get targetSearchResult for moov atom")));
    EXPECT_EQ(std::filesystem::file_size(bare), 24 + 2 * static_cast<std::uintmax_t>(pictureSize));

    // Missing parameters are a programming error, caught before anything is written.
    const auto movie = test::copyFixture("recording-moov-first.m4a", folder);
    const auto before = test::readFile(movie);
    EXPECT_THROW(add(movie, Value::array({slide(0, picture)}), Value::dictionary({{"duration", 3000}})),
                 InternalInconsistency);
    EXPECT_EQ(test::readFile(movie), before);
}

TEST_F(ImageTrack, OlderVariantDescribesTheSecondSlideAndNotifies)
{
    const auto movie = test::copyFixture("recording-moov-last.m4a", folder);
    const auto recording = toolbox::Movie::movieWithFile(movie);
    ASSERT_TRUE(recording);
    const auto duration = static_cast<std::uint32_t>(recording->duration());
    const auto jpeg = test::fixture("slide.jpg");
    const auto png = test::fixture("slide.png");

    int observed = 0;
    EXPECT_TRUE(editor.addImages(Value::array({slide(0, jpeg), slide(600, png)}), movie, [&observed] { ++observed; }));
    EXPECT_FALSE(editor.doneWritingFile());
    RunLoop::current()->runPending();
    EXPECT_TRUE(editor.doneWritingFile());
    EXPECT_EQ(observed, 1);

    const test::WrittenFile written(movie);
    const auto trak = written.lastTrak();
    EXPECT_EQ(written.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, 2, duration, 0x00A00000));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::mdhd}), test::expectedMdhd(duration, false));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::hdlr}),
              test::expectedHdlr("mhlr", "vide", "appl", 0x10000000, 0x00010111,
                                 test::lengthPrefixed("Apple Video Media Handler")));
    EXPECT_EQ(written.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              expectedImageEntry("png ", 120, 90, "PNG"));
    EXPECT_EQ(written.sampleDurations(trak), (std::vector<std::uint32_t>{600, duration - 600}));
    expectPicturesAtTheirOffsets(written, trak, {jpeg, png});

    // A single slide has no second one to describe.
    const auto other = test::copyFixture("recording-moov-first.m4a", folder);
    EXPECT_THROW(editor.addImages(Value::array({slide(0, jpeg)}), other, nullptr), std::out_of_range);
    RunLoop::current()->runPending();

    CapturedLog log;
    EXPECT_FALSE(editor.addImages(Value::array({slide(0, jpeg), slide(1, jpeg)}), jpeg, nullptr));
    EXPECT_TRUE(log.contains("-[QTDataEditor addImages:toFileAtPath:notifying:]  Error creating movie"));
}
