#include "publish/HonestHeaders.h"

#include <algorithm>
#include <chrono>

#include "foundation/FourCC.h"
#include "layout/PodcastTrackIDs.h"
#include "layout/TrackAtoms.h"

namespace quillora::publish {

namespace {

// Movie times count seconds from 1904-01-01, 66 years and 17 leap days
// before the Unix epoch.
constexpr std::int64_t kSecondsFrom1904To1970 = 2'082'844'800;

constexpr std::uint32_t kVideoHandler = fourCC("vide");
constexpr std::uint32_t kTextHandler = fourCC("text");
// A visual sample description's width and height follow 32 bytes of header,
// reference index, version, vendor and qualities.
constexpr std::size_t kPictureWidthOffset = 32;

std::uint64_t movieTime(Date date)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
    return static_cast<std::uint64_t>(seconds + kSecondsFrom1904To1970);
}

void dateHeader(FileHandle& file, const toolbox::AtomNode& header, const HeaderLayout& layout, std::uint64_t time)
{
    ByteWriter times;
    putHeaderNumber(times, time, layout.wide);
    putHeaderNumber(times, time, layout.wide);
    overwrite(file, header.payloadOffset() + static_cast<std::int64_t>(layout.creation), times.bytes());
}

// Tracks made by our writers carry their fixed creation stamp.
bool madeByTheExport(const Bytes& header, const HeaderLayout& layout)
{
    return !layout.wide && readHeaderNumber(header, layout.creation, false) == kTrackCreationTime;
}

void sizePictureTrack(FileHandle& file, const TrackNodes& track)
{
    if (!track.stsd) return;
    const auto description = firstSampleDescription(file, *track.stsd);
    if (!description || description->bytes.size() < kPictureWidthOffset + 4) return;
    ByteReader reader(description->bytes);
    reader.seek(kPictureWidthOffset);
    const std::uint32_t width = reader.getU16BE();
    const std::uint32_t height = reader.getU16BE();
    // Width and height, 16.16, end the track header.
    ByteWriter size;
    size.putU32BE(width << 16).putU32BE(height << 16);
    overwrite(file, track.tkhd.offset + track.tkhd.size - 8, size.bytes());
}

std::uint64_t sumOfSampleDurations(FileHandle& file, const toolbox::AtomNode& stts)
{
    const Bytes table = readPayload(file, stts);
    ByteReader reader(table);
    reader.skip(4);
    const std::uint32_t entries = reader.getU32BE();
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < entries && reader.remaining() >= 8; ++i) {
        const std::uint64_t count = reader.getU32BE();
        sum += count * reader.getU32BE();
    }
    return sum;
}

void mendTextMediaDuration(FileHandle& file, const TrackNodes& track, const HeaderLayout& layout)
{
    if (!track.stts) return;
    const std::uint64_t sum = sumOfSampleDurations(file, *track.stts);
    if (!layout.wide && sum > UINT32_MAX) return;  // no 32-bit field holds it: left as it is
    ByteWriter duration;
    putHeaderNumber(duration, sum, layout.wide);
    overwrite(file, track.mdhd->payloadOffset() + static_cast<std::int64_t>(layout.duration), duration.bytes());
}

}  // namespace

void writeHonestHeaders(FileHandle& file, const MovieNodes& movie, Date exportTime)
{
    const std::uint64_t now = movieTime(exportTime);

    const Bytes movieHeader = readPayload(file, movie.mvhd);
    dateHeader(file, movie.mvhd, movieHeaderLayout(movieHeader), now);
    std::uint32_t lastTrackID = 0;
    for (const auto& track : movie.tracks) lastTrackID = std::max(lastTrackID, track.trackID);
    ByteWriter nextTrackID;
    nextTrackID.putU32BE(lastTrackID + 1);
    // The next track ID ends the movie header.
    overwrite(file, movie.mvhd.offset + movie.mvhd.size - 4, nextTrackID.bytes());

    for (const auto& track : movie.tracks) {
        const Bytes trackHeader = readPayload(file, track.tkhd);
        const HeaderLayout trackLayout = trackHeaderLayout(trackHeader);
        if (madeByTheExport(trackHeader, trackLayout)) dateHeader(file, track.tkhd, trackLayout, now);
        if (track.mdhd) {
            const Bytes mediaHeader = readPayload(file, *track.mdhd);
            const HeaderLayout mediaLayout = movieHeaderLayout(mediaHeader);
            if (madeByTheExport(mediaHeader, mediaLayout)) dateHeader(file, *track.mdhd, mediaLayout, now);
            if (track.handlerType == kTextHandler) mendTextMediaDuration(file, track, mediaLayout);
        }
        if (track.trackID == kPictureTrackID && track.handlerType == kVideoHandler) sizePictureTrack(file, track);
    }
}

}  // namespace quillora::publish
