// The one reader of the toolbox: fills the movie model from a file's atoms.
// Samples stay in the file; the model holds where they lie.
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Movie.h"
#include "toolbox/SampleTable.h"
#include "toolbox/TrackFragments.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kTrackEnabled = 0x1;

// Time scale and duration from a movie or media header: version 1 headers
// carry 64-bit times. The language follows the media header's duration.
struct HeaderTimes {
    std::uint32_t timeScale = 0;
    std::uint64_t duration = 0;
    std::uint16_t language = 0;
};

std::optional<HeaderTimes> readTimes(const Bytes& payload, bool withLanguage)
{
    try {
        ByteReader reader(payload);
        const std::uint8_t version = reader.getU8();
        reader.skip(3 + (version == 1 ? 16 : 8));
        HeaderTimes times;
        times.timeScale = reader.getU32BE();
        times.duration = version == 1 ? reader.getU64BE() : reader.getU32BE();
        if (withLanguage) times.language = reader.getU16BE();
        return times;
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

// A time scale of 0 counts no time, and one past 31 bits no model time:
// damage, kept as 0 so that nothing divides by it.
TimeScale usableTimeScale(std::uint32_t scale)
{
    return scale <= static_cast<std::uint32_t>(std::numeric_limits<TimeScale>::max()) ? static_cast<TimeScale>(scale)
                                                                                      : 0;
}

// A duration in another time scale; damage that would overflow stays at the largest time.
TimeValue rescaled(TimeValue value, TimeScale from, TimeScale to)
{
    if (value <= 0 || from <= 0 || to <= 0) return 0;
    if (value > std::numeric_limits<TimeValue>::max() / to) return std::numeric_limits<TimeValue>::max() / from;
    return value * to / from;
}

// A short header leaves what it did not hold at its default.
void readTrackHeader(const Bytes& payload, Track& track)
{
    try {
        ByteReader reader(payload);
        const bool longTimes = reader.getU8() == 1;
        reader.skip(2);
        track.enabled = (reader.getU8() & kTrackEnabled) != 0;
        reader.skip(longTimes ? 16 : 8);
        track.trackID = reader.getU32BE();
        reader.skip(4 + (longTimes ? 8 : 4) + 8);
        track.layer = static_cast<std::int16_t>(reader.getU16BE());
        track.alternateGroup = static_cast<std::int16_t>(reader.getU16BE());
        track.volume = static_cast<std::int16_t>(reader.getU16BE());
        reader.skip(2);
        for (auto& value : track.matrix) value = reader.getI32BE();
        track.width = reader.getI32BE();
        track.height = reader.getI32BE();
    } catch (const std::out_of_range&) {
    }
}

// The three sizes of a 'tapt' atom: clean aperture, production, encoded.
std::optional<ApertureDimensions> readApertureDimensions(FileHandle& file, const AtomTree& tree, const AtomNode& tapt)
{
    std::optional<ApertureDimensions> dimensions;
    for (const auto& child : tree.childrenOf(tapt)) {
        const Bytes payload = readAtomPayload(file, child);
        if (payload.size() < 12) continue;
        const Fixed width = static_cast<Fixed>(readU32BE(payload.data() + 4));
        const Fixed height = static_cast<Fixed>(readU32BE(payload.data() + 8));
        if (!dimensions) dimensions.emplace();
        if (child.type == fourCC("clef")) dimensions->cleanWidth = width, dimensions->cleanHeight = height;
        if (child.type == fourCC("prof")) dimensions->productionWidth = width, dimensions->productionHeight = height;
        if (child.type == fourCC("enof")) dimensions->encodedWidth = width, dimensions->encodedHeight = height;
    }
    return dimensions;
}

std::vector<Edit> readEdits(const Bytes& elst)
{
    std::vector<Edit> edits;
    try {
        ByteReader reader(elst);
        const bool longTimes = reader.getU8() == 1;
        reader.skip(3);
        const std::uint32_t count = reader.getU32BE();
        for (std::uint32_t i = 0; i < count && reader.remaining() > 0; ++i) {
            Edit edit;
            edit.trackDuration = static_cast<TimeValue>(longTimes ? reader.getU64BE() : reader.getU32BE());
            edit.mediaTime = longTimes ? static_cast<TimeValue>(reader.getU64BE()) : reader.getI32BE();
            edit.rate = reader.getI32BE();
            edits.push_back(edit);
        }
    } catch (const std::out_of_range&) {
    }
    return edits;
}

std::vector<Bytes> readSampleDescriptions(const Bytes& stsd)
{
    std::vector<Bytes> descriptions;
    try {
        ByteReader reader(stsd);
        reader.skip(4);
        const std::uint32_t count = reader.getU32BE();
        for (std::uint32_t i = 0; i < count && reader.remaining() >= 8; ++i) {
            const std::size_t at = reader.position();
            const std::uint32_t size = reader.getU32BE();
            reader.seek(at);
            if (size < 8) break;
            const auto entry = reader.getBytes(size);
            descriptions.emplace_back(entry.begin(), entry.end());
        }
    } catch (const std::out_of_range&) {
    }
    return descriptions;
}

// Where a track's samples are listed: its sample table, and the fragments
// of a fragmented file after it.
struct SampleSources {
    std::optional<std::int64_t> stblOffset;
    std::uint32_t trackID = 0;
    bool fragmented = false;
};

// The samples of a track, handed one at a time to visit each time they are
// gone through: the atom tree is read again, and each table a block at a time.
void readSamples(const std::filesystem::path& path, const SampleSources& sources, std::vector<std::string>& problems,
                 const Media::SampleVisitor& visit)
{
    std::uint64_t tableEnd = 0;
    std::size_t count = 0;
    auto keep = [&](const SampleLocation& location) {
        visit(Sample{location.offset, location.size, location.duration, location.descriptionIndex, false});
        tableEnd = location.time + location.duration;
        ++count;
    };
    try {
        FileHandle file(path, FileHandle::Mode::Reading);
        const AtomTree tree = readAtomTree(file);
        auto stbl = std::find_if(tree.atoms.begin(), tree.atoms.end(), [&](const AtomNode& node) {
            return node.offset == sources.stblOffset && node.type == atom::stbl;
        });
        const std::uint32_t declared = stbl == tree.atoms.end() ? 0 : sampleCount(file, tree, *stbl);
        // Each sample takes a byte of the file at least: more are damage, and not kept.
        const auto limit = static_cast<std::uint32_t>(std::min<std::int64_t>(kMaximumTrackSamples, file.length()));
        if (declared > limit) {
            problems.push_back(fmt::format("the size table lists {} samples, more than the file could hold", declared));
        }
        // A fragmented file's sample table is often empty, and then need not be whole.
        if (stbl != tree.atoms.end() && (declared != 0 || !sources.fragmented)) {
            forEachSampleLocation(file, tree, *stbl, problems, limit, keep);
        }
        if (sources.fragmented) {
            forEachFragmentSample(file, tree, sources.trackID, tableEnd, problems, limit - count, keep);
        }
    } catch (const FileError& failure) {
        problems.push_back(fmt::format("the file cannot be read again: {}", failure.code().message()));
    }
}

void readMedia(FileHandle& file, const AtomTree& tree, const AtomNode& mdia, SampleSources sources, Media& media)
{
    std::optional<HeaderTimes> times;
    for (const auto& child : tree.childrenOf(mdia)) {
        if (child.type != atom::mdhd && child.type != atom::hdlr) continue;  // not the whole media information
        const Bytes payload = readAtomPayload(file, child);
        if (child.type == atom::mdhd) times = readTimes(payload, true);
        if (child.type == atom::hdlr && payload.size() >= 12) media.type = readU32BE(payload.data() + 8);
    }
    if (times) {
        media.timeScale = usableTimeScale(times->timeScale);
        media.language = times->language;
        if (media.timeScale == 0)
            media.addProblem(fmt::format("the media time scale {} is out of range", times->timeScale));
    } else {
        media.timeScale = 0;
        media.addProblem("the media header is missing or damaged");
    }
    const auto minf = tree.childOfType(mdia, fourCC("minf"));
    const auto stbl = minf ? tree.childOfType(*minf, atom::stbl) : std::nullopt;
    if (!stbl && !sources.fragmented) return;
    if (auto stsd = stbl ? tree.childOfType(*stbl, atom::stsd) : std::nullopt) {
        media.sampleDescriptions = readSampleDescriptions(readAtomPayload(file, *stsd));
    }
    if (stbl) sources.stblOffset = stbl->offset;
    media.dataFile = file.path();
    // The header of a fragmented file's media does not count the fragments.
    std::optional<TimeValue> headerDuration;
    if (times && !sources.fragmented) headerDuration = static_cast<TimeValue>(times->duration);
    media.setSampleReader(
        [path = file.path(), sources](std::vector<std::string>& problems, const Media::SampleVisitor& visit) {
            readSamples(path, sources, problems, visit);
        },
        headerDuration);
}

std::unique_ptr<Track> readTrack(FileHandle& file, const AtomTree& tree, const AtomNode& trak, TimeScale movieScale,
                                 bool fragmented)
{
    auto track = std::make_unique<Track>();
    for (const auto& child : tree.childrenOf(trak)) {
        if (child.type == atom::tkhd) readTrackHeader(readAtomPayload(file, child), *track);
        if (child.type == fourCC("tapt")) track->apertureDimensions = readApertureDimensions(file, tree, child);
        if (child.type == atom::edts) {
            if (auto elst = tree.childOfType(child, atom::elst)) track->edits = readEdits(readAtomPayload(file, *elst));
        }
        if (child.type == atom::tref) {
            for (const auto& reference : tree.childrenOf(child)) {
                const Bytes ids = readAtomPayload(file, reference);
                std::vector<std::uint32_t> named;
                for (std::size_t at = 0; at + 4 <= ids.size(); at += 4) named.push_back(readU32BE(ids.data() + at));
                track->references.emplace_back(reference.type, std::move(named));
            }
        }
    }
    // After the track header: the fragments are found by the track's ID.
    if (auto mdia = tree.childOfType(trak, atom::mdia)) {
        track->media = std::make_unique<Media>();
        readMedia(file, tree, *mdia, SampleSources{std::nullopt, track->trackID, fragmented}, *track->media);
    }
    const Media* media = track->media.get();
    if (!media || media->timeScale == 0) return track;
    // Without an edit list the track shows its whole media once. In a
    // fragmented file, a last edit of no duration shows the rest of the
    // media, the fragments included.
    if (track->edits.empty()) {
        track->edits.push_back(Edit{rescaled(media->duration(), media->timeScale, movieScale), 0, kFixed1});
    } else if (Edit& last = track->edits.back(); fragmented && last.trackDuration == 0 && last.mediaTime >= 0) {
        last.trackDuration = rescaled(media->duration() - last.mediaTime, media->timeScale, movieScale);
    }
    return track;
}

// Whether the top-level atom the walk stopped at, cut short by the end of
// the file, holds samples. A fragmented file's random-access index and
// padding do not: losing their end loses none of the sound.
bool cutShortAtomHoldsSamples(FileHandle& file, const AtomTree& tree)
{
    const auto top = tree.topLevel();
    file.seekToFileOffset(top.empty() ? 0 : top.back().offset + top.back().size);
    const Bytes header = file.readDataOfLength(8);
    if (header.size() < 8) return true;
    const std::uint32_t type = readU32BE(header.data() + 4);
    return type != fourCC("mfra") && type != atom::free && type != fourCC("skip");
}

}  // namespace

class MovieReader {
public:
    static void read(FileHandle& file, const AtomTree& tree, const AtomNode& moov, Movie& movie,
                     const std::optional<std::string>& movieProblem)
    {
        const bool fragmented = hasFragments(tree);
        const bool samplesCutShort = tree.cutShort && cutShortAtomHoldsSamples(file, tree);
        for (const auto& trak : tree.childrenOf(moov)) {
            if (trak.type != atom::trak) continue;
            movie.tracks_.push_back(readTrack(file, tree, trak, movie.timeScale_, fragmented));
            movie.tracks_.back()->movie = &movie;
            Media* media = movie.tracks_.back()->media.get();
            if (!media) continue;
            if (movieProblem) media->addProblem(*movieProblem);
            // The walk stopped at the atom cut short: its problem is the last one.
            if (samplesCutShort) media->addProblem(tree.problems.back());
        }
        movie.metaData_ = readMetaDataItems(file, tree);
        if (auto mode = tree.find({atom::moov, atom::udta, fourCC("apmd")})) {
            const Bytes payload = readAtomPayload(file, *mode);
            if (payload.size() >= 4) movie.apertureMode_ = readU32BE(payload.data());
        }
    }
    // False when the header cannot be read; a time scale out of range is
    // kept as 0 and its problem put in problem.
    static bool readHeader(FileHandle& file, const AtomNode& mvhd, Movie& movie, std::optional<std::string>& problem)
    {
        const Bytes payload = readAtomPayload(file, mvhd);
        // The matrix follows the times, the rate, the volume and 10 reserved bytes.
        const std::size_t matrixAt = !payload.empty() && payload[0] == 1 ? 48 : 36;
        if (payload.size() >= matrixAt + 36) {
            for (std::size_t i = 0; i < 9; ++i) {
                movie.matrix_[i] = static_cast<std::int32_t>(readU32BE(payload.data() + matrixAt + 4 * i));
            }
        }
        const auto times = readTimes(payload, false);
        if (!times) return false;
        movie.timeScale_ = usableTimeScale(times->timeScale);
        movie.headerDuration_ = times->duration;
        if (movie.timeScale_ == 0) problem = fmt::format("the movie time scale {} is out of range", times->timeScale);
        return true;
    }
};

std::unique_ptr<Movie> Movie::movieWithFile(const std::filesystem::path& path, std::string* error)
{
    auto fail = [error](std::string message) -> std::unique_ptr<Movie> {
        if (error) *error = std::move(message);
        return nullptr;
    };
    try {
        FileHandle file(path, FileHandle::Mode::Reading);
        const AtomTree tree = readAtomTree(file);
        auto mvhd = tree.find({atom::moov, atom::mvhd});
        if (!mvhd) return fail("The file is not a movie: it has no movie header.");
        auto movie = std::make_unique<Movie>();
        movie->path_ = path;
        std::optional<std::string> movieProblem;
        if (!MovieReader::readHeader(file, *mvhd, *movie, movieProblem)) return fail("The movie header is damaged.");
        MovieReader::read(file, tree, *tree.find({atom::moov}), *movie, movieProblem);
        return movie;
    } catch (const FileError& failure) {
        return fail(failure.code().message());
    }
}

}  // namespace quillora::toolbox
