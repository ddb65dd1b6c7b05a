#include "layout/TrackAtoms.h"

#include <array>

#include "foundation/FourCC.h"

namespace quillora {

namespace {

// What the header templates hold; the swap turns them into zeros.
constexpr std::int16_t kTemplateLayer = 1;
constexpr std::int16_t kTemplateAlternateGroup = 1;
constexpr std::int16_t kTemplateVolume = 1;
constexpr std::int16_t kTemplateReserved = 0;
constexpr std::int16_t kTemplateLanguage = 0;
constexpr std::int16_t kTemplateQuality = 0;

constexpr std::uint16_t kGraphicsModeDitherCopy = 0x0040;
constexpr std::uint16_t kOperationColor = 0x8000;

void putMatrix(ByteWriter& writer, std::span<const std::int32_t> matrix)
{
    for (auto value : matrix) writer.putI32BE(value);
}

void putMatrix(ByteWriter& writer)
{
    putMatrix(writer, kIdentityMatrix);
}

void putGraphicsMode(ByteWriter& writer)
{
    writer.putU16BE(kGraphicsModeDitherCopy);
    for (int i = 0; i < 3; ++i) writer.putU16BE(kOperationColor);
}

void putVersionFlagsAndCount(ByteWriter& writer, std::size_t count)
{
    writer.putU32BE(0).putU32BE(static_cast<std::uint32_t>(count));
}

}  // namespace

std::uint16_t swappedHeaderField(std::int16_t templateValue)
{
    const auto widened = static_cast<std::uint32_t>(static_cast<std::int32_t>(templateValue));
    // The low half of the byte-swapped word: the top two bytes, reversed.
    return static_cast<std::uint16_t>(((widened >> 8) & 0xFF00) | (widened >> 24));
}

Bytes pascalName(std::string_view name)
{
    ByteWriter writer(name.size() + 1);
    writer.putU8(static_cast<std::uint8_t>(name.size())).putString(name);
    return writer.take();
}

HandlerDescription aliasDataHandler(std::uint32_t flagsMask)
{
    return {fourCC("dhlr"), fourCC("alis"), fourCC("appl"),
            0x10000001,     flagsMask,      pascalName("Apple Alias Data Handler")};
}

Bytes TrackAtoms::atom(std::uint32_t type, std::span<const std::uint8_t> payload)
{
    return factory_.createAtomOfType(type, payload);
}

Bytes TrackAtoms::container(std::uint32_t type, std::initializer_list<std::reference_wrapper<const Bytes>> children)
{
    ByteWriter payload;
    for (const Bytes& child : children) payload.putBytes(child);
    return atom(type, payload.bytes());
}

Bytes TrackAtoms::tkhd(const TrackHeader& header)
{
    ByteWriter w(84);
    w.putU32BE(header.flags);  // version 0 in the top byte
    w.putU32BE(kTrackCreationTime).putU32BE(kTrackModificationTime);
    w.putU32BE(header.trackID).putU32BE(0).putU32BE(header.duration).putU64BE(0);
    if (const auto& placement = header.placement) {
        w.putI16BE(placement->layer).putI16BE(placement->alternateGroup).putI16BE(placement->volume).putU16BE(0);
        putMatrix(w, placement->matrix);
        w.putU32BE(placement->width).putU32BE(placement->height);
        return atom(atom::tkhd, w.bytes());
    }
    w.putU16BE(swappedHeaderField(kTemplateLayer));
    w.putU16BE(swappedHeaderField(kTemplateAlternateGroup));
    w.putU16BE(swappedHeaderField(kTemplateVolume));
    w.putU16BE(swappedHeaderField(kTemplateReserved));
    putMatrix(w);
    w.putU32BE(header.size).putU32BE(header.size);
    return atom(atom::tkhd, w.bytes());
}

Bytes TrackAtoms::edts(std::uint32_t duration)
{
    const EditListEntry whole{duration, 0, 0x00010000};
    return edts(std::span(&whole, 1));
}

Bytes TrackAtoms::edts(std::span<const EditListEntry> entries)
{
    ByteWriter w(8 + 12 * entries.size());
    putVersionFlagsAndCount(w, entries.size());
    for (const auto& entry : entries) w.putU32BE(entry.trackDuration).putI32BE(entry.mediaTime).putI32BE(entry.rate);
    const Bytes elst = atom(atom::elst, w.bytes());
    return container(atom::edts, {elst});
}

Bytes TrackAtoms::mdhd(std::uint32_t duration, DurationOrder order)
{
    ByteWriter w(24);
    w.putU32BE(0).putU32BE(kTrackCreationTime).putU32BE(kTrackModificationTime).putU32BE(kMediaTimeScale);
    if (order == DurationOrder::LittleEndian) {
        w.putU32LE(duration);
    } else {
        w.putU32BE(duration);
    }
    w.putU16BE(swappedHeaderField(kTemplateLanguage)).putU16BE(swappedHeaderField(kTemplateQuality));
    return atom(atom::mdhd, w.bytes());
}

Bytes TrackAtoms::mdhd(std::uint32_t timeScale, std::uint32_t duration, std::uint16_t language)
{
    ByteWriter w(24);
    w.putU32BE(0).putU32BE(kTrackCreationTime).putU32BE(kTrackModificationTime).putU32BE(timeScale);
    w.putU32BE(duration).putU16BE(language).putU16BE(0);
    return atom(atom::mdhd, w.bytes());
}

Bytes TrackAtoms::hdlr(const HandlerDescription& handler)
{
    ByteWriter w(24 + handler.name.size());
    w.putU32BE(0).putFourCC(handler.componentType).putFourCC(handler.componentSubtype);
    w.putFourCC(handler.manufacturer).putU32BE(handler.flags).putU32BE(handler.flagsMask);
    w.putBytes(handler.name);
    return atom(atom::hdlr, w.bytes());
}

Bytes TrackAtoms::gmhd()
{
    ByteWriter info(16);
    info.putU32BE(0);
    putGraphicsMode(info);
    info.putU16BE(0).putU16BE(0);  // balance, reserved
    const Bytes gmin = atom(fourCC("gmin"), info.bytes());

    ByteWriter text(36);
    putMatrix(text);
    const Bytes textAtom = atom(fourCC("text"), text.bytes());
    return container(fourCC("gmhd"), {gmin, textAtom});
}

Bytes TrackAtoms::vmhd()
{
    ByteWriter w(16);
    w.putU32BE(0x00000001);
    putGraphicsMode(w);
    w.putZeros(4);  // deliberately four bytes longer than the usual 20
    return atom(fourCC("vmhd"), w.bytes());
}

Bytes TrackAtoms::smhd()
{
    ByteWriter w(8);
    w.putU32BE(0).putU16BE(0).putU16BE(0);  // balance centred, reserved
    return atom(fourCC("smhd"), w.bytes());
}

Bytes TrackAtoms::dinf()
{
    ByteWriter self(4);
    self.putU32BE(0x00000001);  // flag: the data is in this file
    const Bytes alis = atom(fourCC("alis"), self.bytes());

    ByteWriter references;
    putVersionFlagsAndCount(references, 1);
    references.putBytes(alis);
    const Bytes dref = atom(fourCC("dref"), references.bytes());
    return container(fourCC("dinf"), {dref});
}

Bytes TrackAtoms::stsd(std::span<const std::uint8_t> sampleDescription)
{
    ByteWriter w(8 + sampleDescription.size());
    putVersionFlagsAndCount(w, 1);
    w.putBytes(sampleDescription);
    return atom(atom::stsd, w.bytes());
}

Bytes TrackAtoms::stsd(const std::vector<Bytes>& sampleDescriptions)
{
    ByteWriter w;
    putVersionFlagsAndCount(w, sampleDescriptions.size());
    for (const auto& description : sampleDescriptions) w.putBytes(description);
    return atom(atom::stsd, w.bytes());
}

Bytes TrackAtoms::stsc()
{
    const SampleToChunkRun eachSampleAChunk{1, 1, 1};
    return stsc(std::span(&eachSampleAChunk, 1));
}

Bytes TrackAtoms::stsc(std::span<const SampleToChunkRun> runs)
{
    ByteWriter w(8 + 12 * runs.size());
    putVersionFlagsAndCount(w, runs.size());
    for (const auto& run : runs)
        w.putU32BE(run.firstChunk).putU32BE(run.samplesPerChunk).putU32BE(run.descriptionIndex);
    return atom(atom::stsc, w.bytes());
}

Bytes TrackAtoms::stsz(const SampleTable& table)
{
    return stsz(std::span(table.sizes));
}

Bytes TrackAtoms::stsz(std::span<const std::uint32_t> sizes)
{
    ByteWriter w(12 + 4 * sizes.size());
    w.putU32BE(0).putU32BE(0).putU32BE(static_cast<std::uint32_t>(sizes.size()));
    for (auto size : sizes) w.putU32BE(size);
    return atom(atom::stsz, w.bytes());
}

Bytes TrackAtoms::stts(const SampleTable& table)
{
    std::vector<TimeToSampleRun> runs;
    runs.reserve(table.durations.size());
    for (auto duration : table.durations) runs.push_back({1, duration});
    return stts(runs);
}

Bytes TrackAtoms::stts(std::span<const TimeToSampleRun> runs)
{
    ByteWriter w(8 + 8 * runs.size());
    putVersionFlagsAndCount(w, runs.size());
    for (const auto& run : runs) w.putU32BE(run.count).putU32BE(run.duration);
    return atom(atom::stts, w.bytes());
}

Bytes TrackAtoms::stco(const SampleTable& table)
{
    return stco(std::span(table.offsets));
}

Bytes TrackAtoms::stco(std::span<const std::uint32_t> chunkOffsets)
{
    ByteWriter w(8 + 4 * chunkOffsets.size());
    putVersionFlagsAndCount(w, chunkOffsets.size());
    for (auto offset : chunkOffsets) w.putU32BE(offset);
    return atom(atom::stco, w.bytes());
}

}  // namespace quillora
