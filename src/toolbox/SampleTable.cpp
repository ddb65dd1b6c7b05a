#include "toolbox/SampleTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

// A full atom's payload after its version and flags, positioned at its entry count.
ByteReader tableReader(const Bytes& payload)
{
    ByteReader reader(payload);
    reader.skip(4);
    return reader;
}

// The entry count, refused when the table is too short to hold that many entries.
std::uint32_t entryCount(ByteReader& reader, std::size_t entrySize)
{
    const std::uint32_t count = reader.getU32BE();
    if (count > reader.remaining() / entrySize) throw std::out_of_range("the table is shorter than its entry count");
    return count;
}

std::vector<std::uint32_t> readSampleSizes(const Bytes& stsz, std::uint32_t maximum, std::uint32_t& declared)
{
    ByteReader reader = tableReader(stsz);
    const std::uint32_t commonSize = reader.getU32BE();
    if (commonSize != 0) {
        declared = reader.getU32BE();
        return std::vector<std::uint32_t>(std::min(declared, maximum), commonSize);
    }
    declared = entryCount(reader, 4);
    std::vector<std::uint32_t> sizes(std::min(declared, maximum));
    for (auto& size : sizes) size = reader.getU32BE();
    return sizes;
}

std::vector<std::uint64_t> readChunkOffsets(const Bytes& payload, bool longOffsets)
{
    ByteReader reader = tableReader(payload);
    std::vector<std::uint64_t> offsets(entryCount(reader, longOffsets ? 8 : 4));
    for (auto& offset : offsets) offset = longOffsets ? reader.getU64BE() : reader.getU32BE();
    return offsets;
}

std::vector<SampleToChunkRun> readSampleToChunkRuns(const Bytes& stsc)
{
    ByteReader reader = tableReader(stsc);
    std::vector<SampleToChunkRun> runs(entryCount(reader, 12));
    for (auto& run : runs) {
        run.firstChunk = reader.getU32BE();
        run.samplesPerChunk = reader.getU32BE();
        run.descriptionIndex = reader.getU32BE();
    }
    return runs;
}

std::vector<TimeToSampleRun> readTimeToSampleRuns(const Bytes& stts)
{
    ByteReader reader = tableReader(stts);
    std::vector<TimeToSampleRun> runs(entryCount(reader, 8));
    for (auto& run : runs) {
        run.count = reader.getU32BE();
        run.duration = reader.getU32BE();
    }
    return runs;
}

// How many samples the chunk tables hold, counted up to limit + 1: enough
// to tell whether they hold more than limit.
std::uint64_t samplesInChunks(const std::vector<SampleToChunkRun>& runs, std::size_t chunkCount, std::uint64_t limit)
{
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < runs.size() && total <= limit; ++i) {
        const std::uint64_t first = std::max<std::uint32_t>(runs[i].firstChunk, 1);
        const std::uint64_t last = i + 1 < runs.size() ? runs[i + 1].firstChunk : chunkCount + 1;
        if (last <= first) continue;
        const std::uint64_t chunks = std::min<std::uint64_t>(last - first, limit + 1);
        total += std::min<std::uint64_t>(chunks * runs[i].samplesPerChunk, limit + 1);
    }
    return total;
}

}  // namespace

Bytes readAtomPayload(FileHandle& file, const AtomNode& node)
{
    file.seekToFileOffset(node.payloadOffset());
    return file.readDataOfLength(static_cast<std::size_t>(std::max<std::int64_t>(node.payloadSize(), 0)));
}

std::uint32_t sampleCount(FileHandle& file, const AtomTree& tree, const AtomNode& stbl)
{
    // Version and flags, the common sample size, then the count: the table
    // itself is not read.
    constexpr std::int64_t kCountAt = 4 + 4;
    auto stsz = tree.childOfType(stbl, atom::stsz);
    if (!stsz || stsz->payloadSize() < kCountAt + 4) return 0;
    file.seekToFileOffset(stsz->payloadOffset() + kCountAt);
    const Bytes count = file.readDataOfLength(4);
    return count.size() == 4 ? readU32BE(count.data()) : 0;
}

