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

// The entries of a size or chunk offset table, read from the file a block
// at a time as they are asked for in order: a long recording's table is
// never held whole. A table that claims more entries than its atom holds
// within the file is refused before any is read.
class TableEntries {
public:
    TableEntries(FileHandle& file, const AtomNode& atom, std::int64_t entriesAt, std::uint32_t count,
                 std::size_t entrySize)
        : file_(file), entriesOffset_(atom.payloadOffset() + entriesAt), count_(count), entrySize_(entrySize)
    {
        const std::int64_t inFile = std::min(atom.payloadSize(), file.length() - atom.payloadOffset()) - entriesAt;
        if (inFile < 0 || count > static_cast<std::uint64_t>(inFile) / entrySize) {
            throw std::out_of_range("the table is shorter than its entry count");
        }
    }

    std::uint32_t size() const { return count_; }

    std::uint64_t operator[](std::uint32_t index)
    {
        if (index < first_ || index - first_ >= loaded_) load(index);
        const std::uint8_t* entry = block_.data() + (index - first_) * entrySize_;
        if (entrySize_ == 4) return readU32BE(entry);
        return (static_cast<std::uint64_t>(readU32BE(entry)) << 32) | readU32BE(entry + 4);
    }

private:
    static constexpr std::uint32_t kBlockEntries = 16384;

    void load(std::uint32_t index)
    {
        first_ = index;
        loaded_ = std::min(kBlockEntries, count_ - index);
        file_.seekToFileOffset(entriesOffset_ +
                               static_cast<std::int64_t>(index) * static_cast<std::int64_t>(entrySize_));
        block_ = file_.readDataOfLength(loaded_ * entrySize_);
        if (block_.size() != loaded_ * entrySize_) throw std::out_of_range("the table ends early in the file");
    }

    FileHandle& file_;
    std::int64_t entriesOffset_;
    std::uint32_t count_;
    std::size_t entrySize_;
    std::uint32_t first_ = 0;
    std::uint32_t loaded_ = 0;
    Bytes block_;
};

// A 'stsz' table: each sample's size, or one size for every sample.
class SampleSizes {
public:
    SampleSizes(FileHandle& file, const AtomNode& stsz, std::uint32_t maximum)
    {
        constexpr std::int64_t kHeader = 4 + 4 + 4;  // version and flags, the common size, the count
        file.seekToFileOffset(stsz.payloadOffset() + 4);
        const Bytes header = file.readDataOfLength(8);
        if (stsz.payloadSize() < kHeader || header.size() != 8) throw std::out_of_range("the size table is cut short");
        commonSize_ = readU32BE(header.data());
        declared_ = readU32BE(header.data() + 4);
        if (commonSize_ == 0) table_.emplace(file, stsz, kHeader, declared_, 4);
        count_ = std::min(declared_, maximum);
    }

    std::uint32_t declared() const { return declared_; }
    std::uint32_t size() const { return count_; }
    std::uint32_t operator[](std::uint32_t index)
    {
        return table_ ? static_cast<std::uint32_t>((*table_)[index]) : commonSize_;
    }

private:
    std::uint32_t commonSize_ = 0;
    std::uint32_t declared_ = 0;
    std::uint32_t count_ = 0;
    std::optional<TableEntries> table_;
};

// A 'stco' or 'co64' table.
TableEntries chunkOffsets(FileHandle& file, const AtomNode& table, bool longOffsets)
{
    constexpr std::int64_t kHeader = 4 + 4;  // version and flags, the count
    file.seekToFileOffset(table.payloadOffset() + 4);
    const Bytes count = file.readDataOfLength(4);
    if (table.payloadSize() < kHeader || count.size() != 4) throw std::out_of_range("the chunk table is cut short");
    return TableEntries(file, table, kHeader, readU32BE(count.data()), longOffsets ? 8 : 4);
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
    std::optional<SampleSizes> sizes;
    std::optional<TableEntries> offsets;
    std::vector<SampleToChunkRun> chunkRuns;
    std::vector<TimeToSampleRun> timeRuns;
    try {
        sizes.emplace(file, *stsz, maximum);
        offsets.emplace(stco ? chunkOffsets(file, *stco, false) : chunkOffsets(file, *co64, true));
        chunkRuns = readSampleToChunkRuns(readAtomPayload(file, *stsc));
        timeRuns = readTimeToSampleRuns(readAtomPayload(file, *stts));
    } catch (const std::out_of_range& error) {
        problems.push_back(fmt::format("damaged sample table at offset {}: {}", stbl.offset, error.what()));
        return;
    }
    const std::uint32_t declared = sizes->declared();

    // One pass over the chunks, with a cursor in each run table.
    std::size_t next = 0;
    std::size_t chunkRun = 0;
    std::size_t timeRun = 0;
    std::uint32_t timedInRun = 0;
    std::uint64_t time = 0;
    bool untimed = false;
    try {
        for (std::size_t chunk = 0; chunk < offsets->size() && next < sizes->size(); ++chunk) {
            const auto number = static_cast<std::uint32_t>(chunk + 1);
            while (chunkRun + 1 < chunkRuns.size() && chunkRuns[chunkRun + 1].firstChunk <= number) ++chunkRun;
            // A chunk before the first run holds no samples.
            const bool inRun = !chunkRuns.empty() && chunkRuns[chunkRun].firstChunk <= number;
            const SampleToChunkRun run = inRun ? chunkRuns[chunkRun] : SampleToChunkRun{number, 0, 1};
            std::uint64_t offset = (*offsets)[static_cast<std::uint32_t>(chunk)];
            for (std::uint32_t i = 0; i < run.samplesPerChunk && next < sizes->size(); ++i, ++next) {
                const std::uint32_t size = (*sizes)[static_cast<std::uint32_t>(next)];
                SampleLocation location{offset, size, 0, 0, run.descriptionIndex};
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
                offset += size;
            }
        }
    } catch (const std::out_of_range& error) {
        // The file changed while it was read.
        problems.push_back(fmt::format("damaged sample table at offset {}: {}", stbl.offset, error.what()));
        return;
    }
    if (next < sizes->size()) {
        problems.push_back(fmt::format("the chunk tables place only {} of {} samples", next, sizes->size()));
    }
    if (untimed) problems.push_back("the time table covers fewer samples than the size table");
    std::uint64_t timed = 0;
    for (const auto& run : timeRuns) timed += run.count;
    if (timed > declared) {
        problems.push_back(fmt::format("the time table covers {} samples, the size table {}", timed, declared));
    }
    if (samplesInChunks(chunkRuns, offsets->size(), declared) > declared) {
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
