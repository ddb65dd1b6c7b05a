#include "toolbox/Toolbox.h"

#include <algorithm>
#include <system_error>

#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"

#include <fmt/format.h>

namespace quillora::toolbox {

namespace {

thread_local OSErr lastMoviesError = noErr;

OSErr answer(OSErr status)
{
    lastMoviesError = status;
    return status;
}

TimeScale movieScale(const Track& track)
{
    return track.movie ? track.movie->timeScale() : kDefaultMovieTimeScale;
}

TimeValue rescale(TimeValue value, TimeScale from, TimeScale to)
{
    return from == to || from == 0 ? value : value * to / from;
}

// Makes an edit boundary at time (filling with an empty edit past the end)
// and answers the index of the edit that starts there.
std::size_t splitEdits(Track& track, TimeValue time)
{
    TimeValue start = 0;
    for (std::size_t i = 0; i < track.edits.size(); ++i) {
        Edit& edit = track.edits[i];
        if (time == start) return i;
        if (time < start + edit.trackDuration) {
            Edit tail = edit;
            edit.trackDuration = time - start;
            tail.trackDuration -= edit.trackDuration;
            if (tail.mediaTime >= 0 && track.media) {
                tail.mediaTime += rescale(edit.trackDuration, movieScale(track), track.media->timeScale);
            }
            track.edits.insert(track.edits.begin() + static_cast<std::ptrdiff_t>(i) + 1, tail);
            return i + 1;
        }
        start += edit.trackDuration;
    }
    if (time > start) track.edits.push_back(Edit{time - start, -1, kFixed1});
    return track.edits.size();
}

// The edit that shows track time, and where it starts.
const Edit* editAt(const Track& track, TimeValue time, TimeValue* editStart = nullptr)
{
    TimeValue start = 0;
    for (const auto& edit : track.edits) {
        if (time >= start && time < start + edit.trackDuration) {
            if (editStart) *editStart = start;
            return &edit;
        }
        start += edit.trackDuration;
    }
    return nullptr;
}

// The index of a description equal to the given one, appended when new.
std::uint32_t descriptionIndexFor(Media& media, const Bytes& description)
{
    auto found = std::find(media.sampleDescriptions.begin(), media.sampleDescriptions.end(), description);
    if (found == media.sampleDescriptions.end()) {
        media.sampleDescriptions.push_back(description);
        return static_cast<std::uint32_t>(media.sampleDescriptions.size());
    }
    return static_cast<std::uint32_t>(found - media.sampleDescriptions.begin() + 1);
}

}  // namespace

OSErr GetMoviesError()
{
    return lastMoviesError;
}

OSErr recordMoviesError(OSErr status)
{
    return answer(status);
}

OSErr QTNewDataReferenceFromFullPathCFString(const std::string& path, std::int32_t /*pathStyle*/,
                                             std::uint32_t /*flags*/, std::unique_ptr<DataReference>& dataRef,
                                             std::uint32_t& dataRefType)
{
    if (path.empty()) return answer(paramErr);
    dataRef = std::make_unique<DataReference>(DataReference{path});
    dataRefType = AliasDataHandlerSubType;
    return answer(noErr);
}

Handle NewHandleDataReference()
{
    constexpr std::size_t kReferenceSize = 5;
    Handle reference = NewHandleClear(kReferenceSize);
    ByteWriter extension(8);
    extension.putU32BE(8).putFourCC(fourCC("data"));
    PtrAndHand(extension.bytes().data(), reference, extension.size());
    return reference;
}

OSErr CreateMovieStorage(const DataReference& dataRef, std::uint32_t /*dataRefType*/, std::uint32_t /*creator*/,
                         std::int16_t /*scriptTag*/, std::int32_t /*flags*/, std::unique_ptr<MovieStorage>& storage,
                         std::unique_ptr<Movie>& movie)
{
    try {
        FileHandle(dataRef.path, FileHandle::Mode::Creating).closeFile();
    } catch (const FileError&) {
        return answer(couldNotResolveDataRef);
    }
    storage = std::make_unique<MovieStorage>(MovieStorage{dataRef.path});
    movie = std::make_unique<Movie>();
    movie->setPath(dataRef.path);
    return answer(noErr);
}

OSErr CloseMovieStorage(std::unique_ptr<MovieStorage>& storage)
{
    if (!storage) return answer(paramErr);
    std::error_code ignored;
    if (std::filesystem::file_size(storage->path, ignored) == 0) std::filesystem::remove(storage->path, ignored);
    storage.reset();
    return answer(noErr);
}

Fixed FixRatio(std::int16_t numerator, std::int16_t denominator)
{
    if (denominator == 0) return numerator < 0 ? INT32_MIN : INT32_MAX;
    return static_cast<Fixed>((std::int64_t{numerator} << 16) / denominator);
}

Track* NewMovieTrack(Movie& movie, Fixed width, Fixed height, std::int16_t volume)
{
    if (width < 0 || height < 0) {
        answer(paramErr);
        return nullptr;
    }
    Track& track = movie.newTrack();
    track.width = width;
    track.height = height;
    track.volume = volume;
    answer(noErr);
    return &track;
}

Track* GetMovieIndTrackType(const Movie& movie, long index, std::uint32_t type, std::int32_t flags)
{
    Track* track =
        (flags & movieTrackMediaType) && index > 0 ? movie.trackOfMediaType(type, static_cast<int>(index)) : nullptr;
    answer(track ? noErr : invalidTrack);
    return track;
}

Media* GetTrackMedia(Track* track)
{
    answer(track && track->media ? noErr : invalidTrack);
    return track ? track->media.get() : nullptr;
}

TimeValue GetTrackOffset(const Track* track)
{
    if (!track || track->edits.empty() || track->edits.front().mediaTime >= 0) return 0;
    return track->edits.front().trackDuration;
}

void SetTrackOffset(Track* track, TimeValue offset)
{
    if (!track || offset < 0) {
        answer(paramErr);
        return;
    }
    if (!track->edits.empty() && track->edits.front().mediaTime < 0) track->edits.erase(track->edits.begin());
    if (offset > 0) track->edits.insert(track->edits.begin(), Edit{offset, -1, kFixed1});
    answer(noErr);
}

TimeValue GetTrackDuration(const Track* track)
{
    return track ? track->duration() : 0;
}

std::int16_t GetTrackVolume(const Track* track)
{
    return track ? track->volume : 0;
}

void SetTrackEnabled(Track* track, bool enabled)
{
    if (track) track->enabled = enabled;
    answer(track ? noErr : invalidTrack);
}

void GetTrackDimensions(const Track* track, Fixed& width, Fixed& height)
{
    width = track ? track->width : 0;
    height = track ? track->height : 0;
}

void GetTrackMatrix(const Track* track, Matrix& matrix)
{
    matrix = track ? track->matrix : kIdentityMatrix;
}

void SetTrackMatrix(Track* track, const Matrix& matrix)
{
    if (track) track->matrix = matrix;
    answer(track ? noErr : invalidTrack);
}

void TranslateMatrix(Matrix& matrix, Fixed deltaH, Fixed deltaV)
{
    matrix[6] += deltaH;
    matrix[7] += deltaV;
}

Fixed GetTrackEditRate(const Track* track, TimeValue atTime)
{
    const Edit* edit = track ? editAt(*track, atTime) : nullptr;
    answer(edit ? noErr : invalidTime);
    return edit ? edit->rate : 0;
}

OSErr CopyTrackSettings(const Track* source, Track* destination)
{
    if (!source || !destination) return answer(invalidTrack);
    destination->matrix = source->matrix;
    destination->volume = source->volume;
    destination->layer = source->layer;
    destination->alternateGroup = source->alternateGroup;
    destination->enabled = source->enabled;
    destination->name = source->name;
    return answer(noErr);
}

OSErr AddTrackReference(Track* track, const Track* referenced, std::uint32_t type, long* index)
{
    if (!track || !referenced) return answer(invalidTrack);
    auto found = std::find_if(track->references.begin(), track->references.end(),
                              [type](const auto& reference) { return reference.first == type; });
    if (found == track->references.end()) {
        track->references.emplace_back(type, std::vector<std::uint32_t>{});
        found = track->references.end() - 1;
    }
    found->second.push_back(referenced->trackID);
    if (index) *index = static_cast<long>(found->second.size());
    return answer(noErr);
}

void GetTrackNextInterestingTime(const Track* track, std::int16_t flags, TimeValue time, Fixed /*rate*/,
                                 TimeValue* interestingTime, TimeValue* interestingDuration)
{
    if (interestingTime) *interestingTime = -1;
    if (interestingDuration) *interestingDuration = 0;
    TimeValue editStart = 0;
    const Edit* edit = track && track->media ? editAt(*track, time, &editStart) : nullptr;
    if (!edit || edit->mediaTime < 0 || !(flags & nextTimeMediaSample)) {
        answer(invalidTime);
        return;
    }
    const Media& media = *track->media;
    const TimeScale scale = movieScale(*track);
    const TimeValue mediaTime = edit->mediaTime + rescale(time - editStart, scale, media.timeScale);
    TimeValue sampleStart = 0;
    auto sample = media.sampleAtTime(mediaTime, &sampleStart);
    if (!sample) {
        answer(invalidTime);
        return;
    }
    if (!(flags & nextTimeEdgeOK) && sampleStart == mediaTime) {
        sampleStart += media.samples()[*sample].duration;
        sample = media.sampleAtTime(sampleStart);
        if (!sample) {
            answer(invalidTime);
            return;
        }
    }
    const TimeValue start = editStart + rescale(sampleStart - edit->mediaTime, media.timeScale, scale);
    if (interestingTime) *interestingTime = std::max(start, editStart);
    if (interestingDuration) *interestingDuration = rescale(media.samples()[*sample].duration, media.timeScale, scale);
    answer(noErr);
}

OSErr InsertTrackSegment(const Track* source, TimeValue sourceIn, TimeValue sourceDuration, Track* destination,
                         TimeValue destIn)
{
    if (!source || !destination || !source->media || !destination->media) return answer(invalidTrack);
    if (sourceIn < 0 || sourceDuration < 0 || destIn < 0) return answer(invalidTime);
    const Media& from = *source->media;
    Media& to = *destination->media;
    if (to.samples().empty() && to.type == fourCC("soun")) to.timeScale = from.timeScale;
    if (to.samples().empty()) to.dataFile = from.dataFile;
    if (to.dataFile != from.dataFile) return answer(couldNotResolveDataRef);

    // A whole track of one stretch keeps its media whole, the samples before
    // and after the stretch included (an AAC encoder's priming packet): the
    // sound then decodes as it did.
    const auto shownEdits =
        std::count_if(source->edits.begin(), source->edits.end(), [](const Edit& edit) { return edit.mediaTime >= 0; });
    const bool wholeMedia = sourceIn == 0 && sourceDuration >= source->duration() && shownEdits == 1;
    if (wholeMedia && to.samples().empty() && to.sampleDescriptions.empty() && to.timeScale == from.timeScale) {
        to.shareSamples(from);
        std::vector<Edit> edits = source->edits;
        for (auto& edit : edits)
            edit.trackDuration = rescale(edit.trackDuration, movieScale(*source), movieScale(*destination));
        const std::size_t index = splitEdits(*destination, destIn);
        destination->edits.insert(destination->edits.begin() + static_cast<std::ptrdiff_t>(index), edits.begin(),
                                  edits.end());
        return answer(noErr);
    }
    std::vector<Edit> inserted;
    // Each of the source's descriptions, once found or added in the destination.
    std::vector<std::uint32_t> descriptionIndexIn(from.sampleDescriptions.size(), 0);
    TimeValue editStart = 0;
    const TimeValue sourceEnd = sourceIn + sourceDuration;
    for (const auto& edit : source->edits) {
        const TimeValue begin = std::max(editStart, sourceIn);
        const TimeValue end = std::min(editStart + edit.trackDuration, sourceEnd);
        editStart += edit.trackDuration;
        if (begin >= end) continue;
        const TimeValue shown = rescale(end - begin, movieScale(*source), movieScale(*destination));
        if (edit.mediaTime < 0) {
            inserted.push_back(Edit{shown, -1, edit.rate});
            continue;
        }
        // Copy the samples the stretch shows, whole.
        const TimeValue mediaBegin =
            edit.mediaTime + rescale(begin - (editStart - edit.trackDuration), movieScale(*source), from.timeScale);
        const TimeValue mediaEnd = mediaBegin + rescale(end - begin, movieScale(*source), from.timeScale);
        TimeValue firstStart = 0;
        auto first = wholeMedia ? std::optional<std::size_t>(0) : from.sampleAtTime(mediaBegin, &firstStart);
        if (!first) continue;
        const TimeValue copiedAt = to.duration();
        TimeValue at = firstStart;
        for (std::size_t i = *first; i < from.samples().size() && (wholeMedia || at < mediaEnd); ++i) {
            Sample sample = from.samples()[i];
            if (sample.descriptionIndex == 0 || sample.descriptionIndex > from.sampleDescriptions.size()) {
                return answer(badDataRefIndex);
            }
            std::uint32_t& mapped = descriptionIndexIn[sample.descriptionIndex - 1];
            if (mapped == 0) mapped = descriptionIndexFor(to, from.sampleDescriptions[sample.descriptionIndex - 1]);
            sample.descriptionIndex = mapped;
            if (sample.held) {
                const auto bytes = from.heldBytes.begin() + static_cast<std::ptrdiff_t>(sample.offset);
                sample.offset = to.heldBytes.size();
                to.heldBytes.insert(to.heldBytes.end(), bytes, bytes + sample.size);
            }
            to.samples().push_back(sample);
            at += sample.duration;
        }
        inserted.push_back(
            Edit{shown, copiedAt + rescale(mediaBegin - firstStart, from.timeScale, to.timeScale), edit.rate});
    }
    std::size_t index = splitEdits(*destination, destIn);
    destination->edits.insert(destination->edits.begin() + static_cast<std::ptrdiff_t>(index), inserted.begin(),
                              inserted.end());
    return answer(noErr);
}

OSErr InsertMediaIntoTrack(Track* track, TimeValue trackStart, TimeValue mediaTime, TimeValue mediaDuration, Fixed rate)
{
    if (!track || !track->media) return answer(invalidTrack);
    if (mediaTime < 0 || mediaDuration < 0 || mediaTime + mediaDuration > track->media->duration()) {
        return answer(invalidDuration);
    }
    if (trackStart == -1) trackStart = track->duration();
    if (trackStart < 0) return answer(invalidTime);
    const std::size_t index = splitEdits(*track, trackStart);
    const Edit edit{rescale(mediaDuration, track->media->timeScale, movieScale(*track)), mediaTime, rate};
    track->edits.insert(track->edits.begin() + static_cast<std::ptrdiff_t>(index), edit);
    return answer(noErr);
}

OSErr DeleteTrackSegment(Track* track, TimeValue startTime, TimeValue duration)
{
    if (!track) return answer(invalidTrack);
    if (startTime < 0 || duration < 0 || startTime + duration > track->duration()) return answer(invalidTime);
    const std::size_t first = splitEdits(*track, startTime);
    const std::size_t last = splitEdits(*track, startTime + duration);
    track->edits.erase(track->edits.begin() + static_cast<std::ptrdiff_t>(first),
                       track->edits.begin() + static_cast<std::ptrdiff_t>(last));
    return answer(noErr);
}

Media* NewTrackMedia(Track* track, std::uint32_t mediaType, TimeScale timeScale, const Handle& /*dataRef*/,
                     std::uint32_t /*dataRefType*/)
{
    if (!track || timeScale <= 0) {
        answer(track ? paramErr : invalidTrack);
        return nullptr;
    }
    track->media = std::make_unique<Media>();
    track->media->type = mediaType;
    track->media->timeScale = timeScale;
    answer(noErr);
    return track->media.get();
}

OSErr BeginMediaEdits(Media* media)
{
    if (!media) return answer(invalidMedia);
    return answer(noErr);
}

OSErr EndMediaEdits(Media* media)
{
    if (!media) return answer(invalidMedia);
    return answer(noErr);
}

TimeValue GetMediaDuration(const Media* media)
{
    return media ? media->duration() : 0;
}

MediaHandler GetMediaHandler(Media* media)
{
    answer(media ? noErr : invalidMedia);
    return media;
}

OSErr AddMediaSample(Media* media, const Handle& data, long offset, std::size_t size, TimeValue durationPerSample,
                     const Handle& description, long numberOfSamples, std::int16_t /*sampleFlags*/,
                     TimeValue* sampleTime)
{
    if (!media) return answer(invalidMedia);
    if (!data || !description || offset < 0 || numberOfSamples != 1 ||
        static_cast<std::size_t>(offset) + size > data->bytes.size()) {
        return answer(paramErr);
    }
    if (durationPerSample < 0 || durationPerSample > UINT32_MAX) return answer(invalidDuration);
    if (sampleTime) *sampleTime = media->duration();
    Sample sample{media->heldBytes.size(), static_cast<std::uint32_t>(size),
                  static_cast<std::uint32_t>(durationPerSample), descriptionIndexFor(*media, description->bytes), true};
    const auto begin = data->bytes.begin() + offset;
    media->heldBytes.insert(media->heldBytes.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
    media->samples().push_back(sample);
    return answer(noErr);
}

OSErr GetMediaSample(Media* media, const Handle& data, long maxSize, long* size, TimeValue time, TimeValue* sampleTime,
                     TimeValue* durationPerSample, const Handle& description, long* descriptionIndex,
                     long /*maxNumberOfSamples*/, long* numberOfSamples, std::int16_t* sampleFlags)
{
    if (!media) return answer(invalidMedia);
    TimeValue start = 0;
    const auto index = media->sampleAtTime(time, &start);
    if (!index) return answer(invalidTime);
    const Sample& sample = media->samples()[*index];
    if (maxSize > 0 && sample.size > static_cast<std::size_t>(maxSize)) return answer(paramErr);
    if (data) data->bytes = media->sampleBytes(sample);
    if (size) *size = static_cast<long>(sample.size);
    if (sampleTime) *sampleTime = start;
    if (durationPerSample) *durationPerSample = sample.duration;
    if (sample.descriptionIndex == 0 || sample.descriptionIndex > media->sampleDescriptions.size()) {
        return answer(badDataRefIndex);
    }
    if (description) description->bytes = media->sampleDescriptions[sample.descriptionIndex - 1];
    if (descriptionIndex) *descriptionIndex = sample.descriptionIndex;
    if (numberOfSamples) *numberOfSamples = 1;
    if (sampleFlags) *sampleFlags = 0;
    return answer(noErr);
}

OSErr GetMediaSampleDescription(const Media* media, long index, const Handle& description)
{
    if (!media) return answer(invalidMedia);
    if (!description || index < 1 || static_cast<std::size_t>(index) > media->sampleDescriptions.size()) {
        return answer(paramErr);
    }
    description->bytes = media->sampleDescriptions[static_cast<std::size_t>(index) - 1];
    return answer(noErr);
}

}  // namespace quillora::toolbox

namespace quillora::toolbox {

QTTime QTMakeTime(TimeValue timeValue, TimeScale timeScale)
{
    return QTTime{timeValue, timeScale};
}

std::string QTStringFromTime(QTTime time)
{
    const TimeScale scale = time.timeScale > 0 ? time.timeScale : 1;
    const bool negative = time.timeValue < 0;
    const TimeValue value = negative ? -time.timeValue : time.timeValue;
    const TimeValue seconds = value / scale;
    return fmt::format("{}{}:{:02}:{:02}:{:02}.{:02}/{}", negative ? "-" : "", seconds / 86400, seconds / 3600 % 24,
                       seconds / 60 % 60, seconds % 60, value % scale, scale);
}

}  // namespace quillora::toolbox
