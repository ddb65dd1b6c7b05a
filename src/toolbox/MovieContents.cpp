#include "toolbox/MovieContents.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"
#include "toolbox/ChapterListReader.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Movie.h"
#include "toolbox/SampleTable.h"
#include "toolbox/TextSample.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kChapterReference = fourCC("chap");
constexpr std::uint32_t kTextHandler = fourCC("text");
constexpr std::uint32_t kSubtitleHandler = fourCC("sbtl");
constexpr std::uint32_t kVideoHandler = fourCC("vide");
constexpr std::uint32_t kItemData = fourCC("data");
constexpr std::uint32_t kTrackNumber = fourCC("trkn");
constexpr std::uint32_t kDiscNumber = fourCC("disk");

// A text sample holds at most a 16-bit length of text and a few modifier
// atoms; anything much larger is damage, not a caption.
constexpr std::uint32_t kMaximumTextSampleSize = 1 << 20;

constexpr std::uint32_t kUtf8Data = 1;
constexpr std::uint32_t kSignedIntegerData = 21;

std::optional<AtomNode> descend(const AtomTree& tree, AtomNode node, std::initializer_list<std::uint32_t> path)
{
    for (std::uint32_t type : path) {
        const auto found = tree.childOfType(node, type);
        if (!found) return std::nullopt;
        node = *found;
    }
    return node;
}

bool isTextHandler(std::uint32_t handler)
{
    return handler == kTextHandler || handler == kSubtitleHandler;
}

struct ListedTrack {
    std::uint32_t trackID = 0;
    std::uint32_t handlerType = 0;
    TimeScale mediaTimeScale = 0;
    TimeValue duration = 0;  // in the movie's time scale
    AtomNode trak;
    std::optional<AtomNode> stbl;
};

struct ReadTextTrack {
    TextTrackContents contents;
    bool carriesLinks = false;
};

ReadTextTrack readTextTrack(FileHandle& file, const AtomTree& tree, const ListedTrack& track,
                            std::vector<std::string>& problems)
{
    ReadTextTrack result;
    result.contents.trackID = track.trackID;
    if (!track.stbl) return result;
    const double scale = track.mediaTimeScale;
    if (scale == 0) problems.push_back(fmt::format("track {} has no media time scale", track.trackID));
    const auto fileLength = static_cast<std::uint64_t>(file.length());
    for (const auto& location : readSampleLocations(file, tree, *track.stbl, problems)) {
        // Compared without adding, so that a 64-bit offset near the top cannot wrap around.
        if (location.size > kMaximumTextSampleSize || location.offset > fileLength ||
            location.size > fileLength - location.offset) {
            problems.push_back(fmt::format("track {}: a sample of {} bytes at offset {} lies outside the file",
                                           track.trackID, location.size, location.offset));
            continue;
        }
        file.seekToFileOffset(static_cast<std::int64_t>(location.offset));
        const Bytes bytes = file.readDataOfLength(location.size);
        const TextSample sample = parseTextSample(bytes);
        if (sample.truncated) {
            problems.push_back(
                fmt::format("track {}: the sample at offset {} is cut short", track.trackID, location.offset));
        }
        result.carriesLinks = result.carriesLinks || sample.url.has_value();
        result.contents.samples.push_back(TimedText{scale == 0 ? 0 : location.time / scale,
                                                    scale == 0 ? 0 : location.duration / scale, sample.text,
                                                    sample.url.value_or("")});
    }
    return result;
}

