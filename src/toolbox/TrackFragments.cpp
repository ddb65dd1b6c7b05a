#include "toolbox/TrackFragments.h"

#include <fmt/format.h>

#include <optional>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kMovieExtends = fourCC("mvex");
constexpr std::uint32_t kTrackExtends = fourCC("trex");
constexpr std::uint32_t kFragment = fourCC("moof");
constexpr std::uint32_t kTrackFragment = fourCC("traf");
constexpr std::uint32_t kFragmentHeader = fourCC("tfhd");
constexpr std::uint32_t kDecodeTime = fourCC("tfdt");
constexpr std::uint32_t kRun = fourCC("trun");

// What a fragment header holds besides the track ID.
constexpr std::uint32_t kBaseDataOffset = 0x1;
constexpr std::uint32_t kDescriptionIndex = 0x2;
constexpr std::uint32_t kDefaultDuration = 0x8;
constexpr std::uint32_t kDefaultSize = 0x10;
constexpr std::uint32_t kDefaultFlags = 0x20;
constexpr std::uint32_t kDurationIsEmpty = 0x10000;
constexpr std::uint32_t kDefaultBaseIsFragment = 0x20000;

// What a run holds besides its sample count, and for each sample.
constexpr std::uint32_t kDataOffset = 0x1;
constexpr std::uint32_t kFirstSampleFlags = 0x4;
constexpr std::uint32_t kSampleDuration = 0x100;
constexpr std::uint32_t kSampleSize = 0x200;
constexpr std::uint32_t kSampleFlags = 0x400;
constexpr std::uint32_t kCompositionOffset = 0x800;

struct SampleDefaults {
    std::uint32_t descriptionIndex = 1;
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
};

struct FragmentHeader {
    std::uint32_t trackID = 0;
    std::uint32_t flags = 0;
    std::uint64_t baseDataOffset = 0;
    SampleDefaults defaults;
};

// Version and flags of a full atom's payload.
std::uint32_t flagsOf(ByteReader& reader)
{
    return reader.getU32BE() & 0x00FFFFFF;
}

SampleDefaults trackDefaults(FileHandle& file, const AtomTree& tree, std::uint32_t trackID)
{
    SampleDefaults defaults;
    const auto mvex = tree.find({atom::moov, kMovieExtends});
    if (!mvex) return defaults;
    for (const auto& child : tree.childrenOf(*mvex)) {
        if (child.type != kTrackExtends) continue;
        const Bytes payload = readAtomPayload(file, child);
        try {
            ByteReader reader(payload);
            reader.skip(4);
            if (reader.getU32BE() != trackID) continue;
            defaults.descriptionIndex = reader.getU32BE();
            defaults.duration = reader.getU32BE();
            defaults.size = reader.getU32BE();
        } catch (const std::out_of_range&) {
        }
    }
    return defaults;
}

FragmentHeader readFragmentHeader(const Bytes& payload, const SampleDefaults& defaults)
{
    ByteReader reader(payload);
    FragmentHeader header;
    header.flags = flagsOf(reader);
    header.trackID = reader.getU32BE();
    header.defaults = defaults;
    if (header.flags & kBaseDataOffset) header.baseDataOffset = reader.getU64BE();
    if (header.flags & kDescriptionIndex) header.defaults.descriptionIndex = reader.getU32BE();
    if (header.flags & kDefaultDuration) header.defaults.duration = reader.getU32BE();
    if (header.flags & kDefaultSize) header.defaults.size = reader.getU32BE();
    if (header.flags & kDefaultFlags) reader.skip(4);
    return header;
}

