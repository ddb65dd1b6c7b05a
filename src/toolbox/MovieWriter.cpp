// The one writer of the toolbox: flattens a movie into a self-contained
// file. The movie atom comes first, so a player can start while the file is
// still arriving; the media data follows, track by track, referenced
// samples streamed from their files through a fixed buffer.
#include <algorithm>
#include <limits>
#include <system_error>

#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "layout/TrackAtoms.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Movie.h"

namespace quillora::toolbox {

namespace {

constexpr std::size_t kCopyBufferSize = 1 << 20;
constexpr std::uint32_t kQuickTimeBrandVersion = 0x20050300;
constexpr std::uint32_t kApertureModeAtom = fourCC("apmd");

// The file type atom of each kind of file the writer makes.
struct FileBrand {
    std::uint32_t major;
    std::uint32_t version;
    std::vector<std::uint32_t> compatible;
};

std::optional<FileBrand> brandForExportType(std::uint32_t exportType)
{
    if (exportType == kMovieFileType) return FileBrand{fourCC("qt  "), kQuickTimeBrandVersion, {fourCC("qt  ")}};
    if (exportType == kHandheldPlayerFileType) {
        return FileBrand{
            kHandheldPlayerFileType, 1, {kHandheldPlayerFileType, kAudioFileType, fourCC("mp42"), fourCC("isom")}};
    }
    if (exportType == kAudioFileType)
        return FileBrand{kAudioFileType, 0, {kAudioFileType, fourCC("mp42"), fourCC("isom")}};
    return std::nullopt;
}
constexpr std::uint32_t kTrackInMovieAndPreview = 0x6;
constexpr std::uint32_t kTrackEnabled = 0x1;

std::string_view mediaHandlerName(std::uint32_t type)
{
    switch (type) {
    case fourCC("soun"):
        return "Apple Sound Media Handler";
    case fourCC("vide"):
        return "Apple Video Media Handler";
    case fourCC("text"):
        return "Apple Text Media Handler";
    default:
        return "";
    }
}

std::uint32_t narrow(std::int64_t value)
{
    if (value < 0 || value > std::numeric_limits<std::uint32_t>::max()) {
        throw FileError(EFBIG, "a movie of more than 32-bit sizes and times cannot be written");
    }
    return static_cast<std::uint32_t>(value);
}

// Where an atom's payload lies in a buffer; empty when there is none.
struct PayloadRange {
    std::size_t begin = 0;
    std::size_t end = 0;
};

// The payload of the first child of the given type among the atoms of range.
PayloadRange childOfType(const Bytes& bytes, PayloadRange range, std::uint32_t type)
{
    for (std::size_t at = range.begin; at + 8 <= range.end;) {
        const std::uint32_t size = readU32BE(bytes.data() + at);
        if (size < 8 || at + size > range.end) break;
        if (readU32BE(bytes.data() + at + 4) == type) return {at + 8, at + size};
        at += size;
    }
    return {};
}

// Adds base to every chunk offset of a movie atom this writer built.
void shiftChunkOffsets(Bytes& moov, std::uint32_t base)
{
    for (std::size_t at = 8; at + 8 <= moov.size(); at += readU32BE(moov.data() + at)) {
        if (readU32BE(moov.data() + at + 4) != atom::trak) continue;
        PayloadRange range{at + 8, at + readU32BE(moov.data() + at)};
        for (std::uint32_t type : {atom::mdia, atom::minf, atom::stbl, atom::stco}) {
            range = childOfType(moov, range, type);
        }
        // Past the version, flags and entry count.
        for (std::size_t entry = range.begin + 8; range.end != 0 && entry + 4 <= range.end; entry += 4) {
            overwriteU32BE(moov, entry, readU32BE(moov.data() + entry) + base);
        }
    }
}

class Flattener {
public:
    Flattener(const Movie& movie, FileBrand brand) : movie_(movie), brand_(std::move(brand)) {}

    void write(const std::filesystem::path& path)
    {
        const Bytes type = ftyp();
        // The chunk offsets are counted from the first sample until the
        // movie atom's size, which they do not change, is known.
        Bytes movieAtom = moov();
        const std::int64_t firstSample = static_cast<std::int64_t>(type.size() + movieAtom.size()) + 8;
        narrow(firstSample + mediaDataSize_);
        shiftChunkOffsets(movieAtom, static_cast<std::uint32_t>(firstSample));
        FileHandle out(path, FileHandle::Mode::Creating);
        out.writeData(type);
        out.writeData(movieAtom);
        ByteWriter mdat(8);
        mdat.putU32BE(narrow(8 + mediaDataSize_)).putFourCC(atom::mdat);
        out.writeData(mdat.bytes());
        for (const auto& track : movie_.tracks()) {
            if (track->media) copySamples(*track->media, out);
        }
        out.synchronizeFile();
    }

private:
    Bytes ftyp()
    {
        ByteWriter w(8 + 4 * brand_.compatible.size());
        w.putFourCC(brand_.major).putU32BE(brand_.version);
        for (auto compatible : brand_.compatible) w.putFourCC(compatible);
        return atoms_.atom(atom::ftyp, w.bytes());
    }

