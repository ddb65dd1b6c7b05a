// The slide-image writers: the picture track against the layout, every
// picture at its chunk offset, and each way the writer gives up.
#include <gtest/gtest.h>

#include <tuple>
#include <vips/vips8>

#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/RunLoop.h"
#include "toolbox/Movie.h"

using namespace quillora;
using namespace quillora::test;

namespace {

const std::string kMethod = "-[QTDataEditor addImages:toFile:path:withParameters:notifying:error:]  ";

Value slide(std::int64_t time, const std::filesystem::path& image)
{
    return Value::dictionary({{"timeValue", time}, {"imagePath", image.string()}});
}

Bytes imageEntry(std::string_view format, std::uint16_t width, std::uint16_t height, std::string_view name)
{
    const Bytes entry = join({u16s({0, 0, 0, 1, 0, 0}), chars("appl"), u32s({0, 0x400}), u16s({width, height}),
                              u32s({0x00480000, 0x00480000, 0}), u16s({1}), pascal(name), Bytes(31 - name.size(), 0),
                              u16s({24, 0xFFFF})});
    return box(format, {entry});
}

Bytes utf16Name(std::string_view text)
{
    Bytes name = {static_cast<std::uint8_t>(2 * text.size())};
    for (char c : text) name.insert(name.end(), {0, static_cast<std::uint8_t>(c)});
    return name;
}

// The whole picture track. Sizes and chunk offsets are taken as read;
// expectSamples checks them against the pictures.
Bytes expectedTrak(const WrittenFile& file, std::uint32_t trackID, std::uint32_t duration, std::uint32_t size,
                   const Bytes& handlerName, const Bytes& entry, const std::vector<std::uint32_t>& durations)
{
    const auto& trak = file.traks.back();
    const auto sizes = file.table(trak, atom::stsz), offsets = file.table(trak, atom::stco);
    const auto count = static_cast<std::uint32_t>(sizes.size());
    const Bytes vmhd = box("vmhd", {u32s({1}), u16s({0x40, 0x8000, 0x8000, 0x8000, 0, 0})});
    return test::trak(tkhd(0x0F, trackID, duration, size), duration, u32s({duration}),
                      hdlr("mhlr", "vide", "appl", 0x10000000, 0x00010111, handlerName), vmhd, 0x00010129, entry,
                      join({box("stsz", {u32s({0, 0, count}), u32s(sizes)}), stts(durations),
                            box("stco", {u32s({0, count}), u32s(offsets)})}));
}

const Value kGiven = Value::dictionary({{"duration", 3000}, {"trackID", 3}});

bool add(const std::filesystem::path& movie, const Value& slides, const Value& given = kGiven)
{
    QTDataEditor editor;
    FileHandle file(movie, FileHandle::Mode::Updating);
    return editor.addImages(slides, file, movie.string(), given);
}

}  // namespace

TEST(ImageTrack, WritesEveryPictureAndDescribesTheFirst)
{
    TemporaryFolder folder;
    const auto movie = copyFixture("recording-moov-first.m4a", folder);
    const auto square = folder.path() / "square.jpg";
    const auto made = runCommand("ffmpeg -nostdin -y -v error -f lavfi -i testsrc2=size=640x640 -frames:v 1 " +
                                 shellQuote(square.string()));
    ASSERT_EQ(made.status, 0) << made.output;
    const auto small = fixture("slide.jpg");
    CapturedLog log;
    ASSERT_TRUE(add(movie, Value::array({slide(0, square), slide(600, small), slide(1500, square)})));
    const WrittenFile written(movie);
    EXPECT_EQ(written.below(written.traks.back(), {}),
              expectedTrak(written, 3, 3000, 0x012C0000, utf16Name("Apple Video Media Handler"),
                           imageEntry("jpeg", 640, 640, "Photo-JPEG"), {600, 900, 1500}));
    written.expectSamples(written.traks.back(), {readFile(square), readFile(small), readFile(square)});
    EXPECT_TRUE(log.contains(kMethod + "Image type JPEG"));
}

