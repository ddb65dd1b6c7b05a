// The one writer of the toolbox: flattens a movie into a self-contained
// file. The movie atom comes first, so a player can start while the file is
// still arriving; the media data follows, track by track, referenced
// samples copied from their files by the kernel where it can. A media read
// from a file is gone through without holding its table.
#include <algorithm>
#include <limits>
#include <system_error>

#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "layout/TrackAtoms.h"
#include "toolbox/AtomPieces.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Movie.h"

namespace quillora::toolbox {

namespace {

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

class Flattener {
public:
    Flattener(const Movie& movie, FileBrand brand) : movie_(movie), brand_(std::move(brand)) {}

    void write(const std::filesystem::path& path, bool synchronize)
    {
        const Bytes type = ftyp();
        // The chunk offsets are written once the movie atom's size, which
        // they do not change, is known.
        const AtomPieces movieAtom = moov();
        firstSample_ = static_cast<std::int64_t>(type.size() + movieAtom.size()) + 8;
        narrow(firstSample_ + mediaDataSize_);
        FileHandle out(path, FileHandle::Mode::Creating);
        out.writeData(type);
        movieAtom.writeTo(out);
        ByteWriter mdat(8);
        mdat.putU32BE(narrow(8 + mediaDataSize_)).putFourCC(atom::mdat);
        out.writeData(mdat.bytes());
        for (const auto& track : movie_.tracks()) {
            if (track->media) copySamples(*track->media, out);
        }
        // A table read twice from a file that changed in between.
        if (out.offsetInFile() != firstSample_ + mediaDataSize_) {
            throw FileError(EIO, "the samples changed while the movie was written");
        }
        if (synchronize) out.synchronizeFile();
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

    AtomPieces moov()
    {
        AtomPieces pieces;
        pieces.add(mvhd());
        std::int64_t offset = 0;
        for (const auto& track : movie_.tracks()) pieces.add(trak(*track, offset));
        mediaDataSize_ = offset;
        pieces.add(nativeMetaDataAtom(atoms_, movie_.metaData()));
        if (movie_.apertureMode() != kQTApertureMode_Classic) {
            ByteWriter mode(4);
            mode.putFourCC(movie_.apertureMode());
            pieces.add(atoms_.atom(atom::udta, atoms_.atom(kApertureModeAtom, mode.bytes())));
        }
        pieces.wrap(atom::moov);
        return pieces;
    }

    AtomPieces trak(const Track& track, std::int64_t& offset)
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
        AtomPieces pieces;
        pieces.add(tkhd);
        if (track.apertureDimensions) pieces.add(tapt(*track.apertureDimensions));
        pieces.add(atoms_.edts(entries));
        if (!track.references.empty()) {
            ByteWriter references;
            for (const auto& [type, ids] : track.references) {
                ByteWriter list;
                for (auto id : ids) list.putU32BE(id);
                references.putBytes(atoms_.atom(type, list.bytes()));
            }
            pieces.add(atoms_.atom(atom::tref, references.bytes()));
        }
        if (track.media) pieces.add(mdia(*track.media, offset));
        if (!track.name.empty()) {
            ByteWriter name;
            name.putString(track.name);
            pieces.add(atoms_.atom(atom::udta, atoms_.atom(fourCC("name"), name.bytes())));
        }
        pieces.wrap(atom::trak);
        return pieces;
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

    AtomPieces mdia(const Media& media, std::int64_t& offset)
    {
        // The samples of a media lie one after another: a chunk holds each
        // run of samples of one description, and equal durations are one
        // run. The sizes are not held: they are written from the media.
        std::vector<TimeToSampleRun> times;
        std::vector<SampleToChunkRun> chunks;
        auto chunkOffsets = std::make_shared<std::vector<std::int64_t>>();
        std::uint64_t count = 0;
        std::optional<std::uint32_t> oneSize;
        media.forEachSample([&](const Sample& sample) {
            if (count++ == 0) oneSize = sample.size;
            if (oneSize && *oneSize != sample.size) oneSize.reset();
            if (times.empty() || times.back().duration != sample.duration) times.push_back({0, sample.duration});
            ++times.back().count;
            if (chunks.empty() || chunks.back().descriptionIndex != sample.descriptionIndex) {
                chunks.push_back({static_cast<std::uint32_t>(chunks.size() + 1), 0, sample.descriptionIndex});
                chunkOffsets->push_back(offset);
            }
            ++chunks.back().samplesPerChunk;
            offset += sample.size;
        });
        narrow(offset);
        const Bytes header = atoms_.mdhd(narrow(media.timeScale), narrow(media.duration()), media.language);
        const Bytes handler =
            atoms_.hdlr({fourCC("mhlr"), media.type, fourCC("appl"), 0, 0, pascalName(mediaHandlerName(media.type))});
        Bytes mediaHeader;
        if (media.type == fourCC("soun")) mediaHeader = atoms_.smhd();
        if (media.type == fourCC("vide")) mediaHeader = atoms_.vmhd();
        if (media.type == fourCC("text")) mediaHeader = atoms_.gmhd();

        AtomPieces stbl;
        stbl.add(atoms_.stsd(media.sampleDescriptions)).add(atoms_.stts(times)).add(atoms_.stsc(chunks));
        stbl.add(sampleSizes(media, narrow(static_cast<std::int64_t>(count)), oneSize));
        // Counted from the first sample, known once the movie atom is laid out.
        stbl.addWritten(16 + 4 * chunkOffsets->size(), [this, chunkOffsets](FileHandle& out) {
            ByteWriter w(16 + 4 * chunkOffsets->size());
            w.putU32BE(narrow(static_cast<std::int64_t>(16 + 4 * chunkOffsets->size()))).putFourCC(atom::stco);
            w.putU32BE(0).putU32BE(narrow(static_cast<std::int64_t>(chunkOffsets->size())));
            for (auto chunk : *chunkOffsets) w.putU32BE(narrow(firstSample_ + chunk));
            out.writeData(w.bytes());
        });
        stbl.wrap(atom::stbl);
        AtomPieces minf;
        minf.add(mediaHeader).add(atoms_.hdlr(aliasDataHandler(0))).add(atoms_.dinf()).add(std::move(stbl));
        minf.wrap(atom::minf);
        AtomPieces pieces;
        pieces.add(header).add(handler).add(std::move(minf));
        pieces.wrap(atom::mdia);
        return pieces;
    }

    // Sound whose samples are all of one size (PCM, AMR of one mode) keeps
    // that one size rather than a table of it, as its recorders write it:
    // a table of every PCM frame's size would outweigh the sound.
    AtomPieces sampleSizes(const Media& media, std::uint32_t count, std::optional<std::uint32_t> oneSize)
    {
        AtomPieces pieces;
        if (media.type == fourCC("soun") && count > 0 && oneSize) {
            ByteWriter w(12);
            w.putU32BE(0).putU32BE(*oneSize).putU32BE(count);
            pieces.add(atoms_.atom(atom::stsz, w.bytes()));
            return pieces;
        }
        const std::uint64_t size = 20 + 4 * static_cast<std::uint64_t>(count);
        pieces.addWritten(size, [&media, count, size](FileHandle& out) {
            NumberStream stream(out);
            stream.put(static_cast<std::uint32_t>(size));
            stream.put(atom::stsz);
            stream.put(0);
            stream.put(0);
            stream.put(count);
            std::uint32_t written = 0;
            media.forEachSample([&](const Sample& sample) {
                if (written++ < count) stream.put(sample.size);
            });
            // The file changed between the two readings of its table.
            if (written != count) throw FileError(EIO, "the samples changed while the movie was written");
            stream.flush();
        });
        return pieces;
    }

    // Runs of samples that lie one after another are copied as one range.
    void copySamples(const Media& media, FileHandle& out)
    {
        std::optional<FileHandle> source;
        struct Run {
            bool held = false;
            std::uint64_t begin = 0;
            std::uint64_t end = 0;
        };
        std::optional<Run> run;
        auto copy = [&](const Run& range) {
            if (range.held) {
                const auto begin = media.heldBytes.begin() + static_cast<std::ptrdiff_t>(range.begin);
                out.writeData(std::span(begin, begin + static_cast<std::ptrdiff_t>(range.end - range.begin)));
                return;
            }
            if (!source) source.emplace(media.dataFile, FileHandle::Mode::Reading);
            out.writeDataFromFile(*source, static_cast<std::int64_t>(range.begin),
                                  static_cast<std::int64_t>(range.end - range.begin));
        };
        media.forEachSample([&](const Sample& sample) {
            if (run && run->held == sample.held && run->end == sample.offset) {
                run->end += sample.size;
                return;
            }
            if (run) copy(*run);
            run = Run{sample.held, sample.offset, sample.offset + sample.size};
        });
        if (run) copy(*run);
    }

    const Movie& movie_;
    FileBrand brand_;
    QTDataEditor editor_;
    TrackAtoms atoms_{editor_};
    std::int64_t mediaDataSize_ = 0;
    std::int64_t firstSample_ = 0;
};

}  // namespace

bool Movie::writeToFile(const std::filesystem::path& path, const Value& attributes, Durability durability) const
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
        Flattener(*this, *brand).write(partial, durability == Durability::synchronized);
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