    Bytes mvhd()
    {
        ByteWriter w(100);
        w.putU32BE(0).putU32BE(kTrackCreationTime).putU32BE(kTrackModificationTime);
        w.putU32BE(narrow(movie_.timeScale())).putU32BE(narrow(static_cast<std::int64_t>(movie_.duration())));
        w.putU32BE(0x00010000).putU16BE(0x0100).putZeros(10);  // rate 1.0, volume 1.0
        for (auto value : movie_.matrix()) w.putI32BE(value);
        w.putZeros(24);  // preview, poster, selection and current times
        w.putU32BE(movie_.nextTrackID());
        return atoms_.atom(atom::mvhd, w.bytes());
    }

    Bytes moov()
    {
        ByteWriter payload;
        payload.putBytes(mvhd());
        std::int64_t offset = 0;
        for (const auto& track : movie_.tracks()) payload.putBytes(trak(*track, offset));
        mediaDataSize_ = offset;
        payload.putBytes(nativeMetaDataAtom(atoms_, movie_.metaData()));
        if (movie_.apertureMode() != kQTApertureMode_Classic) {
            ByteWriter mode(4);
            mode.putFourCC(movie_.apertureMode());
            payload.putBytes(atoms_.atom(atom::udta, atoms_.atom(kApertureModeAtom, mode.bytes())));
        }
        return atoms_.atom(atom::moov, payload.bytes());
    }

    Bytes trak(const Track& track, std::int64_t& offset)
    {
        TrackPlacement placement{track.layer,
                                 track.alternateGroup,
                                 track.volume,
                                 track.matrix,
                                 static_cast<std::uint32_t>(track.width),
                                 static_cast<std::uint32_t>(track.height)};
        const Bytes tkhd = atoms_.tkhd({(track.enabled ? kTrackEnabled : 0) | kTrackInMovieAndPreview, track.trackID,
                                        narrow(track.duration()), 0, placement});
        std::vector<EditListEntry> entries;
        for (const auto& edit : track.edits) {
            entries.push_back({narrow(edit.trackDuration), static_cast<std::int32_t>(edit.mediaTime), edit.rate});
        }
        ByteWriter payload;
        payload.putBytes(tkhd);
        if (track.apertureDimensions) payload.putBytes(tapt(*track.apertureDimensions));
        payload.putBytes(atoms_.edts(entries));
        if (!track.references.empty()) {
            ByteWriter references;
            for (const auto& [type, ids] : track.references) {
                ByteWriter list;
                for (auto id : ids) list.putU32BE(id);
                references.putBytes(atoms_.atom(type, list.bytes()));
            }
            payload.putBytes(atoms_.atom(atom::tref, references.bytes()));
        }
        if (track.media) payload.putBytes(mdia(*track.media, offset));
        if (!track.name.empty()) {
            ByteWriter name;
            name.putString(track.name);
            payload.putBytes(atoms_.atom(atom::udta, atoms_.atom(fourCC("name"), name.bytes())));
        }
        return atoms_.atom(atom::trak, payload.bytes());
    }

    // The track's picture sizes per aperture mode: clean, production, encoded.
    Bytes tapt(const ApertureDimensions& dimensions)
    {
        auto size = [this](std::uint32_t type, Fixed width, Fixed height) {
            ByteWriter w(12);
            w.putU32BE(0).putI32BE(width).putI32BE(height);
            return atoms_.atom(type, w.bytes());
        };
        const Bytes clean = size(fourCC("clef"), dimensions.cleanWidth, dimensions.cleanHeight);
        const Bytes production = size(fourCC("prof"), dimensions.productionWidth, dimensions.productionHeight);
        const Bytes encoded = size(fourCC("enof"), dimensions.encodedWidth, dimensions.encodedHeight);
        return atoms_.container(fourCC("tapt"), {clean, production, encoded});
    }