TEST(ImageTrack, DescriptionSizeIsInPointsAndASingleSlideLastsTheRecording)
{
    // At 144 dpi a picture is half as many points as pixels.
    TemporaryFolder folder;
    ASSERT_EQ(VIPS_INIT("quillora-tests"), 0);
    const auto fine = folder.path() / "fine.png";
    vips::VImage::new_from_file(fixture("slide.png").c_str())
        .copy(vips::VImage::option()->set("xres", 144 / 25.4)->set("yres", 144 / 25.4))
        .write_to_file(fine.c_str());
    const auto movie = copyFixture("recording-moov-last.m4a", folder);
    ASSERT_TRUE(add(movie, Value::array({slide(0, fine)})));
    const WrittenFile written(movie);
    EXPECT_EQ(written.below(written.traks.back(), {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              box("stsd", {u32s({0, 1}), imageEntry("png ", 60, 45, "PNG")}));
    EXPECT_EQ(written.table(written.traks.back(), atom::stts), std::vector<std::uint32_t>{3000});
}

TEST(ImageTrack, GivesUpWithItsMessageAndLeavesWhatWasAppended)
{
    TemporaryFolder folder;
    const auto picture = fixture("slide.jpg");
    const auto pictureSize = static_cast<std::int64_t>(std::filesystem::file_size(picture));
    const auto notAPicture = folder.path() / "notes.txt";
    writeFile(notAPicture, chars("hello world\n"));
    const auto mdatSize = [](const std::filesystem::path& movie) {
        return toolbox::readAtomTree(movie).find({atom::mdat})->size;
    };

    using Case = std::tuple<Value, std::string, int>;  // slides, message, pictures appended when it stops
    const std::vector<Case> cases = {
        {Value::array({slide(0, notAPicture)}), "Couldn't determine image type", 0},
        {Value::array({slide(0, picture), slide(600, folder.path() / "missing.jpg")}),
         "Couldn't create buffer of image data", 1},
        {Value::array({slide(0, picture), slide(600, picture), slide(600, picture)}), "Couldn't get nextDuration", 1},
        {Value::array({slide(0, picture), slide(0, picture)}), "Couldn't get nextChapterValue", 0},
        {Value::array({slide(0, picture), Value::dictionary({{"imagePath", picture.string()}})}),
         "Couldn't get next record time", 0},
    };
    for (const auto& [slides, message, appended] : cases) {
        const auto movie = copyFixture("recording-moov-first.m4a", folder);
        const auto before = readFile(movie);
        const auto mdatBefore = mdatSize(movie);
        CapturedLog log;
        EXPECT_FALSE(add(movie, slides)) << message;
        EXPECT_TRUE(log.contains(kMethod + message)) << message;
        EXPECT_EQ(mdatSize(movie), mdatBefore + appended * pictureSize) << message;
        EXPECT_EQ(WrittenFile(movie).traks.size(), 1u) << message;
        if (appended == 0) {
            EXPECT_EQ(readFile(movie), before) << message;
        }
    }

    // Without a movie atom, every picture is appended before it gives up.
    const auto bare = folder.path() / "bare.mp4";
    writeFile(bare, box("mdat", {Bytes(16, 0xAB)}));
    CapturedLog log;
    EXPECT_FALSE(add(bare, Value::array({slide(0, picture), slide(600, picture)})));
    EXPECT_TRUE(log.contains(kMethod + "couldn't get targetSearchResult for moov atom"));
    EXPECT_EQ(std::filesystem::file_size(bare), 24 + 2 * static_cast<std::uintmax_t>(pictureSize));

    // Missing parameters are a programming error, caught before anything is written.
    const auto movie = copyFixture("recording-moov-first.m4a", folder);
    const auto before = readFile(movie);
    EXPECT_THROW(add(movie, Value::array({slide(0, picture)}), Value::dictionary({{"duration", 3000}})),
                 InternalInconsistency);
    EXPECT_EQ(readFile(movie), before);
}

TEST(ImageTrack, OlderVariantDescribesTheSecondSlideAndNotifies)
{
    TemporaryFolder folder;
    const auto movie = copyFixture("recording-moov-last.m4a", folder);
    const auto recording = toolbox::Movie::movieWithFile(movie);
    ASSERT_TRUE(recording);
    const auto duration = static_cast<std::uint32_t>(recording->duration());
    const auto jpeg = fixture("slide.jpg");
    const auto png = fixture("slide.png");

    // No stated resolution counts as 72 dpi, where points equal pixels.
    QTDataEditor editor;
    int observed = 0;
    EXPECT_TRUE(editor.addImages(Value::array({slide(0, jpeg), slide(600, png)}), movie, [&observed] { ++observed; }));
    EXPECT_FALSE(editor.doneWritingFile());
    RunLoop::current()->runPending();
    EXPECT_TRUE(editor.doneWritingFile());
    EXPECT_EQ(observed, 1);

    const WrittenFile written(movie);
    EXPECT_EQ(written.below(written.traks.back(), {}),
              expectedTrak(written, 2, duration, 0x00A00000, pascal("Apple Video Media Handler"),
                           imageEntry("png ", 120, 90, "PNG"), {600, duration - 600}));
    written.expectSamples(written.traks.back(), {readFile(jpeg), readFile(png)});

    // A single slide has no second one to describe.
    const auto other = copyFixture("recording-moov-first.m4a", folder);
    EXPECT_THROW(editor.addImages(Value::array({slide(0, jpeg)}), other, nullptr), std::out_of_range);
    RunLoop::current()->runPending();

    CapturedLog log;
    EXPECT_FALSE(editor.addImages(Value::array({slide(0, jpeg), slide(1, jpeg)}), jpeg, nullptr));
    EXPECT_TRUE(log.contains("-[QTDataEditor addImages:toFileAtPath:notifying:]  Error creating movie"));
}
