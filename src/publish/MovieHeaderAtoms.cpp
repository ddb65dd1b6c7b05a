#include "publish/MovieHeaderAtoms.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/FourCC.h"
#include "publish/PublishError.h"

namespace quillora::publish {

namespace {

// A sample description is an atom of its own, with an 8-byte header.
constexpr std::int64_t kAtomHeader = 8;
// A handler's version and flags, then its component type, before the subtype.
constexpr std::size_t kHandlerSubtype = 8;
// A sample table's version and flags, then its entry count.
constexpr std::int64_t kTableHead = 8;
constexpr std::size_t kTrackIDAfterTimes = 4;

std::optional<toolbox::AtomNode> descend(const toolbox::AtomTree& tree, toolbox::AtomNode node,
                                         std::initializer_list<std::uint32_t> path)
{
    for (std::uint32_t type : path) {
        auto child = tree.childOfType(node, type);
        if (!child) return std::nullopt;
        node = *child;
    }
    return node;
}

std::optional<TrackNodes> trackNodes(FileHandle& file, const toolbox::AtomTree& tree, const toolbox::AtomNode& trak)
{
    auto tkhd = tree.childOfType(trak, atom::tkhd);
    if (!tkhd) return std::nullopt;
    const Bytes header = readPayload(file, *tkhd);
    const HeaderLayout layout = trackHeaderLayout(header);
    const std::size_t idOffset = layout.creation + 2 * layout.timeWidth();
    if (header.size() < idOffset + 4) return std::nullopt;
    TrackNodes track;
    track.trackID = readU32BE(header.data() + idOffset);
    track.tkhd = *tkhd;
    track.mdhd = descend(tree, trak, {atom::mdia, atom::mdhd});
    if (auto hdlr = descend(tree, trak, {atom::mdia, atom::hdlr})) {
        const Bytes handler = readPayload(file, *hdlr);
        if (handler.size() >= kHandlerSubtype + 4) track.handlerType = readU32BE(handler.data() + kHandlerSubtype);
    }
    track.stsd = descend(tree, trak, {atom::mdia, atom::minf, atom::stbl, atom::stsd});
    track.stts = descend(tree, trak, {atom::mdia, atom::minf, atom::stbl, atom::stts});
    track.elst = descend(tree, trak, {atom::edts, atom::elst});
    return track;
}

}  // namespace

const TrackNodes* MovieNodes::track(std::uint32_t trackID) const
{
    for (const auto& candidate : tracks) {
        if (candidate.trackID == trackID) return &candidate;
    }
    return nullptr;
}

MovieNodes readMovieNodes(FileHandle& file)
{
    const toolbox::AtomTree tree = toolbox::readAtomTree(file);
    auto moov = tree.find({atom::moov});
    auto mvhd = moov ? tree.childOfType(*moov, atom::mvhd) : std::nullopt;
    if (!mvhd) throw PublishError(fmt::format("{} has no movie header", file.path().string()));
    MovieNodes movie{*moov, *mvhd, {}};
    for (const auto& child : tree.childrenOf(*moov)) {
        if (child.type != atom::trak) continue;
        if (auto track = trackNodes(file, tree, child)) movie.tracks.push_back(*track);
    }
    return movie;
}

Bytes readPayload(FileHandle& file, const toolbox::AtomNode& atom)
{
    file.seekToFileOffset(atom.payloadOffset());
    return file.readDataOfLength(static_cast<std::size_t>(std::max<std::int64_t>(atom.payloadSize(), 0)));
}

void overwrite(FileHandle& file, std::int64_t offset, std::span<const std::uint8_t> bytes)
{
    file.seekToFileOffset(offset);
    file.writeData(bytes);
}

HeaderLayout movieHeaderLayout(const Bytes& payload)
{
    HeaderLayout layout;
    layout.wide = !payload.empty() && payload[0] == 1;
    // creation, modification, then the time scale before the duration
    layout.duration = layout.creation + 2 * layout.timeWidth() + 4;
    return layout;
}

HeaderLayout trackHeaderLayout(const Bytes& payload)
{
    HeaderLayout layout;
    layout.wide = !payload.empty() && payload[0] == 1;
    // creation, modification, track ID, a reserved word, then the duration
    layout.duration = layout.creation + 2 * layout.timeWidth() + kTrackIDAfterTimes + 4;
    return layout;
}

std::uint64_t readHeaderNumber(const Bytes& payload, std::size_t offset, bool wide)
{
    ByteReader reader(payload);
    reader.seek(offset);
    return wide ? reader.getU64BE() : reader.getU32BE();
}

void putHeaderNumber(ByteWriter& writer, std::uint64_t value, bool wide)
{
    if (wide) {
        writer.putU64BE(value);
    } else {
        writer.putU32BE(static_cast<std::uint32_t>(value));
    }
}

std::optional<SampleDescription> firstSampleDescription(FileHandle& file, const toolbox::AtomNode& stsd)
{
    const Bytes table = readPayload(file, stsd);
    if (table.size() < kTableHead + kAtomHeader || readU32BE(table.data() + 4) == 0) return std::nullopt;
    const std::uint32_t size = readU32BE(table.data() + kTableHead);
    if (size < kAtomHeader || size > table.size() - kTableHead) return std::nullopt;
    SampleDescription description;
    description.offset = stsd.payloadOffset() + kTableHead;
    description.type = readU32BE(table.data() + kTableHead + 4);
    description.bytes.assign(table.begin() + kTableHead, table.begin() + kTableHead + size);
    return description;
}

}  // namespace quillora::publish
