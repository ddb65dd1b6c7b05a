#include "layout/ImageTrackLayout.h"

#include "foundation/FourCC.h"

namespace quillora {

namespace {

constexpr std::string_view kVideoHandlerName = "Apple Video Media Handler";
constexpr std::uint32_t kVideoHandlerMask = 0x00010111;
constexpr std::uint32_t kDataHandlerMask = 0x00010129;
constexpr std::uint32_t kLosslessQuality = 0x400;
constexpr std::uint32_t kResolution72 = 0x00480000;
constexpr std::size_t kCompressorNameField = 32;
constexpr std::uint16_t kDepth = 24;
constexpr std::uint16_t kNoColorTable = 0xFFFF;

}  // namespace

ImageFormat imageFormatFor(const std::optional<std::string>& imageType, const std::string& imagePath)
{
    if (imageType == "PNG") return {fourCC("png "), "PNG"};
    if (imageType == "JPEG") return {fourCC("jpeg"), "Photo-JPEG"};
    return {fourCC("dinf"), imagePath};
}

Bytes imageSampleDescription(TrackAtoms& atoms, const ImageFormat& format, PointSize size)
{
    ByteWriter w(78);
    w.putZeros(6).putU16BE(1);  // data reference index
    w.putU16BE(0).putU16BE(0);  // version, revision level
    w.putFourCC(fourCC("appl")).putU32BE(0).putU32BE(kLosslessQuality);
    w.putU16BE(static_cast<std::uint16_t>(size.width)).putU16BE(static_cast<std::uint16_t>(size.height));
    w.putU32BE(kResolution72).putU32BE(kResolution72);
    w.putU32BE(0).putU16BE(1);  // data size, frame count
    const std::string& name = format.compressorName;
    w.putBytes(pascalName(name));
    if (name.size() < kCompressorNameField - 1) w.putZeros(kCompressorNameField - 1 - name.size());
    w.putU16BE(kDepth).putU16BE(kNoColorTable);
    return atoms.atom(format.dataFormat, w.bytes());
}

Bytes videoHandlerNameUTF16()
{
    ByteWriter w(1 + 2 * kVideoHandlerName.size());
    w.putU8(static_cast<std::uint8_t>(2 * kVideoHandlerName.size()));  // the length in bytes
    for (char c : kVideoHandlerName) w.putU16BE(static_cast<std::uint16_t>(c));
    return w.take();
}

Bytes videoHandlerNameASCII()
{
    return pascalName(kVideoHandlerName);
}

ImageTrackBuilder::ImageTrackBuilder(AtomFactory& factory, const ImageTrackShape& shape) : atoms_(factory)
{
    tkhd_ = atoms_.tkhd({0x0F, shape.trackID, shape.duration, shape.trackSize, std::nullopt});
    edts_ = atoms_.edts(shape.duration);
    mdhd_ = atoms_.mdhd(shape.duration, DurationOrder::BigEndian);
    mediaHandler_ = atoms_.hdlr(
        {fourCC("mhlr"), fourCC("vide"), fourCC("appl"), 0x10000000, kVideoHandlerMask, shape.mediaHandlerName});
    vmhd_ = atoms_.vmhd();
    dataHandler_ = atoms_.hdlr(aliasDataHandler(kDataHandlerMask));
    dinf_ = atoms_.dinf();
}

void ImageTrackBuilder::describe(const ImageFormat& format, PointSize size)
{
    stsd_ = atoms_.stsd(imageSampleDescription(atoms_, format, size));
    stsc_ = atoms_.stsc();
}

Bytes ImageTrackBuilder::finish(const SampleTable& samples)
{
    const Bytes stsz = atoms_.stsz(samples);
    const Bytes stts = atoms_.stts(samples);
    const Bytes stco = atoms_.stco(samples);
    const Bytes stbl = atoms_.container(atom::stbl, {stsd_, stsc_, stsz, stts, stco});
    const Bytes minf = atoms_.container(atom::minf, {vmhd_, dataHandler_, dinf_, stbl});
    const Bytes mdia = atoms_.container(atom::mdia, {mdhd_, mediaHandler_, minf});
    return atoms_.container(atom::trak, {tkhd_, edts_, mdia});
}

}  // namespace quillora