    Bytes mdia(const Media& media, std::int64_t& offset)
    {
        // The samples of a media lie one after another: a chunk holds each
        // run of samples of one description, and equal durations are one run.
        std::vector<std::uint32_t> sizes;
        std::vector<TimeToSampleRun> times;
        std::vector<SampleToChunkRun> chunks;
        std::vector<std::uint32_t> chunkOffsets;
        sizes.reserve(media.samples().size());
        for (const auto& sample : media.samples()) {
            sizes.push_back(sample.size);
            if (times.empty() || times.back().duration != sample.duration) times.push_back({0, sample.duration});
            ++times.back().count;
            if (chunks.empty() || chunks.back().descriptionIndex != sample.descriptionIndex) {
                chunks.push_back({static_cast<std::uint32_t>(chunks.size() + 1), 0, sample.descriptionIndex});
                chunkOffsets.push_back(narrow(offset));
            }
            ++chunks.back().samplesPerChunk;
            offset += sample.size;
        }
        narrow(offset);
        const Bytes header = atoms_.mdhd(narrow(media.timeScale), narrow(media.duration()), media.language);
        const Bytes handler =
            atoms_.hdlr({fourCC("mhlr"), media.type, fourCC("appl"), 0, 0, pascalName(mediaHandlerName(media.type))});
        Bytes mediaHeader;
        if (media.type == fourCC("soun")) mediaHeader = atoms_.smhd();
        if (media.type == fourCC("vide")) mediaHeader = atoms_.vmhd();
        if (media.type == fourCC("text")) mediaHeader = atoms_.gmhd();
        const Bytes dataHandler = atoms_.hdlr(aliasDataHandler(0));
        const Bytes dinf = atoms_.dinf();
        const Bytes stsd = atoms_.stsd(media.sampleDescriptions);
        const Bytes stts = atoms_.stts(times);
        const Bytes stsc = atoms_.stsc(chunks);
        const Bytes stsz = sampleSizes(media, sizes);
        const Bytes stco = atoms_.stco(chunkOffsets);
        const Bytes stbl = atoms_.container(atom::stbl, {stsd, stts, stsc, stsz, stco});
        const Bytes minf = atoms_.container(atom::minf, {mediaHeader, dataHandler, dinf, stbl});
        return atoms_.container(atom::mdia, {header, handler, minf});
    }

    // Sound whose samples are all of one size (PCM, AMR of one mode) keeps
    // that one size rather than a table of it, as its recorders write it:
    // a table of every PCM frame's size would outweigh the sound.
    Bytes sampleSizes(const Media& media, const std::vector<std::uint32_t>& sizes)
    {
        const bool oneSize = media.type == fourCC("soun") && !sizes.empty() &&
                             std::all_of(sizes.begin(), sizes.end(), [&](auto size) { return size == sizes.front(); });
        if (!oneSize) return atoms_.stsz(sizes);
        ByteWriter w(12);
        w.putU32BE(0).putU32BE(sizes.front()).putU32BE(narrow(static_cast<std::int64_t>(sizes.size())));
        return atoms_.atom(atom::stsz, w.bytes());
    }

    // Runs of samples that lie one after another are copied as one range.
    void copySamples(const Media& media, FileHandle& out)
    {
        std::optional<FileHandle> source;
        Bytes buffer;
        std::size_t i = 0;
        while (i < media.samples().size()) {
            const Sample& first = media.samples()[i];
            std::uint64_t end = first.offset + first.size;
            std::size_t next = i + 1;
            while (next < media.samples().size() && media.samples()[next].held == first.held &&
                   media.samples()[next].offset == end) {
                end += media.samples()[next++].size;
            }
            if (first.held) {
                const auto begin = media.heldBytes.begin() + static_cast<std::ptrdiff_t>(first.offset);
                out.writeData(std::span(begin, begin + static_cast<std::ptrdiff_t>(end - first.offset)));
            } else {
                if (!source) source.emplace(media.dataFile, FileHandle::Mode::Reading);
                for (std::uint64_t at = first.offset; at < end; at += kCopyBufferSize) {
                    source->seekToFileOffset(static_cast<std::int64_t>(at));
                    buffer = source->readDataOfLength(
                        static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBufferSize, end - at)));
                    if (buffer.empty()) throw FileError(EIO, "the samples end early in " + media.dataFile.string());
                    out.writeData(buffer);
                }
            }
            i = next;
        }
    }

    const Movie& movie_;
    FileBrand brand_;
    QTDataEditor editor_;
    TrackAtoms atoms_{editor_};
    std::int64_t mediaDataSize_ = 0;
};

}  // namespace

bool Movie::writeToFile(const std::filesystem::path& path, const Value& attributes) const
{
    const Value* exportType = attributes.get(QTMovieExportType);
    const auto brand = brandForExportType(
        exportType && exportType->asInteger() ? static_cast<std::uint32_t>(*exportType->asInteger()) : kMovieFileType);
    if (!brand) return false;
    // Written beside the destination and then moved over it, so that a
    // failed write never leaves half a movie, and a movie can be written
    // over the file its samples come from.
    auto partial = path;
    partial += ".partial";
    try {
        Flattener(*this, *brand).write(partial);
        std::filesystem::rename(partial, path);
        return true;
    } catch (const std::exception&) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        return false;
    }
}

bool Movie::updateMovieFile()
{
    if (path_.empty() || !writeToFile(path_, Value::dictionary())) return false;
    // The samples now lie elsewhere in the rewritten file.
    auto reread = movieWithFile(path_);
    if (!reread) return false;
    tracks_ = std::move(reread->tracks_);
    metaData_ = std::move(reread->metaData_);
    return true;
}

}  // namespace quillora::toolbox
