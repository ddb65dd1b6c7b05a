// The notes writer: notes carried forward, ASCII only, the fixed track ID
// and the duration of the movie at the path.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "toolbox/Movie.h"

using namespace quillora;

namespace {

Bytes expectedNotesSample(std::string_view text)
{
    ByteWriter w;
    w.putU16BE(static_cast<std::uint16_t>(text.size())).putString(text);
    return w.take();
}

std::uint32_t sixteenBits(std::int64_t difference)
{
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<std::int16_t>(difference)));
}

}  // namespace

TEST(NotesTrack, CarriesNotesForwardAndEncodesOnlyASCII)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-moov-first.m4a", folder);
    const auto movie = toolbox::Movie::movieWithFile(path);
    ASSERT_TRUE(movie);
    const auto duration = static_cast<std::uint32_t>(movie->duration());

    const Value transitions = Value::array({
        Value::dictionary({{"timeValue", 0}}),
        Value::dictionary({{"timeValue", 600}, {"notes", "First"}}),
        Value::dictionary({{"timeValue", 1200}}),
        Value::dictionary({{"timeValue", 41200}, {"notes", "Caf\xC3\xA9"}}),
    });
    QTDataEditor editor;
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        EXPECT_TRUE(editor.addTextTrackForNotes(
            transitions, Value::dictionary({{"textTrackFontFace", "Courier"}, {"textTrackFontSize", 10}}), file, path));
    }
    const test::WrittenFile written(path);
    const auto trak = written.lastTrak();
    EXPECT_EQ(written.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, 6, duration, 0x012C0000));

    const std::vector<Bytes> samples = {expectedNotesSample(""), expectedNotesSample("First"),
                                        expectedNotesSample("First"), expectedNotesSample("")};
    const auto offsets = written.chunkOffsets(trak);
    const auto sizes = written.sampleSizes(trak);
    ASSERT_EQ(offsets.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(sizes[i], samples[i].size());
        EXPECT_EQ(written.bytesAt(offsets[i], samples[i].size()), samples[i]) << "sample " << i;
    }
    EXPECT_EQ(written.sampleDurations(trak),
              (std::vector<std::uint32_t>{600, 600, 0xFFFF9C40, sixteenBits(std::int64_t{duration} - 41200)}));
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}
