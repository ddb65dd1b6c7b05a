// The shared text-track skeleton, built for each kind of text track and read
// back atom by atom against the layout.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "tracks/TextTrackLayout.h"

using namespace quillora;

namespace {

constexpr std::uint32_t kOneMinute = 36000;

SampleTable twoSamples()
{
    SampleTable table;
    table.add(19, 600, 1000);
    table.add(21, 35400, 1019);
    return table;
}

test::WrittenFile written(const Bytes& trak, const test::TemporaryFolder& folder)
{
    const auto path = folder.path() / "moov";
    test::writeFile(path, test::expectedAtom("moov", trak));
    return test::WrittenFile(path);
}

Bytes expectedGmhd()
{
    ByteWriter gmin;
    gmin.putU32BE(0).putU16BE(0x0040).putU16BE(0x8000).putU16BE(0x8000).putU16BE(0x8000).putU16BE(0).putU16BE(0);
    ByteWriter text;
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u}) text.putU32BE(v);
    ByteWriter both;
    both.putBytes(test::expectedAtom("gmin", gmin.bytes())).putBytes(test::expectedAtom("text", text.bytes()));
    return test::expectedAtom("gmhd", both.bytes());
}

// The tables of twoSamples(), in the order the track lists them.
Bytes expectedTables(bool timeToSampleFirst)
{
    ByteWriter stsz, stts, stco;
    stsz.putU32BE(0).putU32BE(0).putU32BE(2).putU32BE(19).putU32BE(21);
    stts.putU32BE(0).putU32BE(2).putU32BE(1).putU32BE(600).putU32BE(1).putU32BE(35400);
    stco.putU32BE(0).putU32BE(2).putU32BE(1000).putU32BE(1019);
    ByteWriter tables;
    tables.putBytes(test::expectedAtom("stsz", stsz.bytes()));
    const Bytes sttsAtom = test::expectedAtom("stts", stts.bytes());
    const Bytes stcoAtom = test::expectedAtom("stco", stco.bytes());
    tables.putBytes(timeToSampleFirst ? sttsAtom : stcoAtom).putBytes(timeToSampleFirst ? stcoAtom : sttsAtom);
    return tables.take();
}

Bytes expectedTx3g(std::uint16_t top, std::uint8_t sizeByte, Bytes background, Bytes textColor, std::string font)
{
    ByteWriter w;
    w.putZeros(6).putU16BE(1).putU32BE(0).putU8(1).putU8(0xFF).putBytes(background);
    w.putU16BE(top).putU16BE(0).putU16BE(300).putU16BE(0);
    w.putU16BE(0).putU16BE(0).putU16BE(1).putU8(0).putU8(sizeByte).putBytes(textColor);
    ByteWriter ftab;
    ftab.putU16BE(1).putU16BE(1).putBytes(test::lengthPrefixed(font));
    w.putBytes(test::expectedAtom("ftab", ftab.bytes()));
    return test::expectedAtom("tx3g", w.bytes());
}

Bytes stsdHolding(const Bytes& entry)
{
    ByteWriter w;
    w.putU32BE(0).putU32BE(1).putBytes(entry);
    return test::expectedAtom("stsd", w.bytes());
}

const std::vector<std::uint32_t> kStblChildrenChapter = {atom::stsd, atom::stsc, atom::stsz, atom::stts, atom::stco};
const std::vector<std::uint32_t> kStblChildrenTimedText = {atom::stsd, atom::stsc, atom::stsz, atom::stco, atom::stts};

}  // namespace