std::optional<std::uint64_t> readDecodeTime(FileHandle& file, const AtomTree& tree, const AtomNode& traf)
{
    const auto tfdt = tree.childOfType(traf, kDecodeTime);
    if (!tfdt) return std::nullopt;
    const Bytes payload = readAtomPayload(file, *tfdt);
    try {
        ByteReader reader(payload);
        const bool longTime = reader.getU8() == 1;
        reader.skip(3);
        return longTime ? reader.getU64BE() : reader.getU32BE();
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

// Walks the runs of one track fragment from base; answers where its data ends.
class RunReader {
public:
    RunReader(const FragmentHeader& header, std::uint64_t base, bool wanted, std::uint64_t& time,
              const std::function<bool(const SampleLocation&)>& visit)
        : header_(header), dataEnd_(base), base_(base), wanted_(wanted), time_(time), visit_(visit)
    {
    }

    // False when the run cannot be read or the visitor wants no more.
    bool read(const Bytes& payload)
    {
        ByteReader reader(payload);
        const std::uint32_t flags = flagsOf(reader);
        const std::uint32_t count = reader.getU32BE();
        std::uint64_t offset = dataEnd_;
        if (flags & kDataOffset) offset = base_ + static_cast<std::uint64_t>(std::int64_t{reader.getI32BE()});
        if (flags & kFirstSampleFlags) reader.skip(4);
        const std::size_t entrySize =
            4 * static_cast<std::size_t>(((flags & kSampleDuration) != 0) + ((flags & kSampleSize) != 0) +
                                         ((flags & kSampleFlags) != 0) + ((flags & kCompositionOffset) != 0));
        if (entrySize != 0 && count > reader.remaining() / entrySize) return false;
        if (!wanted_ && !(flags & kSampleSize)) {
            // Another track's samples of one size: only where they end matters.
            dataEnd_ = offset + std::uint64_t{count} * header_.defaults.size;
            return true;
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            SampleLocation location{offset, header_.defaults.size, time_, header_.defaults.duration,
                                    header_.defaults.descriptionIndex};
            if (flags & kSampleDuration) location.duration = reader.getU32BE();
            if (flags & kSampleSize) location.size = reader.getU32BE();
            if (flags & kSampleFlags) reader.skip(4);
            if (flags & kCompositionOffset) reader.skip(4);
            offset += location.size;
            if (!wanted_) continue;
            time_ += location.duration;
            if (!visit_(location)) return false;
        }
        dataEnd_ = offset;
        return true;
    }

    std::uint64_t dataEnd() const { return dataEnd_; }

private:
    const FragmentHeader& header_;
    std::uint64_t dataEnd_;
    std::uint64_t base_;
    bool wanted_;
    std::uint64_t& time_;
    const std::function<bool(const SampleLocation&)>& visit_;
};

}  // namespace

bool hasFragments(const AtomTree& tree)
{
    return tree.find({kFragment}).has_value();
}

void forEachFragmentSample(FileHandle& file, const AtomTree& tree, std::uint32_t trackID, std::uint64_t firstTime,
                           std::vector<std::string>& problems, std::uint64_t maximum,
                           const std::function<void(const SampleLocation&)>& visit)
{
    const SampleDefaults defaults = trackDefaults(file, tree, trackID);
    std::uint64_t time = firstTime;
    std::uint64_t given = 0;
    bool full = false;
    const std::function<bool(const SampleLocation&)> take = [&](const SampleLocation& location) {
        if (given == maximum) {
            problems.push_back(fmt::format("the fragments of track {} hold more than {} samples", trackID, maximum));
            full = true;
            return false;
        }
        ++given;
        visit(location);
        return true;
    };
    std::size_t unreadable = 0;
    std::int64_t firstUnreadable = 0;
    for (const auto& moof : tree.atoms) {
        if (moof.depth != 0 || moof.type != kFragment) continue;
        // Without a base of its own, the first track fragment's data is
        // counted from the fragment atom, each later one's from where the
        // previous one's ended.
        std::uint64_t previousEnd = static_cast<std::uint64_t>(moof.offset);
        for (const auto& traf : tree.childrenOf(moof)) {
            if (traf.type != kTrackFragment) continue;
            try {
                const auto tfhd = tree.childOfType(traf, kFragmentHeader);
                if (!tfhd) throw std::out_of_range("no fragment header");
                const FragmentHeader header = readFragmentHeader(readAtomPayload(file, *tfhd), defaults);
                std::uint64_t base = previousEnd;
                if (header.flags & kDefaultBaseIsFragment) base = static_cast<std::uint64_t>(moof.offset);
                if (header.flags & kBaseDataOffset) base = header.baseDataOffset;
                const bool wanted = header.trackID == trackID;
                if (wanted) {
                    if (auto decodeTime = readDecodeTime(file, tree, traf)) time = *decodeTime;
                }
                RunReader runs(header, base, wanted, time, take);
                if (!(header.flags & kDurationIsEmpty)) {
                    for (const auto& trun : tree.childrenOf(traf)) {
                        if (trun.type != kRun) continue;
                        if (!runs.read(readAtomPayload(file, trun))) {
                            if (full) return;
                            throw std::out_of_range("a run longer than its atom");
                        }
                    }
                }
                previousEnd = runs.dataEnd();
            } catch (const std::out_of_range&) {
                if (unreadable++ == 0) firstUnreadable = traf.offset;
            }
        }
    }
    if (unreadable != 0) {
        problems.push_back(fmt::format("track fragments that cannot be read: {}, the first at offset {}", unreadable,
                                       firstUnreadable));
    }
}

}  // namespace quillora::toolbox
