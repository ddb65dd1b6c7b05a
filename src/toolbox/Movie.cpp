#include "toolbox/Movie.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "foundation/FileHandle.h"

namespace quillora::toolbox {

std::vector<Sample>& Media::samples()
{
    std::as_const(*this).samples();
    if (samples_.use_count() > 1) samples_ = std::make_shared<std::vector<Sample>>(*samples_);
    return *samples_;
}

const std::vector<Sample>& Media::samples() const
{
    if (sampleReader_) {
        std::vector<Sample> read;
        readSamples([&read](const Sample& sample) { read.push_back(sample); });
        *samples_ = std::move(read);
        sampleReader_ = nullptr;
    }
    return *samples_;
}

void Media::readSamples(const SampleVisitor& visit) const
{
    if (readDuration_) {
        // Read before: its problems are known.
        std::vector<std::string> again;
        return sampleReader_(again, visit);
    }
    std::vector<std::string> found;
    TimeValue total = 0;
    sampleReader_(found, [&](const Sample& sample) {
        total += sample.duration;
        visit(sample);
    });
    readDuration_ = total;
    problems_.insert(problems_.end(), found.begin(), found.end());
}

void Media::forEachSample(const SampleVisitor& visit) const
{
    if (sampleReader_) return readSamples(visit);
    for (const auto& sample : *samples_) visit(sample);
}

void Media::shareSamples(const Media& other)
{
    if (other.sampleReader_) {
        // Read once for its problems and duration, which both then keep.
        if (!other.readDuration_) other.readSamples([](const Sample&) {});
        sampleReader_ = other.sampleReader_;
        readDuration_ = other.readDuration_;
        headerDuration_ = other.headerDuration_;
    } else {
        sampleReader_ = nullptr;
        samples_ = other.samples_;
    }
    sampleDescriptions = other.sampleDescriptions;
    dataFile = other.dataFile;
    heldBytes = other.heldBytes;
}

void Media::setSampleReader(SampleReader reader, std::optional<TimeValue> headerDuration)
{
    sampleReader_ = std::move(reader);
    headerDuration_ = headerDuration;
    readDuration_.reset();
}

TimeValue Media::duration() const
{
    if (sampleReader_) {
        if (!readDuration_ && headerDuration_) return *headerDuration_;
        if (!readDuration_) readSamples([](const Sample&) {});
        return *readDuration_;
    }
    TimeValue total = 0;
    for (const auto& sample : *samples_) total += sample.duration;
    return total;
}

std::optional<std::size_t> Media::sampleAtTime(TimeValue time, TimeValue* start) const
{
    if (time < 0) return std::nullopt;
    TimeValue at = 0;
    const auto& all = samples();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (time < at + all[i].duration) {
            if (start) *start = at;
            return i;
        }
        at += all[i].duration;
    }
    return std::nullopt;
}

Bytes Media::sampleBytes(const Sample& sample) const
{
    if (sample.held) {
        const auto begin = heldBytes.begin() + static_cast<std::ptrdiff_t>(sample.offset);
        return Bytes(begin, begin + sample.size);
    }
    FileHandle file(dataFile, FileHandle::Mode::Reading);
    file.seekToFileOffset(static_cast<std::int64_t>(sample.offset));
    return file.readDataOfLength(sample.size);
}

std::vector<std::string> Media::problems() const
{
    std::error_code error;
    const std::uint64_t length = dataFile.empty() ? 0 : std::filesystem::file_size(dataFile, error);
    std::size_t count = 0;
    std::size_t outside = 0;
    std::uint64_t firstOutside = 0;
    forEachSample([&](const Sample& sample) {
        ++count;
        // Compared without adding, so that an offset near the top cannot wrap around.
        if (sample.held || (sample.offset <= length && sample.size <= length - sample.offset)) return;
        if (outside++ == 0) firstOutside = sample.offset;
    });
    std::vector<std::string> found = problems_;
    if (count == 0) found.push_back("the track has no samples");
    if (error) found.push_back(fmt::format("the file {} cannot be read: {}", dataFile.string(), error.message()));
    if (outside != 0 && !error) {
        found.push_back(fmt::format("{} of {} samples lie past the end of the file ({} bytes), the first at offset {}",
                                    outside, count, length, firstOutside));
    }
    return found;
}

TimeValue Track::duration() const
{
    TimeValue total = 0;
    for (const auto& edit : edits) total += edit.trackDuration;
    return total;
}

std::uint64_t Movie::duration() const
{
    TimeValue longest = 0;
    for (const auto& track : tracks_) longest = std::max(longest, track->duration());
    return std::max(headerDuration_, static_cast<std::uint64_t>(longest));
}

std::uint32_t Movie::nextTrackID() const
{
    std::uint32_t next = 1;
    for (const auto& track : tracks_) next = std::max(next, track->trackID + 1);
    return next;
}

Track& Movie::newTrack()
{
    auto track = std::make_unique<Track>();
    track->movie = this;
    track->trackID = nextTrackID();
    tracks_.push_back(std::move(track));
    return *tracks_.back();
}

Track* Movie::trackWithID(std::uint32_t trackID) const
{
    for (const auto& track : tracks_) {
        if (track->trackID == trackID) return track.get();
    }
    return nullptr;
}

Track* Movie::trackOfMediaType(std::uint32_t type, int index) const
{
    for (const auto& track : tracks_) {
        if (track->mediaType() == type && --index == 0) return track.get();
    }
    return nullptr;
}

}  // namespace quillora::toolbox
