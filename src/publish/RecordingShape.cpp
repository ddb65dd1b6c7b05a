#include "publish/RecordingShape.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "layout/PodcastTrackIDs.h"
#include "toolbox/AtomTree.h"

namespace quillora::publish {

namespace {

using toolbox::AtomNode;
using toolbox::AtomTree;

constexpr std::uint8_t kDecoderConfigTag = 0x04;
constexpr std::uint8_t kElementaryStreamTag = 0x03;
// MPEG-4 audio, and MPEG-2 AAC main, low complexity and scalable profiles.
constexpr std::uint8_t kAacObjectTypes[] = {0x40, 0x66, 0x67, 0x68};

// A descriptor's length: up to four bytes of seven bits each.
std::size_t descriptorLength(const Bytes& bytes, std::size_t& at)
{
    std::size_t length = 0;
    for (int i = 0; i < 4 && at < bytes.size(); ++i) {
        const std::uint8_t byte = bytes[at++];
        length = (length << 7) | (byte & 0x7F);
        if (!(byte & 0x80)) break;
    }
    return length;
}

// The object type of the decoder configuration in an 'esds' atom somewhere
// in the sample description.
std::optional<std::uint8_t> esdsObjectType(const Bytes& description)
{
    const std::uint8_t esds[] = {'e', 's', 'd', 's'};
    const auto found = std::search(description.begin(), description.end(), std::begin(esds), std::end(esds));
    if (found == description.end()) return std::nullopt;
    std::size_t at = static_cast<std::size_t>(found - description.begin()) + 8;  // type, version and flags
    if (at >= description.size() || description[at++] != kElementaryStreamTag) return std::nullopt;
    descriptorLength(description, at);
    if (at + 3 > description.size()) return std::nullopt;
    const std::uint8_t flags = description[at + 2];
    at += 3;
    if (flags & 0x80) at += 2;                                                 // the stream it depends on
    if ((flags & 0x40) && at < description.size()) at += 1 + description[at];  // a URL
    if (flags & 0x20) at += 2;                                                 // the clock reference stream
    if (at >= description.size() || description[at++] != kDecoderConfigTag) return std::nullopt;
    descriptorLength(description, at);
    if (at >= description.size()) return std::nullopt;
    return description[at];
}

std::optional<std::uint32_t> headerSizeField(FileHandle& file, const AtomNode& node)
{
    file.seekToFileOffset(node.offset);
    const Bytes header = file.readDataOfLength(4);
    if (header.size() < 4) return std::nullopt;
    return readU32BE(header.data());
}

// Every atom of the tree declares its size in 32 bits and means it.
bool everyAtomHasAShortTrueHeader(FileHandle& file, const AtomTree& tree)
{
    return std::all_of(tree.atoms.begin(), tree.atoms.end(), [&](const AtomNode& node) {
        const auto size = headerSizeField(file, node);
        return size && *size == node.size;
    });
}

}  // namespace

std::uint32_t soundFormat(const toolbox::Media& media)
{
    if (media.sampleDescriptions.empty() || media.sampleDescriptions.front().size() < 8) return 0;
    return readU32BE(media.sampleDescriptions.front().data() + 4);
}

bool isCopiedSound(const toolbox::Media& media)
{
    if (media.sampleDescriptions.size() != 1) return false;
    const std::uint32_t format = soundFormat(media);
    if (format == fourCC("alac")) return true;
    if (format != fourCC("mp4a")) return false;
    const auto objectType = esdsObjectType(media.sampleDescriptions.front());
    return objectType &&
           std::find(std::begin(kAacObjectTypes), std::end(kAacObjectTypes), *objectType) != std::end(kAacObjectTypes);
}

std::optional<std::string> reasonToRewrite(const std::filesystem::path& path, const toolbox::Movie& movie)
{
    const auto& tracks = movie.tracks();
    if (tracks.size() != 1) return fmt::format("it has {} tracks", tracks.size());
    const toolbox::Track& sound = *tracks.front();
    if (sound.mediaType() != fourCC("soun") || !sound.media) return "its one track is not sound";
    if (!isCopiedSound(*sound.media)) return "its sound is not AAC or ALAC";
    if (std::find(kPodcastTrackIDs.begin(), kPodcastTrackIDs.end(), sound.trackID) != kPodcastTrackIDs.end()) {
        return fmt::format("its sound track has ID {}, which a new track takes", sound.trackID);
    }
    if (movie.timeScale() != kPodcastTimeScale) return fmt::format("its movie time scale is {}", movie.timeScale());

    FileHandle file(path, FileHandle::Mode::Reading);
    const AtomTree tree = toolbox::readAtomTree(file);
    if (!tree.problems.empty()) return tree.problems.front();
    const auto top = tree.topLevel();
    if (std::count_if(top.begin(), top.end(), [](const AtomNode& node) { return node.type == atom::mdat; }) != 1) {
        return "it does not hold its media data in one atom";
    }
    for (const auto& node : top) {
        if (node.type == fourCC("moof")) return "it is fragmented";
    }
    if (!everyAtomHasAShortTrueHeader(file, tree)) return "it has 64-bit or open-ended atom sizes";
    if (tree.find({atom::moov, fourCC("mvex")})) return "it is fragmented";
    if (tree.find({atom::moov, atom::meta})) return "it has movie-level metadata";
    if (auto meta = tree.find({atom::moov, atom::udta, atom::meta}); meta && meta->childrenOffset == meta->offset + 8) {
        return "its metadata atom has no version and flags";
    }
    if (!tree.find({atom::moov, atom::trak, atom::mdia, atom::minf, atom::stbl, atom::stco})) {
        return "its chunk offsets are not 32-bit";
    }
    return std::nullopt;
}

}  // namespace quillora::publish
