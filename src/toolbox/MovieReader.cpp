// The one reader of the toolbox: fills the movie model from a file's atoms.
// Samples stay in the file; the model holds where they lie.
#include <algorithm>

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Movie.h"
#include "toolbox/SampleTable.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kTrackEnabled = 0x1;

// Time scale and duration from a movie or media header: version 1 headers
// carry 64-bit times. The language follows the media header's duration.
bool readTimes(const Bytes& payload, TimeScale& timeScale, std::uint64_t& duration, std::uint16_t* language = nullptr)
{
    try {
        ByteReader reader(payload);
        const std::uint8_t version = reader.getU8();
        reader.skip(3 + (version == 1 ? 16 : 8));
        timeScale = static_cast<TimeScale>(reader.getU32BE());
        duration = version == 1 ? reader.getU64BE() : reader.getU32BE();
        if (language) *language = reader.getU16BE();
        return true;
    } catch (const std::out_of_range&) {
        return false;
    }
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

// The samples of the sample table at stblOffset, read when first asked for.
std::vector<Sample> readSamples(const std::filesystem::path& path, std::int64_t stblOffset)
{
    std::vector<Sample> samples;
    try {
        FileHandle file(path, FileHandle::Mode::Reading);
        const AtomTree tree = readAtomTree(file);
        auto stbl = std::find_if(tree.atoms.begin(), tree.atoms.end(), [&](const AtomNode& node) {
            return node.offset == stblOffset && node.type == atom::stbl;
        });
        if (stbl == tree.atoms.end()) return samples;
        std::vector<std::string> ignoredProblems;
        // Room for the declared samples, as far as the file could hold them.
        samples.reserve(std::min<std::uint64_t>(sampleCount(file, tree, *stbl), file.length() / 16));
        forEachSampleLocation(file, tree, *stbl, ignoredProblems, kMaximumTrackSamples,
                              [&samples](const SampleLocation& location) {
                                  samples.push_back(Sample{location.offset, location.size, location.duration,
                                                           location.descriptionIndex, false});
                              });
    } catch (const FileError&) {
        // A file that went away since it was opened has no samples to give.
    }
    return samples;
}

void readMedia(FileHandle& file, const AtomTree& tree, const AtomNode& mdia, Media& media)
{
    std::uint64_t duration = 0;
    for (const auto& child : tree.childrenOf(mdia)) {
        if (child.type != atom::mdhd && child.type != atom::hdlr) continue;  // not the whole media information
        const Bytes payload = readAtomPayload(file, child);
        if (child.type == atom::mdhd) readTimes(payload, media.timeScale, duration, &media.language);
        if (child.type == atom::hdlr && payload.size() >= 12) media.type = readU32BE(payload.data() + 8);
    }
    const auto minf = tree.childOfType(mdia, fourCC("minf"));
    const auto stbl = minf ? tree.childOfType(*minf, atom::stbl) : std::nullopt;
    if (!stbl) return;
    if (auto stsd = tree.childOfType(*stbl, atom::stsd)) {
        media.sampleDescriptions = readSampleDescriptions(readAtomPayload(file, *stsd));
    }
    media.dataFile = file.path();
    media.setSampleReader([path = file.path(), offset = stbl->offset] { return readSamples(path, offset); },
                          static_cast<TimeValue>(duration));
}

std::unique_ptr<Track> readTrack(FileHandle& file, const AtomTree& tree, const AtomNode& trak, TimeScale movieScale)
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
        if (child.type == atom::mdia) {
            track->media = std::make_unique<Media>();
            readMedia(file, tree, child, *track->media);
        }
    }
    // Without an edit list the track shows its whole media once.
    if (track->edits.empty() && track->media && track->media->timeScale > 0) {
        track->edits.push_back(Edit{track->media->duration() * movieScale / track->media->timeScale, 0, kFixed1});
    }
    return track;
}

}  // namespace

class MovieReader {
public:
    static void read(FileHandle& file, const AtomTree& tree, const AtomNode& moov, Movie& movie)
    {
        for (const auto& trak : tree.childrenOf(moov)) {
            if (trak.type != atom::trak) continue;
            movie.tracks_.push_back(readTrack(file, tree, trak, movie.timeScale_));
            movie.tracks_.back()->movie = &movie;
        }
        movie.metaData_ = readMetaDataItems(file, tree);
        if (auto mode = tree.find({atom::moov, atom::udta, fourCC("apmd")})) {
            const Bytes payload = readAtomPayload(file, *mode);
            if (payload.size() >= 4) movie.apertureMode_ = readU32BE(payload.data());
        }
    }
    static bool readHeader(FileHandle& file, const AtomNode& mvhd, Movie& movie)
    {
        const Bytes payload = readAtomPayload(file, mvhd);
        // The matrix follows the times, the rate, the volume and 10 reserved bytes.
        const std::size_t matrixAt = !payload.empty() && payload[0] == 1 ? 48 : 36;
        if (payload.size() >= matrixAt + 36) {
            for (std::size_t i = 0; i < 9; ++i) {
                movie.matrix_[i] = static_cast<std::int32_t>(readU32BE(payload.data() + matrixAt + 4 * i));
            }
        }
        return readTimes(payload, movie.timeScale_, movie.headerDuration_);
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
        if (!MovieReader::readHeader(file, *mvhd, *movie)) return fail("The movie header is damaged.");
        MovieReader::read(file, tree, *tree.find({atom::moov}), *movie);
        return movie;
    } catch (const FileError& failure) {
        return fail(failure.code().message());
    }
}

}  // namespace quillora::toolbox
