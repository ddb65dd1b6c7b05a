// The movie toolbox's C-style calls, as thin functions over the model in
// Movie.h. Calls answer a status (or the thing asked for, with the status
// kept for GetMoviesError); times are in the movie's time scale for tracks
// and in the media's for media.
#pragma once

#include <filesystem>
#include <memory>

#include "toolbox/Handles.h"
#include "toolbox/Movie.h"

namespace quillora::toolbox {

inline constexpr OSErr invalidMedia = -2008;
inline constexpr OSErr invalidTrack = -2009;
inline constexpr OSErr invalidMovie = -2010;
inline constexpr OSErr invalidDuration = -2014;
inline constexpr OSErr invalidTime = -2015;
inline constexpr OSErr couldNotResolveDataRef = -2000;
inline constexpr OSErr badDataRefIndex = -2050;

inline constexpr std::int32_t movieTrackMediaType = 1 << 0;
inline constexpr std::int16_t nextTimeMediaSample = 1 << 0;
inline constexpr std::int16_t nextTimeEdgeOK = 1 << 14;
inline constexpr std::uint32_t HandleDataHandlerSubType = 0x686E646C;  // 'hndl'
inline constexpr std::uint32_t AliasDataHandlerSubType = 0x616C6973;   // 'alis'
inline constexpr std::int32_t createMovieFileDeleteCurFile = 1 << 31;
inline constexpr std::int32_t newMovieActive = 1 << 0;

OSErr GetMoviesError();
// Keeps status as the answer of GetMoviesError, and answers it.
OSErr recordMoviesError(OSErr status);

// A rectangle in pixels: its edges.
struct Rect {
    std::int16_t top = 0;
    std::int16_t left = 0;
    std::int16_t bottom = 0;
    std::int16_t right = 0;
    friend bool operator==(const Rect&, const Rect&) = default;
};

// A data reference to a file by path, as the toolbox hands them around.
struct DataReference {
    std::filesystem::path path;
};
OSErr QTNewDataReferenceFromFullPathCFString(const std::string& path, std::int32_t pathStyle, std::uint32_t flags,
                                             std::unique_ptr<DataReference>& dataRef, std::uint32_t& dataRefType);

// A data reference to data in a handle: a zero-filled handle of 5 bytes
// followed by an empty 'data' extension atom.
Handle NewHandleDataReference();

// The storage a new movie is written into: its (empty) file.
struct MovieStorage {
    std::filesystem::path path;
};
OSErr CreateMovieStorage(const DataReference& dataRef, std::uint32_t dataRefType, std::uint32_t creator,
                         std::int16_t scriptTag, std::int32_t flags, std::unique_ptr<MovieStorage>& storage,
                         std::unique_ptr<Movie>& movie);
// Closes the storage; the empty file it stood for is removed.
OSErr CloseMovieStorage(std::unique_ptr<MovieStorage>& storage);

Fixed FixRatio(std::int16_t numerator, std::int16_t denominator);

// --- tracks ------------------------------------------------------------------
Track* NewMovieTrack(Movie& movie, Fixed width, Fixed height, std::int16_t volume);
Track* GetMovieIndTrackType(const Movie& movie, long index, std::uint32_t type, std::int32_t flags);
Media* GetTrackMedia(Track* track);
TimeValue GetTrackOffset(const Track* track);
void SetTrackOffset(Track* track, TimeValue offset);
TimeValue GetTrackDuration(const Track* track);
std::int16_t GetTrackVolume(const Track* track);
void SetTrackEnabled(Track* track, bool enabled);
void GetTrackDimensions(const Track* track, Fixed& width, Fixed& height);
void GetTrackMatrix(const Track* track, Matrix& matrix);
void SetTrackMatrix(Track* track, const Matrix& matrix);
void TranslateMatrix(Matrix& matrix, Fixed deltaH, Fixed deltaV);
Fixed GetTrackEditRate(const Track* track, TimeValue atTime);
OSErr CopyTrackSettings(const Track* source, Track* destination);
OSErr AddTrackReference(Track* track, const Track* referenced, std::uint32_t type, long* index);
// The media sample playing at time (or the next one), as a span of track time.
void GetTrackNextInterestingTime(const Track* track, std::int16_t flags, TimeValue time, Fixed rate,
                                 TimeValue* interestingTime, TimeValue* interestingDuration);

// --- edits -------------------------------------------------------------------
// Copies the samples the source track shows from sourceIn for
// sourceDuration into the destination's media and shows them at destIn.
OSErr InsertTrackSegment(const Track* source, TimeValue sourceIn, TimeValue sourceDuration, Track* destination,
                         TimeValue destIn);
// trackStart -1 appends after the track's last edit.
OSErr InsertMediaIntoTrack(Track* track, TimeValue trackStart, TimeValue mediaTime, TimeValue mediaDuration,
                           Fixed rate);
OSErr DeleteTrackSegment(Track* track, TimeValue startTime, TimeValue duration);

// --- media -------------------------------------------------------------------
// A sound media is given the time scale of the first samples copied into it:
// audio sample durations do not survive rescaling. The data reference is
// taken as the platform's call takes it, and not kept: a media's samples are
// held in memory or lie in the file they were read from.
Media* NewTrackMedia(Track* track, std::uint32_t mediaType, TimeScale timeScale, const Handle& dataRef,
                     std::uint32_t dataRefType);
OSErr BeginMediaEdits(Media* media);
OSErr EndMediaEdits(Media* media);
TimeValue GetMediaDuration(const Media* media);
using MediaHandler = Media*;
MediaHandler GetMediaHandler(Media* media);
// Appends a sample held in memory: size bytes of data from offset. The
// description handle holds a whole sample description entry.
OSErr AddMediaSample(Media* media, const Handle& data, long offset, std::size_t size, TimeValue durationPerSample,
                     const Handle& description, long numberOfSamples, std::int16_t sampleFlags, TimeValue* sampleTime);
OSErr GetMediaSample(Media* media, const Handle& data, long maxSize, long* size, TimeValue time, TimeValue* sampleTime,
                     TimeValue* durationPerSample, const Handle& description, long* descriptionIndex,
                     long maxNumberOfSamples, long* numberOfSamples, std::int16_t* sampleFlags);
OSErr GetMediaSampleDescription(const Media* media, long index, const Handle& description);

}  // namespace quillora::toolbox

namespace quillora::toolbox {

struct QTTime {
    TimeValue timeValue = 0;
    TimeScale timeScale = 1;
};
QTTime QTMakeTime(TimeValue timeValue, TimeScale timeScale);
// "days:hours:minutes:seconds.units/scale", the units being what is left
// below a second: 0:00:00:05.300/600 for 5.5 s at 600.
std::string QTStringFromTime(QTTime time);

}  // namespace quillora::toolbox
