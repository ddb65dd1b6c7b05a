// The text tracks: their shared skeleton against the whole track built field
// by field, and the chapter, hyperlink and notes writers on real recordings.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "layout/TextTrackLayout.h"
#include "toolbox/Movie.h"

using namespace quillora;
using namespace quillora::test;

namespace {

constexpr std::uint32_t kOneMinute = 36000;

// Two samples; stts and stco follow stsz in the order the kind lists them.
Bytes expectedTrak(std::uint32_t flags, std::uint32_t id, std::uint32_t size, std::uint32_t mediaMask,
                   std::uint32_t dataMask, const Bytes& entry, bool sttsFirst)
{
    const Bytes gmhd = box("gmhd", {box("gmin", {u32s({0}), u16s({0x40, 0x8000, 0x8000, 0x8000, 0, 0})}),
                                    box("text", {kIdentityMatrixBytes})});
    const Bytes times = stts({600, 35400}), chunks = box("stco", {u32s({0, 2, 1000, 1019})});
    // One minute, least-significant byte first in the media header only.
    return trak(tkhd(flags, id, kOneMinute, size), kOneMinute, Bytes{0xA0, 0x8C, 0x00, 0x00},
                hdlr("mhlr", "text", "app2", 1, mediaMask, pascal("Apple Text Media Handler")), gmhd, dataMask, entry,
                join({box("stsz", {u32s({0, 0, 2, 19, 21})}), sttsFirst ? times : chunks, sttsFirst ? chunks : times}));
}

Bytes tx3g(std::uint16_t top, std::uint8_t sizeByte, const Bytes& background, const Bytes& color, std::string_view font)
{
    return box("tx3g", {u16s({0, 0, 0, 1}), u32s({0}), Bytes{1, 0xFF}, background, u16s({top, 0, 300, 0, 0, 0, 1}),
                        Bytes{0, sizeByte}, color, box("ftab", {u16s({1, 1}), pascal(font)})});
}

Value withLink(std::int64_t time, std::string title, std::string url)
{
    return Value::dictionary({{"timeValue", time}, {"linkURL", Value::dictionary({{"title", title}, {"url", url}})}});
}

const Value kAttributes = Value::dictionary({{"textTrackFontFace", "Helvetica"}, {"textTrackFontSize", 12}});

std::uint32_t movieDuration(const std::filesystem::path& path)
{
    const auto movie = toolbox::Movie::movieWithFile(path);
    EXPECT_TRUE(movie);
    return movie ? static_cast<std::uint32_t>(movie->duration()) : 0;
}

// Always tracks 2 and 3, whatever the chapter track's ID.
const Bytes kTref = box("tref", {box("chap", {u32s({2, 3})})});

}  // namespace

TEST(TextTrack, ChapterAndTimedTextSkeletonsMatchTheLayout)
{
    const Bytes text = box("text", {u16s({0, 0, 0, 1}), u32s({1, 1}), Bytes(6, 0xFF), Bytes(8, 0),
                                    Bytes{0, 0, 0, 0, 0, 0x10, 0, 0x0D, 0, 0, 0, 0, 0, 0x0D, 0, 0, 0, 0, 0, 0, 0}});
    QTDataEditor editor;
    const SampleTable table{{19, 21}, {600, 35400}, {1000, 1019}};
    EXPECT_EQ(TextTrackBuilder(editor, kChapterTrack, kOneMinute, 2).finish(table),
              expectedTrak(0x0E, 2, 0, 0x00010113, 0x00010129, text, true));

    const TextStyle style{"Helvetica", 12, {0.5, 0.5, 0.5, 1.0}, {0.5, 0.25, 1.0, 0.5}};
    // The background scales to 250, the text colour to 100.
    EXPECT_EQ(TextTrackBuilder(editor, kHyperlinkTrack, kOneMinute, 4, style).finish(table),
              expectedTrak(0x0F, 4, 0x012C0000, 0x0001018A, 0x0001019F,
                           tx3g(278, 12, Bytes{125, 62, 250, 125}, Bytes{50, 50, 50, 100}, "Helvetica"), false));
}

