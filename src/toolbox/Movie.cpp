#include "toolbox/Movie.h"

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"

namespace quillora::toolbox {

namespace {

Bytes readAtom(FileHandle& file, const AtomNode& node)
{
    file.seekToFileOffset(node.offset);
    return file.readDataOfLength(static_cast<std::size_t>(node.size));
}

// Time scale and duration from a movie or media header: version 1 headers
// carry 64-bit times.
bool readTimes(const Bytes& header, std::uint32_t& timeScale, std::uint64_t& duration)
{
    try {
        ByteReader reader(header);
        reader.skip(8);
        const std::uint8_t version = reader.getU8();
        reader.skip(3);
        if (version == 1) {
            reader.skip(16);
            timeScale = reader.getU32BE();
            duration = reader.getU64BE();
        } else {
            reader.skip(8);
            timeScale = reader.getU32BE();
            duration = reader.getU32BE();
        }
        return true;
    } catch (const std::out_of_range&) {
        return false;
    }
}

// Track ID and duration; version 1 headers carry 64-bit times.
void readTrackHeader(const Bytes& header, MovieTrack& track)
{
    try {
        ByteReader reader(header);
        reader.skip(8);
        const bool longTimes = reader.getU8() == 1;
        reader.skip(3 + (longTimes ? 16 : 8));
        track.trackID = reader.getU32BE();
        reader.skip(4);
        track.duration = longTimes ? reader.getU64BE() : reader.getU32BE();
    } catch (const std::out_of_range&) {
        // A short header leaves what it did not hold at zero.
    }
}

}  // namespace

std::unique_ptr<Movie> Movie::movieWithFile(const std::filesystem::path& path, std::string* error)
{
    auto fail = [error](std::string message) -> std::unique_ptr<Movie> {
        if (error) *error = std::move(message);
        return nullptr;
    };
    try {
        FileHandle file(path, FileHandle::Mode::Reading);
        AtomTree tree = readAtomTree(file);
        auto mvhd = tree.find({atom::moov, atom::mvhd});
        if (!mvhd) return fail("The file is not a movie: it has no movie header.");
        auto movie = std::unique_ptr<Movie>(new Movie());
        movie->path_ = path;
        if (!readTimes(readAtom(file, *mvhd), movie->timeScale_, movie->duration_)) {
            return fail("The movie header is damaged.");
        }
        auto moov = tree.find({atom::moov});
        for (const auto& trak : tree.childrenOf(*moov)) {
            if (trak.type != atom::trak) continue;
            MovieTrack track;
            for (const auto& child : tree.childrenOf(trak)) {
                if (child.type == atom::tkhd) {
                    Bytes tkhd = readAtom(file, child);
                    readTrackHeader(tkhd, track);
                } else if (child.type == atom::mdia) {
                    for (const auto& media : tree.childrenOf(child)) {
                        Bytes bytes = readAtom(file, media);
                        if (media.type == atom::mdhd) readTimes(bytes, track.mediaTimeScale, track.mediaDuration);
                        if (media.type == atom::hdlr && bytes.size() >= 20)
                            track.handlerType = readU32BE(bytes.data() + 16);
                    }
                }
            }
            movie->tracks_.push_back(track);
        }
        return movie;
    } catch (const FileError& failure) {
        return fail(failure.code().message());
    }
}

}  // namespace quillora::toolbox
