// Where a track's samples lie and when they play, read from the sample
// table atoms of its 'stbl' (stsz, stsc, stco or co64, stts).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "foundation/FileHandle.h"
#include "layout/SampleRecords.h"
#include "toolbox/AtomTree.h"

namespace quillora::toolbox {

struct SampleLocation {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    std::uint64_t time = 0;  // start, in the media's time scale
    std::uint32_t duration = 0;
    std::uint32_t descriptionIndex = 1;
};

// The entries of 'stts' and 'stsc', as runs.
using quillora::SampleToChunkRun;
using quillora::TimeToSampleRun;

// More samples than this are damage for the tracks that are listed sample
// by sample (chapters, links, notes).
inline constexpr std::uint32_t kMaximumListedSamples = 100000;

// The number of samples the 'stsz' table declares (0 without one).
std::uint32_t sampleCount(FileHandle& file, const AtomTree& tree, const AtomNode& stbl);

// Every sample of the table, up to maximum. Tables that contradict each
// other or run short are reported in problems; the samples that could still
// be placed are returned.
std::vector<SampleLocation> readSampleLocations(FileHandle& file, const AtomTree& tree, const AtomNode& stbl,
                                                std::vector<std::string>& problems,
                                                std::uint32_t maximum = kMaximumListedSamples);

// The same, one sample at a time, for tables too large to hold twice.
void forEachSampleLocation(FileHandle& file, const AtomTree& tree, const AtomNode& stbl,
                           std::vector<std::string>& problems, std::uint32_t maximum,
                           const std::function<void(const SampleLocation&)>& visit);

// A movie's tracks are read whole, up to this many samples each.
inline constexpr std::uint32_t kMaximumTrackSamples = 1u << 24;

// The payload of an atom (the bytes after its header).
Bytes readAtomPayload(FileHandle& file, const AtomNode& node);

}  // namespace quillora::toolbox