TEST(TextTrack, StyleFromAttributesAndALargeFontSize)
{
    // A numeric string counts as a size; no colours means black on transparent.
    const TextStyle style =
        textStyleFromAttributes(Value::dictionary({{"textTrackFontFace", "Times"}, {"textTrackFontSize", "300"}}));
    QTDataEditor editor;
    TrackAtoms atoms(editor);
    // 290 - 300 wraps to 0xFFF6 at the top of the text box; the style record keeps 300 mod 256.
    EXPECT_EQ(timedTextDescription(atoms, style), tx3g(0xFFF6, 44, Bytes(4, 0), Bytes(4, 0), "Times"));

    EXPECT_NEAR(
        textStyleFromAttributes(Value::dictionary({{"textTrackFontColorData", chars("#808080")}})).textColor.red,
        128 / 255.0, 1e-9);
}

TEST(ChapterTrack, WritesOneSamplePerTransitionOrAnEmptyTrackAndPointsTheRecordingAtIt)
{
    TemporaryFolder folder;
    const auto path = copyFixture("recording-iods.m4a", folder);
    ASSERT_TRUE(toolbox::readAtomTree(path).find({atom::moov, atom::iods}));
    const Value transitions = Value::array({
        Value::dictionary({{"timeValue", 0}, {"slideTitle", "Intro"}}),
        Value::dictionary({{"timeValue", 600}, {"slideTitle", " \n\t "}}),
        Value::dictionary({{"timeValue", 1500}, {"slideTitle", "  Lead"}}),
        Value::dictionary({{"timeValue", 4000}}),  // past the recording's end
    });
    CapturedLog log;
    const auto written = afterWriting(path, [&](QTDataEditor& editor, FileHandle& file) {
        return editor.addChapters(transitions, file, path.string(),
                                  Value::dictionary({{"duration", 3000}, {"trackID", 7}}));
    });
    ASSERT_EQ(written.traks.size(), 2u);
    const auto& chapters = written.traks.back();
    EXPECT_EQ(written.below(chapters, {atom::tkhd}), tkhd(0x0E, 7, 3000, 0));

    const std::vector<std::string> names = {"Intro", "Chapter 2", "  Lead", "Chapter 4"};
    std::vector<Bytes> samples;
    for (const auto& name : names) samples.push_back(chapterSample(name));
    written.expectSamples(chapters, samples);
    // The last chapter runs past the end: its duration wraps as 32 bits.
    EXPECT_EQ(written.table(chapters, atom::stts), (std::vector<std::uint32_t>{600, 900, 2500, 0xFFFFFC18}));
    EXPECT_EQ(written.below(written.traks.front(), {atom::tref}), kTref);
    EXPECT_FALSE(written.tree.find({atom::moov, atom::iods}));

    for (const auto& name : names) {
        const char* how = name.starts_with("Chapter") ? "Generating chapter name: " : "Using given chapter name: ";
        EXPECT_TRUE(log.contains("-[QTDataEditor addChapters:toFile:path:withParameters:error:]  " + (how + name)));
    }

    // No transitions still give an empty track, no sample bytes, and the reference.
    const auto bare = copyFixture("recording-moov-last.m4a", folder);
    const auto mdatBefore = toolbox::readAtomTree(bare).find({atom::mdat})->size;
    const auto empty = afterWriting(bare, [&](QTDataEditor& editor, FileHandle& file) {
        return editor.addChapters(Value::array(), file, bare.string(),
                                  Value::dictionary({{"duration", 3000}, {"trackID", 2}}));
    });
    ASSERT_EQ(empty.traks.size(), 2u);
    EXPECT_TRUE(empty.table(empty.traks.back(), atom::stsz).empty());
    EXPECT_EQ(empty.tree.find({atom::mdat})->size, mdatBefore);
    EXPECT_EQ(empty.below(empty.traks.front(), {atom::tref}), kTref);
}

