#include "toolbox/SoundMovie.h"

#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

bool writeSoundMovie(const Track& sound, TimeScale movieTimeScale, const std::filesystem::path& path)
{
    if (!sound.media || sound.mediaType() != fourCC("soun") || movieTimeScale <= 0) return false;
    Movie movie;
    movie.setTimeScale(movieTimeScale);
    Track& track = movie.newTrack();
    track.trackID = 1;
    Media* media = NewTrackMedia(&track, sound.mediaType(), sound.media->timeScale, nullptr, 0);
    if (!media) return false;
    media->language = sound.media->language;
    if (InsertTrackSegment(&sound, 0, sound.duration(), &track, 0) != noErr) return false;
    CopyTrackSettings(&sound, &track);
    track.enabled = true;
    const Value attributes = Value::dictionary({{QTMovieFlatten, true},
                                                {QTMovieExport, true},
                                                {QTMovieExportType, static_cast<std::int64_t>(kAudioFileType)}});
    return movie.writeToFile(path, attributes, Movie::Durability::scratch);
}

}  // namespace quillora::toolbox
