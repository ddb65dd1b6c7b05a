// The hyperlink writers: link samples in one block after the media data,
// 16-bit durations, and the older variant that opens the movie itself.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/Movie.h"

using namespace quillora;

namespace {

Bytes expectedLinkSample(std::string_view title, std::string_view url)
{
    ByteWriter w;
    w.putU16BE(static_cast<std::uint16_t>(title.size())).putString(title);
    w.putU32BE(static_cast<std::uint32_t>(14 + url.size())).putString("href");
    w.putU16BE(0).putU16BE(static_cast<std::uint16_t>(url.size()));
    w.putU8(static_cast<std::uint8_t>(url.size() % 256)).putString(url).putU8(0);
    return w.take();
}

Value linkValue(std::string title, std::string url)
{
    return Value::dictionary({{"title", title}, {"url", url}});
}

const Value kAttributes = Value::dictionary({{"textTrackFontFace", "Helvetica"}, {"textTrackFontSize", 12}});

// Every sample lies at its chunk offset, and the samples follow one another.
void expectSamples(const test::WrittenFile& written, const toolbox::AtomNode& trak, const std::vector<Bytes>& samples)
{
    const auto offsets = written.chunkOffsets(trak);
    const auto sizes = written.sampleSizes(trak);
    ASSERT_EQ(offsets.size(), samples.size());
    ASSERT_EQ(sizes.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(sizes[i], samples[i].size());
        EXPECT_EQ(written.bytesAt(offsets[i], samples[i].size()), samples[i]) << "sample " << i;
        if (i > 0) {
            EXPECT_EQ(offsets[i], offsets[i - 1] + sizes[i - 1]);
        }
    }
}

}  // namespace

TEST(HyperlinkTrack, WritesLinkSamplesWithSixteenBitDurations)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-moov-first.m4a", folder);
    const std::string longURL = "http://example.com/" + std::string(281, 'a');
    ASSERT_EQ(longURL.size(), 300u);
    const Value transitions = Value::array({
        Value::dictionary({{"timeValue", 0}}),
        Value::dictionary({{"timeValue", 40000}, {"linkURL", linkValue("Docs", longURL)}}),
        Value::dictionary({{"timeValue", 40100}, {"linkURL", linkValue("A longer title", "http://x.y")}}),
    });
    QTDataEditor editor;
    CapturedLog log;
    {
        FileHandle file(path, FileHandle::Mode::Updating);
        EXPECT_TRUE(editor.addTextTrackURLs(transitions, kAttributes, file, path.string(),
                                            Value::dictionary({{"duration", 50000}, {"trackID", 4}})));
    }
    const test::WrittenFile written(path);
    const auto trak = written.lastTrak();
    EXPECT_EQ(written.traks().size(), 2u);
    EXPECT_EQ(written.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, 4, 50000, 0x012C0000));

    const Bytes noLink = {0, 0, 0, 0, 0, 0x0E, 'h', 'r', 'e', 'f', 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(expectedLinkSample("", ""), noLink);
    const Bytes docs = expectedLinkSample("Docs", longURL);
    EXPECT_EQ(docs[6 + 8 + 4], 44);  // the URL length byte: 300 mod 256
    expectSamples(written, trak, {noLink, docs, expectedLinkSample("A longer title", "http://x.y")});
    // A gap of 40000 does not fit in 16 signed bits.
    EXPECT_EQ(written.sampleDurations(trak), (std::vector<std::uint32_t>{0xFFFF9C40, 100, 9900}));
    EXPECT_TRUE(log.contains("-[QTDataEditor addTextTrackURLs:withAttributes:toFile:path:withParameters:error:]  "
                             "Adding text track for URLS."));
    EXPECT_FALSE(written.atomBelow(written.traks().front(), {atom::tkhd}).empty());
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST(HyperlinkTrack, OlderVariantTakesDurationAndTrackIDFromTheMovie)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-chunks-moov-last.m4a", folder);
    const auto movie = toolbox::Movie::movieWithFile(path);
    ASSERT_TRUE(movie);
    const auto duration = static_cast<std::uint32_t>(movie->duration());
    const auto trackID = static_cast<std::uint32_t>(movie->tracks().size() + 1);
    ASSERT_EQ(trackID, 3u);

    QTDataEditor editor;
    CapturedLog log;
    const Value transitions = Value::array({Value::dictionary({{"timeValue", 100}, {"linkURL", linkValue("T", "u")}})});
    EXPECT_TRUE(editor.addTextTrackURLs(transitions, kAttributes, path));

    const test::WrittenFile written(path);
    const auto trak = written.lastTrak();
    EXPECT_EQ(written.traks().size(), 3u);
    EXPECT_EQ(written.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, trackID, duration, 0x012C0000));
    EXPECT_EQ(written.atomBelow(trak, {atom::edts}), test::expectedEdts(duration));
    expectSamples(written, trak, {expectedLinkSample("T", "u")});
    EXPECT_EQ(written.sampleDurations(trak),
              std::vector<std::uint32_t>{static_cast<std::uint32_t>(static_cast<std::int16_t>(duration - 100))});
    EXPECT_TRUE(log.contains("-[QTDataEditor addTextTrackURLs:withAttributes:toFileAtPath:]  Adding text track URLS"));
}
