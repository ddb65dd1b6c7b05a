// The chapter writer on a real recording: its samples in the media data,
// their tables, the reference from the recording's track, the removed
// object descriptor and the log lines.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"

using namespace quillora;

namespace {

constexpr std::string_view kMethod = "-[QTDataEditor addChapters:toFile:path:withParameters:error:]";

Bytes expectedChapterSample(std::string_view name)
{
    ByteWriter w;
    w.putU16BE(static_cast<std::uint16_t>(name.size())).putString(name);
    w.putBytes(Bytes{0, 0, 0, 12, 'e', 'n', 'c', 'd', 0, 0, 1, 0});
    return w.take();
}

Bytes expectedTref()
{
    ByteWriter ids;
    ids.putU32BE(2).putU32BE(3);
    return test::expectedAtom("tref", test::expectedAtom("chap", ids.bytes()));
}

}  // namespace

TEST(ChapterTrack, WritesOneSamplePerTransitionAndPointsTheRecordingAtIt)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-iods.m4a", folder);
    ASSERT_TRUE(toolbox::readAtomTree(path).find({atom::moov, atom::iods}).has_value());

    const Value transitions = Value::array({
        Value::dictionary({{"timeValue", 0}, {"slideTitle", "Intro"}}),
        Value::dictionary({{"timeValue", 600}, {"slideTitle", " \n\t "}}),
        Value::dictionary({{"timeValue", 1500}, {"slideTitle", "  Lead"}}),
        Value::dictionary({{"timeValue", 4000}}),  // beyond the end of the recording
    });
    QTDataEditor editor;
    CapturedLog log;
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        EXPECT_TRUE(editor.addChapters(transitions, file, path.string(),
                                       Value::dictionary({{"duration", 3000}, {"trackID", 7}})));
    }

    const test::WrittenFile written(path);
    const auto traks = written.traks();
    ASSERT_EQ(traks.size(), 2u);
    const auto& chapters = traks.back();
    EXPECT_EQ(written.atomBelow(chapters, {atom::tkhd}), test::expectedTkhd(0x0E, 7, 3000, 0));

    const std::vector<std::string> names = {"Intro", "Chapter 2", "  Lead", "Chapter 4"};
    const auto offsets = written.chunkOffsets(chapters);
    const auto sizes = written.sampleSizes(chapters);
    ASSERT_EQ(offsets.size(), names.size());
    ASSERT_EQ(sizes.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Bytes expected = expectedChapterSample(names[i]);
        EXPECT_EQ(sizes[i], expected.size());
        EXPECT_EQ(written.bytesAt(offsets[i], expected.size()), expected) << names[i];
    }
    EXPECT_EQ(sizes[0], 19u);
    // The last chapter runs past the end: its duration wraps as 32 bits.
    EXPECT_EQ(written.sampleDurations(chapters), (std::vector<std::uint32_t>{600, 900, 2500, 0xFFFFFC18}));

    EXPECT_EQ(written.atomBelow(traks.front(), {atom::tref}), expectedTref());
    EXPECT_FALSE(written.tree().find({atom::moov, atom::iods}).has_value());

    EXPECT_TRUE(log.contains(std::string(kMethod) + "  Using given chapter name: Intro"));
    EXPECT_TRUE(log.contains(std::string(kMethod) + "  Generating chapter name: Chapter 2"));
    EXPECT_TRUE(log.contains(std::string(kMethod) + "  Using given chapter name:   Lead"));
    EXPECT_TRUE(log.contains(std::string(kMethod) + "  Generating chapter name: Chapter 4"));
}

TEST(ChapterTrack, NoTransitionsStillGiveAnEmptyTrackAndTheReference)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-moov-last.m4a", folder);
    const auto mdatBefore = toolbox::readAtomTree(path).find({atom::mdat});
    QTDataEditor editor;
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        EXPECT_TRUE(editor.addChapters(Value::array(), file, path.string(),
                                       Value::dictionary({{"duration", 3000}, {"trackID", 2}})));
    }
    const test::WrittenFile written(path);
    const auto traks = written.traks();
    ASSERT_EQ(traks.size(), 2u);
    EXPECT_TRUE(written.sampleSizes(traks.back()).empty());
    EXPECT_TRUE(written.sampleDurations(traks.back()).empty());
    EXPECT_EQ(written.tree().find({atom::mdat})->size, mdatBefore->size);
    EXPECT_EQ(written.atomBelow(traks.front(), {atom::tref}), expectedTref());
}