TEST(TextTrack, ChapterSkeletonMatchesTheLayoutByteForByte)
{
    QTDataEditor editor;
    test::TemporaryFolder folder;
    const Bytes trakBytes = TextTrackBuilder(editor, kChapterTrack, kOneMinute, 2).finish(twoSamples());
    const auto file = written(trakBytes, folder);
    const auto trak = file.lastTrak();

    EXPECT_EQ(file.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0E, 2, kOneMinute, 0));
    EXPECT_EQ(file.atomBelow(trak, {atom::edts}), test::expectedEdts(kOneMinute));
    const Bytes mdhd = file.atomBelow(trak, {atom::mdia, atom::mdhd});
    EXPECT_EQ(mdhd, test::expectedMdhd(kOneMinute, true));
    // One minute: little-endian in the media header, big-endian in the track header.
    EXPECT_EQ(Bytes(mdhd.begin() + 24, mdhd.begin() + 28), (Bytes{0xA0, 0x8C, 0x00, 0x00}));
    const Bytes tkhd = file.atomBelow(trak, {atom::tkhd});
    EXPECT_EQ(Bytes(tkhd.begin() + 28, tkhd.begin() + 32), (Bytes{0x00, 0x00, 0x8C, 0xA0}));

    EXPECT_EQ(
        file.atomBelow(trak, {atom::mdia, atom::hdlr}),
        test::expectedHdlr("mhlr", "text", "app2", 1, 0x00010113, test::lengthPrefixed("Apple Text Media Handler")));
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, fourCC("gmhd")}), expectedGmhd());
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::hdlr}), test::expectedDataHdlr(0x00010129));
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, fourCC("dinf")}), test::expectedDinf());

    ByteWriter text;
    text.putZeros(6).putU16BE(1).putU32BE(1).putU32BE(1);
    text.putBytes(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}).putZeros(8);
    text.putBytes(Bytes{0, 0, 0, 0, 0, 0x10, 0, 0x0D, 0, 0, 0, 0, 0, 0x0D, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              stsdHolding(test::expectedAtom("text", text.bytes())));
    EXPECT_EQ(stsdHolding(test::expectedAtom("text", text.bytes())).size(), 75u);
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsc}), test::expectedStsc());

    EXPECT_EQ(file.childTypes(trak, {atom::mdia, atom::minf, atom::stbl}), kStblChildrenChapter);
    const Bytes stbl = file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl});
    EXPECT_EQ(Bytes(stbl.end() - static_cast<std::ptrdiff_t>(expectedTables(true).size()), stbl.end()),
              expectedTables(true));
    EXPECT_EQ(file.childTypes(trak, {}), (std::vector<std::uint32_t>{atom::tkhd, atom::edts, atom::mdia}));
    EXPECT_EQ(file.childTypes(trak, {atom::mdia}), (std::vector<std::uint32_t>{atom::mdhd, atom::hdlr, atom::minf}));
    EXPECT_EQ(file.childTypes(trak, {atom::mdia, atom::minf}),
              (std::vector<std::uint32_t>{fourCC("gmhd"), atom::hdlr, fourCC("dinf"), atom::stbl}));
    EXPECT_EQ(trakBytes.size() + 8, file.bytes().size());
}

TEST(TextTrack, TimedTextSkeletonScalesColoursAndPlacesTheTextBox)
{
    QTDataEditor editor;
    test::TemporaryFolder folder;
    TextStyle style;
    style.fontName = "Helvetica";
    style.fontSize = 12;
    style.textColor = {0.5, 0.5, 0.5, 1.0};
    style.backgroundColor = {0.5, 0.25, 1.0, 0.5};
    const auto file =
        written(TextTrackBuilder(editor, kHyperlinkTrack, kOneMinute, 4, style).finish(twoSamples()), folder);
    const auto trak = file.lastTrak();

    EXPECT_EQ(file.atomBelow(trak, {atom::tkhd}), test::expectedTkhd(0x0F, 4, kOneMinute, 0x012C0000));
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::mdhd}), test::expectedMdhd(kOneMinute, true));
    EXPECT_EQ(
        file.atomBelow(trak, {atom::mdia, atom::hdlr}),
        test::expectedHdlr("mhlr", "text", "app2", 1, 0x0001018A, test::lengthPrefixed("Apple Text Media Handler")));
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::hdlr}), test::expectedDataHdlr(0x0001019F));
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              stsdHolding(expectedTx3g(278, 12, Bytes{125, 62, 250, 125}, Bytes{50, 50, 50, 100}, "Helvetica")));
    EXPECT_EQ(file.childTypes(trak, {atom::mdia, atom::minf, atom::stbl}), kStblChildrenTimedText);
    const Bytes stbl = file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl});
    EXPECT_EQ(Bytes(stbl.end() - static_cast<std::ptrdiff_t>(expectedTables(false).size()), stbl.end()),
              expectedTables(false));
}

TEST(TextTrack, LargeFontSizeKeepsItsLowByteAndAttributesFallBackToZero)
{
    QTDataEditor editor;
    test::TemporaryFolder folder;
    // A numeric string counts as a size; no colours means black on transparent.
    const TextStyle style =
        textStyleFromAttributes(Value::dictionary({{"textTrackFontFace", "Times"}, {"textTrackFontSize", "300"}}));
    EXPECT_EQ(style.fontSize, 300);
    const auto file = written(TextTrackBuilder(editor, kNotesTrack, 100, 6, style).finish({}), folder);
    const auto trak = file.lastTrak();
    // 290 - 300 wraps to 0xFFF6 in the text box; the style record keeps 300 mod 256.
    EXPECT_EQ(file.atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd}),
              stsdHolding(expectedTx3g(0xFFF6, 44, Bytes{0, 0, 0, 0}, Bytes{0, 0, 0, 0}, "Times")));
    EXPECT_TRUE(file.sampleSizes(trak).empty());
    EXPECT_TRUE(file.chunkOffsets(trak).empty());

    const TextStyle colored = textStyleFromAttributes(Value::dictionary(
        {{"textTrackFontSize", 18}, {"textTrackFontColorData", Bytes{'#', '8', '0', '8', '0', '8', '0'}}}));
    EXPECT_EQ(colored.fontSize, 18);
    EXPECT_NEAR(colored.textColor.red, 128 / 255.0, 1e-9);
    EXPECT_EQ(colored.backgroundColor.alpha, 0);
}
