// All atom-built tracks on one recording, in the export's order: every chunk
// offset of every track still points at its own sample, and ffmpeg plays it.
#include <gtest/gtest.h>

#include <algorithm>

#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"

using namespace quillora;
using namespace quillora::test;

namespace {

struct Layout {
    const char* fixture;
    bool withNotes;  // notes as a sixth track would be past the tracks whose offsets are kept up to date
};

// Keeps the test names free of the parameter's bytes.
void PrintTo(const Layout& layout, std::ostream* out)
{
    *out << layout.fixture;
}

class EnhancedPodcastTracks : public ::testing::TestWithParam<Layout> {};

// The first bytes of every audio chunk, to compare before and after.
std::vector<Bytes> audioChunkHeads(const WrittenFile& file, std::size_t audioTracks)
{
    std::vector<Bytes> heads;
    for (std::size_t t = 0; t < audioTracks; ++t) {
        for (auto offset : file.table(file.traks[t], atom::stco)) heads.push_back(file.at(offset, 16));
    }
    return heads;
}

}  // namespace

TEST_P(EnhancedPodcastTracks, EveryChunkOffsetPointsAtItsSampleAndFfmpegDecodesIt)
{
    TemporaryFolder folder;
    const auto path = copyFixture(GetParam().fixture, folder);
    const std::vector<std::string> titles = {"Welcome", "Method", "Results"};
    const std::vector<std::filesystem::path> pictures = {fixture("slide.jpg"), fixture("slide-exif.jpg"),
                                                         fixture("slide.jpg")};
    Value slides = Value::array();
    std::vector<Bytes> chapters, images, links, notes;
    for (std::size_t i = 0; i < titles.size(); ++i) {
        const std::string url = "http://example.com/" + titles[i];
        slides.asArray()->push_back(
            Value::dictionary({{"timeValue", std::vector<std::int64_t>{0, 600, 1500}[i]},
                               {"slideTitle", titles[i]},
                               {"imagePath", pictures[i].string()},
                               {"notes", "note " + titles[i]},
                               {"linkURL", Value::dictionary({{"title", titles[i]}, {"url", url}})}}));
        chapters.push_back(chapterSample(titles[i]));
        images.push_back(readFile(pictures[i]));
        links.push_back(linkSample(titles[i], url));
        notes.push_back(textSample("note " + titles[i]));
    }
    const WrittenFile before(path);
    const std::size_t audio = before.traks.size();
    const auto given = [](std::int64_t trackID) {
        return Value::dictionary({{"duration", 3000}, {"trackID", trackID}});
    };
    const auto written = afterWriting(path, [&](QTDataEditor& editor, FileHandle& file) {
        return editor.addChapters(slides, file, path.string(), given(2)) &&
               editor.addImages(slides, file, path.string(), given(3)) &&
               editor.addTextTrackURLs(slides, Value::dictionary(), file, path.string(), given(4)) &&
               (!GetParam().withNotes || editor.addTextTrackForNotes(slides, Value::dictionary(), file, path));
    });
    ASSERT_EQ(written.traks.size(), audio + (GetParam().withNotes ? 4 : 3));
    EXPECT_EQ(audioChunkHeads(written, audio), audioChunkHeads(before, audio));
    written.expectSamples(written.traks[audio], chapters);
    written.expectSamples(written.traks[audio + 1], images);
    written.expectSamples(written.traks[audio + 2], links);
    if (GetParam().withNotes) written.expectSamples(written.traks.back(), notes);

    // The host's export test reads the chapters and pictures with ffprobe; here
    // every layout, notes included, must still decode.
    EXPECT_EQ(ffmpegDecodeErrors(path), "");
}

INSTANTIATE_TEST_SUITE_P(Layouts, EnhancedPodcastTracks,
                         ::testing::Values(Layout{"recording-moov-first.m4a", true},
                                           Layout{"recording-moov-last.m4a", true},
                                           Layout{"recording-chunks-moov-first.m4a", false},
                                           Layout{"recording-chunks-moov-last.m4a", true}),
                         [](const auto& instance) {
                             std::string name = std::filesystem::path(instance.param.fixture).stem().string();
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name + (instance.param.withNotes ? "_with_notes" : "");
                         });
