// All atom-built tracks on one recording, in the export's order: every chunk
// offset of every track still points at its own sample, and other people's
// readers play the file and find its chapters and pictures.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"

using namespace quillora;

namespace {

struct Layout {
    const char* fixture;
    bool withNotes;  // notes as a sixth track would be past the tracks whose offsets are kept up to date
};

class EnhancedPodcastTracks : public ::testing::TestWithParam<Layout> {
protected:
    // The audio's chunk heads before any edit, to compare after.
    static std::vector<Bytes> audioChunkHeads(const test::WrittenFile& file, std::size_t audioTracks)
    {
        std::vector<Bytes> heads;
        const auto traks = file.traks();
        for (std::size_t t = 0; t < audioTracks; ++t) {
            for (auto offset : file.chunkOffsets(traks[t])) heads.push_back(file.bytesAt(offset, 16));
        }
        return heads;
    }

    test::TemporaryFolder folder;
    QTDataEditor editor;
};

const std::vector<std::string> kTitles = {"Welcome", "Method", "Results"};
const std::vector<std::int64_t> kTimes = {0, 600, 1500};

}  // namespace

TEST_P(EnhancedPodcastTracks, EveryChunkOffsetPointsAtItsSample)
{
    const auto path = test::copyFixture(GetParam().fixture, folder);
    const auto pictures = std::vector<std::filesystem::path>{
        test::fixture("slide.jpg"), test::fixture("slide-exif.jpg"), test::fixture("slide.jpg")};
    Value slides = Value::array();
    for (std::size_t i = 0; i < kTitles.size(); ++i) {
        slides.asArray()->push_back(Value::dictionary(
            {{"timeValue", kTimes[i]},
             {"slideTitle", kTitles[i]},
             {"imagePath", pictures[i].string()},
             {"notes", "note " + kTitles[i]},
             {"linkURL", Value::dictionary({{"title", kTitles[i]}, {"url", "http://example.com/" + kTitles[i]}})}}));
    }
    const std::size_t audioTracks = test::WrittenFile(path).traks().size();
    const auto headsBefore = audioChunkHeads(test::WrittenFile(path), audioTracks);

    Value parameters = Value::dictionary({{"duration", 3000}, {"trackID", 2}});
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        ASSERT_TRUE(editor.addChapters(slides, file, path.string(), parameters));
        parameters.asDictionary()->set("trackID", 3);
        ASSERT_TRUE(editor.addImages(slides, file, path.string(), parameters));
        parameters.asDictionary()->set("trackID", 4);
        ASSERT_TRUE(editor.addTextTrackURLs(slides, Value::dictionary(), file, path.string(), parameters));
        if (GetParam().withNotes) {
            ASSERT_TRUE(editor.addTextTrackForNotes(slides, Value::dictionary(), file, path));
        }
    }

    const test::WrittenFile written(path);
    const auto traks = written.traks();
    ASSERT_EQ(traks.size(), audioTracks + (GetParam().withNotes ? 4 : 3));
    EXPECT_EQ(audioChunkHeads(written, audioTracks), headsBefore);

    const auto& chapters = traks[audioTracks];
    const auto& images = traks[audioTracks + 1];
    const auto& links = traks[audioTracks + 2];
    for (std::size_t i = 0; i < kTitles.size(); ++i) {
        const std::string& title = kTitles[i];
        EXPECT_EQ(written.bytesAt(written.chunkOffsets(chapters).at(i) + 2, title.size()),
                  Bytes(title.begin(), title.end()));
        EXPECT_EQ(written.bytesAt(written.chunkOffsets(links).at(i) + 2, title.size()),
                  Bytes(title.begin(), title.end()));
        const Bytes picture = test::readFile(pictures[i]);
        EXPECT_EQ(written.bytesAt(written.chunkOffsets(images).at(i), picture.size()), picture);
        if (GetParam().withNotes) {
            const std::string note = "note " + title;
            EXPECT_EQ(written.bytesAt(written.chunkOffsets(traks.back()).at(i) + 2, note.size()),
                      Bytes(note.begin(), note.end()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, EnhancedPodcastTracks,
                         ::testing::Values(Layout{"recording-moov-first.m4a", true},
                                           Layout{"recording-moov-last.m4a", true},
                                           Layout{"recording-chunks-moov-first.m4a", false},
                                           Layout{"recording-chunks-moov-last.m4a", true}));

TEST(EnhancedPodcastReaders, FfmpegPlaysItAndFfprobeFindsChaptersAndPictures)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-moov-first.m4a", folder);
    QTDataEditor editor;
    Value slides = Value::array();
    for (std::size_t i = 0; i < kTitles.size(); ++i) {
        slides.asArray()->push_back(Value::dictionary({{"timeValue", kTimes[i]},
                                                       {"slideTitle", kTitles[i]},
                                                       {"imagePath", test::fixture("slide.jpg").string()}}));
    }
    Value parameters = Value::dictionary({{"duration", 1800}, {"trackID", 2}});
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        ASSERT_TRUE(editor.addChapters(slides, file, path.string(), parameters));
        parameters.asDictionary()->set("trackID", 3);
        ASSERT_TRUE(editor.addImages(slides, file, path.string(), parameters));
        parameters.asDictionary()->set("trackID", 4);
        ASSERT_TRUE(editor.addTextTrackURLs(slides, Value::dictionary(), file, path.string(), parameters));
    }
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");

    const auto chapters =
        test::runCommand("ffprobe -v error -show_chapters -of csv=p=0 " + test::shellQuote(path.string()));
    ASSERT_EQ(chapters.status, 0) << chapters.output;
    // id, time base, start, start time, end, end time, title
    std::string expected;
    for (std::size_t i = 0; i < kTitles.size(); ++i) {
        expected += std::to_string(i) + ",1/600," + std::to_string(kTimes[i]) + ",";
        expected += fmt::format("{:.6f}", static_cast<double>(kTimes[i]) / 600) + ",";
        const std::int64_t end = i + 1 < kTimes.size() ? kTimes[i + 1] : 1800;
        expected += std::to_string(end) + "," + fmt::format("{:.6f}", static_cast<double>(end) / 600) + ",";
        expected += kTitles[i] + "\n";
    }
    EXPECT_EQ(chapters.output, expected);

    // One picture per slide in the video stream.
    const auto video = test::runCommand("ffprobe -v error -select_streams v -show_entries stream=codec_name,nb_frames "
                                        "-of csv=p=0 " +
                                        test::shellQuote(path.string()));
    ASSERT_EQ(video.status, 0) << video.output;
    EXPECT_EQ(video.output, "mjpeg," + std::to_string(kTitles.size()) + "\n");
}