TEST(HyperlinkTrack, WritesLinkSamplesInOneBlockWithSixteenBitDurations)
{
    TemporaryFolder folder;
    const auto path = copyFixture("recording-moov-first.m4a", folder);
    const std::string longURL = "http://example.com/" + std::string(281, 'a');
    const Value transitions = Value::array({Value::dictionary({{"timeValue", 0}}), withLink(40000, "Docs", longURL),
                                            withLink(40100, "A longer title", "http://x.y")});
    CapturedLog log;
    const auto written = afterWriting(path, [&](QTDataEditor& editor, FileHandle& file) {
        return editor.addTextTrackURLs(transitions, kAttributes, file, path.string(),
                                       Value::dictionary({{"duration", 50000}, {"trackID", 4}}));
    });
    ASSERT_EQ(written.traks.size(), 2u);
    const auto& trak = written.traks.back();
    EXPECT_EQ(written.below(trak, {atom::tkhd}), tkhd(0x0F, 4, 50000, 0x012C0000));

    const Bytes docs = linkSample("Docs", longURL);
    EXPECT_EQ(docs[6 + 8 + 4], 44);  // the URL length byte: 300 mod 256
    written.expectSamples(trak, {Bytes{0, 0, 0, 0, 0, 0x0E, 'h', 'r', 'e', 'f', 0, 0, 0, 0, 0, 0}, docs,
                                 linkSample("A longer title", "http://x.y")});
    const auto offsets = written.table(trak, atom::stco);
    EXPECT_EQ(offsets, (std::vector<std::uint32_t>{offsets[0], offsets[0] + 16,
                                                   offsets[0] + 16 + static_cast<std::uint32_t>(docs.size())}));
    // A gap of 40000 does not fit in 16 signed bits.
    EXPECT_EQ(written.table(trak, atom::stts), (std::vector<std::uint32_t>{0xFFFF9C40, 100, 9900}));
    EXPECT_TRUE(log.contains("-[QTDataEditor addTextTrackURLs:withAttributes:toFile:path:withParameters:error:]  "
                             "Adding text track for URLS."));
}

TEST(HyperlinkTrack, OlderVariantTakesDurationAndTrackIDFromTheMovie)
{
    TemporaryFolder folder;
    const auto path = copyFixture("recording-chunks-moov-last.m4a", folder);
    const auto duration = movieDuration(path);
    QTDataEditor editor;
    CapturedLog log;
    EXPECT_TRUE(editor.addTextTrackURLs(Value::array({withLink(100, "T", "u")}), kAttributes, path));
    const WrittenFile written(path);
    ASSERT_EQ(written.traks.size(), 3u);
    const auto& trak = written.traks.back();
    EXPECT_EQ(written.below(trak, {atom::tkhd}), tkhd(0x0F, 3, duration, 0x012C0000));
    written.expectSamples(trak, {linkSample("T", "u")});
    EXPECT_EQ(written.table(trak, atom::stts),
              std::vector<std::uint32_t>{static_cast<std::uint32_t>(static_cast<std::int16_t>(duration - 100))});
    EXPECT_TRUE(log.contains("-[QTDataEditor addTextTrackURLs:withAttributes:toFileAtPath:]  Adding text track URLS"));
}

TEST(NotesTrack, CarriesNotesForwardAndEncodesOnlyASCII)
{
    TemporaryFolder folder;
    const auto path = copyFixture("recording-moov-first.m4a", folder);
    const auto duration = movieDuration(path);
    const Value transitions = Value::array({Value::dictionary({{"timeValue", 0}}),
                                            Value::dictionary({{"timeValue", 600}, {"notes", "First"}}),
                                            Value::dictionary({{"timeValue", 1200}}),
                                            Value::dictionary({{"timeValue", 41200}, {"notes", "Caf\xC3\xA9"}})});
    const auto written = afterWriting(path, [&](QTDataEditor& editor, FileHandle& file) {
        return editor.addTextTrackForNotes(transitions, kAttributes, file, path);
    });
    const auto& trak = written.traks.back();
    EXPECT_EQ(written.below(trak, {atom::tkhd}), tkhd(0x0F, 6, duration, 0x012C0000));
    written.expectSamples(trak, {textSample(""), textSample("First"), textSample("First"), textSample("")});
    EXPECT_EQ(written.table(trak, atom::stts),
              (std::vector<std::uint32_t>{600, 600, 0xFFFF9C40,
                                          static_cast<std::uint32_t>(static_cast<std::int16_t>(duration - 41200))}));
}
