#include "layout/TextTrackLayout.h"

#include <array>

#include "foundation/FourCC.h"
#include "layout/TextSamples.h"

namespace quillora {

namespace {

// The chapter description from the first reserved field to its end; what
// 00 10 00 0D and 0D 00 stand for is not known, the bytes are what counts.
constexpr std::array<std::uint8_t, 21> kQuickTimeTextTail = {0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                                             0x0D, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0D,
                                                             0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
constexpr std::uint16_t kDataReferenceIndex = 1;
constexpr std::uint16_t kFontID = 1;
constexpr std::int64_t kTextBoxBottom = 300;
constexpr std::int64_t kTextBoxTopMargin = 290;

// The two scales differ on purpose; the result is truncated, not rounded.
constexpr double kBackgroundScale = 250;
constexpr double kTextColorScale = 100;

void putScaledColor(ByteWriter& writer, const ColorComponents& color, double scale)
{
    for (double component : {color.red, color.green, color.blue, color.alpha}) {
        writer.putU8(static_cast<std::uint8_t>(static_cast<int>(component * scale)));
    }
}

Bytes fontTable(TrackAtoms& atoms, const std::string& fontName)
{
    const std::string name = asciiOrEmpty(fontName);
    ByteWriter w;
    w.putU16BE(1).putU16BE(kFontID).putBytes(pascalName(name));
    return atoms.atom(fourCC("ftab"), w.bytes());
}

}  // namespace

Bytes quickTimeTextDescription(TrackAtoms& atoms)
{
    ByteWriter w(51);
    w.putZeros(6).putU16BE(kDataReferenceIndex);
    w.putU32BE(0x00000001);                          // display flags: do not display
    w.putU32BE(0x00000001);                          // justification: centred
    for (int i = 0; i < 3; ++i) w.putU16BE(0xFFFF);  // white background
    w.putZeros(8);                                   // default text box
    w.putBytes(kQuickTimeTextTail);
    return atoms.atom(fourCC("text"), w.bytes());
}

Bytes timedTextDescription(TrackAtoms& atoms, const TextStyle& style)
{
    ByteWriter w;
    w.putZeros(6).putU16BE(kDataReferenceIndex);
    w.putU32BE(0);  // display flags
    w.putU8(1);     // centred
    w.putU8(0xFF);  // bottom
    putScaledColor(w, style.backgroundColor, kBackgroundScale);
    // Text box: top, left, bottom, right (0 by design).
    w.putU16BE(static_cast<std::uint16_t>(kTextBoxTopMargin - style.fontSize)).putU16BE(0);
    w.putU16BE(static_cast<std::uint16_t>(kTextBoxBottom)).putU16BE(0);
    // Style record: start and end character, font, face, size, colour.
    w.putU16BE(0).putU16BE(0).putU16BE(kFontID).putU8(0);
    w.putU8(static_cast<std::uint8_t>(style.fontSize));
    putScaledColor(w, style.textColor, kTextColorScale);
    w.putBytes(fontTable(atoms, style.fontName));
    return atoms.atom(fourCC("tx3g"), w.bytes());
}

TextTrackBuilder::TextTrackBuilder(AtomFactory& factory, const TextTrackKind& kind, std::uint32_t duration,
                                   std::uint32_t trackID, const TextStyle& style)
    : atoms_(factory), kind_(kind)
{
    tkhd_ = atoms_.tkhd({kind.headerFlags, trackID, duration, kind.trackSize, std::nullopt});
    edts_ = atoms_.edts(duration);
    mdhd_ = atoms_.mdhd(duration, DurationOrder::LittleEndian);
    mediaHandler_ = atoms_.hdlr({fourCC("mhlr"), fourCC("text"), fourCC("app2"), 0x00000001, kind.mediaHandlerMask,
                                 pascalName("Apple Text Media Handler")});
    gmhd_ = atoms_.gmhd();
    dataHandler_ = atoms_.hdlr(aliasDataHandler(kind.dataHandlerMask));
    dinf_ = atoms_.dinf();
    const Bytes description = kind.sampleFormat == TextSampleFormat::QuickTimeText
                                  ? quickTimeTextDescription(atoms_)
                                  : timedTextDescription(atoms_, style);
    stsd_ = atoms_.stsd(description);
    stsc_ = atoms_.stsc();
}

Bytes TextTrackBuilder::finish(const SampleTable& samples)
{
    const Bytes stsz = atoms_.stsz(samples);
    Bytes stts, stco;
    if (kind_.timeToSampleBeforeChunkOffsets) {
        stts = atoms_.stts(samples);
        stco = atoms_.stco(samples);
    } else {
        stco = atoms_.stco(samples);
        stts = atoms_.stts(samples);
    }
    const Bytes stbl = kind_.timeToSampleBeforeChunkOffsets
                           ? atoms_.container(atom::stbl, {stsd_, stsc_, stsz, stts, stco})
                           : atoms_.container(atom::stbl, {stsd_, stsc_, stsz, stco, stts});
    const Bytes minf = atoms_.container(atom::minf, {gmhd_, dataHandler_, dinf_, stbl});
    const Bytes mdia = atoms_.container(atom::mdia, {mdhd_, mediaHandler_, minf});
    return atoms_.container(atom::trak, {tkhd_, edts_, mdia});
}

}  // namespace quillora