void forEachSampleLocation(FileHandle& file, const AtomTree& tree, const AtomNode& stbl,
                           std::vector<std::string>& problems, std::uint32_t maximum,
                           const std::function<void(const SampleLocation&)>& visit)
{
    auto stsz = tree.childOfType(stbl, atom::stsz);
    auto stsc = tree.childOfType(stbl, atom::stsc);
    auto stts = tree.childOfType(stbl, atom::stts);
    auto stco = tree.childOfType(stbl, atom::stco);
    auto co64 = tree.childOfType(stbl, atom::co64);
    if (!stsz || !stsc || !stts || !(stco || co64)) {
        problems.push_back(fmt::format("the sample table at offset {} is incomplete", stbl.offset));
        return;
    }
    std::vector<std::uint32_t> sizes;
    std::vector<std::uint64_t> chunkOffsets;
    std::vector<SampleToChunkRun> chunkRuns;
    std::vector<TimeToSampleRun> timeRuns;
    std::uint32_t declared = 0;
    try {
        sizes = readSampleSizes(readAtomPayload(file, *stsz), maximum, declared);
        chunkOffsets = stco ? readChunkOffsets(readAtomPayload(file, *stco), false)
                            : readChunkOffsets(readAtomPayload(file, *co64), true);
        chunkRuns = readSampleToChunkRuns(readAtomPayload(file, *stsc));
        timeRuns = readTimeToSampleRuns(readAtomPayload(file, *stts));
    } catch (const std::out_of_range& error) {
        problems.push_back(fmt::format("damaged sample table at offset {}: {}", stbl.offset, error.what()));
        return;
    }

    // One pass over the chunks, with a cursor in each run table.
    std::size_t next = 0;
    std::size_t chunkRun = 0;
    std::size_t timeRun = 0;
    std::uint32_t timedInRun = 0;
    std::uint64_t time = 0;
    bool untimed = false;
    for (std::size_t chunk = 0; chunk < chunkOffsets.size() && next < sizes.size(); ++chunk) {
        const auto number = static_cast<std::uint32_t>(chunk + 1);
        while (chunkRun + 1 < chunkRuns.size() && chunkRuns[chunkRun + 1].firstChunk <= number) ++chunkRun;
        // A chunk before the first run holds no samples.
        const bool inRun = !chunkRuns.empty() && chunkRuns[chunkRun].firstChunk <= number;
        const SampleToChunkRun run = inRun ? chunkRuns[chunkRun] : SampleToChunkRun{number, 0, 1};
        std::uint64_t offset = chunkOffsets[chunk];
        for (std::uint32_t i = 0; i < run.samplesPerChunk && next < sizes.size(); ++i, ++next) {
            SampleLocation location{offset, sizes[next], 0, 0, run.descriptionIndex};
            while (timeRun < timeRuns.size() && timedInRun == timeRuns[timeRun].count) {
                ++timeRun;
                timedInRun = 0;
            }
            if (timeRun < timeRuns.size()) {
                location.time = time;
                location.duration = timeRuns[timeRun].duration;
                time += location.duration;
                ++timedInRun;
            } else {
                untimed = true;
            }
            visit(location);
            offset += sizes[next];
        }
    }
    if (next < sizes.size()) {
        problems.push_back(fmt::format("the chunk tables place only {} of {} samples", next, sizes.size()));
    }
    if (untimed) problems.push_back("the time table covers fewer samples than the size table");
    std::uint64_t timed = 0;
    for (const auto& run : timeRuns) timed += run.count;
    if (timed > declared) {
        problems.push_back(fmt::format("the time table covers {} samples, the size table {}", timed, declared));
    }
    if (samplesInChunks(chunkRuns, chunkOffsets.size(), declared) > declared) {
        problems.push_back(fmt::format("the chunk tables hold more than the {} samples of the size table", declared));
    }
}

std::vector<SampleLocation> readSampleLocations(FileHandle& file, const AtomTree& tree, const AtomNode& stbl,
                                                std::vector<std::string>& problems, std::uint32_t maximum)
{
    std::vector<SampleLocation> samples;
    forEachSampleLocation(file, tree, stbl, problems, maximum,
                          [&samples](const SampleLocation& location) { samples.push_back(location); });
    return samples;
}

}  // namespace quillora::toolbox
