// The atoms every atom-built track has in common (track header, edit list,
// media header, handlers, data reference, sample tables), one function per
// atom. The text tracks and the slide-image track take their pieces from
// here; their differences come in as arguments.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/Bytes.h"
#include "layout/AtomFactory.h"
#include "layout/Matrix.h"
#include "layout/SampleRecords.h"

namespace quillora {

// Where a movie's track is drawn and how loud it plays. The podcast tracks
// have none: their header takes the template's values.
struct TrackPlacement {
    std::int16_t layer = 0;
    std::int16_t alternateGroup = 0;
    std::int16_t volume = 0;  // 8.8
    Matrix matrix{};
    std::uint32_t width = 0;  // 16.16
    std::uint32_t height = 0;
};

struct TrackHeader {
    std::uint32_t flags = 0;
    std::uint32_t trackID = 0;
    std::uint32_t duration = 0;
    std::uint32_t size = 0;  // width and height, 16.16
    std::optional<TrackPlacement> placement;
};

struct EditListEntry {
    std::uint32_t trackDuration = 0;
    std::int32_t mediaTime = 0;
    std::int32_t rate = 0x00010000;
};

struct HandlerDescription {
    std::uint32_t componentType = 0;
    std::uint32_t componentSubtype = 0;
    std::uint32_t manufacturer = 0;
    std::uint32_t flags = 0;
    std::uint32_t flagsMask = 0;
    Bytes name;  // length byte included
};

// The text tracks write their media duration least-significant byte first.
enum class DurationOrder { BigEndian, LittleEndian };

// One chunk per sample: the entries of stsz, stts and stco.
struct SampleTable {
    std::vector<std::uint32_t> sizes;
    std::vector<std::uint32_t> durations;
    std::vector<std::uint32_t> offsets;

    void add(std::uint32_t size, std::uint32_t duration, std::uint32_t offset)
    {
        sizes.push_back(size);
        durations.push_back(duration);
        offsets.push_back(offset);
    }
};

// A 16-bit header field as the track templates store it: the sign-extended
// value swapped as 32 bits, of which only the low half is kept. Every value
// comes out 0x0000 but 0xFFFF and the other negatives, which come out 0xFFFF.
std::uint16_t swappedHeaderField(std::int16_t templateValue);

// A name as a length byte followed by its bytes.
Bytes pascalName(std::string_view name);

// The data handler of every track: aliases, the data in this same file.
HandlerDescription aliasDataHandler(std::uint32_t flagsMask);

inline constexpr std::uint32_t kTrackCreationTime = 0xC2F2F59A;  // 2007-08-23 08:28:10 since 1904
inline constexpr std::uint32_t kTrackModificationTime = kTrackCreationTime + 1;
inline constexpr std::uint32_t kMediaTimeScale = 600;

class TrackAtoms {
public:
    explicit TrackAtoms(AtomFactory& factory) : factory_(factory) {}

    Bytes atom(std::uint32_t type, std::span<const std::uint8_t> payload);
    // A parent whose payload is its finished children, in order.
    Bytes container(std::uint32_t type, std::initializer_list<std::reference_wrapper<const Bytes>> children);

    Bytes tkhd(const TrackHeader& header);
    Bytes edts(std::uint32_t duration);  // holding one elst
    Bytes edts(std::span<const EditListEntry> entries);
    Bytes mdhd(std::uint32_t duration, DurationOrder order);
    Bytes mdhd(std::uint32_t timeScale, std::uint32_t duration, std::uint16_t language);
    Bytes hdlr(const HandlerDescription& handler);
    Bytes gmhd();  // gmin and text
    Bytes vmhd();
    Bytes smhd();
    Bytes dinf();  // dref holding one alis: the data is in this file
    Bytes stsd(std::span<const std::uint8_t> sampleDescription);
    Bytes stsd(const std::vector<Bytes>& sampleDescriptions);
    Bytes stsc();
    Bytes stsc(std::span<const SampleToChunkRun> runs);
    Bytes stsz(const SampleTable& table);
    Bytes stsz(std::span<const std::uint32_t> sizes);
    Bytes stts(const SampleTable& table);
    Bytes stts(std::span<const TimeToSampleRun> runs);
    Bytes stco(const SampleTable& table);
    Bytes stco(std::span<const std::uint32_t> chunkOffsets);

private:
    AtomFactory& factory_;
};

}  // namespace quillora
