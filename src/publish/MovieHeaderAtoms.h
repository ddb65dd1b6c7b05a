// Where the repairs of a finished export find what they mend: the movie
// header and each track's header atoms, located with the bounds-checked tree
// reader (a walk stays inside its parent), and the header fields as their
// version lays them out.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "toolbox/AtomTree.h"

namespace quillora::publish {

struct TrackNodes {
    std::uint32_t trackID = 0;
    std::uint32_t handlerType = 0;  // 'soun', 'vide', 'text'...
    toolbox::AtomNode tkhd;
    std::optional<toolbox::AtomNode> mdhd;
    std::optional<toolbox::AtomNode> stsd;
    std::optional<toolbox::AtomNode> stts;
    std::optional<toolbox::AtomNode> elst;  // the edit list
};

struct MovieNodes {
    toolbox::AtomNode moov;
    toolbox::AtomNode mvhd;
    std::vector<TrackNodes> tracks;  // those with a readable track header

    const TrackNodes* track(std::uint32_t trackID) const;
};

// Throws PublishError when the file has no movie atom with a header.
MovieNodes readMovieNodes(FileHandle& file);

// The atom's bytes after its 8-byte header.
Bytes readPayload(FileHandle& file, const toolbox::AtomNode& atom);
void overwrite(FileHandle& file, std::int64_t offset, std::span<const std::uint8_t> bytes);

// Offsets inside the payload of a movie, track or media header (version 0
// has 32-bit times and durations, version 1 64-bit ones).
struct HeaderLayout {
    bool wide = false;         // version 1
    std::size_t creation = 4;  // then modification, of the same width
    std::size_t duration = 0;  // mvhd and mdhd: after the time scale; tkhd: after the ID and a reserved word
    std::size_t timeWidth() const { return wide ? 8 : 4; }
};
HeaderLayout movieHeaderLayout(const Bytes& payload);  // mvhd or mdhd
HeaderLayout trackHeaderLayout(const Bytes& payload);  // tkhd
std::uint64_t readHeaderNumber(const Bytes& payload, std::size_t offset, bool wide);
void putHeaderNumber(ByteWriter& writer, std::uint64_t value, bool wide);

// The first sample description: where it starts in the file and its type.
struct SampleDescription {
    std::int64_t offset = 0;  // of its own atom header
    std::uint32_t type = 0;
    Bytes bytes;  // the whole entry, header included
};
std::optional<SampleDescription> firstSampleDescription(FileHandle& file, const toolbox::AtomNode& stsd);

}  // namespace quillora::publish
