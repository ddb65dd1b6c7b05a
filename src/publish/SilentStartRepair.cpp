#include "publish/SilentStartRepair.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "publish/MovieHeaderAtoms.h"
#include "publish/PublishError.h"

namespace quillora::publish {

namespace {

constexpr std::uint32_t kSoundHandler = fourCC("soun");
// An edit of version 0: track duration, media time, rate.
constexpr std::size_t kEditSize = 12;
// An edit list's version and flags, then its entry count.
constexpr std::size_t kEditsAt = 8;

void writeDuration(FileHandle& file, const toolbox::AtomNode& header, const HeaderLayout& layout,
                   std::uint64_t duration)
{
    ByteWriter value;
    putHeaderNumber(value, duration, layout.wide);
    overwrite(file, header.payloadOffset() + static_cast<std::int64_t>(layout.duration), value.bytes());
}

}  // namespace

void restoreSilentStart(FileHandle& file, double seconds)
{
    const MovieNodes movie = readMovieNodes(file);
    const auto sound = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                    [](const TrackNodes& track) { return track.handlerType == kSoundHandler; });
    if (sound == movie.tracks.end() || !sound->elst) return;
    const Bytes edits = readPayload(file, *sound->elst);
    if (edits.size() < kEditsAt || edits[0] != 0) return;
    const std::uint32_t count = readU32BE(edits.data() + 4);
    if (count > (edits.size() - kEditsAt) / kEditSize) return;

    const Bytes movieHeader = readPayload(file, movie.mvhd);
    const HeaderLayout movieLayout = movieHeaderLayout(movieHeader);
    // The movie's time scale comes just before its duration.
    if (movieLayout.duration < 4 || movieHeader.size() < movieLayout.duration + movieLayout.timeWidth()) return;
    const std::uint32_t timeScale = readU32BE(movieHeader.data() + movieLayout.duration - 4);
    const auto silence = static_cast<std::uint64_t>(std::llround(seconds * timeScale));
    const Bytes trackHeader = readPayload(file, sound->tkhd);
    const HeaderLayout trackLayout = trackHeaderLayout(trackHeader);
    if (silence == 0 || silence > std::numeric_limits<std::uint32_t>::max() ||
        trackHeader.size() < trackLayout.duration + trackLayout.timeWidth()) {
        return;
    }
    const std::uint64_t trackDuration = readHeaderNumber(trackHeader, trackLayout.duration, trackLayout.wide) + silence;
    const std::uint64_t movieDuration =
        std::max(readHeaderNumber(movieHeader, movieLayout.duration, movieLayout.wide), trackDuration);
    constexpr std::uint64_t kLargest32 = std::numeric_limits<std::uint32_t>::max();
    if ((!trackLayout.wide && trackDuration > kLargest32) || (!movieLayout.wide && movieDuration > kLargest32)) return;

    // In place first, while nothing has moved.
    writeDuration(file, sound->tkhd, trackLayout, trackDuration);
    writeDuration(file, movie.mvhd, movieLayout, movieDuration);
    // One edit more, the empty one first. Growing the edit list moves what
    // follows it; the editor mends the enclosing sizes and the chunk offsets.
    ByteWriter list(edits.size() + kEditSize);
    list.putU32BE(0).putU32BE(count + 1);
    list.putU32BE(static_cast<std::uint32_t>(silence)).putI32BE(-1).putU32BE(0x00010000);
    list.putBytes(std::span(edits).subspan(kEditsAt, count * kEditSize));
    QTDataEditor editor;
    if (editor.appendData(Bytes(kEditSize), static_cast<std::int32_t>(sound->elst->offset), file) < 0) {
        throw PublishError(fmt::format("the sound's edit list in {} cannot be lengthened", file.path().string()));
    }
    overwrite(file, sound->elst->payloadOffset(), list.bytes());
}

}  // namespace quillora::publish