// The format and size of the first sample description of a picture track.
std::optional<PictureTrack> readPictureTrack(FileHandle& file, const AtomTree& tree, const ListedTrack& track)
{
    if (!track.stbl) return std::nullopt;
    auto stsd = descend(tree, *track.stbl, {atom::stsd});
    if (!stsd) return std::nullopt;
    try {
        const Bytes payload = readAtomPayload(file, *stsd);
        ByteReader reader(payload);
        reader.skip(8);  // version, flags and entry count
        reader.skip(4);  // the entry's size
        PictureTrack pictures{track.trackID, reader.getU32BE(), 0, 0, 0};
        reader.skip(6 + 2 + 2 + 2 + 4 + 4 + 4);  // up to the width
        pictures.width = reader.getU16BE();
        pictures.height = reader.getU16BE();
        pictures.count = sampleCount(file, tree, *track.stbl);
        return pictures;
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

std::string tagValue(std::uint32_t itemType, const Bytes& data)
{
    if (data.size() < 8) return "";
    const std::uint32_t kind = readU32BE(data.data()) & 0x00FFFFFF;
    const std::span<const std::uint8_t> value(data.begin() + 8, data.end());
    if (kind == kUtf8Data) return std::string(value.begin(), value.end());
    if (kind == kSignedIntegerData && !value.empty() && value.size() <= 8) {
        std::int64_t number = static_cast<std::int8_t>(value[0]);
        for (std::size_t i = 1; i < value.size(); ++i) number = number * 256 + value[i];
        return std::to_string(number);
    }
    if ((itemType == kTrackNumber || itemType == kDiscNumber) && value.size() >= 6) {
        return fmt::format("{}/{}", (value[2] << 8) | value[3], (value[4] << 8) | value[5]);
    }
    return fmt::format("({} bytes of data)", value.size());
}

std::vector<TagItem> readTags(FileHandle& file, const AtomTree& tree)
{
    std::vector<TagItem> tags;
    auto ilst = tree.find({atom::moov, atom::udta, atom::meta, atom::ilst});
    // Keyed items are the movie's own; they are listed with those.
    if (!ilst || tree.find({atom::moov, atom::udta, atom::meta, fourCC("keys")})) return tags;
    for (const auto& item : tree.childrenOf(*ilst)) {
        auto data = descend(tree, item, {kItemData});
        tags.push_back(TagItem{item.type, data ? tagValue(item.type, readAtomPayload(file, *data)) : "", ""});
    }
    return tags;
}

// The tracks the first track names as its chapters.
std::vector<std::uint32_t> chapterReferences(const Track& first)
{
    for (const auto& [type, ids] : first.references) {
        if (type == kChapterReference) return ids;
    }
    return {};
}

}  // namespace

MovieContents readMovieContents(const std::filesystem::path& path)
{
    FileHandle file(path, FileHandle::Mode::Reading);
    const AtomTree tree = readAtomTree(file);
    if (!tree.find({atom::moov, atom::mvhd})) {
        throw NotAMovie(tree.atoms.empty() ? "no atoms could be read" : "it has no movie header");
    }
    std::string error;
    const auto movie = Movie::movieWithFile(path, &error);
    if (!movie) throw NotAMovie(error);

    MovieContents contents;
    contents.problems = tree.problems;
    contents.timeScale = movie->timeScale();
    contents.seconds = movie->timeScale() == 0 ? 0 : static_cast<double>(movie->duration()) / movie->timeScale();
    contents.chapterList = readChapterList(file, tree, contents.problems);

    std::vector<ListedTrack> tracks;
    for (const auto& trak : tree.childrenOf(*tree.find({atom::moov}))) {
        if (trak.type != atom::trak || tracks.size() >= movie->tracks().size()) continue;
        const Track& track = *movie->tracks()[tracks.size()];
        tracks.push_back(ListedTrack{track.trackID, track.mediaType(), track.media ? track.media->timeScale : 0,
                                     track.duration(), trak,
                                     descend(tree, trak, {atom::mdia, atom::minf, atom::stbl})});
    }
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const auto& track = tracks[i];
        const Media* media = movie->tracks()[i]->media.get();
        // A fragmented file's samples are counted in its fragments too.
        std::uint32_t count = 0;
        if (media) {
            media->forEachSample([&count](const Sample&) { ++count; });
        } else if (track.stbl) {
            count = sampleCount(file, tree, *track.stbl);
        }
        contents.tracks.push_back(
            TrackSummary{track.trackID, track.handlerType, count,
                         contents.timeScale == 0 ? 0 : static_cast<double>(track.duration) / contents.timeScale});
        // Text tracks are checked sample by sample as they are read below.
        if (!media || isTextHandler(track.handlerType)) continue;
        for (const auto& problem : media->problems()) {
            if (std::find(tree.problems.begin(), tree.problems.end(), problem) != tree.problems.end()) continue;
            contents.problems.push_back(fmt::format("track {}: {}", track.trackID, problem));
        }
    }
    if (tracks.empty()) return contents;

    const auto chapterIDs = chapterReferences(*movie->tracks().front());
    for (const auto& track : tracks) {
        if (track.handlerType == kVideoHandler) {
            if (auto pictures = readPictureTrack(file, tree, track)) contents.pictures.push_back(*pictures);
            continue;
        }
        if (!isTextHandler(track.handlerType)) continue;
        const bool named = std::find(chapterIDs.begin(), chapterIDs.end(), track.trackID) != chapterIDs.end();
        if (named && contents.chapters.trackID == 0) {
            contents.chapters = readTextTrack(file, tree, track, contents.problems).contents;
            continue;
        }
        auto text = readTextTrack(file, tree, track, contents.problems);
        auto& slot = text.carriesLinks ? contents.links : contents.notes;
        if (slot.trackID == 0) slot = std::move(text.contents);
    }
    contents.tags = readTags(file, tree);
    for (const auto& item : movie->metaData()) {
        if (item.storage != kQTMetaDataStorageFormatQuickTime) continue;
        contents.tags.push_back(TagItem{0,
                                        item.dataType == kUtf8Data
                                            ? std::string(item.value.begin(), item.value.end())
                                            : fmt::format("({} bytes of data)", item.value.size()),
                                        std::string(item.key.begin(), item.key.end())});
    }
    return contents;
}

}  // namespace quillora::toolbox
