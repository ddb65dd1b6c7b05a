#include "publish/PreparedRecording.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "audio/AacEncoding.h"
#include "audio/AudioError.h"
#include "foundation/FourCC.h"
#include "foundation/Progress.h"
#include "publish/RecordingShape.h"
#include "toolbox/SoundMovie.h"

namespace quillora::publish {

namespace {

using toolbox::Movie;
using toolbox::Track;

// Offsets and sizes in the podcast's atoms are signed 32-bit numbers.
constexpr std::uintmax_t kLargestRecording = (std::uintmax_t{1} << 31) - 1;

std::string trackKind(const Track& track, const Movie& movie)
{
    switch (track.mediaType()) {
    case fourCC("soun"):
        return "sound";
    case fourCC("vide"):
        return "video";
    case fourCC("text"):
    case fourCC("sbtl"):
        for (const auto& other : movie.tracks()) {
            for (const auto& [type, ids] : other->references) {
                if (type == fourCC("chap") && std::find(ids.begin(), ids.end(), track.trackID) != ids.end()) {
                    return "chapter";
                }
            }
        }
        return "text";
    default:
        return "other";
    }
}

const Track& chooseSoundTrack(const Movie& movie, const RecordingOptions& options, const std::string& name)
{
    std::vector<const Track*> sounds;
    for (const auto& track : movie.tracks()) {
        if (track->mediaType() == fourCC("soun") && track->media) sounds.push_back(track.get());
    }
    if (sounds.empty()) {
        throw RecordingRefused(fmt::format("The recording {} has no sound track: give the file the recorder made "
                                           "with the lecture's sound",
                                           name));
    }
    if (options.audioTrack) {
        for (const Track* sound : sounds) {
            if (sound->trackID == *options.audioTrack) return *sound;
        }
        std::vector<std::uint32_t> ids;
        for (const Track* sound : sounds) ids.push_back(sound->trackID);
        throw RecordingRefused(fmt::format("The recording {} has no sound track with ID {}; its sound tracks have "
                                           "the IDs {} (quillora inspect lists them)",
                                           name, *options.audioTrack, fmt::join(ids, ", ")));
    }
    const auto enabled = std::find_if(sounds.begin(), sounds.end(), [](const Track* track) { return track->enabled; });
    return **(enabled != sounds.end() ? enabled : sounds.begin());
}

// Samples the file does not hold: a recording cut short, or tables that
// point past its end.
void checkSamples(const Track& sound, const std::string& name)
{
    const auto& samples = sound.media->samples();
    if (samples.empty()) {
        throw RecordingRefused(fmt::format("The recording {} is damaged: its sound track has no samples; copy it "
                                           "again from the recorder",
                                           name));
    }
    std::error_code error;
    const auto length = std::filesystem::file_size(sound.media->dataFile, error);
    if (error) return;
    const auto past = std::count_if(samples.begin(), samples.end(), [length](const toolbox::Sample& sample) {
        return !sample.held && sample.offset + sample.size > length;
    });
    if (past > 0) {
        throw RecordingRefused(fmt::format("The recording {} is damaged: {} of its {} sound samples lie past the end "
                                           "of the file, as when a copy or a recording is cut short; copy it again "
                                           "from the recorder",
                                           name, past, samples.size()));
    }
}

void reportEncoding(double fraction)
{
    reportProgress(ProgressUnit::fraction, static_cast<std::int64_t>(fraction * 1000), 1000);
}

// The chosen sound (the stream FFmpeg numbers streamIndex, or its first sound
// stream) encoded to AAC.
std::filesystem::path encodeSound(const std::filesystem::path& recording, std::optional<int> streamIndex,
                                  const std::filesystem::path& scratchFolder, const RecordingOptions& options)
{
    beginProgressStage(options.loudness ? "Measuring and encoding the sound" : "Encoding the sound");
    const auto encoded = scratchFolder / "recording-encoded.m4a";
    try {
        audio::encodeAac(recording, encoded, {streamIndex, options.bitrate, options.loudness}, reportEncoding);
    } catch (const audio::AudioError& failure) {
        throw RecordingRefused(failure.what());
    }
    return encoded;
}

std::unique_ptr<Movie> openMovie(const std::filesystem::path& path)
{
    std::string error;
    auto movie = Movie::movieWithFile(path, &error);
    if (!movie)
        throw RecordingRefused(fmt::format("The recording made of {} cannot be read: {}", path.string(), error));
    return movie;
}

// The movie's sound track as a movie of its own in the podcast's shape.
std::filesystem::path rewrite(const Track& sound, const std::filesystem::path& scratchFolder)
{
    beginProgressStage("Preparing the recording");
    const auto prepared = scratchFolder / "recording.m4a";
    if (!toolbox::writeSoundMovie(sound, kPodcastTimeScale, prepared)) {
        throw RecordingRefused(fmt::format("The recording's sound track could not be written to {}; check that the "
                                           "scratch folder's disk has room",
                                           prepared.string()));
    }
    return prepared;
}

}  // namespace

PreparedRecording prepareRecording(const std::filesystem::path& recording, const std::filesystem::path& scratchFolder,
                                   const RecordingOptions& options)
{
    const std::string name = recording.string();
    if (!std::filesystem::is_regular_file(recording)) {
        throw RecordingRefused(fmt::format("The recording {} does not exist", name));
    }
    PreparedRecording prepared;
    std::string error;
    auto movie = Movie::movieWithFile(recording, &error);
    if (!movie) {
        // Not a movie: sound of another kind (MP3, WAV, FLAC, Ogg...).
        prepared.path = encodeSound(recording, std::nullopt, scratchFolder, options);
        prepared.notes.push_back(fmt::format("the sound of {} is encoded to AAC", recording.filename().string()));
    } else {
        const Track& sound = chooseSoundTrack(*movie, options, name);
        for (const auto& track : movie->tracks()) {
            if (track.get() == &sound) continue;
            prepared.notes.push_back(fmt::format("the {} track of {} is not published", trackKind(*track, *movie),
                                                 recording.filename().string()));
        }
        checkSamples(sound, name);
        if (options.loudness || !isCopiedSound(*sound.media)) {
            const auto index = std::find_if(movie->tracks().begin(), movie->tracks().end(),
                                            [&](const auto& track) { return track.get() == &sound; }) -
                               movie->tracks().begin();
            prepared.path = encodeSound(recording, static_cast<int>(index), scratchFolder, options);
            prepared.notes.push_back(fmt::format("the sound of {} is encoded to AAC", recording.filename().string()));
        } else if (!reasonToRewrite(recording, *movie)) {
            prepared.path = recording;
            prepared.asGiven = true;
        } else {
            prepared.path = rewrite(sound, scratchFolder);
        }
    }
    if (!prepared.asGiven) {
        // The encoder's file may already be in shape; otherwise its sound is rewritten once more.
        auto made = openMovie(prepared.path);
        if (reasonToRewrite(prepared.path, *made)) {
            const auto encoded = prepared.path;
            prepared.path = rewrite(*made->tracks().front(), scratchFolder);
            if (encoded != prepared.path) std::filesystem::remove(encoded);
            made = openMovie(prepared.path);
        }
        movie = std::move(made);
    }
    prepared.bytes = std::filesystem::file_size(prepared.path);
    if (prepared.bytes > kLargestRecording) {
        throw RecordingRefused(fmt::format("The recording {} comes to {:.1f} MB once prepared; an enhanced podcast "
                                           "stays under 2 GiB: lower the bit rate with --bitrate, or publish the "
                                           "lecture in parts",
                                           name, static_cast<double>(prepared.bytes) / 1e6));
    }
    prepared.seconds = movie->timeScale() > 0 ? static_cast<double>(movie->duration()) / movie->timeScale() : 0;
    return prepared;
}

}  // namespace quillora::publish
